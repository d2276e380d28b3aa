# The short test with a server, in builds whose library a server can load; skipped without one.
if(NOT kova_instrumented AND NOT CMAKE_CROSSCOMPILING AND CMAKE_SIZEOF_VOID_P EQUAL 8 AND NOT APPLE)
  kova_add_test(host.postgres ${CMAKE_COMMAND} -E env KOVA_BUILD=${PROJECT_BINARY_DIR}
      KOVA_HOST_DIR=${PROJECT_BINARY_DIR}/hosts/postgres ${CMAKE_CURRENT_LIST_DIR}/quick)
  if(data_fixture)
    set_tests_properties(${KOVA_TEST_PREFIX}host.postgres PROPERTIES ${data_fixture})
  endif()
endif()
