# Each fuzz/*_fuzz.cpp is a libFuzzer program. CTest runs each for a few seconds, starting from
# fuzz/<name>_seeds/ where that folder exists.
if(NOT TARGET kova_inside)
  return()
endif()
set(KOVA_FUZZ_SECONDS 15 CACHE STRING "Seconds that CTest lets each fuzzer run")
add_compile_options(-fsanitize=fuzzer-no-link)
target_compile_options(kova_objects PRIVATE -fsanitize=fuzzer-no-link)
file(GLOB fuzz_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/*_fuzz.cpp)
foreach(source IN LISTS fuzz_sources)
  get_filename_component(name ${source} NAME_WE)
  add_executable(${name} ${source})
  target_link_libraries(${name} PRIVATE kova_inside kova_warnings)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  set(corpus ${CMAKE_BINARY_DIR}/corpus/${name})
  file(MAKE_DIRECTORY ${corpus})
  set(seeds ${CMAKE_CURRENT_SOURCE_DIR}/fuzz/${name}_seeds)
  if(NOT IS_DIRECTORY ${seeds})
    set(seeds "")
  endif()
  # One seed, so that two runs over the same corpus try the same inputs.
  add_test(NAME ${name} COMMAND ${name} -seed=1 -max_total_time=${KOVA_FUZZ_SECONDS} -timeout=10
           -rss_limit_mb=1024 -print_final_stats=1 ${corpus} ${seeds})
endforeach()
