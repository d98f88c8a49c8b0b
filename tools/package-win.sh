#!/usr/bin/env bash
# Makes the Windows package: a zip that runs on a clean Windows 10/11 x64.
#
#   tools/package-win.sh [--output FILE.zip] [--no-strip] [BUILD_DIR]
#
# BUILD_DIR is the Windows build folder (default build-win). The zip is
# BUILD_DIR/ardentium-<version>-win64.zip, the version being the CMake
# project's, unless --output names another file. It holds one folder,
# Ardentium/, with ardentium.exe, adata.dll, the data folder the build places
# beside them, README.txt for users, and every DLL the program imports that
# Windows itself does not provide.
#
# Those DLLs are found by reading the import tables of the exe and adata.dll,
# and of every DLL copied for them in turn. A DLL that is neither a Windows
# system DLL (the list below) nor found in the build folder, the compiler's
# library folders or the MinGW sysroot stops the script: a package missing it
# would not start on the user's machine.
#
# The program's own binaries are copied without their debug information
# (--no-strip keeps it), which is most of a RelWithDebInfo build's size.
#
# Environment: ARDENTIUM_OBJDUMP, ARDENTIUM_STRIP (the MinGW-w64 tools; by
# default those the build was configured with, else x86_64-w64-mingw32-*).

set -euo pipefail

SELF=$(basename "$0")
die() { echo "$SELF: error: $*" >&2; exit 1; }
usage() { echo "usage: $SELF [--output FILE.zip] [--no-strip] [BUILD_DIR]" >&2; exit 2; }

BUILD=
OUTPUT=
STRIP_DEBUG=1
while [ $# -gt 0 ]; do
    case $1 in
        -o|--output) [ $# -ge 2 ] || usage; OUTPUT=$2; shift 2 ;;
        --output=*) OUTPUT=${1#--output=}; shift ;;
        --no-strip) STRIP_DEBUG=0; shift ;;
        -h|--help) usage ;;
        -*) echo "$SELF: unknown option '$1'" >&2; usage ;;
        *) [ -z "$BUILD" ] || usage; BUILD=$1; shift ;;
    esac
done
BUILD=${BUILD:-build-win}

[ -d "$BUILD" ] || die "no build folder '$BUILD' (build the Windows program first: see README.md)"
BUILD=$(cd "$BUILD" && pwd)
CACHE="$BUILD/CMakeCache.txt"
[ -f "$CACHE" ] || die "'$BUILD' is not a CMake build folder (no CMakeCache.txt)"

cache_value() { sed -n "s/^$1:[A-Z]*=//p" "$CACHE" | head -n 1; }

VERSION=$(cache_value CMAKE_PROJECT_VERSION)
[[ $VERSION =~ ^[0-9]+(\.[0-9]+)*$ ]] || die "no project version in $CACHE (found '$VERSION')"

find_tool() {  # find_tool ENV_VALUE CACHE_VARIABLE FALLBACK
    local t
    for t in "$1" "$(cache_value "$2")" "$3"; do
        [ -n "$t" ] && command -v "$t" >/dev/null 2>&1 && { echo "$t"; return 0; }
    done
    die "'$3' not found (Debian: apt-get install binutils-mingw-w64-x86-64)"
}
OBJDUMP=$(find_tool "${ARDENTIUM_OBJDUMP:-}" CMAKE_OBJDUMP x86_64-w64-mingw32-objdump)
STRIP=$(find_tool "${ARDENTIUM_STRIP:-}" CMAKE_STRIP x86_64-w64-mingw32-strip)
command -v python3 >/dev/null 2>&1 || die "python3 not found (Debian: apt-get install python3)"

EXE="$BUILD/ardentium.exe"
LIB="$BUILD/adata.dll"
DATA="$BUILD/data"
for f in "$EXE" "$LIB"; do
    [ -f "$f" ] || die "$f is missing: is '$BUILD' a built Windows build folder?"
done
[ -d "$DATA" ] || die "$DATA is missing: is '$BUILD' a built Windows build folder?"

# ------------------------------------------------------------ system DLLs

# What every Windows 10/11 x64 installation has in System32. Anything else
# the program imports has to travel with it. Not here on purpose: the
# DirectX redistributable's d3dx9_*, d3dcompiler_43 and xinput1_3, and the
# Visual C++ runtimes; a clean Windows lacks them.
SYSTEM_DLLS="
advapi32 avrt bcrypt cfgmgr32 comctl32 comdlg32 crypt32 d2d1 d3d10 d3d10_1 d3d11 d3d12 d3d9
d3dcompiler_47 dbghelp dinput8 dnsapi dsound dwmapi dwrite dxgi gdi32 gdiplus glu32 hid imm32
iphlpapi kernel32 kernelbase ksuser mpr msimg32 msvcrt mswsock ncrypt netapi32 ntdll ole32
oleacc oleaut32 opengl32 pdh powrprof propsys psapi rpcrt4 secur32 setupapi shcore shell32
shlwapi ucrtbase user32 userenv usp10 uxtheme version winhttp wininet winmm winspool wintrust
ws2_32 wsock32 wtsapi32 xinput1_4 xinput9_1_0
"

