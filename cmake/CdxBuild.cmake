# What every target of this tree shares: warnings, sanitizers, the compiler cache, and how a test is declared.

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # With this, what is compiled with a precompiled header is kept too.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)
find_package(jsoncpp REQUIRED)
find_package(Boost 1.81 REQUIRED COMPONENTS json)
find_package(OpenSSL REQUIRED)

# Private to this tree's own targets: nobody who links the libraries inherits it.
add_library(cdx_options INTERFACE)
target_compile_options(cdx_options INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wold-style-cast)
if(CDX_SANITIZE)
  target_compile_options(cdx_options INTERFACE -fsanitize=${CDX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(cdx_options INTERFACE -fsanitize=${CDX_SANITIZE})
  target_compile_definitions(cdx_options INTERFACE CDX_SANITIZED)
  if(CDX_SANITIZE MATCHES undefined)
    # The check of virtual calls opens a pipe, and takes a call for a bad one when there is no descriptor left.
    target_compile_options(cdx_options INTERFACE -fno-sanitize=vptr)
  endif()
  if(CDX_SANITIZE MATCHES thread)
    # ThreadSanitizer does not know fences, which Asio adds to the locks that order its handlers anyway.
    target_compile_definitions(cdx_options INTERFACE BOOST_ASIO_DISABLE_FENCED_BLOCK)
  endif()
endif()

# cdx_add_test(NAME SOURCES file... [LIBS target...] [LABELS label...] [TIMEOUT seconds])
# One GoogleTest program; every one of its cases is a test of its own for CTest.
include(GoogleTest)
function(cdx_add_test name)
  cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  if(CDX_SANITIZE)
    math(EXPR arg_TIMEOUT "${arg_TIMEOUT} * 5")
  endif()
  find_package(GTest REQUIRED)
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE cdx_options ${arg_LIBS} GTest::gmock_main)
  if(CDX_SANITIZE)
    # Half of what compiling a test takes goes into these. The plain build does without, and shows what is not included.
    target_precompile_headers(${name} REUSE_FROM cdx_test_headers)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES
    PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
endfunction()
