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

# A plain C host that loads the shared library at run time, as imaging programs do. An
# instrumented library can't be loaded by an uninstrumented host, so the sanitizer build
# leaves this test to the plain one.
if(NOT OVD_SANITIZE)
add_executable(c_host ${CMAKE_CURRENT_LIST_DIR}/c_host.c)
target_include_directories(c_host PRIVATE ${CMAKE_SOURCE_DIR}/src)
target_link_libraries(c_host PRIVATE ${CMAKE_DL_LIBS})
add_dependencies(c_host ovdinf01)
set(OVD_C_HOST_SCRATCH ${CMAKE_CURRENT_BINARY_DIR}/c_host_scratch)
add_test(NAME interface.PlainCHostLoadsAndCalls
  COMMAND ${CMAKE_COMMAND} -E env bash -c
    "rm -rf '${OVD_C_HOST_SCRATCH}' && mkdir -p '${OVD_C_HOST_SCRATCH}' && '$<TARGET_FILE:c_host>' '$<TARGET_FILE:ovdinf01>' '${OVD_C_HOST_SCRATCH}' && rm -rf '${OVD_C_HOST_SCRATCH}'")
set_tests_properties(interface.PlainCHostLoadsAndCalls PROPERTIES LABELS unit)
endif()
add_test(NAME interface.ExportsOnlyPublicOperations
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/check_exports.sh $<TARGET_FILE:ovdinf01>)
set_tests_properties(interface.ExportsOnlyPublicOperations PROPERTIES LABELS unit)
add_test(NAME interface.InstalledLibraryServesCHostsAndPython
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/install_test.sh ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR})