is_system_dll() {
    local name=${1,,}
    case $name in
        api-ms-win-*.dll|ext-ms-win-*.dll) return 0 ;;  # the UCRT and API sets
        winspool.drv) return 0 ;;
        *.dll) name=${name%.dll} ;;
        *) return 1 ;;
    esac
    case " ${SYSTEM_DLLS//$'\n'/ } " in *" $name "*) return 0 ;; esac
    return 1
}

# ------------------------------------------------- where other DLLs are

# The build folder itself (the project's own DLLs, not its test doubles in
# subfolders), the folders the compiler links from (its runtime DLLs:
# libstdc++, libgcc_s, libwinpthread), the MinGW sysroot, and the folder of
# cross-built libraries.
SEARCH_DIRS=()
add_search_dir() {
    local d s
    [ -d "$1" ] || return 0
    d=$(cd "$1" && pwd)
    for s in "${SEARCH_DIRS[@]}"; do [ "$s" = "$d" ] && return 0; done
    SEARCH_DIRS+=("$d")
}
add_search_dir "$BUILD"
CXX=$(cache_value CMAKE_CXX_COMPILER)
if [ -n "$CXX" ] && command -v "$CXX" >/dev/null 2>&1; then
    while IFS= read -r d; do
        add_search_dir "$d"
    done < <("$CXX" -print-search-dirs | sed -n 's/^libraries: =//p' | tr ':' '\n')
else
    # No compiler recorded: the -posix flavour's folders, which is what the
    # build uses (its libstdc++ is built on winpthreads).
    for d in /usr/lib/gcc/x86_64-w64-mingw32/*-posix; do
        add_search_dir "$d"
    done
fi
add_search_dir /usr/x86_64-w64-mingw32/lib
add_search_dir /usr/x86_64-w64-mingw32/bin
DEPS=$(cache_value ARDENTIUM_WIN_DEPS)
if [ -n "$DEPS" ]; then
    add_search_dir "$DEPS/bin"
    add_search_dir "$DEPS/lib"
fi

find_dll() {  # prints the path of DLL $1 (any letter case), or nothing
    local d f f_lc want=${1,,}
    for d in "${SEARCH_DIRS[@]}"; do
        [ -d "$d" ] || continue
        for f in "$d"/*; do
            f_lc=${f,,}
            [ "${f_lc##*/}" = "$want" ] && [ -f "$f" ] && { echo "$f"; return 0; }
        done
    done
    return 0
}

imports_of() {  # the DLL names in the import tables of PE file $1
    local out
    out=$("$OBJDUMP" -p "$1" 2>&1) || die "cannot read the imports of $1: $out"
    grep -q 'file format pei-x86-64' <<<"$out" || die "$1 is not a 64-bit Windows program or DLL"
    # objdump lists the ordinary import table only; DLLs loaded on first
    # call would go unseen, so a file that has them is refused, not guessed
    # at. GNU ld leaves the header's delay-import entry empty: its helper's
    # symbols give such a file away while it has a symbol table.
    if grep -Eq '^Entry d [0-9a-fA-F]+ 0*[1-9a-fA-F][0-9a-fA-F]* Delay Import Directory' <<<"$out" ||
       "$OBJDUMP" -t "$1" 2>/dev/null |
           grep -E ' (__delayLoadHelper2|__DELAY_IMPORT_DESCRIPTOR_[A-Za-z0-9_]*)$' >/dev/null; then
        die "$1 has delay-loaded imports, which this script does not read"
    fi
    sed -n 's/^[[:space:]]*DLL Name:[[:space:]]*//p' <<<"$out" | tr -d '\r' | sort -fu
}

# ------------------------------------------------ walk the import tables

