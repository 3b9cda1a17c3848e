# Precompiled headers. Much of the time of a build goes into reading the same few headers, so two sets of them are read
# once: cmake/precompiled/rooms.h for the libraries, and tests.h for the tests, which are compiled with other flags.
# Only what nearly every source needs belongs there: what a set instantiates is made again in each source that uses it
# (1 s in each for the JSON library, 9 s for CLI11).
#
# They are a matter of time alone: a source includes what it uses all the same. That is what clang, which is not given
# them, checks, and it gives clang-tidy commands that it can follow.

option(PRECOMPILE "Precompile the headers that most sources share (GCC)" ON)
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  set(PRECOMPILE OFF)
endif()

# precompiled_headers(NAME [FLAGS FLAG...] [USES LIBRARY...]): compiles cmake/precompiled/NAME.h, as NAME_headers.
function(precompiled_headers name)
  cmake_parse_arguments(HEADERS "" "" "FLAGS;USES" ${ARGN})
  if(PRECOMPILE)
    file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/precompiled/${name}.cpp CONTENT "// A target wants one source.\n")
    add_library(${name}_headers OBJECT ${CMAKE_BINARY_DIR}/precompiled/${name}.cpp)
    target_precompile_headers(${name}_headers PRIVATE ${CMAKE_SOURCE_DIR}/cmake/precompiled/${name}.h)
    target_include_directories(${name}_headers PRIVATE ${CMAKE_BINARY_DIR}/rooms/Kem)
    target_compile_options(${name}_headers PRIVATE ${HEADERS_FLAGS})
    target_link_libraries(${name}_headers PRIVATE ${HEADERS_USES})
    # Not through ccache: where a precompiled header exists already, it takes that for one that is used, and gives back
    # an old one.
    set_target_properties(${name}_headers PROPERTIES CXX_COMPILER_LAUNCHER ${CMAKE_SOURCE_DIR}/cmake/compile-headers)
  endif()
endfunction()

# use_precompiled(TARGET NAME): the target's sources start with that set; its flags must be those of the set, as far as
# they change what a header means.
function(use_precompiled target name)
  if(PRECOMPILE)
    target_precompile_headers(${target} REUSE_FROM ${name}_headers)
  endif()
endfunction()
