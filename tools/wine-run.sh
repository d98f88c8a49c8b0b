#!/usr/bin/env bash
# Runs a Windows program under Wine for the tests of the Windows build.
#
#   tools/wine-run.sh PROGRAM.exe [ARGS...]   run it; its exit code is ours
#   tools/wine-run.sh --prepare               make the prefix and start Wine, run nothing
#   tools/wine-run.sh --stop                  stop Wine for this prefix once no program runs
#
# The program's standard output and error are the caller's; its exit code is
# passed back, reduced by Wine to 8 bits (3 for abort(), 5 for an access
# violation; a code whose low byte is 0 comes back as 1, never as 0).
#
# Environment:
#   ARDENTIUM_WINEPREFIX    base folder of the prefixes (default ~/.cache/ardentium/wineprefix)
#   ARDENTIUM_WINE_PERSIST  seconds Wine stays up after the last program (default 15;
#                           0 = start and stop it with each program)
#   ARDENTIUM_WINEDEBUG     Wine debug channels (default -all: no Wine chatter)
#   ARDENTIUM_WINE, ARDENTIUM_WINESERVER  the wine and wineserver commands
#   ARDENTIUM_WIN_CC        C cross compiler for the desktop keeper (default: the
#                           MinGW-w64 one the Windows build uses)
#
# Prefixes: headless/ for runs without an X display and display/ for runs
# with one. The Wine server of a prefix and its desktop process bind to the
# display of the program that starts them, so runs with and without a display
# never share one; within display/, a different X server (another display, or
# a virtual one started again under the same number) stops the old Wine first.
#
# Between programs Wine stays up: its server, its service processes and a
# small keeper program that holds the desktop open. Started here, with their
# output in the prefix's log, they never hold the caller's pipes. (Wine hands
# the output of the program that starts them on to these processes; ctest
# then waited for the desktop process, a second after each program that used
# the desktop, or for the whole life of the server.)
#
# Concurrent calls (ctest -j) are safe: the prefix is made under a lock, and
# each run holds a shared lock that a change of display (or --stop) waits for.

set -uo pipefail

SELF=$(basename "$0")
SCRIPT=$(readlink -f "$0")
die() { echo "$SELF: error: $*" >&2; exit 125; }

WINE=${ARDENTIUM_WINE:-wine}
WINESERVER=${ARDENTIUM_WINESERVER:-wineserver}
BASE=${ARDENTIUM_WINEPREFIX:-$HOME/.cache/ardentium/wineprefix}
PERSIST=${ARDENTIUM_WINE_PERSIST:-15}
case $PERSIST in ''|*[!0-9]*) die "ARDENTIUM_WINE_PERSIST must be a number of seconds, not '$PERSIST'" ;; esac

MODE=run
case ${1:-} in
    --prepare) MODE=prepare; shift ;;
    --stop) MODE=stop; shift ;;
    --keeper) MODE=keeper; shift ;;  # internal: the desktop keeper's supervisor
    '') die "usage: $SELF PROGRAM.exe [ARGS...] | --prepare | --stop" ;;
esac

command -v "$WINE" >/dev/null 2>&1 || die "'$WINE' not found (Debian: apt-get install wine wine64)"
command -v "$WINESERVER" >/dev/null 2>&1 || die "'$WINESERVER' not found (Debian: apt-get install wine wine64)"
command -v flock >/dev/null 2>&1 || die "'flock' not found (Debian: apt-get install util-linux)"

if [ -n "${DISPLAY:-}" ]; then
    export WINEPREFIX="$BASE/display"
else
    unset DISPLAY
    export WINEPREFIX="$BASE/headless"
fi
export WINEARCH=win64
# No Wine messages mixed into the program's output; Debian's wine wrapper
# also keeps its hint about the missing 32-bit loader to itself then.
export WINEDEBUG=${ARDENTIUM_WINEDEBUG:--all}
# mscoree/mshtml: no offers to download Mono or Gecko. winemenubuilder: no
# desktop menu entries in the user's home. winedbg: without it a crash ends
# the process with the exception code; with it, Wine's debugger prints a
# register dump to standard output and the process exits with 0.
OVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d;winedbg.exe=d"
case ${WINEDLLOVERRIDES:-} in
    "$OVERRIDES"*) ;;  # inherited from an outer call
    *) export WINEDLLOVERRIDES="$OVERRIDES${WINEDLLOVERRIDES:+;$WINEDLLOVERRIDES}" ;;
