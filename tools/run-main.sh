#!/usr/bin/env bash
# Sets up, builds, and runs the main job: a short headless benchmark run of the
# fur test on the built-in defaults, started from a scratch folder; shows the
# event log it wrote and ends with the run's result line.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh linux
run_dir=$(mktemp -d /tmp/ardentium-run.XXXXXX)
program=$(pwd)/build/ardentium
status=0
(cd "$run_dir" && "$program" /display_gui=0 /test3d=2003 /run_mode=1 /max_time=5000 /width=640 /height=360 \
    > "$run_dir/result.txt") || status=$?
echo "== event log ($run_dir/ardentium_log.txt)"
cat "$run_dir/ardentium_log.txt"
echo "== result (exit code $status)"
cat "$run_dir/result.txt"
exit "$status"
