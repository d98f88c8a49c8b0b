# Unit tests: GoogleTest. Linux links Debian's libgtest; the Windows build
# compiles GoogleTest from the sources Debian ships in /usr/src/googletest and
# runs each test program under Wine through tools/wine-run.sh.

if(WIN32)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  # On MinGW GoogleTest always uses the Win32 threading primitives, whatever
  # the compiler's thread model; the setting says so instead of suggesting
  # that it would take winpthreads.
  set(gtest_disable_pthreads ON CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  set(ARD_GTEST_LIBS gtest gtest_main gmock)

  if(CMAKE_CROSSCOMPILING)
    # Test programs run under Wine. Making the Wine prefix (a few seconds,
    # once) is a test of its own that the others wait for, so its time and
    # failure are not charged to whichever test happens to come first.
    set(ARD_WINE_RUN ${CMAKE_SOURCE_DIR}/tools/wine-run.sh)
    add_test(NAME wine_prefix COMMAND ${ARD_WINE_RUN} --prepare)
    set_tests_properties(wine_prefix PROPERTIES FIXTURES_SETUP wine TIMEOUT 300)

    # The runner itself: a test program's exit code, crash and output must
    # come through, or failing tests would pass under Wine unnoticed.
    file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/wine_run_probe.c @ONLY CONTENT [=[
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
int main(int argc, char** argv) {
    if (argc > 1 && strcmp(argv[1], "crash") == 0) {
        volatile int* p = NULL;
        *p = 1;
    }
    printf("probe out\n");
    fflush(stdout);
    fprintf(stderr, "probe err\n");
    return argc > 2 ? atoi(argv[2]) : 0;
}
]=])
    add_executable(wine_run_probe ${CMAKE_BINARY_DIR}/wine_run_probe.c)
    set(_probe $<TARGET_FILE:wine_run_probe>)
    add_test(NAME wine_run_exit_code
             COMMAND sh -c "\"$0\" \"$1\" exit 7 >/dev/null 2>&1; test $? -eq 7" ${ARD_WINE_RUN} ${_probe})
    # A crash must fail, without the debugger's register dump (it would
    # exit with 0).
    add_test(NAME wine_run_crash
             COMMAND sh -c "out=$(\"$0\" \"$1\" crash 2>&1); rc=$?; echo \"$out\"; test $rc -ne 0 && test $rc -ne 125" ${ARD_WINE_RUN} ${_probe})
    set_tests_properties(wine_run_crash PROPERTIES FAIL_REGULAR_EXPRESSION "Register dump|Backtrace")
    # Standard output and error arrive separately.
    add_test(NAME wine_run_output
             COMMAND sh -c "o=$(\"$0\" \"$1\" 2>/dev/null) && e=$(\"$0\" \"$1\" 2>&1 >/dev/null) && case \"$o|$e\" in 'probe out'*'|probe err'*) ;; *) echo \"stdout [$o] stderr [$e]\"; exit 1 ;; esac" ${ARD_WINE_RUN} ${_probe})
    set_tests_properties(wine_run_exit_code wine_run_crash wine_run_output PROPERTIES FIXTURES_REQUIRED wine)
  endif()
else()
  find_package(GTest REQUIRED)
  include(GoogleTest)
  set(ARD_GTEST_LIBS GTest::gtest GTest::gtest_main GTest::gmock)
endif()

# ard_add_unit_test(NAME [READS_EVENT_LOG] src... LIBS lib...)
#
# READS_EVENT_LOG: the tests check lines of the event log, which every test
# process truncates in its working folder when it starts. Such a program runs
# in a folder of its own, one case at a time, so no other test empties the
# log under it.
function(ard_add_unit_test name)
  cmake_parse_arguments(T "READS_EVENT_LOG" "" "LIBS" ${ARGN})
  add_executable(${name} ${T_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE ${T_LIBS} ${ARD_GTEST_LIBS} ${ARD_STATIC_RUNTIME})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
  if(WIN32)
    # One CTest test runs the whole program, so its output is every case of
    # it: only the failures are printed, or a long passing list would bury
    # them (and CI logs are cut).
    if(ARD_WINE_RUN)
      add_test(NAME ${name} COMMAND ${ARD_WINE_RUN} $<TARGET_FILE:${name}> --gtest_brief=1
               WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
      set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED wine)
    else()
      add_test(NAME ${name} COMMAND ${name} --gtest_brief=1 WORKING_DIRECTORY ${CMAKE_BINARY_DIR})
    endif()
  else()
    if(T_READS_EVENT_LOG)
      set(_dir ${CMAKE_BINARY_DIR}/test-logs/${name})
      file(MAKE_DIRECTORY ${_dir})
      gtest_discover_tests(${name} WORKING_DIRECTORY ${_dir} DISCOVERY_TIMEOUT 30
                           PROPERTIES RESOURCE_LOCK ${name}_event_log)
    else()
      gtest_discover_tests(${name} WORKING_DIRECTORY ${CMAKE_BINARY_DIR} DISCOVERY_TIMEOUT 30)
    endif()
  endif()
endfunction()
