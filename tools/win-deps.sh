#!/usr/bin/env bash
# Cross-compiles the third-party libraries of the Windows build from Debian's
# source packages into a cache folder outside the source tree.
#
#   tools/win-deps.sh [--refresh] [--force] [LIBRARY...]
#
#   --refresh   download the source package index again before building
#   --force     rebuild the named libraries (all when none is named) even
#               when their stamps say they are up to date
#
# Environment:
#   ARDENTIUM_WIN_DEPS   the cache folder (default ~/.cache/ardentium/win64);
#                        CMake's configure reads the same variable, or takes
#                        -DARDENTIUM_WIN_DEPS=<folder>
#   ARDENTIUM_MIRROR     Debian mirror URI to take the sources from (default:
#                        the one the machine's own apt sources use)
#   ARDENTIUM_CROSS      cross compiler prefix (default x86_64-w64-mingw32)
#
# Layout of the cache folder:
#   include/<library>/    headers for the program
#   lib/lib<name>.a       static libraries
#   stamps/<library>      what was built: source package, version, recipe
#   .work/apt/            private apt source list, package index and cache
#   .work/src/            downloaded source packages (.dsc and tarballs)
#   .work/build/          scratch unpack/build folders, removed after success
#   .work/log/            output of the last unpack and build of each library
#
# Each library is one build_<name> function plus one line in the table below;
# its stamp records the Debian source version and the recipe number, so a new
# package version or a changed recipe rebuilds just that library.

set -euo pipefail

# ------------------------------------------------------------- the libraries

# name -> Debian source package. The recipe number is bumped whenever the
# matching build function changes what it produces.
declare -A SOURCE_PACKAGE=(
    [irrxml]=irrlicht
    [ogg]=libogg
    [vorbis]=libvorbis
    [imgui]=imgui
)
declare -A RECIPE=(
    [irrxml]=1
    [ogg]=1
    [vorbis]=1
    [imgui]=1
)
# In build order: vorbis is built against the ogg installed before it.
ALL_LIBRARIES=(irrxml ogg vorbis imgui)

# ------------------------------------------------------------------ helpers

SELF=$(basename "$0")
die() { echo "$SELF: error: $*" >&2; exit 1; }
warn() { echo "$SELF: warning: $*" >&2; }
note() { echo "$SELF: $*"; }

DEPS=${ARDENTIUM_WIN_DEPS:-$HOME/.cache/ardentium/win64}
CROSS=${ARDENTIUM_CROSS:-x86_64-w64-mingw32}
CC="$CROSS-gcc-posix"
CXX="$CROSS-g++-posix"
AR="$CROSS-ar"
RANLIB="$CROSS-ranlib"
NM="$CROSS-nm"
# Matches the flags of the program's RelWithDebInfo build; the libraries are
# third-party code, so their warnings are not ours to fix.
CFLAGS_COMMON=(-O2 -g -w)
JOBS=$(nproc 2>/dev/null || echo 2)

WORK="$DEPS/.work"
APT_DIR="$WORK/apt"
SRC_DIR="$WORK/src"
BUILD_DIR="$WORK/build"
LOG_DIR="$WORK/log"
STAMP_DIR="$DEPS/stamps"
SUITE=bookworm

# Runs a command with its output in a log file; shows the log's end on failure.
logged() {
    local log=$1
    shift
    if ! "$@" >>"$log" 2>&1; then
        echo "$SELF: command failed: $*" >&2
        echo "---- last lines of $log ----" >&2
        tail -n 40 "$log" >&2
        exit 1
    fi
}

# ------------------------------------------------------------- build tools

# command -> Debian package that provides it
declare -A TOOL_PACKAGE=(
    [apt-get]=apt
    [dpkg-source]=dpkg-dev
    [patch]=patch
    [xz]=xz-utils
    [flock]=util-linux
    ["$CC"]=gcc-mingw-w64-x86-64-posix
    ["$CXX"]=g++-mingw-w64-x86-64-posix
    ["$AR"]=binutils-mingw-w64-x86-64
    ["$RANLIB"]=binutils-mingw-w64-x86-64
    ["$NM"]=binutils-mingw-w64-x86-64
)

