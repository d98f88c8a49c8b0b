#!/usr/bin/env bash
# What error detection costs. A headless fur benchmark checks its picture
# every CHECK_EVERY frames (many checks in a short run), and the script
# reports the time one check takes (drawing, read-back and comparison, after
# the frames in flight were drawn) against the median frame time, and the
# share of the run's time that gives on the normal schedule (a check after
# 5 s and at least 200 frames, and no sooner than 49 times the check's own
# time after the last, which holds the share to 2 %).
#   bash bench/check_cost.sh [BUILD_DIR] [SECONDS] [WIDTHxHEIGHT] [TEST3D] [CHECK_EVERY]
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
seconds=${2:-20}
size=${3:-640x360}
test3d=${4:-2003}
every=${5:-10}
program="$build/ardentium"
[ -x "$program" ] || { echo "no program at $program (build first)" >&2; exit 1; }
work=$(mktemp -d /tmp/ardentium-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT

(cd "$work" && "$program" /display_gui=0 "/test3d=$test3d" /run_mode=1 "/max_time=$((seconds * 1000))" \
    "/width=${size%x*}" "/height=${size#*x}" /headless "/verify_every=$every" "/results_json=$work/r.json" \
    > "$work/out" 2> "$work/err") || true
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
per_check = v["check_ms"] / (v["checks"] + 1)  # the reference is one more draw
p50 = j["frame_time_ms"]["p50"]
print("%s, %s, %dx%d: %d frames, frame time p50 %.2f ms" % (j["test"], j["api"], j["width"], j["height"], j["frames"], p50))
print("checks %d (+ reference), errors %d: %.2f ms each = %.2f frames' time" % (
    v["checks"], v["errors"], per_check, per_check / p50 if p50 > 0 else 0.0))
between = max(5000.0, 200 * p50, 49.0 * per_check)
print("on the normal schedule (a check per %.0f ms of frames): %.2f %% of the run's time" % (
    between, 100.0 * per_check / (between + per_check)))
PY
