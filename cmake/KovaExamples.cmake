# Each source of examples/ is a program of its own that shows one use of the C interface.
# examples/CMakeLists.txt builds the same programs against an installed library.
if(NOT TARGET kova)
  return()
endif()
file(GLOB example_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/examples/*.c
     ${CMAKE_CURRENT_SOURCE_DIR}/examples/*.cpp)
foreach(source IN LISTS example_sources)
  get_filename_component(name ${source} NAME_WE)
  add_executable(example_${name} ${source})
  target_link_libraries(example_${name} PRIVATE kova kova_warnings)
endforeach()
