# ARDENTIUM_SANITIZE and ARDENTIUM_FUZZ: the whole project, libraries and
# tests alike, is built with the sanitizers, so a fault in shared code shows in
# whichever program reaches it.

if(ARDENTIUM_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "ARDENTIUM_FUZZ needs clang: configure with -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang")
  endif()
  if(ARDENTIUM_SANITIZE STREQUAL "")
    set(ARDENTIUM_SANITIZE "address;undefined")
  endif()
  # Coverage for the fuzzer in every library; the harnesses add the driver.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(NOT ARDENTIUM_SANITIZE STREQUAL "")
  if(WIN32)
    message(FATAL_ERROR "ARDENTIUM_SANITIZE is for the Linux build")
  endif()
  if("thread" IN_LIST ARDENTIUM_SANITIZE AND "address" IN_LIST ARDENTIUM_SANITIZE)
    message(FATAL_ERROR "ThreadSanitizer cannot be combined with AddressSanitizer")
  endif()
  list(JOIN ARDENTIUM_SANITIZE "," _ard_sanitizers)
  set(_ard_flags -fsanitize=${_ard_sanitizers} -fno-omit-frame-pointer)
  if("undefined" IN_LIST ARDENTIUM_SANITIZE)
    # Undefined behaviour stops the program instead of scrolling by.
    list(APPEND _ard_flags -fno-sanitize-recover=undefined)
  endif()
  add_compile_options(${_ard_flags})
  add_link_options(${_ard_flags})
  # Run-time settings (leak suppressions, halting on the first report) come
  # from the environment: see fuzz/sanitized-tests.sh.
endif()
