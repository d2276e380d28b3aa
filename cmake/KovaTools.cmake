# The commands. They see the library through kova.h alone. Each is one main source (kova.cpp,
# kovac.cpp) and an archive of the rest, so that tests can reach the parts:
#   kovatools    tool_*.cpp, kovac_charmap*.cpp and kovac_source*.cpp, used by both commands
#   kovac_parts  the other kovac_*.cpp          kova_parts  kova_*.cpp
# Where the library is not built to be linked, for the fuzzers, the parts alone are.
if(NOT TARGET kova AND NOT TARGET kova_inside)
  return()
endif()
find_path(KOVA_CLI11_DIR CLI/CLI.hpp REQUIRED)
if(CMAKE_CROSSCOMPILING OR CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(kova_cli11_include ${CMAKE_BINARY_DIR}/headers)  # a cross build sees this directory alone
  file(MAKE_DIRECTORY ${kova_cli11_include})
  file(CREATE_LINK ${KOVA_CLI11_DIR}/CLI ${kova_cli11_include}/CLI SYMBOLIC)
else()
  set(kova_cli11_include ${KOVA_CLI11_DIR})
endif()
if(WIN32)
  set(ZLIB_USE_STATIC_LIBS ON)
endif()
find_package(ZLIB REQUIRED)

set(tools ${CMAKE_CURRENT_SOURCE_DIR}/tools)
file(GLOB kovatools_sources CONFIGURE_DEPENDS ${tools}/tool_*.cpp
     ${tools}/kovac_charmap*.cpp ${tools}/kovac_source*.cpp)
file(GLOB kovac_sources CONFIGURE_DEPENDS ${tools}/kovac_*.cpp)
file(GLOB kova_tool_sources CONFIGURE_DEPENDS ${tools}/kova_*.cpp)
if(kovatools_sources)
  list(REMOVE_ITEM kovac_sources ${kovatools_sources})
endif()

add_library(kova_tool_compile INTERFACE)
target_include_directories(kova_tool_compile INTERFACE ${CMAKE_CURRENT_SOURCE_DIR}/include ${tools})
target_compile_definitions(kova_tool_compile INTERFACE KOVA_DATA_ROOT="${KOVA_DATA_ROOT}")
if(NOT kova_cli11_include STREQUAL "/usr/include")
  target_include_directories(kova_tool_compile SYSTEM INTERFACE ${kova_cli11_include})
endif()
target_link_libraries(kova_tool_compile INTERFACE kova_warnings kova_std_string ZLIB::ZLIB)
if(WIN32)
  target_link_options(kova_tool_compile INTERFACE -static)
endif()

function(kova_tool_parts name)
  if(ARGN)
    add_library(${name} STATIC ${ARGN})
    target_link_libraries(${name} PUBLIC kova_tool_compile)
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE kova_tool_compile)
  endif()
endfunction()
kova_tool_parts(kovatools ${kovatools_sources})
kova_tool_parts(kovac_parts ${kovac_sources})
kova_tool_parts(kova_parts ${kova_tool_sources})

# Whoever names an archive of parts gets the shared sources behind it.
foreach(parts kovac_parts kova_parts)
  get_target_property(type ${parts} TYPE)
  if(type STREQUAL INTERFACE_LIBRARY)
    target_link_libraries(${parts} INTERFACE kovatools)
  else()
    target_link_libraries(${parts} PUBLIC kovatools)
  endif()
endforeach()

function(kova_command name output)
  if(EXISTS ${tools}/${output}.cpp)
    add_executable(${name} ${tools}/${output}.cpp)
    # Little but option tables, which take long to optimise.
    set_source_files_properties(${tools}/${output}.cpp PROPERTIES
                                COMPILE_OPTIONS "${kova_quick_build}")
    target_link_libraries(${name} PRIVATE ${ARGN} kovatools kova)
    set_target_properties(${name} PROPERTIES OUTPUT_NAME ${output}
        INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  endif()
endfunction()
if(TARGET kova)
  kova_command(kovac_command kovac kovac_parts)
  kova_command(kova_command kova kova_parts)
endif()
