# Language level, warnings, sanitizers and output folders: one interface target that all others use.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

option(HWTABLES_TESTS "Build the tests" ON)
option(HWTABLES_BENCH "Build the benchmarks" OFF)
set(HWTABLES_SANITIZERS "" CACHE STRING "Value of -fsanitize=, empty for none")

find_program(HWTABLES_CCACHE ccache)
if(HWTABLES_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${HWTABLES_CCACHE})
endif()

# Line tables are what traces of crashes need; full debug information would double the time of a build.
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1 -DNDEBUG")

add_library(hwtables_options INTERFACE)
target_compile_options(hwtables_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Wold-style-cast -Woverloaded-virtual -Wcast-align -Werror
  # Traces and messages show paths from the root of the project, wherever it was built.
  -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/= -fmacro-prefix-map=${CMAKE_BINARY_DIR}/generated/=)
if(HWTABLES_SANITIZERS)
  target_compile_options(hwtables_options INTERFACE
    -fsanitize=${HWTABLES_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(hwtables_options INTERFACE -fsanitize=${HWTABLES_SANITIZERS})
endif()
