# The Python package, run with the system interpreter and Debian's numpy against the
# library just built.
file(GLOB OVD_PYTHON_TESTS CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/test_*.py)
foreach(script ${OVD_PYTHON_TESTS})
  get_filename_component(name ${script} NAME_WE)
  add_test(NAME python.${name} COMMAND /usr/bin/python3 ${script})
  set_tests_properties(python.${name} PROPERTIES ENVIRONMENT
    "PYTHONPATH=${CMAKE_SOURCE_DIR}/python;OVIDANE_LIBRARY=$<TARGET_FILE:ovdinf01>")
endforeach()
