# kova: the shared library, exporting what tests/exports.txt (kova.h) and tests/exports_host.txt
# (kova_host.h) list and nothing else.
# kova_inside: the same objects as an archive, in which tests and fuzzers reach every function.
set(root ${CMAKE_CURRENT_SOURCE_DIR})
file(GLOB kova_sources CONFIGURE_DEPENDS ${root}/locale/*.cpp ${root}/lib/*.cpp)

# The linker's map comes from the lists; what is listed and not built yet is left out by itself.
set(pending_txt ${root}/tests/exports_pending.txt)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${pending_txt})
function(kova_exports list result)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${root}/tests/${list})
  file(STRINGS ${root}/tests/${list} names REGEX "^[A-Za-z_]")
  list(SORT names)
  list(JOIN names ";\n        " joined)
  set(${result} "${joined}" PARENT_SCOPE)
endfunction()
kova_exports(exports.txt exports_kova)
kova_exports(exports_host.txt exports_host)
set(kova_map ${CMAKE_BINARY_DIR}/kova.map)
file(CONFIGURE OUTPUT ${kova_map} CONTENT
    "KOVA_2 {\n    global:\n        @exports_kova@;\n    local:\n        *;\n};
KOVA_2.87 {\n    global:\n        @exports_host@;\n} KOVA_2;\n" @ONLY)

add_library(kova_compile INTERFACE)
target_include_directories(kova_compile INTERFACE ${root}/include ${root}/locale ${root}/lib)
target_compile_options(kova_compile INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
target_compile_definitions(kova_compile INTERFACE KOVA_DATA_ROOT="${KOVA_DATA_ROOT}")
target_link_libraries(kova_compile INTERFACE kova_warnings)
if(WIN32)
  set(kova_system_libs user32)  # message boxes and line formatting
else()
  set(kova_system_libs m)
endif()

if(NOT kova_sources)
  message(STATUS "No library sources yet: library, tools and tests are left out")
  return()
endif()

# Compiled once for both: hidden symbols still meet within one program.
add_library(kova_objects OBJECT ${kova_sources})
target_link_libraries(kova_objects PRIVATE kova_compile)
target_compile_options(kova_objects PRIVATE -fvisibility=hidden)
target_compile_definitions(kova_objects PRIVATE KOVA_BUILD)
set_target_properties(kova_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)

add_library(kova_inside STATIC $<TARGET_OBJECTS:kova_objects>)
target_link_libraries(kova_inside PUBLIC ${kova_system_libs})
target_include_directories(kova_inside PUBLIC ${root}/include ${root}/locale ${root}/lib)
# Its users are linked with the archive, so the header must not make them import.
target_compile_definitions(kova_inside PUBLIC KOVA_STATIC)
set_target_properties(kova_inside PROPERTIES LINKER_LANGUAGE CXX)
if(KOVA_FUZZ)
  return()
endif()

add_library(kova SHARED $<TARGET_OBJECTS:kova_objects>)
target_link_libraries(kova PRIVATE ${kova_system_libs})
target_include_directories(kova INTERFACE $<BUILD_INTERFACE:${root}/include>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(kova PROPERTIES LINKER_LANGUAGE C VERSION 2.86 SOVERSION 2
                      LINK_DEPENDS ${kova_map})
if(WIN32)
  # The library exports what the headers mark; nothing may leak from the compiler's own archives.
  target_link_options(kova PRIVATE -static-libgcc -Wl,--exclude-all-symbols)
else()
  # Bound when it is loaded: the first load of a locale would else look a hundred symbols up.
  target_link_options(kova PRIVATE -Wl,--version-script=${kova_map} -Wl,--as-needed -Wl,-z,now)
  # clang leaves the sanitizer's symbols to the executable.
  if(NOT (KOVA_SANITIZE AND CMAKE_C_COMPILER_ID MATCHES Clang))
    target_link_options(kova PRIVATE -Wl,-z,defs)
  endif()
endif()
