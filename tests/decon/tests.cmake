# One restoration by the inverse filter, recomputed with numpy: the script makes a synthetic
# stack and PSF, runs the program on them and compares the result file.
add_executable(inverse_filter_run ${CMAKE_CURRENT_LIST_DIR}/numpy/InverseFilterRun.cpp)
target_link_libraries(inverse_filter_run PRIVATE ovdengine)
add_test(NAME decon.InverseFilterMatchesNumpy
  COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/inverse_filter_check.py
          $<TARGET_FILE:inverse_filter_run>)
set_tests_properties(decon.InverseFilterMatchesNumpy PROPERTIES LABELS unit)

# Ten passes of ML-EM (line search, vector extrapolation) and of Gold's method, each pass
# recomputed with numpy: the script makes the stack and the PSF, runs the program on them and
# compares every saved pass.
add_executable(iterative_run ${CMAKE_CURRENT_LIST_DIR}/numpy/IterativeRun.cpp)
target_link_libraries(iterative_run PRIVATE ovdengine)
add_test(NAME decon.IterativeMethodsMatchNumpy
  COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/iterative_check.py
          $<TARGET_FILE:iterative_run>)
set_tests_properties(decon.IterativeMethodsMatchNumpy PROPERTIES LABELS unit)

# Five passes of the plane methods, ML-EM with a known PSF and blind, recomputed likewise.
add_test(NAME decon.PlaneMethodsMatchNumpy
  COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/plane_check.py
          $<TARGET_FILE:iterative_run>)
set_tests_properties(decon.PlaneMethodsMatchNumpy PROPERTIES LABELS unit)
