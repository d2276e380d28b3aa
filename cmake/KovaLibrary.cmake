# kova: the shared library, exporting what tests/exports.txt (kova.h) and tests/exports_host.txt
# (kova_host.h) list and nothing else.
# kova_inside: the same objects as an archive, in which tests and fuzzers reach every function.
# The lowest layer, locale/, is compiled separately: it cannot find any header of lib/.
set(root ${CMAKE_CURRENT_SOURCE_DIR})
file(GLOB locale_sources CONFIGURE_DEPENDS ${root}/locale/*.cpp)
file(GLOB lib_sources CONFIGURE_DEPENDS ${root}/lib/*/*.cpp)
# The linker keeps this order: what a first opening or load runs stands together, at the end of locale/
# and the beginning of lib/, so that it touches few pages.
set(not_loading kovaerrors kovalists kovasyms kovasyms_read)
list(TRANSFORM not_loading REPLACE "(.+)" "${root}/locale/\\1.cpp")
list(REMOVE_ITEM locale_sources ${not_loading})
list(PREPEND locale_sources ${not_loading})
set(loading record/kovaspec_registry record/kovaspec load/kovasetlc_share load/kovasetlc_load
    load/kovasetlc load/kovasetlc_read load/kovasetlc_info chars/kovactype_share
    chars/kovactype_flat chars/kovactype_boxes chars/kovactype chars/kovambwc chars/kovaportable
    chars/kovalen collate/kovacoll_share collate/kovacoll_read collate/kovacoll_flat
    collate/kovacoll_equiv collate/kovacoll_walk collate/kovacoll time/kovatmlib
    time/kovatmlib_era time/kovatmlib_quick time/kovatree chars/kovambwc_simd
    number/kovamnlib_usual number/kovafmt convert/kovacvlib_share convert/kovacvlib
    convert/kovacvlib_image convert/kovacvlib_bytes convert/kovacvlib_flat)
list(TRANSFORM loading REPLACE "(.+)" "${root}/lib/\\1.cpp")
list(REMOVE_ITEM lib_sources ${loading})
list(PREPEND lib_sources ${loading})

# The linker's map is made from the lists.
function(kova_exports list result)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${root}/tests/${list})
  file(STRINGS ${root}/tests/${list} names REGEX "^[A-Za-z_]")
  list(SORT names)
  list(JOIN names ";\n        " joined)
  set(${result} "${joined}" PARENT_SCOPE)
