# The public header is plain C, and its records have the exact 32-bit binary layout. Both
# are compile-time facts, so these tests are compilations: a failed static_assert or a
# C++-only construct in the header makes the compiler, and with it the test, fail.
set(OVD_LAYOUT32_SOURCE ${CMAKE_CURRENT_LIST_DIR}/RecordLayout32.c)

add_test(NAME interface.RecordLayout32.C
  COMMAND ${CMAKE_C_COMPILER} -m32 -std=c11 -Wall -Wextra -Werror -fsyntax-only
          -I${CMAKE_SOURCE_DIR}/src ${OVD_LAYOUT32_SOURCE})
add_test(NAME interface.RecordLayout32.CXX
  COMMAND ${CMAKE_CXX_COMPILER} -m32 -std=c++20 -Wall -Wextra -Werror -fsyntax-only -x c++
          -I${CMAKE_SOURCE_DIR}/src ${OVD_LAYOUT32_SOURCE})
add_test(NAME interface.PublicHeaderIsPlainC99
  COMMAND ${CMAKE_C_COMPILER} -std=c99 -pedantic-errors -Wall -Wextra -Werror -fsyntax-only
          -x c ${CMAKE_SOURCE_DIR}/src/interface/ovdinf01.h)
set_tests_properties(interface.RecordLayout32.C interface.RecordLayout32.CXX
  interface.PublicHeaderIsPlainC99 PROPERTIES LABELS unit)