esac

mkdir -p "$BASE" || die "cannot create $BASE"
READY="$WINEPREFIX/.ardentium-ready"
SERVER_DISPLAY="$WINEPREFIX.server-display"
KEEPER_PID="$WINEPREFIX.keeper"
LAST_RUN="$WINEPREFIX.last-run"
LOG="$WINEPREFIX.log"

# The lock fds must not reach Wine: its server outlives this script and would
# hold the locks for as long as it runs.
wine_cmd() { "$@" 8>&- 9>&-; }

# ------------------------------------------------------------ desktop keeper

# The keeper: a Windows program that takes part in the desktop, so that Wine
# keeps the desktop process, and ends when its input does. Built once with
# the cross compiler the Windows build uses; without one there is no keeper
# and programs that use the desktop take about a second longer each.
KEEPER_EXE="$BASE/desktop-keeper.exe"
KEEPER_SOURCE='#include <windows.h>
int main(void) {
    char buf[256];
    DWORD n;
    HANDLE in = GetStdHandle(STD_INPUT_HANDLE);
    GetDesktopWindow();
    while (ReadFile(in, buf, sizeof buf, &n, NULL) && n > 0) {
    }
    return 0;
}'

ensure_keeper_exe() {
    local cc src
    if [ -f "$KEEPER_EXE" ] && [ "$(cat "$KEEPER_EXE.c" 2>/dev/null)" = "$KEEPER_SOURCE" ]; then
        return 0
    fi
    for cc in ${ARDENTIUM_WIN_CC:-} x86_64-w64-mingw32-gcc-posix x86_64-w64-mingw32-gcc; do
        command -v "$cc" >/dev/null 2>&1 && break
        cc=
    done
    [ -n "$cc" ] || return 1
    src=$(mktemp "$BASE/keeper.XXXXXX") || return 1
    printf '%s\n' "$KEEPER_SOURCE" >"$src.c"
    if "$cc" -O1 -s -o "$src.exe" "$src.c" -luser32 >>"$LOG" 2>&1; then
        mv -f "$src.exe" "$KEEPER_EXE"
        mv -f "$src.c" "$KEEPER_EXE.c"
    fi
    rm -f "$src" "$src.c" "$src.exe"
    [ -f "$KEEPER_EXE" ]
}

# Runs detached, output in the log: the keeper, with an input that ends once
# no program has run for $PERSIST seconds.
if [ "$MODE" = keeper ]; then
    echo $$ >"$KEEPER_PID"
    idle_wait() {
        local supervisor=$1 last
        while kill -0 "$supervisor" 2>/dev/null; do
            last=$(stat -c %Y "$LAST_RUN" 2>/dev/null || echo 0)
            [ $(($(date +%s) - last)) -ge "$PERSIST" ] && break
            sleep 1
        done
    }
    "$WINE" "$KEEPER_EXE" < <(idle_wait $$) >/dev/null 2>&1
    [ "$(cat "$KEEPER_PID" 2>/dev/null)" = $$ ] && rm -f "$KEEPER_PID"
    exit 0
fi

