#!/usr/bin/env bash
# Unit tests under the sanitizers, built with clang beside the normal build.
#
#   fuzz/sanitized-tests.sh tsan [TEST...]   ThreadSanitizer, build-tsan/: the tests
#                                            of the code that runs threads (default:
#                                            sim, runner, monitor, core, audio)
#   fuzz/sanitized-tests.sh asan [TEST...]   ASan + UBSan, in the fuzz harnesses' build
#                                            (build-fuzz/, whose libraries carry both
#                                            already): every unit test by default
#   fuzz/sanitized-tests.sh asan-e2e [REGEX]  the real program of build-fuzz/ under
#                                            ASan + UBSan, through the end-to-end
#                                            tests whose names match REGEX (default:
#                                            shell, runner, fur and monitor)
#
# Any report fails the run. Leaks inside system libraries the project does not
# own are suppressed by name in fuzz/lsan.supp; the project's own never are.
set -uo pipefail
cd "$(dirname "$0")/.."
mode=${1:-}
shift || true
case "$mode" in
  tsan) dir=build-tsan; sanitize=thread
        tests=("$@"); [ ${#tests[@]} -gt 0 ] || tests=(sim_tests runner_tests monitor_tests core_tests audio_tests) ;;
  asan) dir=build-fuzz; sanitize="address;undefined"
        tests=("$@"); [ ${#tests[@]} -gt 0 ] || tests=(platform_tests data_tests core_tests monitor_tests render_tests
                                                          sim_tests runner_tests hud_tests fur_tests audio_tests app_tests launcher_tests http_tests
                                                          amark_tests) ;;
  asan-e2e) dir=build-fuzz; pattern=${1:-^e2e_(shell|runner|fur|monitor)$}; tests=(ardentium data_images incomplete_adata) ;;
  *) echo "usage: fuzz/sanitized-tests.sh tsan|asan [TEST...] | asan-e2e [REGEX]" >&2; exit 2 ;;
esac
command -v clang++ > /dev/null || { echo "needs clang (Debian packages clang, libclang-rt-14-dev)" >&2; exit 1; }
if [ "$mode" != tsan ]; then
  # The same configuration as fuzz/run.sh's, so neither rebuilds the other's work.
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
        -DCMAKE_CXX_COMPILER=clang++ -DARDENTIUM_FUZZ=ON -DARDENTIUM_TESTS=ON > /dev/null || exit 1
else
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
        -DCMAKE_CXX_COMPILER=clang++ "-DARDENTIUM_SANITIZE=$sanitize" > /dev/null || exit 1
fi
cmake --build "$dir" -j "$(nproc)" --target "${tests[@]}" || exit 1

export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1"
export ASAN_OPTIONS="detect_leaks=1 abort_on_error=1"
export LSAN_OPTIONS="suppressions=$(pwd)/fuzz/lsan.supp print_suppressions=0"
export UBSAN_OPTIONS="print_stacktrace=1 halt_on_error=1"
if [ "$mode" = asan-e2e ]; then
  # The tests read what the program reports; a sanitizer's report ends it
  # with an abort, which every test sees as a failed run.
  (cd "$dir" && ctest -R "$pattern" --output-on-failure) > "$dir/asan-e2e.log" 2>&1
  status=$?
  grep -E "^ *[0-9]+/[0-9]+ Test|tests passed" "$dir/asan-e2e.log" | sed 's/^ *//'
  [ $status -eq 0 ] || { echo "end-to-end tests under asan FAILED, see $dir/asan-e2e.log";
                         grep -m5 -E "ERROR: AddressSanitizer|ERROR: LeakSanitizer|runtime error" "$dir/asan-e2e.log" | sed 's/^/    /'; }
  exit $status
fi
status=0
for t in "${tests[@]}"; do
  program=$(find "$dir" -maxdepth 3 -type f -name "$t" -perm -u+x | head -1)
  log="$dir/$t.log"
  if (cd "$dir" && "./${program#$dir/}" --gtest_brief=1 > "$t.log" 2>&1); then
    echo "$t: passed under $mode ($(grep -oE '[0-9]+ tests? from [0-9]+ test suites? ran' "$log" | head -1))"
  else
    status=1
    echo "$t: FAILED under $mode, see $log"
    grep -m5 -E "WARNING: ThreadSanitizer|ERROR: AddressSanitizer|ERROR: LeakSanitizer|runtime error|\[  FAILED" "$log" | sed 's/^/    /'
  fi
done
exit $status
