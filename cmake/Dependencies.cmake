# Third-party libraries. On Linux they come from Debian's -dev packages; the
# Windows build takes them from the cache folder that tools/win-deps.sh fills by
# cross-compiling Debian's source packages.

if(WIN32)
  set(ARDENTIUM_WIN_DEPS "$ENV{HOME}/.cache/ardentium/win64" CACHE PATH
      "Folder with the cross-compiled Windows libraries (made by tools/win-deps.sh)")
  if(NOT EXISTS "${ARDENTIUM_WIN_DEPS}/lib/libirrxml.a")
    message(FATAL_ERROR "Windows libraries missing in ${ARDENTIUM_WIN_DEPS}: run tools/win-deps.sh first")
  endif()
  add_library(ard_irrxml STATIC IMPORTED GLOBAL)
  set_target_properties(ard_irrxml PROPERTIES
    IMPORTED_LOCATION "${ARDENTIUM_WIN_DEPS}/lib/libirrxml.a"
    INTERFACE_INCLUDE_DIRECTORIES "${ARDENTIUM_WIN_DEPS}/include/irrlicht")
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
