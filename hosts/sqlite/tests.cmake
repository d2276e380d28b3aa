# The tests of the SQLite extension, included by tests/CMakeLists.txt: they need SQLite's library and
# run with its shell and Python.
find_library(KOVA_SQLITE_LIBRARY sqlite3)
find_program(KOVA_SQLITE_SHELL sqlite3)
find_program(KOVA_SQLITE_PYTHON python3 HINTS /usr/bin) # Debian's loads extensions
if(NOT KOVA_SQLITE_LIBRARY OR CMAKE_CROSSCOMPILING OR NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  return()
endif()
set(here ${CMAKE_CURRENT_LIST_DIR})
find_package(Threads REQUIRED)
add_executable(sqlite_test ${here}/sqlite_test.cpp)
target_include_directories(sqlite_test PRIVATE ${KOVA_SQLITE_DIR})
target_link_libraries(sqlite_test PRIVATE kova kova_gtest kova_warnings kova_std_string
                      ${KOVA_SQLITE_LIBRARY} Threads::Threads)
add_dependencies(sqlite_test kova_sqlite)

# What check measures with; built when it asks for it.
if(kova_icu OR ICU_FOUND)
  find_package(ICU QUIET COMPONENTS i18n uc)
  add_executable(sqlite_bench EXCLUDE_FROM_ALL ${here}/sqlite_bench.c)
  target_include_directories(sqlite_bench PRIVATE ${KOVA_SQLITE_DIR})
  target_link_libraries(sqlite_bench PRIVATE kova_warnings ${KOVA_SQLITE_LIBRARY} ICU::i18n ICU::uc)
  target_compile_definitions(sqlite_bench PRIVATE _POSIX_C_SOURCE=200809L)
endif()

function(kova_add_sqlite_test name)
  kova_add_test(sqlite.${name} ${ARGN})
  set_tests_properties(${KOVA_TEST_PREFIX}sqlite.${name} PROPERTIES ${data_fixture}
      ENVIRONMENT "${test_environment};KOVA_SQLITE_EXTENSION=$<TARGET_FILE:kova_sqlite>")
endfunction()
kova_add_sqlite_test(engine sqlite_test)
# The shell and Python are not built for the sanitizers.
if(KOVA_SANITIZE)
  return()
endif()
if(KOVA_SQLITE_SHELL)
  kova_add_sqlite_test(shell ${here}/shell_test $<TARGET_FILE:kova_sqlite> ${test_root}
                       ${PROJECT_BINARY_DIR})
endif()
if(KOVA_SQLITE_PYTHON AND TARGET kova_command)
  kova_add_sqlite_test(order ${KOVA_SQLITE_PYTHON} ${here}/order_test $<TARGET_FILE:kova_sqlite>
                       ${CMAKE_RUNTIME_OUTPUT_DIRECTORY} ${test_root})
endif()
