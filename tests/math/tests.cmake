# The transforms recomputed by numpy: a small program writes random inputs and the service's
# outputs to raw files, and the script compares them with numpy's FFT.
add_executable(fft_numpy_dump ${CMAKE_CURRENT_LIST_DIR}/numpy/FFTNumpyDump.cpp)
target_link_libraries(fft_numpy_dump PRIVATE ovdengine)
add_test(NAME math.FFTMatchesNumpy
  COMMAND /usr/bin/python3 ${CMAKE_CURRENT_LIST_DIR}/fft_numpy_check.py $<TARGET_FILE:fft_numpy_dump>)
set_tests_properties(math.FFTMatchesNumpy PROPERTIES LABELS unit)