endfunction()
kova_exports(exports.txt exports_kova)
kova_exports(exports_host.txt exports_host)
set(kova_map ${PROJECT_BINARY_DIR}/kova.map)
file(CONFIGURE OUTPUT ${kova_map} CONTENT
    "KOVA_2 {\n    global:\n        @exports_kova@;\n    local:\n        *;\n};
KOVA_2.87 {\n    global:\n        @exports_host@;\n} KOVA_2;\n" @ONLY)

add_library(kova_compile INTERFACE)
target_include_directories(kova_compile INTERFACE ${root}/include)
target_compile_options(kova_compile INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
target_compile_definitions(kova_compile INTERFACE KOVA_DATA_ROOT="${KOVA_DATA_ROOT}")
if(kova_beside_lib)
  set(way ${kova_beside_lib})
  if(WIN32)
    set(way ${kova_beside_bin})  # where a DLL is installed
  endif()
  set_source_files_properties(${root}/locale/kovaextsa.cpp PROPERTIES COMPILE_DEFINITIONS
      "KOVA_DATA_BESIDE_LIBRARY=\"${way}/\";KOVA_DATA_BESIDE_PROGRAM=\"${kova_beside_bin}/\"")
endif()
target_link_libraries(kova_compile INTERFACE kova_warnings kova_hardening)
if(NOT WIN32)
  # 64-bit sizes and inode numbers also on 32-bit systems, which would otherwise refuse larger
  # files.
  target_compile_definitions(kova_compile INTERFACE _FILE_OFFSET_BITS=64)
endif()
if(WIN32)
  set(kova_system_libs user32)  # message boxes and line formatting
else()
  set(kova_system_libs m ${CMAKE_DL_LIBS})
endif()

# Compiled once for both: hidden symbols can still be linked within one program.
add_library(kova_locale OBJECT ${locale_sources})
add_library(kova_lib OBJECT ${lib_sources})
target_include_directories(kova_lib PRIVATE ${root} ${root}/lib)
foreach(floor kova_locale kova_lib)
  target_link_libraries(${floor} PRIVATE kova_compile)
  if(NOT KOVA_MUTANTS)
    target_compile_options(${floor} PRIVATE -fvisibility=hidden)
  endif()
  target_compile_definitions(${floor} PRIVATE KOVA_BUILD)
  set_target_properties(${floor} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endforeach()
# Otherwise a function loses up to a tenth of its speed when code elsewhere moves it.
target_compile_options(kova_lib PRIVATE
    $<$<CONFIG:Release,RelWithDebInfo>:-falign-functions=64>)
set(kova_objects $<TARGET_OBJECTS:kova_locale> $<TARGET_OBJECTS:kova_lib>)

# One shared library for everything: a changed source takes one compilation and one link, and no program
# is linked again. No program's copy of an inline function takes the place of the library's.
if(KOVA_MUTANTS)
  add_library(kova SHARED ${kova_objects})
  target_link_libraries(kova PUBLIC ${kova_system_libs})
  target_include_directories(kova PUBLIC $<BUILD_INTERFACE:${root}/include>)
  set_target_properties(kova PROPERTIES LINKER_LANGUAGE C VERSION 2.86 SOVERSION 2)
  target_link_options(kova PRIVATE -Wl,-Bsymbolic)
  add_library(kova_inside INTERFACE)
  target_link_libraries(kova_inside INTERFACE kova)
  target_include_directories(kova_inside INTERFACE ${root}/include ${root} ${root}/lib)
  return()
endif()

add_library(kova_inside STATIC ${kova_objects})
target_link_libraries(kova_inside PUBLIC ${kova_system_libs})
target_include_directories(kova_inside PUBLIC ${root}/include ${root} ${root}/lib)
# Its users are linked with the archive, so the header must not make them import symbols.
target_compile_definitions(kova_inside PUBLIC KOVA_STATIC)
set_target_properties(kova_inside PROPERTIES LINKER_LANGUAGE CXX)
if(KOVA_FUZZ)
  return()
endif()

add_library(kova SHARED ${kova_objects})
target_link_libraries(kova PRIVATE ${kova_system_libs} kova_hardening)
target_include_directories(kova INTERFACE $<BUILD_INTERFACE:${root}/include>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(kova PROPERTIES LINKER_LANGUAGE C VERSION 2.86 SOVERSION 2
                      LINK_DEPENDS ${kova_map})
if(WIN32)
  # The library exports what the headers mark; nothing may leak from the compiler's own archives.
  target_link_options(kova PRIVATE -static-libgcc -Wl,--exclude-all-symbols)
else()
  include(CheckLinkerFlag)
  check_linker_flag(C -Wl,--version-script=${kova_map} KOVA_VERSION_SCRIPT)
  if(KOVA_VERSION_SCRIPT)
    target_link_options(kova PRIVATE -Wl,--version-script=${kova_map})
  elseif(APPLE)
    string(REGEX MATCHALL "[A-Za-z_0-9]+" symbols "${exports_kova} ${exports_host}")
    list(TRANSFORM symbols PREPEND _)
    list(JOIN symbols "\n" symbols)
    file(WRITE ${PROJECT_BINARY_DIR}/kova.symbols "${symbols}\n")
    target_link_options(kova PRIVATE
                        -Wl,-exported_symbols_list,${PROJECT_BINARY_DIR}/kova.symbols)
  endif()
  # Bound when the library is loaded (-z,now), also where nothing is hardened: otherwise the first
  # load of a locale would look up a hundred symbols. Calls of exports from inside go straight to them.
  foreach(flag --as-needed -z,now -Bsymbolic-functions)
    string(MAKE_C_IDENTIFIER "KOVA_LINKER${flag}" has)
    check_linker_flag(C -Wl,${flag} ${has})
    if(${has})
      target_link_options(kova PRIVATE -Wl,${flag})
    endif()
  endforeach()
  # clang expects the sanitizer's symbols in the executable.
  if(NOT APPLE AND NOT (KOVA_SANITIZE AND CMAKE_C_COMPILER_ID MATCHES Clang))
    target_link_options(kova PRIVATE -Wl,-z,defs)
  endif()
endif()
add_library(kova::kova ALIAS kova)

# The static library for hosts. On ELF systems it is one object in which only the exports can be
# seen, so that no function inside can meet one of the host's with its name.
if(WIN32 OR kova_instrumented)
  return()
endif()
set(kova_static_parts ${kova_objects})
if(CMAKE_OBJCOPY AND CMAKE_EXECUTABLE_FORMAT STREQUAL ELF
   AND NOT (CMAKE_INTERPROCEDURAL_OPTIMIZATION AND NOT CMAKE_C_COMPILER_ID STREQUAL GNU))
  separate_arguments(flags UNIX_COMMAND "${CMAKE_C_FLAGS}")
  if(CMAKE_INTERPROCEDURAL_OPTIMIZATION)
    list(APPEND flags -O2 -flinker-output=nolto-rel)
  endif()
  set(kova_static_parts ${PROJECT_BINARY_DIR}/kova_static.o)
  add_custom_command(OUTPUT ${kova_static_parts}
      COMMAND ${CMAKE_C_COMPILER} ${flags} -r -nostdlib -o ${kova_static_parts} ${kova_objects}
      COMMAND ${CMAKE_OBJCOPY} --localize-hidden ${kova_static_parts}
      DEPENDS ${kova_objects} COMMAND_EXPAND_LISTS VERBATIM)
endif()
add_library(kova_static STATIC ${kova_static_parts})
add_dependencies(kova_static kova_locale kova_lib)  # make does not see them through the object
add_library(kova::static ALIAS kova_static)
set_target_properties(kova_static PROPERTIES LINKER_LANGUAGE C OUTPUT_NAME kova EXPORT_NAME static)
target_compile_definitions(kova_static INTERFACE KOVA_STATIC)
target_include_directories(kova_static INTERFACE $<BUILD_INTERFACE:${root}/include>
                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_link_libraries(kova_static INTERFACE ${kova_system_libs})
