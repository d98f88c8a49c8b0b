# Unit tests: GoogleTest. Linux links Debian's libgtest; the Windows build
# compiles GoogleTest from the sources Debian ships in /usr/src/googletest and
# runs each test program under Wine through tools/wine-run.sh.

if(WIN32)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  set(gtest_disable_pthreads OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  set(ARD_GTEST_LIBS gtest gtest_main gmock)
else()
  find_package(GTest REQUIRED)
  include(GoogleTest)
  set(ARD_GTEST_LIBS GTest::gtest GTest::gtest_main GTest::gmock)
endif()

# ard_add_unit_test(NAME src... LIBS lib...)
function(ard_add_unit_test name)
  cmake_parse_arguments(T "" "" "LIBS" ${ARGN})
  add_executable(${name} ${T_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE ${T_LIBS} ${ARD_GTEST_LIBS} ${ARD_STATIC_RUNTIME})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  if(WIN32)
    add_test(NAME ${name} COMMAND ${CMAKE_SOURCE_DIR}/tools/wine-run.sh $<TARGET_FILE:${name}>
             WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
  else()
    gtest_discover_tests(${name} WORKING_DIRECTORY ${CMAKE_BINARY_DIR} DISCOVERY_TIMEOUT 30)
  endif()
endfunction()
