# Compiler settings that hold for every target.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

option(FUZZ "Build the fuzz targets (needs clang)" OFF)
set(SANITIZE "" CACHE STRING "Sanitizers for every target, such as address,undefined")

# Assertions of the project do not depend on NDEBUG, so Release keeps them.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1")
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g")
# Not -Woverloaded-virtual: a reactor that overrides one form of onX hides the others on purpose.
add_compile_options(-Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wno-overloaded-virtual -Wno-unused-parameter -Werror)
# One form of code for libraries, the module and programs, so that all of them can use the same precompiled headers.
add_compile_options(-fPIC -fno-semantic-interposition)

if(SANITIZE)
  add_compile_options(-O1 -g1 -fsanitize=${SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${SANITIZE})
endif()

if(FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Sources of a target that are compiled together share the reading of headers and the instances of templates: a build
# from nothing takes less than half the time. A change then compiles its neighbours too, so the debug preset does
# without, and so does clang, which thereby checks that each source includes what it uses.
option(JOIN_SOURCES "Compile the sources of a target together, several at once" ON)
if(JOIN_SOURCES)
  set(CMAKE_UNITY_BUILD ON)
  set(CMAKE_UNITY_BUILD_BATCH_SIZE 10)
endif()

find_program(CCACHE ccache)
if(CCACHE)
  # Without this, ccache leaves alone what uses a precompiled header.
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
      CCACHE_PCH_EXTSUM=1 ${CCACHE})
endif()

execute_process(
  COMMAND git -C ${CMAKE_SOURCE_DIR} describe --always --dirty
  OUTPUT_VARIABLE VORN_REVISION OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
