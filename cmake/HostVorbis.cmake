# Ogg Vorbis from the build machine's -dev packages: the Linux build, and
# the music generator that the Windows cross build compiles for the host.
find_path(VORBIS_INCLUDE_DIR vorbis/vorbisfile.h REQUIRED)
find_library(OGG_LIBRARY ogg REQUIRED)
find_library(VORBIS_LIBRARY vorbis REQUIRED)
find_library(VORBISFILE_LIBRARY vorbisfile REQUIRED)
find_library(VORBISENC_LIBRARY vorbisenc REQUIRED)
add_library(ard_vorbisfile INTERFACE)
target_include_directories(ard_vorbisfile INTERFACE ${VORBIS_INCLUDE_DIR})
target_link_libraries(ard_vorbisfile INTERFACE ${VORBISFILE_LIBRARY} ${VORBIS_LIBRARY} ${OGG_LIBRARY} m)
add_library(ard_vorbisenc INTERFACE)
target_include_directories(ard_vorbisenc INTERFACE ${VORBIS_INCLUDE_DIR})
target_link_libraries(ard_vorbisenc INTERFACE ${VORBISENC_LIBRARY} ${VORBIS_LIBRARY} ${OGG_LIBRARY} m)