keeper_alive() {
    local pid
    pid=$(cat "$KEEPER_PID" 2>/dev/null) || return 1
    [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null && grep -q -- '--keeper' "/proc/$pid/cmdline" 2>/dev/null
}

# Stops Wine in this prefix once no run uses it; called holding lock 9.
stop_wine() {
    flock -x 8
    wine_cmd "$WINESERVER" -k >/dev/null 2>&1
    wine_cmd "$WINESERVER" -w >/dev/null 2>&1
    rm -f "$KEEPER_PID"
}

# ------------------------------------------------------------------ prefix

# fd 9: exclusive while the prefix is made or Wine is started or stopped.
exec 9>"$WINEPREFIX.lock" || die "cannot open $WINEPREFIX.lock"
# fd 8: shared by every run, exclusive only to stop a Wine in use.
exec 8>"$WINEPREFIX.users" || die "cannot open $WINEPREFIX.users"
flock -x 9

if [ "$MODE" = stop ]; then
    [ -d "$WINEPREFIX" ] && stop_wine
    exit 0
fi

wine_version=$(wine_cmd "$WINE" --version 2>/dev/null) || die "'$WINE --version' failed"
if [ ! -f "$READY" ] || [ "$(cat "$READY")" != "$wine_version" ]; then
    if [ -d "$WINEPREFIX" ]; then
        stop_wine  # no run may use a prefix that is being remade
        if [ ! -f "$READY" ]; then
            # Left half-made by an interrupted creation: start over.
            rm -rf "$WINEPREFIX"
        fi
    fi
    if [ -d "$WINEPREFIX" ]; then
        echo "$SELF: updating the Wine prefix $WINEPREFIX for $wine_version" >&2
        boot=-u
    else
        echo "$SELF: creating the Wine prefix $WINEPREFIX" >&2
        boot=-i
    fi
    start=$SECONDS
    : >"$LOG"
    if ! wine_cmd "$WINE" wineboot "$boot" </dev/null >>"$LOG" 2>&1 ||
       ! wine_cmd "$WINESERVER" -w </dev/null >>"$LOG" 2>&1; then
        echo "---- $LOG ----" >&2
        tail -n 30 "$LOG" >&2
        die "wineboot $boot failed for $WINEPREFIX"
    fi
    [ -f "$WINEPREFIX/system.reg" ] || die "wineboot left no registry in $WINEPREFIX; see $LOG"
    printf '%s\n' "$wine_version" >"$READY"
    rm -f "$SERVER_DISPLAY"
    echo "$SELF: prefix ready in $((SECONDS - start)) s" >&2
fi

# Which X server this run talks to. A display name alone is not enough: a
# virtual X server started again under the same number (as xvfb-run does)
# is a new server, and a Wine desktop left from the old one reports its
# stale screen; the local socket's inode and time stamp tell them apart.
display_identity() {
    local d=${DISPLAY:-} num sock
    [ -n "$d" ] || { echo "none"; return; }
    num=${d#*:}
    num=${num%%.*}
    sock="/tmp/.X11-unix/X$num"
    case $d in
        :*|unix:*) [ -S "$sock" ] && { echo "$d $(stat -c '%i.%.9Y' "$sock")"; return; } ;;
    esac
    echo "$d"
}

want_display=$(display_identity)
if [ -f "$SERVER_DISPLAY" ] && [ "$(cat "$SERVER_DISPLAY")" != "$want_display" ]; then
    stop_wine
fi
printf '%s\n' "$want_display" >"$SERVER_DISPLAY"
flock -s 8
touch "$LAST_RUN"

# ------------------------------------------------------------- start Wine

# The log only matters for the latest start; keep it from growing without end.
if [ "$(stat -c %s "$LOG" 2>/dev/null || echo 0)" -gt 1048576 ]; then
    : >"$LOG"
fi

if [ "$PERSIST" -gt 0 ]; then
    started=0
    wine_cmd "$WINESERVER" -p"$PERSIST" </dev/null >>"$LOG" 2>&1 && started=1
    if [ "$started" = 1 ] || ! keeper_alive; then
        if ensure_keeper_exe; then
            setsid "$SCRIPT" --keeper </dev/null >>"$LOG" 2>&1 8>&- 9>&- &
            echo $! >"$KEEPER_PID"
            # The keeper once more, in the foreground and with no input: when
            # it returns, the services and the desktop are up, started with
            # the log as their output.
            wine_cmd "$WINE" "$KEEPER_EXE" </dev/null >>"$LOG" 2>&1
        else
            wine_cmd "$WINE" cmd.exe /c exit </dev/null >>"$LOG" 2>&1
        fi
    fi
fi
flock -u 9
exec 9>&-

[ "$MODE" = prepare ] && exit 0

[ $# -gt 0 ] || die "no program to run"
[ -f "$1" ] || die "no such program: $1"
wine_cmd "$WINE" "$@"
status=$?
touch "$LAST_RUN"
exit $status
