#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang (ASan + UBSan over the whole
# project) in build-fuzz/ and runs each one on its seed corpus.
#
#   fuzz/run.sh [--seconds N | --runs N] [HARNESS...]
#
#   --seconds N  run each harness for N seconds (default 20: the CI's share)
#   --runs N     run each harness for N inputs instead (the long campaign:
#                fuzz/run.sh --runs 10000000)
#   --seed N     start libFuzzer's random generator at N, so that a run is
#                repeatable: the CI uses a fixed seed, so a fault it reports can
#                be found again here, and a seed checked here for longer stays
#                clean there
#   HARNESS      command_line settings_file image ogg vthm gpuz sysfs pnp_id
#                vendor_replies
#                (default: all)
#
# Each harness works in fuzz/work/<harness>/: its growing corpus (seeded from
# fuzz/corpus/<harness>), the inputs that crashed it, and its output. The
# script prints one line per harness with the inputs it ran and exits non-zero
# when any harness found a fault.
set -uo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
limit=(-max_total_time=20)
seed=()
while [ $# -gt 0 ]; do
  case "$1" in
    --seconds) limit=(-max_total_time="$2"); shift 2 ;;
    --runs) limit=(-runs="$2"); shift 2 ;;
    --seed) seed=(-seed="$2"); shift 2 ;;
    *) break ;;
  esac
done
all=(command_line settings_file image ogg vthm gpuz sysfs pnp_id vendor_replies)
wanted=("$@")
[ ${#wanted[@]} -gt 0 ] || wanted=("${all[@]}")

command -v clang++ > /dev/null || { echo "needs clang (Debian packages clang, libclang-rt-14-dev)" >&2; exit 1; }
cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
      -DCMAKE_CXX_COMPILER=clang++ -DARDENTIUM_FUZZ=ON -DARDENTIUM_TESTS=ON > /dev/null || exit 1
cmake --build build-fuzz -j "$(nproc)" --target "${wanted[@]/#/fuzz_}" || exit 1

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
status=0
for name in "${wanted[@]}"; do
  program=$(find build-fuzz -type f -name "fuzz_$name" -perm -u+x | head -1)
  [ -n "$program" ] || { echo "$name: not built" >&2; status=1; continue; }
  work="$root/fuzz/work/$name"
  mkdir -p "$work/corpus" "$work/crashes"
  [ -d "fuzz/corpus/$name" ] && cp -n fuzz/corpus/"$name"/* "$work/corpus/" 2> /dev/null
  # The harnesses write the event log and scratch files where they run.
  (cd "$work" && "$root/$program" "${limit[@]}" ${seed[@]+"${seed[@]}"} -timeout=10 -rss_limit_mb=2048 -max_len=65536 \
      -print_final_stats=1 -artifact_prefix="$work/crashes/" corpus > output.txt 2>&1)
  rc=$?
  runs=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$work/output.txt" | awk '{print $2}')
  secs=$(grep -oE 'stat::average_exec_per_sec: *[0-9]+' "$work/output.txt" | awk '{print $2}')
  if [ $rc -eq 0 ]; then
    printf '%-14s ok     %10s inputs (%s/s), corpus %s files\n' "$name" "${runs:-?}" "${secs:-?}" \
      "$(ls "$work/corpus" | wc -l)"
  else
    status=1
    printf '%-14s FAULT  after %s inputs: see %s and %s\n' "$name" "${runs:-?}" "$work/output.txt" "$work/crashes"
    grep -m3 -E "ERROR: |runtime error|SUMMARY" "$work/output.txt" | sed 's/^/    /'
  fi
done
exit $status
