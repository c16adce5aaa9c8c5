# hwtables_add_tests(<layer> [PROBED] [RUNS_TEMPLATES] [LIBRARIES ...]): makes the program test_<layer> of every source
# under tests/<layer>, so that no test file can be left out. Every test case is a test of CTest. PROBED: links the store
# that tests can watch at every access, instead of the library. RUNS_TEMPLATES: most of its time goes to the store's
# templates, which it instantiates itself.
include(GoogleTest)

# What the tests of all layers share.
function(hwtables_add_test_support)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/support/*.cpp)
  add_library(test_support STATIC ${sources})
  target_link_libraries(test_support PUBLIC hwtables_options GTest::gmock)
  target_include_directories(test_support PUBLIC ${CMAKE_SOURCE_DIR})
endfunction()

function(hwtables_add_tests layer)
  cmake_parse_arguments(ARG "PROBED;RUNS_TEMPLATES" "" "LIBRARIES" ${ARGN})
  string(REPLACE "/" "_" name "test_${layer}")
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/${layer}/*.cpp)
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE
    $<IF:$<BOOL:${ARG_PROBED}>,hwtables_probed,hwtables> test_support ${ARG_LIBRARIES} GTest::gtest_main)
  # To optimise what is sanitized takes four fifths of its compilation.
  set(level -O1)
  if(HWTABLES_SANITIZERS AND NOT ARG_RUNS_TEMPLATES)
    set(level -O0)
  endif()
  target_compile_options(${name} PRIVATE $<$<CONFIG:RelWithDebInfo>:${level}>)
  target_compile_definitions(${name} PRIVATE
    HWTABLES_BIN_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}" HWTABLES_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
  gtest_discover_tests(${name} TEST_PREFIX ${layer}. DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60)
endfunction()

# hwtables_add_python_tests(<folder> <prefix>): every test_*.py under tests/<folder> is the test <prefix>.* of CTest.
function(hwtables_add_python_tests folder prefix)
  file(GLOB files CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/${folder}/test_*.py)
  foreach(file IN LISTS files)
    get_filename_component(name ${file} NAME_WE)
    string(REPLACE "test_" "${prefix}." name ${name})
    add_test(NAME ${name} COMMAND ${HWTABLES_PYTHON} -m unittest ${file}
             WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}/tests/${folder})
    set_tests_properties(${name} PROPERTIES ENVIRONMENT
      "PYTHONPATH=${CMAKE_SOURCE_DIR}/LoamSharedHwTables;PYTHONDONTWRITEBYTECODE=1;HWTABLES_BIN_DIR=${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
  endforeach()
endfunction()
