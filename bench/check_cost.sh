#!/usr/bin/env bash
# What error detection costs: a headless fur benchmark with the picture
# checks on their normal schedule (every 5 s and at least 100 frames),
# and the share of the run's wall time the checks took, beside the cost of
# one check against the median frame time.
#   bash bench/check_cost.sh [BUILD_DIR] [SECONDS] [WIDTHxHEIGHT] [TEST3D]
# The share should stay under 2 %.
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
seconds=${2:-30}
size=${3:-640x360}
test3d=${4:-2003}
program="$build/ardentium"
[ -x "$program" ] || { echo "no program at $program (build first)" >&2; exit 1; }
work=$(mktemp -d /tmp/ardentium-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT

(cd "$work" && "$program" /display_gui=0 "/test3d=$test3d" /run_mode=1 "/max_time=$((seconds * 1000))" \
    "/width=${size%x*}" "/height=${size#*x}" /headless "/results_json=$work/r.json" > "$work/out" 2> "$work/err") || true
python3 - "$work" <<'PY'
import json, sys
d = sys.argv[1]
try:
    j = json.load(open(d + "/r.json"))
except (OSError, ValueError):
    print("no results (see %s/err)" % d); sys.exit(1)
v = j["verification"]
if v is None:
    print("this test draws no check frames"); sys.exit(1)
# The checks run through the warm-up too: their share is of the whole run.
run_ms = (j["duration_s"] + 4.0) * 1000.0
per_check = v["check_ms"] / (v["checks"] + 1)  # the reference is one more draw
p50 = j["frame_time_ms"]["p50"]
print("%s %s %dx%d: %d frames, frame time p50 %.2f ms" % (j["test"], j["api"], j["width"], j["height"], j["frames"], p50))
print("checks %d (+ reference), errors %d, %.1f ms in all, %.2f ms each (%.2f frames' time)" % (
    v["checks"], v["errors"], v["check_ms"], per_check, per_check / p50 if p50 > 0 else 0.0))
print("share of the run's time: %.2f %%" % (100.0 * v["check_ms"] / run_ms))
PY
