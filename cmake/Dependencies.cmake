# Third-party libraries. On Linux they come from Debian's -dev packages; the
# Windows build takes them from the cache folder that tools/win-deps.sh fills by
# cross-compiling Debian's source packages.

if(WIN32)
  if(DEFINED ENV{ARDENTIUM_WIN_DEPS})
    set(_ard_win_deps "$ENV{ARDENTIUM_WIN_DEPS}")
  else()
    set(_ard_win_deps "$ENV{HOME}/.cache/ardentium/win64")
  endif()
  set(ARDENTIUM_WIN_DEPS "${_ard_win_deps}" CACHE PATH
      "Folder with the cross-compiled Windows libraries (made by tools/win-deps.sh)")
  if(NOT EXISTS "${ARDENTIUM_WIN_DEPS}/lib/libirrxml.a" OR
     NOT EXISTS "${ARDENTIUM_WIN_DEPS}/include/irrlicht/irrXML.h")
    message(FATAL_ERROR "Windows libraries missing in ${ARDENTIUM_WIN_DEPS}: run tools/win-deps.sh first "
                        "(with ARDENTIUM_WIN_DEPS=${ARDENTIUM_WIN_DEPS} in the environment if that is not its default)")
  endif()
  add_library(ard_irrxml STATIC IMPORTED GLOBAL)
  # The installed headers already ask for static linking; the define is
  # repeated here so that a differently made copy of them links the same way.
  set_target_properties(ard_irrxml PROPERTIES
    IMPORTED_LOCATION "${ARDENTIUM_WIN_DEPS}/lib/libirrxml.a"
    INTERFACE_INCLUDE_DIRECTORIES "${ARDENTIUM_WIN_DEPS}/include/irrlicht"
    INTERFACE_COMPILE_DEFINITIONS _IRR_STATIC_LIB_)

  # std::thread of the -posix compilers sits on winpthreads.
  find_package(Threads REQUIRED)

  # stb is header-only, portable C: the build machine's copy serves the
  # Windows build too, from outside the cross sysroot.
  find_path(STB_INCLUDE_DIR stb_image.h PATHS /usr/include/stb NO_CMAKE_FIND_ROOT_PATH REQUIRED)
else()
  find_path(IRRLICHT_INCLUDE_DIR irrXML.h PATH_SUFFIXES irrlicht REQUIRED)
  find_library(IRRLICHT_LIBRARY Irrlicht REQUIRED)
  add_library(ard_irrxml INTERFACE)
  target_include_directories(ard_irrxml INTERFACE ${IRRLICHT_INCLUDE_DIR})
  target_link_libraries(ard_irrxml INTERFACE ${IRRLICHT_LIBRARY})

  find_package(SDL2 REQUIRED)
  find_package(Threads REQUIRED)
endif()

find_path(STB_INCLUDE_DIR stb_image.h PATHS /usr/include/stb REQUIRED)
add_library(ard_stb INTERFACE)
target_include_directories(ard_stb SYSTEM INTERFACE ${STB_INCLUDE_DIR})

# Ogg Vorbis: decoding the benchmark music (vorbisfile) and encoding the track
# the build generates (vorbisenc). OpenAL: linked on Linux; on Windows
# OpenAL32.dll is loaded at run time, so nothing is linked for it.
if(WIN32)
  foreach(_lib ogg vorbis vorbisfile vorbisenc)
    if(NOT EXISTS "${ARDENTIUM_WIN_DEPS}/lib/lib${_lib}.a")
      message(FATAL_ERROR "lib${_lib}.a missing in ${ARDENTIUM_WIN_DEPS}: run tools/win-deps.sh again")
    endif()
    add_library(ard_lib${_lib} STATIC IMPORTED GLOBAL)
    set_target_properties(ard_lib${_lib} PROPERTIES
      IMPORTED_LOCATION "${ARDENTIUM_WIN_DEPS}/lib/lib${_lib}.a"
      INTERFACE_INCLUDE_DIRECTORIES "${ARDENTIUM_WIN_DEPS}/include")
  endforeach()
  add_library(ard_vorbisfile INTERFACE)
  target_link_libraries(ard_vorbisfile INTERFACE ard_libvorbisfile ard_libvorbis ard_libogg)
  add_library(ard_vorbisenc INTERFACE)
  target_link_libraries(ard_vorbisenc INTERFACE ard_libvorbisenc ard_libvorbis ard_libogg)
else()
  include(${CMAKE_CURRENT_LIST_DIR}/HostVorbis.cmake)

  find_path(OPENAL_INCLUDE_DIR AL/al.h REQUIRED)
  find_library(OPENAL_LIBRARY openal REQUIRED)
  add_library(ard_openal INTERFACE)
  target_include_directories(ard_openal INTERFACE ${OPENAL_INCLUDE_DIR})
  target_link_libraries(ard_openal INTERFACE ${OPENAL_LIBRARY})
endif()

# The launcher's GUI library. On Linux Debian's libimgui-dev, whose archive
# also holds the SDL2 and OpenGL 3 back-ends; on Windows the same sources
# with the Win32 and OpenGL 3 back-ends, cross-built by tools/win-deps.sh.
if(WIN32)
  if(NOT EXISTS "${ARDENTIUM_WIN_DEPS}/lib/libimgui.a")
    message(FATAL_ERROR "libimgui.a missing in ${ARDENTIUM_WIN_DEPS}: run tools/win-deps.sh again")
  endif()
  add_library(ard_libimgui STATIC IMPORTED GLOBAL)
  set_target_properties(ard_libimgui PROPERTIES
    IMPORTED_LOCATION "${ARDENTIUM_WIN_DEPS}/lib/libimgui.a")
  add_library(ard_imgui INTERFACE)
  target_include_directories(ard_imgui SYSTEM INTERFACE "${ARDENTIUM_WIN_DEPS}/include/imgui")
  target_link_libraries(ard_imgui INTERFACE ard_libimgui opengl32 gdi32 dwmapi imm32)
  set(ARD_HAVE_LAUNCHER ON)
else()
  find_path(IMGUI_INCLUDE_DIR imgui.h PATH_SUFFIXES imgui REQUIRED)
  find_library(IMGUI_LIBRARY imgui REQUIRED)
  # Debian's copy rasterises its fonts with the system's stb library (ours
  # keeps its stb functions static, so the two never meet).
  find_library(STB_LIBRARY stb REQUIRED)
  find_package(OpenGL REQUIRED)
  find_package(CURL REQUIRED)
  add_library(ard_imgui INTERFACE)
  target_include_directories(ard_imgui SYSTEM INTERFACE ${IMGUI_INCLUDE_DIR})
  target_link_libraries(ard_imgui INTERFACE ${IMGUI_LIBRARY} ${STB_LIBRARY} SDL2::SDL2 OpenGL::GL ${CMAKE_DL_LIBS})
  set(ARD_HAVE_LAUNCHER ON)
endif()
