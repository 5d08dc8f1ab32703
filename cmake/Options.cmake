# Compiler settings shared by every target.
option(VELMORA_TESTS "Build the tests" ON)
option(VELMORA_BENCH "Build the benchmarks" OFF)
option(VELMORA_FUZZ "Build the libFuzzer targets (needs clang)" OFF)
set(VELMORA_SANITIZE "" CACHE STRING "Sanitizers, as -fsanitize= takes them")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1
      CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime ${CCACHE_PROGRAM})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Werror
                    -fno-strict-aliasing -fmacro-prefix-map=../../=)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 reports overlapping copies inside std::string that do not exist.
  add_compile_options(-Wno-restrict -Wno-stringop-overflow -Wno-stringop-overread -Wno-array-bounds)
endif()
if(VELMORA_SANITIZE)
  add_compile_options(-fsanitize=${VELMORA_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VELMORA_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # The instrumented code of the grammars looks uninitialised to the optimiser's warnings.
    add_compile_options(-Wno-maybe-uninitialized)
    if(VELMORA_SANITIZE MATCHES "thread")
      # Asio puts a fence after each handler, which the thread sanitizer does not know; its own locks order what it passes on.
      add_compile_options(-Wno-tsan)
    endif()
  endif()
endif()
# One definition for the whole build: the grammars share a global object supply that is not safe without it.
add_compile_definitions(BOOST_SPIRIT_THREADSAFE BOOST_BIND_GLOBAL_PLACEHOLDERS)
# Libraries call into the platform backend that a program chose and the backends call back: let the linker go round in circles.
set(CMAKE_CXX_LINK_EXECUTABLE
    "<CMAKE_CXX_COMPILER> <FLAGS> <CMAKE_CXX_LINK_FLAGS> <LINK_FLAGS> <OBJECTS> -o <TARGET> -Wl,--start-group <LINK_LIBRARIES> -Wl,--end-group")
