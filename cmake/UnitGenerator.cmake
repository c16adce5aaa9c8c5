# The Python that makes the table units, and hwtables_generate_units().

# A python3 that stands first on PATH need not be the one that has the distribution's Jinja2.
function(hwtables_python_accepts result candidate)
  execute_process(
    COMMAND ${candidate} -c "import sys, jinja2, tomllib; sys.exit(sys.version_info < (3, 11))"
    RESULT_VARIABLE status OUTPUT_QUIET ERROR_QUIET)
  if(NOT status EQUAL 0)
    set(${result} FALSE PARENT_SCOPE)
  endif()
endfunction()

foreach(candidate IN ITEMS python3 /usr/bin/python3 python3.13 python3.12 python3.11)
  find_program(HWTABLES_PYTHON NAMES ${candidate} VALIDATOR hwtables_python_accepts)
endforeach()
if(NOT HWTABLES_PYTHON)
  message(FATAL_ERROR "no Python 3.11 or newer with Jinja2 was found: run scripts/setup")
endif()

set(HWTABLES_GENERATED_DIR ${CMAKE_BINARY_DIR}/generated)
set(HWTABLES_GENERATOR ${CMAKE_COMMAND} -E env
    PYTHONPATH=${CMAKE_SOURCE_DIR}/LoamSharedHwTables PYTHONDONTWRITEBYTECODE=1 ${HWTABLES_PYTHON} -m generator)

# hwtables_generate_units(<target> <folder>): checks the catalogue in <folder> as a whole, then makes the unit of each
# table and adds it to <target>. Headers are included by the catalogue's path from the root. The target <target>_units
# makes the sources alone, for whoever reads but doesn't compile them.
function(hwtables_generate_units target folder)
  file(GLOB catalogue CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.toml)
  file(GLOB generator CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/LoamSharedHwTables/generator/*.py
       ${CMAKE_SOURCE_DIR}/LoamSharedHwTables/generator/templates/*.j2)
  set(out ${HWTABLES_GENERATED_DIR}/${folder})
  set(units)

  # Before any unit, so that all mistakes of all files are told at once.
  set(stamp ${out}/checked)
  add_custom_command(
    OUTPUT ${stamp}
    COMMAND ${HWTABLES_GENERATOR} check --catalogue ${CMAKE_SOURCE_DIR}/${folder}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${out}
    COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
    DEPENDS ${catalogue} ${generator}
    COMMENT "Checking the catalogue ${folder}" VERBATIM)
  add_custom_target(${target}_catalogue DEPENDS ${stamp})
  add_dependencies(${target} ${target}_catalogue)

  foreach(path IN LISTS catalogue)
    get_filename_component(table ${path} NAME_WE)
    if(table STREQUAL Chip)
      continue()
    endif()
    set(unit ${out}/${table})
    add_custom_command(
      OUTPUT ${unit}.h ${unit}.cpp
      COMMAND ${HWTABLES_GENERATOR} unit --catalogue ${CMAKE_SOURCE_DIR}/${folder}
              --table ${table} --out ${out} --depfile ${unit}.d
      DEPENDS ${path} ${generator}
      DEPFILE ${unit}.d
      COMMENT "Making the unit ${table}" VERBATIM)
    target_sources(${target} PRIVATE ${unit}.cpp)
    list(APPEND units ${unit}.h ${unit}.cpp)
  endforeach()
  add_custom_target(${target}_units DEPENDS ${units})
  target_include_directories(${target} PUBLIC ${HWTABLES_GENERATED_DIR})
endfunction()
