#!/usr/bin/env bash
# The OpenGL 4 benchmark stage by stage: frames, FPS, wall time per frame and
# the render thread's own processor time per frame (target: under 1 % of the
# frame on a GPU; on a software renderer the render thread does the driver's
# vertex work, so the share is far higher there and says little).
#   bash bench/amark_stages.sh [BUILD_DIR] [PRESET] [WIDTH] [HEIGHT] [STAGE_SECONDS]
# STAGE_SECONDS 0 (the default) runs the planned 20/20/20/20/50 s stages;
# anything else uses the test setting /amark_stage_seconds.
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
preset=${2:-2}
width=${3:-1280}
height=${4:-720}
stage_seconds=${5:-0}
program="$build/ardentium"
[ -x "$program" ] || { echo "no program at $program (build first)" >&2; exit 1; }
work=$(mktemp -d /tmp/ardentium-amark-bench.XXXXXX)
trap 'rm -rf "$work"' EXIT

args=(/display_gui=0 /test3d=2206 /run_mode=1 "/amark_preset=$preset" "/width=$width" "/height=$height" /no_music
      "/results_json=$work/r.json")
[ "$stage_seconds" != 0 ] && args+=("/amark_stage_seconds=$stage_seconds")
[ -n "${AMARK_BENCH_ARGS:-}" ] && read -r -a extra <<< "$AMARK_BENCH_ARGS" && args+=("${extra[@]}")
(cd "$work" && "$program" "${args[@]}" > "$work/out" 2> "$work/err") || true
grep -a -E 'preset|demo mode|score:|AScore|avg FPS:|avg SPS:' "$work/ardentium_log.txt" | sed 's/^.* >> /  /' || true
python3 - "$work/r.json" "$work/err" <<'PY'
import json, sys
try:
    j = json.load(open(sys.argv[1]))
except (OSError, ValueError):
    print("no results; stderr:\n" + open(sys.argv[2]).read()); sys.exit(1)
print("%s, %s, %dx%d, renderer %s" % (j["test"], j["api"], j["width"], j["height"], j["renderer"]))
print("%-40s %7s %7s %10s %16s %8s" % ("stage", "frames", "avg FPS", "frame ms", "render CPU ms/fr", "CPU %"))
for s in j.get("stages", []):
    if not s["active"]:
        print("%-40s not active" % s["name"]); continue
    cpu, ms = s["render_thread_cpu_ms_per_frame"], s["frame_ms"]
    share = "%.2f" % (100.0 * cpu / ms) if cpu is not None and ms else "n.a."
    print("%-40s %7d %7d %10s %16s %8s" % (s["name"], s["frames"], s["avg_fps"],
          "%.3f" % ms if ms is not None else "n.a.", "%.4f" % cpu if cpu is not None else "n.a.", share))
PY
