# Shared compile settings for every target, and the switches CI turns on.
option(VELMO_WERROR "Treat warnings as errors" OFF)
option(VELMO_ASAN "Build with AddressSanitizer" OFF)
option(VELMO_UBSAN "Build with UndefinedBehaviorSanitizer" OFF)
option(VELMO_TSAN "Build with ThreadSanitizer" OFF)
option(VELMO_BUILD_TESTS "Build the test suites" ON)
option(VELMO_BUILD_BENCHMARKS "Build the benchmarks (needs the tests' support code)" OFF)
option(VELMO_BUILD_FUZZERS "Build the libFuzzer targets (Clang only)" OFF)

add_library(velmo_options INTERFACE)
add_library(velmo::options ALIAS velmo_options)
target_compile_features(velmo_options INTERFACE cxx_std_20)
# A fallible call's result (file results, timers) is never dropped unread.
target_compile_options(velmo_options INTERFACE -Wall -Wextra -Werror=unused-result)
if(VELMO_WERROR)
  target_compile_options(velmo_options INTERFACE -Werror)
endif()
# Asio: no deprecated interfaces, standalone (no Boost).
target_compile_definitions(velmo_options INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
# Asio 1.22 looks for Clang's old coroutines TS; Clang 14 has the C++20 ones.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_definitions(velmo_options INTERFACE ASIO_HAS_CO_AWAIT=1)
endif()

# With fuzzers on, every library carries the coverage hooks, so that the
# fuzzers learn from the decoders' own branches, not only their harnesses.
if(VELMO_BUILD_FUZZERS AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(velmo_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

set(_velmo_sanitizers "")
if(VELMO_ASAN)
  list(APPEND _velmo_sanitizers address)
endif()
if(VELMO_UBSAN)
  list(APPEND _velmo_sanitizers undefined)
endif()
if(VELMO_TSAN)
  list(APPEND _velmo_sanitizers thread)
endif()
if(_velmo_sanitizers)
  list(JOIN _velmo_sanitizers "," _velmo_sanitizer_list)
  target_compile_options(velmo_options INTERFACE
    -fsanitize=${_velmo_sanitizer_list} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(velmo_options INTERFACE -fsanitize=${_velmo_sanitizer_list})
  # Clang 14's function-type check can't emit its prologue data for the split
  # parts of a coroutine ("cannot represent a difference across sections").
  if(VELMO_UBSAN AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(velmo_options INTERFACE -fno-sanitize=function)
  endif()
endif()

# Debian's hardening (stack protector, fortified libc calls, full RELRO with
# immediate binding, PIE), as dpkg-buildflags gives it to every package build.
# On by default for optimised builds without sanitizers, which is the build the
# package is made from; fortification needs optimisation, and the sanitizers
# bring their own checks.
find_program(VELMO_DPKG_BUILDFLAGS_PROGRAM dpkg-buildflags)
set(_velmo_hardening_default OFF)
if(VELMO_DPKG_BUILDFLAGS_PROGRAM AND NOT _velmo_sanitizers AND NOT VELMO_BUILD_FUZZERS
   AND CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$")
  set(_velmo_hardening_default ON)
endif()
option(VELMO_DPKG_HARDENING "Compile and link with dpkg-buildflags' hardening flags"
  ${_velmo_hardening_default})
if(VELMO_DPKG_HARDENING)
  if(NOT VELMO_DPKG_BUILDFLAGS_PROGRAM)
    message(FATAL_ERROR "VELMO_DPKG_HARDENING needs dpkg-buildflags (package dpkg-dev)")
  endif()
  # hardening=+all adds bindnow (-z now), which Debian's defaults leave out.
  foreach(_velmo_flags CPPFLAGS CXXFLAGS LDFLAGS)
    execute_process(
      COMMAND ${CMAKE_COMMAND} -E env DEB_BUILD_MAINT_OPTIONS=hardening=+all
              ${VELMO_DPKG_BUILDFLAGS_PROGRAM} --get ${_velmo_flags}
      WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}
      OUTPUT_VARIABLE _velmo_value OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(_velmo_value UNIX_COMMAND "${_velmo_value}")
    # The build type already chooses optimisation and debug information; the
    # prefix map would point debuggers and __FILE__ away from this checkout.
    list(FILTER _velmo_value EXCLUDE REGEX "^-(O[0-9s]?|g|ffile-prefix-map=.*)$")
    set(_velmo_${_velmo_flags} ${_velmo_value})
  endforeach()
  add_compile_options(${_velmo_CPPFLAGS} ${_velmo_CXXFLAGS})
  add_link_options(${_velmo_LDFLAGS})
  message(STATUS "Hardening: ${_velmo_CPPFLAGS} ${_velmo_CXXFLAGS}; links with ${_velmo_LDFLAGS}")
endif()