ensure_tools() {
    local missing=() tool
    for tool in "${!TOOL_PACKAGE[@]}"; do
        command -v "$tool" >/dev/null 2>&1 || missing+=("${TOOL_PACKAGE[$tool]}")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    # shellcheck disable=SC2207
    missing=($(printf '%s\n' "${missing[@]}" | sort -u))
    if [ "$(id -u)" -ne 0 ]; then
        die "missing build tools; install them with: sudo apt-get install ${missing[*]}"
    fi
    note "installing build tools: ${missing[*]}"
    DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" \
        || die "apt-get install ${missing[*]} failed (run 'apt-get update' first?)"
    for tool in "${!TOOL_PACKAGE[@]}"; do
        command -v "$tool" >/dev/null 2>&1 || die "'$tool' still missing after installing ${TOOL_PACKAGE[$tool]}"
    done
}

# ------------------------------------------------------ private apt sources

# The mirror the machine already uses for Debian's main archive, as apt itself
# parses the system's sources (one-line and deb822 files alike).
system_mirror() {
    local uri
    uri=$(apt-get indextargets --no-release-info --format '$(REPO_URI)' \
            "Release: $SUITE" 'Component: main' 'Created-By: Packages' 2>/dev/null | head -n 1)
    if [ -z "$uri" ]; then
        # Sources that name the suite by its alias ("stable") point at the same archive.
        uri=$(apt-get indextargets --no-release-info --format '$(RELEASE) $(REPO_URI)' \
                'Component: main' 'Created-By: Packages' 2>/dev/null |
              awk '$1 !~ /-/ && $2 !~ /security/ { print $2; exit }')
    fi
    printf '%s' "$uri"
}

APT_OPTS=()
setup_apt() {
    mkdir -p "$APT_DIR/lists/partial" "$APT_DIR/cache/archives/partial"
    APT_OPTS=(
        -o "Dir::Etc::SourceList=$APT_DIR/sources.list"
        -o "Dir::Etc::SourceParts=/dev/null"
        -o "Dir::State::Lists=$APT_DIR/lists"
        -o "Dir::Cache=$APT_DIR/cache"
        -o "Dir::Cache::pkgcache="
        -o "Dir::Cache::srcpkgcache="
    )
    if [ "$(id -u)" -eq 0 ]; then
        # The unprivileged download user cannot enter root's home, where the
        # cache usually is; apt would fall back with a warning per file.
        APT_OPTS+=(-o "APT::Sandbox::User=root")
    fi

    local mirror=${ARDENTIUM_MIRROR:-}
    if [ -z "$mirror" ] && [ "$REFRESH" = 0 ] && [ -f "$APT_DIR/sources.list" ]; then
        # Asking apt for the system's mirror takes most of a warm run; the
        # one found last time stands until --refresh.
        mirror=$(awk '{ for (i = 1; i <= NF; i++) if ($i ~ /^[a-z+]+:\/\//) { print $i; exit } }' "$APT_DIR/sources.list")
    fi
    if [ -z "$mirror" ]; then
        mirror=$(system_mirror)
        [ -n "$mirror" ] || die "found no Debian '$SUITE' main archive in the apt sources (/etc/apt/sources.list, /etc/apt/sources.list.d/); set ARDENTIUM_MIRROR to a Debian mirror URI"
    fi
    local keyring=/usr/share/keyrings/debian-archive-keyring.gpg line
    [ -r "$keyring" ] || keyring=""
    if [ -n "$keyring" ]; then
        line="deb-src [signed-by=$keyring] $mirror $SUITE main"
    else
        line="deb-src $mirror $SUITE main"
    fi
    # A changed mirror or key invalidates the downloaded index.
    if [ ! -f "$APT_DIR/sources.list" ] || [ "$(cat "$APT_DIR/sources.list")" != "$line" ]; then
        printf '%s\n' "$line" >"$APT_DIR/sources.list"
        rm -f "$APT_DIR/lists/"*_Sources* "$APT_DIR/lists/"*Release* 2>/dev/null || true
    fi

    if [ "$REFRESH" = 1 ] || ! compgen -G "$APT_DIR/lists/*_Sources*" >/dev/null; then
        note "downloading the source package index ($mirror $SUITE main)"
        logged "$LOG_DIR/apt-update.log" apt-get "${APT_OPTS[@]}" update
        compgen -G "$APT_DIR/lists/*_Sources*" >/dev/null \
            || die "apt-get update gave no source index; see $LOG_DIR/apt-update.log"
    fi
}

# The version of a source package in the private index.
source_version() {
    local version
    version=$(apt-cache "${APT_OPTS[@]}" showsrc "$1" 2>/dev/null |
              awk -v p="$1" '$1 == "Package:" { cur = $2 } $1 == "Version:" && cur == p { print $2 }' |
              sort -V | tail -n 1)
    [ -n "$version" ] || die "source package '$1' not found in the index (try --refresh)"
    printf '%s' "$version"
}

