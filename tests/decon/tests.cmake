# Restorations recomputed with numpy: one program restores a stack as the run stages restore
# a subvolume, and the scripts make the synthetic stacks and PSFs, run it and compare the
# results: the inverse filter's, and every pass of ten of ML-EM (line search, vector
# extrapolation) and of Gold's method.
add_executable(restore_run ${CMAKE_CURRENT_LIST_DIR}/numpy/RestoreRun.cpp)
target_link_libraries(restore_run PRIVATE ovdengine)
add_test(NAME decon.InverseFilterMatchesNumpy
  COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/inverse_filter_check.py
          $<TARGET_FILE:restore_run>)
add_test(NAME decon.IterativeMethodsMatchNumpy
  COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/iterative_check.py
          $<TARGET_FILE:restore_run>)
set_tests_properties(decon.InverseFilterMatchesNumpy decon.IterativeMethodsMatchNumpy
  PROPERTIES LABELS unit)

# Five passes of the plane methods, ML-EM with a known PSF and blind, recomputed likewise.
add_test(NAME decon.PlaneMethodsMatchNumpy
  COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/plane_check.py $<TARGET_FILE:restore_run>)
set_tests_properties(decon.PlaneMethodsMatchNumpy PROPERTIES LABELS unit)
