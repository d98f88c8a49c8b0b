#!/usr/bin/env bash
# Sets up, builds both targets, and runs every test: the Linux unit and
# end-to-end tests, then the Windows tests under Wine.
set -uo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh all || exit 1
status=0
echo "== Linux tests"
ctest --test-dir build --output-on-failure -j "$(nproc)" || status=1
echo "== Windows tests (Wine)"
ctest --test-dir build-win --output-on-failure || status=1
exit $status