# Downloads (once) and unpacks a source package; prints the unpacked folder.
unpack_source() {
    local pkg=$1 version=$2 log=$3
    local upstream=${version#*:}
    local dsc="$SRC_DIR/${pkg}_${upstream}.dsc"
    mkdir -p "$SRC_DIR" "$BUILD_DIR"
    if [ ! -f "$dsc" ]; then
        note "$pkg $version: downloading the source package" >&2
        (cd "$SRC_DIR" && logged "$log" apt-get "${APT_OPTS[@]}" source --download-only "$pkg=$version")
        [ -f "$dsc" ] || die "apt-get source gave no $dsc; see $log"
    fi
    # dpkg-source leaves a copy of the upstream tarball beside the tree, so
    # each package gets a scratch folder of its own, removed after the build.
    local tree="$BUILD_DIR/$pkg/$pkg-$upstream"
    rm -rf "${BUILD_DIR:?}/$pkg"
    mkdir -p "$BUILD_DIR/$pkg"
    # Unpacked with Debian's patches applied: the library is built as Debian ships it.
    logged "$log" dpkg-source -x "$dsc" "$tree"
    [ -d "$tree" ] || die "dpkg-source did not unpack $dsc; see $log"
    printf '%s' "$tree"
}

# ------------------------------------------------------------------ recipes

# irrXML: the standalone XML reader inside the irrlicht sources, built alone
# as a static library. Its headers declare the API as dllimport unless
# _IRR_STATIC_LIB_ is defined, so the installed configuration header defines
# it: any program that includes these headers links the archive statically.
build_irrxml() {
    local src=$1 out=$2 log=$3
    local inc="$src/include"
    logged "$log" "$CXX" "${CFLAGS_COMMON[@]}" -D_IRR_STATIC_LIB_ -I"$inc" \
        -c "$src/source/Irrlicht/irrXML.cpp" -o "$src/irrXML.o"

    # The number parser the reader uses keeps its decimal-point characters in
    # a global that the engine defines in its device code, which is not built
    # here; the same definition, taken from that file, goes into the archive.
    local decimal
    decimal=$(grep -E '^[[:space:]]*(irr::core::)?stringc[[:space:]]+LOCALE_DECIMAL_POINTS[[:space:]]*\(' \
                "$src/source/Irrlicht/Irrlicht.cpp" | head -n 1) \
        || die "LOCALE_DECIMAL_POINTS is no longer defined in Irrlicht.cpp; the recipe needs updating"
    {
        echo '#include "irrString.h"'
        echo 'namespace irr { namespace core {'
        echo "$decimal"
        echo '} }'
    } >"$src/irrxml-globals.cpp"
    logged "$log" "$CXX" "${CFLAGS_COMMON[@]}" -D_IRR_STATIC_LIB_ -I"$inc" \
        -c "$src/irrxml-globals.cpp" -o "$src/irrxml-globals.o"

    mkdir -p "$out/lib" "$out/include/irrlicht"
    rm -f "$out/lib/libirrxml.a"
    logged "$log" "$AR" rcs "$out/lib/libirrxml.a" "$src/irrXML.o" "$src/irrxml-globals.o"

    # The headers a program needs: irrXML.h and everything it includes from
    # the irrlicht tree, as the compiler itself reports them.
    local headers
    headers=$(echo '#include "irrXML.h"' |
              "$CXX" -D_IRR_STATIC_LIB_ -I"$inc" -x c++ -MM -MT x - 2>>"$log" |
              tr -d '\\' | tr ' ' '\n' | grep '\.h$' | sort -u) \
        || die "could not list the headers of irrXML.h; see $log"
    rm -rf "$out/include/irrlicht"
    mkdir -p "$out/include/irrlicht"
    local h
    for h in $headers; do
        cp "$h" "$out/include/irrlicht/"
    done
    [ -f "$out/include/irrlicht/irrXML.h" ] || die "irrXML.h missing from the installed headers"
    [ -f "$out/include/irrlicht/IrrCompileConfig.h" ] \
        || die "irrXML.h no longer includes IrrCompileConfig.h; the static-link define needs a new home"
    {
        echo '// Added by tools/win-deps.sh: this copy of the headers goes with a static'
        echo '// library, so the API must not be declared as imported from a DLL.'
        echo '#ifndef _IRR_STATIC_LIB_'
        echo '#define _IRR_STATIC_LIB_'
        echo '#endif'
        cat "$out/include/irrlicht/IrrCompileConfig.h"
    } >"$out/include/irrlicht/IrrCompileConfig.h.new"
    mv "$out/include/irrlicht/IrrCompileConfig.h.new" "$out/include/irrlicht/IrrCompileConfig.h"

    # A static library with undecorated, defined entry points (no __imp_ stubs).
    local symbols
    symbols=$("$NM" -C "$out/lib/libirrxml.a") || die "$NM cannot read libirrxml.a"
    grep -qF ' T irr::io::createIrrXMLReader(char const*)' <<<"$symbols" \
        || die "createIrrXMLReader(const char*) is not defined in libirrxml.a"
    if grep -q '__imp_' <<<"$symbols"; then
        die "libirrxml.a refers to DLL imports; the static-link define did not take"
    fi
    # Compile and link a user of the installed headers against the archive.
    cat >"$src/irrxml-check.cpp" <<'EOF'
#include <irrXML.h>
int main(int argc, char** argv) {
    irr::io::IrrXMLReader* xml = irr::io::createIrrXMLReader(argc > 1 ? argv[1] : "none.xml");
    delete xml;
    return 0;
}
EOF
    logged "$log" "$CXX" -O1 -I"$out/include/irrlicht" "$src/irrxml-check.cpp" \
        "$out/lib/libirrxml.a" -static -o "$src/irrxml-check.exe"
}

# An autotools package as static libraries only, installed into the cache
# folder (include/<name>/, lib/lib<name>.a); extra configure arguments follow.
build_autotools_static() {
    local src=$1 out=$2 log=$3
    shift 3
    (
        cd "$src"
        logged "$log" ./configure --host="$CROSS" --prefix="$out" --disable-shared --enable-static \
            CC="$CC" AR="$AR" RANLIB="$RANLIB" CFLAGS="${CFLAGS_COMMON[*]}" "$@"
        logged "$log" make -j"$JOBS"
        logged "$log" make install
    )
}

# libogg: the Ogg container, under the Vorbis decoder and encoder.
build_ogg() {
    local src=$1 out=$2 log=$3
    build_autotools_static "$src" "$out" "$log"
    [ -f "$out/lib/libogg.a" ] && [ -f "$out/include/ogg/ogg.h" ] || die "libogg installed no libogg.a or ogg/ogg.h; see $log"
}

# libvorbis: the codec, vorbisfile (decoding the music) and vorbisenc (the
# track generator's tests), against the libogg of this cache folder.
build_vorbis() {
    local src=$1 out=$2 log=$3
    [ -f "$out/lib/libogg.a" ] || die "build ogg before vorbis"
    # Named directly: the build machine's pkg-config would offer its own libogg.
    build_autotools_static "$src" "$out" "$log" --disable-docs --disable-examples --disable-oggtest \
        OGG_CFLAGS="-I$out/include" OGG_LIBS="-L$out/lib -logg" PKG_CONFIG_LIBDIR="$out/lib/pkgconfig"
    local lib
    for lib in vorbis vorbisfile vorbisenc; do
        [ -f "$out/lib/lib$lib.a" ] || die "libvorbis installed no lib$lib.a; see $log"
    done
    # Link a user of vorbisfile against the archives, as the program does.
    cat >"$src/vorbis-check.c" <<'EOF'
#include <vorbis/vorbisfile.h>
int main(int argc, char** argv) {
    OggVorbis_File vf;
    if (argc > 1 && ov_fopen(argv[1], &vf) == 0) ov_clear(&vf);
    return 0;
}
EOF
    logged "$log" "$CC" -O1 -I"$out/include" "$src/vorbis-check.c" -L"$out/lib" -lvorbisfile -lvorbis -logg -lm \
        -static -o "$src/vorbis-check.exe"
}

# Dear ImGui: the core and the Win32 + OpenGL 3 back-ends of the launcher, as
# one static library. Debian's copy takes its font rasteriser and rectangle
# packer from the stb headers, which are portable and come from the build
# machine's libstb-dev (the stb functions are compiled into the archive).
build_imgui() {
    local src=$1 out=$2 log=$3
    local stb=/usr/include/stb
    [ -f "$stb/stb_truetype.h" ] || die "stb headers missing in $stb (apt-get install libstb-dev)"
    local objs=() f
    printf '%s\n' '#define STB_TRUETYPE_IMPLEMENTATION' '#define STB_RECT_PACK_IMPLEMENTATION' \
        '#include <stb_rect_pack.h>' '#include <stb_truetype.h>' >"$src/imgui-stb.c"
    logged "$log" "$CC" "${CFLAGS_COMMON[@]}" -I"$stb" -c "$src/imgui-stb.c" -o "$src/imgui-stb.o"
    objs+=("$src/imgui-stb.o")
    for f in imgui imgui_draw imgui_tables imgui_widgets backends/imgui_impl_win32 backends/imgui_impl_opengl3; do
        logged "$log" "$CXX" "${CFLAGS_COMMON[@]}" -I"$src" -I"$stb" -c "$src/$f.cpp" -o "$src/$(basename "$f").o"
        objs+=("$src/$(basename "$f").o")
    done
    mkdir -p "$out/lib"
    rm -f "$out/lib/libimgui.a"
    logged "$log" "$AR" rcs "$out/lib/libimgui.a" "${objs[@]}"
    rm -rf "$out/include/imgui"
    mkdir -p "$out/include/imgui/backends"
    cp "$src"/*.h "$out/include/imgui/"
    cp "$src"/backends/imgui_impl_win32.h "$src"/backends/imgui_impl_opengl3*.h "$out/include/imgui/backends/"
    # Link a window-less user of the archive, as the launcher does.
    printf '%s\n' '#include <imgui.h>' '#include <backends/imgui_impl_win32.h>' '#include <backends/imgui_impl_opengl3.h>' \
        'int main() {' '    ImGui::CreateContext();' '    unsigned char* pixels = nullptr;' '    int w = 0, h = 0;' \
        '    ImGui::GetIO().Fonts->GetTexDataAsRGBA32(&pixels, &w, &h);' '    ImGui::DestroyContext();' \
        '    return (pixels && w > 0 && h > 0 && &ImGui_ImplWin32_Init && &ImGui_ImplOpenGL3_Init) ? 0 : 1;' '}' \
        >"$src/imgui-check.cpp"
    logged "$log" "$CXX" -O1 -I"$out/include/imgui" -I"$stb" "$src/imgui-check.cpp" -L"$out/lib" -limgui \
        -lopengl32 -lgdi32 -ldwmapi -limm32 -static -o "$src/imgui-check.exe"
}

# ------------------------------------------------------------------- driver

# What a stamp says: enough to tell whether the library must be rebuilt.
stamp_text() {
    local lib=$1 version=$2
    printf 'package=%s\nversion=%s\nrecipe=%s\ncompiler=%s\n' \
        "${SOURCE_PACKAGE[$lib]}" "$version" "${RECIPE[$lib]}" "$("$CXX" -dumpfullversion 2>/dev/null || "$CXX" -dumpversion)"
}

ensure_library() {
    local lib=$1
    local pkg=${SOURCE_PACKAGE[$lib]}
    local version stamp want
    version=$(source_version "$pkg")
    stamp="$STAMP_DIR/$lib"
    want=$(stamp_text "$lib" "$version")
    if [ "$FORCE" = 0 ] && [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$want" ]; then
        note "$lib: up to date ($pkg $version)"
        return 0
    fi
    local log="$LOG_DIR/$lib.log" t0=$SECONDS tree
    : >"$log"
    rm -f "$stamp"
    tree=$(unpack_source "$pkg" "$version" "$log")
    note "$lib: building from $pkg $version"
    "build_$lib" "$tree" "$DEPS" "$log"
    mkdir -p "$STAMP_DIR"
    printf '%s\n' "$want" >"$stamp"
    rm -rf "${BUILD_DIR:?}/$pkg"
    note "$lib: done in $((SECONDS - t0)) s"
}

REFRESH=0
FORCE=0
REQUESTED=()
while [ $# -gt 0 ]; do
    case $1 in
        --refresh) REFRESH=1 ;;
        --force) FORCE=1 ;;
        -h|--help) sed -n '2,/^$/s/^# \{0,1\}//p' "$0"; exit 0 ;;
        -*) die "unknown option '$1' (see --help)" ;;
        *)
            [ -n "${SOURCE_PACKAGE[$1]:-}" ] || die "unknown library '$1' (known: ${ALL_LIBRARIES[*]})"
            REQUESTED+=("$1")
            ;;
    esac
    shift
done
[ ${#REQUESTED[@]} -gt 0 ] || REQUESTED=("${ALL_LIBRARIES[@]}")

ensure_tools
mkdir -p "$DEPS" "$LOG_DIR" || die "cannot create $DEPS"
# One run at a time per cache folder: parallel builds would write the same files.
exec 9>"$WORK/lock"
flock 9
setup_apt
for lib in "${REQUESTED[@]}"; do
    ensure_library "$lib"
done
note "libraries ready in $DEPS"
