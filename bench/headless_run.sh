#!/usr/bin/env bash
# The headless fur benchmark against the same run in a window under Xvfb:
# wall time, frames, FPS and peak resident memory of each, side by side.
#   bash bench/headless_run.sh [BUILD_DIR] [SECONDS]
# The headless wall time should stay within start-up + the 4 s warm-up + the
# run + two frames + the kill sequence, and its peak memory at or below the
# windowed run's.
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
seconds=${2:-5}
program="$build/ardentium"
[ -x "$program" ] || { echo "no program at $program (build first)" >&2; exit 1; }
command -v /usr/bin/time > /dev/null || { echo "needs /usr/bin/time (Debian package time)" >&2; exit 1; }
work=$(mktemp -d /tmp/ardentium-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT

args=(/display_gui=0 /test3d=2003 /run_mode=1 "/max_time=$((seconds * 1000))" /width=640 /height=360)

measure() {  # NAME then the command
    local name=$1; shift
    local dir="$work/$name"
    mkdir -p "$dir"
    local start end
    start=$(date +%s.%N)
    (cd "$dir" && /usr/bin/time -f "%M" -o "$dir/rss" "$@" "${args[@]}" "/results_json=$dir/r.json" > "$dir/out" 2> "$dir/err") || true
    end=$(date +%s.%N)
    python3 - "$name" "$start" "$end" "$dir" <<'PY'
import json, sys
name, start, end, d = sys.argv[1], float(sys.argv[2]), float(sys.argv[3]), sys.argv[4]
rss_kb = int(open(d + "/rss").read().split()[-1])
try:
    j = json.load(open(d + "/r.json"))
except (OSError, ValueError):
    print("%-9s no results (see %s/err)" % (name, d)); sys.exit(0)
print("%-9s wall %6.2f s  frames %5d in %5.2f s  FPS min/avg/max %d/%d/%d  p99 %.1f ms  peak RSS %4d MB  %s" % (
    name, end - start, j["frames"], j["duration_s"], j["fps"]["min"], j["fps"]["avg"], j["fps"]["max"],
    j["frame_time_ms"]["p99"], rss_kb // 1024, j["ending"]))
PY
}

measure headless "$program" /headless
if command -v xvfb-run > /dev/null; then
    measure windowed xvfb-run -a -s "-screen 0 1280x720x24" "$program"
else
    echo "windowed  skipped: no xvfb-run"
fi
