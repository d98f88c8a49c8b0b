#!/usr/bin/env bash
# Sets up, builds both targets, and runs every test: the Linux unit and
# end-to-end tests, the threaded tests under ThreadSanitizer, a short run of
# every fuzz harness, the unit tests and the main end-to-end tests under
# AddressSanitizer + UBSan (in the harnesses' build, which already carries
# both), then the Windows tests under Wine.
set -uo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh all || exit 1
status=0
echo "== Linux tests"
ctest --test-dir build --output-on-failure -j "$(nproc)" || status=1
echo "== Threaded unit tests under ThreadSanitizer"
bash fuzz/sanitized-tests.sh tsan || status=1
echo "== Fuzz harnesses, 10 s each"
bash fuzz/run.sh --seed 1 --seconds 10 || status=1
echo "== Unit tests under AddressSanitizer + UBSan"
bash fuzz/sanitized-tests.sh asan || status=1
echo "== End-to-end tests under AddressSanitizer + UBSan"
bash fuzz/sanitized-tests.sh asan-e2e || status=1
echo "== Windows tests (Wine)"
ctest --test-dir build-win --output-on-failure || status=1
exit $status
