#!/usr/bin/env bash
# The same benchmark run with the paced frame waits and with the driver's own
# wait (ARDENTIUM_PACED_WAIT=0), side by side: FPS, and the share of its
# lifetime the render thread spent on a processor. On a GPU
# whose driver spins in its fence wait the render thread's share should drop
# with pacing while the FPS stays; on a software renderer both are dominated
# by the drawing itself.
#   bash bench/fence_wait.sh [BUILD_DIR] [SECONDS] [EXTRA ARGS...]
# e.g. bash bench/fence_wait.sh build 10 /test3d=2206 /amark_stage_seconds=2
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
seconds=${2:-10}
shift $(($# > 2 ? 2 : $#))
program="$build/ardentium"
[ -x "$program" ] || { echo "no program at $program (build first)" >&2; exit 1; }
work=$(mktemp -d /tmp/ardentium-fence.XXXXXX)
trap 'rm -rf "$work"' EXIT

# The caller's arguments first: the first of two equal switches counts.
args=("$@" /display_gui=0 /headless /test3d=2003 /run_mode=1 "/max_time=$((seconds * 1000))" /width=1280 /height=720
      /no_music)

for paced in 1 0; do
    dir="$work/$paced"
    mkdir -p "$dir"
    (cd "$dir" && ARDENTIUM_PACED_WAIT=$paced exec "$program" "${args[@]}" "/results_json=$dir/r.json" \
        > "$dir/out" 2> "$dir/err") &
    pid=$!
    # The render thread's processor time and lifetime, found by its name
    # while the run goes on (the thread is gone once the program ends).
    render="" first="" last=""
    while kill -0 "$pid" 2> /dev/null; do
        for t in /proc/"$pid"/task/*; do
            if [ "$(cat "$t/comm" 2> /dev/null)" = render ]; then
                ticks=$(awk '{print $14 + $15}' "$t/stat" 2> /dev/null) || continue
                render=$ticks last=$(date +%s.%N)
                [ -n "$first" ] || first=$last
            fi
        done
        sleep 0.2
    done
    wait "$pid" || true
    python3 - "$paced" "$dir" "$render" "$first" "$last" "$(getconf CLK_TCK)" <<'PY'
import json, sys
paced, d, render, first, last, tck = sys.argv[1:7]
try:
    j = json.load(open(d + "/r.json"))
except (OSError, ValueError):
    print("paced=%s no results; stderr:\n%s" % (paced, open(d + "/err").read())); sys.exit(0)
lifetime = float(last) - float(first) if render else 0.0
share = "%.1f %%" % (100.0 * int(render) / int(tck) / lifetime) if lifetime > 1.0 else "n.a."
print("%-11s %s, %s, %dx%d: %d frames, FPS avg %d; render thread on a processor %s of its %.1f s"
      % ("paced" if paced == "1" else "driver wait", j["test"], j["api"], j["width"], j["height"], j["frames"],
         j["fps"]["avg"], share, lifetime))
PY
done
