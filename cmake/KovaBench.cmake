# Benchmarks use the library through kova.h; their peers are the C library and ICU. run_growth
# measures how cost grows with sizes and draws it.
if(NOT TARGET kova)
  return()
endif()
find_package(benchmark REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
file(GLOB bench_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/bench/*_bench.cpp)
set(bench_programs "")
foreach(source IN LISTS bench_sources)
  get_filename_component(name ${source} NAME_WE)
  list(APPEND bench_programs ${name})
  add_executable(${name} ${source})
  target_link_libraries(${name} PRIVATE kova kova_warnings benchmark::benchmark
                        benchmark::benchmark_main ICU::i18n ICU::uc)
endforeach()
add_executable(growth ${CMAKE_CURRENT_SOURCE_DIR}/bench/growth.cpp)
target_link_libraries(growth PRIVATE kova kova_warnings benchmark::benchmark)
add_custom_target(run_growth USES_TERMINAL
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/cmake/run_growth ${PROJECT_BINARY_DIR}
    DEPENDS growth $<TARGET_NAME_IF_EXISTS:kovac_command> $<TARGET_NAME_IF_EXISTS:kova_command>)
add_custom_target(run_bench USES_TERMINAL
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/cmake/run_bench ${PROJECT_BINARY_DIR}
    DEPENDS ${bench_programs} $<TARGET_NAME_IF_EXISTS:kovac_command>)