declare -A SEEN=()       # lower-case DLL name -> 1
declare -A BUNDLED=()    # lower-case DLL name -> path of the copy to ship
declare -A NEEDED_BY=()  # lower-case DLL name -> who imports it
SEEN[ardentium.exe]=1
SEEN[adata.dll]=1
queue=("$EXE" "$LIB")
missing=()
while [ ${#queue[@]} -gt 0 ]; do
    pe=${queue[0]}
    queue=("${queue[@]:1}")
    imports=$(imports_of "$pe") || exit 1
    while IFS= read -r dll; do
        [ -n "$dll" ] || continue
        key=${dll,,}
        [ -n "${SEEN[$key]:-}" ] && continue
        SEEN[$key]=1
        NEEDED_BY[$key]=$(basename "$pe")
        is_system_dll "$dll" && continue
        path=$(find_dll "$dll")
        if [ -z "$path" ]; then
            missing+=("$dll")
            continue
        fi
        BUNDLED[$key]=$path
        queue+=("$path")
    done <<<"$imports"
done

if [ ${#missing[@]} -gt 0 ]; then
    for dll in "${missing[@]}"; do
        echo "$SELF: error: $dll (imported by ${NEEDED_BY[${dll,,}]}) is not a Windows system DLL" \
             "and was not found in any of: ${SEARCH_DIRS[*]}" >&2
    done
    die "the package would not run without ${missing[*]}"
fi

# ------------------------------------------------------------ the folder

STAGE=$(mktemp -d "${TMPDIR:-/tmp}/ardentium-package.XXXXXX")
trap 'rm -rf "$STAGE"; [ -z "${OUTPUT:-}" ] || rm -f "$OUTPUT.part"' EXIT
TOP="$STAGE/Ardentium"
mkdir -p "$TOP"

ship_pe() {  # ship_pe SOURCE NAME
    if [ "$STRIP_DEBUG" = 1 ]; then
        "$STRIP" --strip-debug -o "$TOP/$2" "$1" || die "cannot strip $1"
    else
        cp "$1" "$TOP/$2"
    fi
}
ship_pe "$EXE" ardentium.exe
ship_pe "$LIB" adata.dll
for key in "${!BUNDLED[@]}"; do
    ship_pe "${BUNDLED[$key]}" "$(basename "${BUNDLED[$key]}")"
done

# The data folder as the program reads it, less what the build keeps there
# for itself: CMake's files, the import library of adata.dll, the meshes
# blob that is already inside adata.dll, and the unit tests' JPEG pattern.
(cd "$DATA" && find . \( -name CMakeFiles -o -name '.[!.]*' \) -prune -o -type f \
        ! -name '*.cmake' ! -name '*.a' ! -name '*.obj' ! -name '*.o' ! -name '*.ninja' \
        ! -path ./adata.bin ! -path ./jpeg_test_pattern.jpg -print0) |
    while IFS= read -r -d '' f; do
        mkdir -p "$TOP/data/$(dirname "$f")"
        cp -p "$DATA/$f" "$TOP/data/$f"
    done
[ -n "$(find "$TOP/data" -type f -print -quit 2>/dev/null)" ] || die "$DATA holds no data files"

# For users: Windows line ends, so every editor shows it right.
TITLE="Ardentium $VERSION for Windows x64"
sed 's/$/\r/' >"$TOP/README.txt" <<EOF
$TITLE
${TITLE//?/=}

Ardentium is a GPU stress test and benchmark: it draws demanding real-time 3D
scenes as fast as the graphics card allows, reads the card's sensors and turns
benchmark runs into FPS statistics and scores.

Requirements: Windows 10 or 11, 64-bit, with the graphics card's own driver
installed (OpenGL 2.0 or newer). Nothing else needs to be installed: unpack
this folder anywhere you can write to and start ardentium.exe from it.

Start a test from a command prompt opened in this folder (this version has no
launcher window yet: started without /display_gui=0 the program only notes
that in its log and ends), for example

  ardentium.exe /display_gui=0 /test3d=2003 /run_mode=1 /max_time=60000 /log_score

    /test3d=2003     the fur test, OpenGL 2 (2102: OpenGL 3)
    /run_mode=1      benchmark (2: stress test until you press Esc)
    /max_time=MS     length of a benchmark in milliseconds
    /width= /height= window size in pixels
    /log_score       add the result to Ardentium_Scores.csv
    /screenshot=FILE save the last frame as a PNG picture

Where things go: the event log ardentium_log.txt is written in the folder the
program was started from; the scores file Ardentium_Scores.csv, the
temperature log and the settings file startup_options.xml live in this
folder, next to ardentium.exe. The data folder holds the pictures and the
font the tests use: keep it beside the program.
EOF

# ------------------------------------------------------------------ zip

OUTPUT=${OUTPUT:-$BUILD/ardentium-$VERSION-win64.zip}
mkdir -p "$(dirname "$OUTPUT")"
OUTPUT=$(cd "$(dirname "$OUTPUT")" && pwd)/$(basename "$OUTPUT")
# Written beside the target and renamed, so nobody sees half a zip.
python3 - "$STAGE" "$OUTPUT.part" <<'PY' || die "cannot write $OUTPUT"
import os, sys, zipfile
stage, out = sys.argv[1], sys.argv[2]
with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as z:
    for root, dirs, files in os.walk(stage):
        dirs.sort()
        if root != stage:
            z.write(root, os.path.relpath(root, stage).replace(os.sep, "/"))
        for name in sorted(files):
            path = os.path.join(root, name)
            z.write(path, os.path.relpath(path, stage).replace(os.sep, "/"))
PY
mv -f "$OUTPUT.part" "$OUTPUT"

echo "$SELF: $OUTPUT"
for key in "${!BUNDLED[@]}"; do
    echo "$SELF:   with $(basename "${BUNDLED[$key]}") (imported by ${NEEDED_BY[$key]})"
done
[ ${#BUNDLED[@]} -gt 0 ] || echo "$SELF:   no DLLs beyond Windows' own needed"
