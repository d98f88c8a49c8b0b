# Cross build for 64-bit Windows with the MinGW-w64 compilers of Debian.
#
#   cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
#
# The -posix flavour of the compilers is used: its C++ runtime has std::thread
# and std::mutex (on top of winpthreads), which the -win32 flavour lacks.
# Test programs run under Wine through tools/wine-run.sh.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ARD_MINGW_TRIPLE x86_64-w64-mingw32)
find_program(CMAKE_C_COMPILER NAMES ${ARD_MINGW_TRIPLE}-gcc-posix REQUIRED)
find_program(CMAKE_CXX_COMPILER NAMES ${ARD_MINGW_TRIPLE}-g++-posix REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${ARD_MINGW_TRIPLE}-windres REQUIRED)
find_program(CMAKE_AR NAMES ${ARD_MINGW_TRIPLE}-ar REQUIRED)
find_program(CMAKE_RANLIB NAMES ${ARD_MINGW_TRIPLE}-ranlib REQUIRED)

# Headers and libraries come from the MinGW sysroot and from the folder that
# tools/win-deps.sh fills; the build machine's own never leak in. Programs
# (code generators, test tools) are still looked up on the build machine.
if(DEFINED ENV{ARDENTIUM_WIN_DEPS})
  set(_ard_win_deps "$ENV{ARDENTIUM_WIN_DEPS}")
else()
  set(_ard_win_deps "$ENV{HOME}/.cache/ardentium/win64")
endif()
set(ARDENTIUM_WIN_DEPS "${_ard_win_deps}" CACHE PATH
    "Folder with the cross-compiled Windows libraries (made by tools/win-deps.sh)")
set(CMAKE_FIND_ROOT_PATH /usr/${ARD_MINGW_TRIPLE} "${ARDENTIUM_WIN_DEPS}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# try_run() and tests of executable targets go through Wine.
get_filename_component(_ard_wine_run "${CMAKE_CURRENT_LIST_DIR}/../tools/wine-run.sh" ABSOLUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR "${_ard_wine_run}")
