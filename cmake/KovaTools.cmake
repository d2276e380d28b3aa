# The commands. They see only the library's public headers. Each has one main source
# (tools/kova/kova.cpp, tools/kovac/kovac.cpp); the other sources of each directory of tools/ form
# an archive, so that tests can reach the parts: kova_parts, kovac_parts and common_parts, which
# both commands use.
# Builds for the fuzzers, which do not link the shared library, have only these parts.
if(NOT TARGET kova AND NOT TARGET kova_inside)
  return()
endif()
find_path(KOVA_CLI11_DIR CLI/CLI.hpp REQUIRED)
find_path(KOVA_JSON_DIR nlohmann/json.hpp REQUIRED)
if(CMAKE_CROSSCOMPILING OR CMAKE_SIZEOF_VOID_P EQUAL 4)
  set(kova_cli11_include ${PROJECT_BINARY_DIR}/headers)  # a cross build sees this directory alone
  file(MAKE_DIRECTORY ${kova_cli11_include})
  file(CREATE_LINK ${KOVA_CLI11_DIR}/CLI ${kova_cli11_include}/CLI SYMBOLIC)
  file(CREATE_LINK ${KOVA_JSON_DIR}/nlohmann ${kova_cli11_include}/nlohmann SYMBOLIC)
else()
  set(kova_cli11_include ${KOVA_CLI11_DIR})
endif()
if(WIN32)
  set(ZLIB_USE_STATIC_LIBS ON)
endif()
find_package(ZLIB REQUIRED)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# The mappings of ICU's converters, for kovac alone, which loads ICU when it needs it. The headers of
# this machine do not serve other ones.
set(kova_icu "")
if(KOVA_ICU AND NOT CMAKE_CROSSCOMPILING AND CMAKE_SIZEOF_VOID_P EQUAL 8)
  find_package(ICU COMPONENTS uc)
  if(ICU_FOUND)
    set(kova_icu ICU::uc)
  else()
    message(STATUS "kovac cannot compile the code sets that data/mappings.list takes from ICU: "
                   "libicu-dev is not installed")
  endif()
endif()

set(tools ${CMAKE_CURRENT_SOURCE_DIR}/tools)
add_library(kova_tool_compile INTERFACE)
target_include_directories(kova_tool_compile INTERFACE ${CMAKE_CURRENT_SOURCE_DIR}/include ${tools})
target_compile_definitions(kova_tool_compile INTERFACE KOVA_DATA_ROOT="${KOVA_DATA_ROOT}")
if(NOT kova_cli11_include STREQUAL "/usr/include")
  target_include_directories(kova_tool_compile SYSTEM INTERFACE ${kova_cli11_include})
endif()
target_link_libraries(kova_tool_compile INTERFACE kova_warnings kova_hardening
                      kova_std_string ZLIB::ZLIB Threads::Threads)
if(WIN32)
  target_link_options(kova_tool_compile INTERFACE -static)
elseif(NOT KOVA_MUTANTS)
  # As the property would do it for the commands alone; -fPIC would keep functions from being inlined.
  target_compile_options(kova_tool_compile INTERFACE -fPIE)
endif()

# The list of known differences as the text that kovac holds.
set(exceptions ${CMAKE_CURRENT_SOURCE_DIR}/data/collation_exceptions.list)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${exceptions})
file(READ ${exceptions} KOVAC_EXCEPTIONS)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/collation_exceptions.cpp.in
               ${PROJECT_BINARY_DIR}/generated/collation_exceptions.cpp @ONLY)
# The lists that kovac carries along.
set(lists ${CMAKE_CURRENT_SOURCE_DIR}/data)
foreach(list standins pack conversions charmaps mappings pairs)
  string(TOUPPER ${list} variable)
  file(READ ${lists}/${list}.list KOVA_${variable})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${lists}/${list}.list)
endforeach()
file(GLOB own_sources CONFIGURE_DEPENDS ${lists}/locales/*)
set(KOVA_SOURCES)
foreach(source ${own_sources})
  file(READ ${source} text)
  get_filename_component(name ${source} NAME)
  string(APPEND KOVA_SOURCES "    {\"${name}\", R\"source(${text})source\"},\n")
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
endforeach()
configure_file(cmake/kovac_lists.h.in ${PROJECT_BINARY_DIR}/lists/kovac_lists.h @ONLY)

set(kind STATIC)
if(KOVA_MUTANTS)
  set(kind SHARED)
endif()
foreach(room common kova kovac)
  file(GLOB sources CONFIGURE_DEPENDS ${tools}/${room}/*.cpp)
  list(REMOVE_ITEM sources ${tools}/${room}/${room}.cpp)
  add_library(${room}_parts ${kind} ${sources})
  if(KOVA_FUZZ)  # only what a fuzzer links
    set_target_properties(${room}_parts PROPERTIES EXCLUDE_FROM_ALL ON)
  endif()
  target_link_libraries(${room}_parts PUBLIC kova_tool_compile)
endforeach()
target_sources(kovac_parts PRIVATE ${PROJECT_BINARY_DIR}/generated/collation_exceptions.cpp)
target_link_libraries(kova_parts PUBLIC common_parts)
target_link_libraries(kovac_parts PUBLIC common_parts)
target_include_directories(kovac_parts PRIVATE ${PROJECT_BINARY_DIR}/lists)
if(kova_icu)
  set_source_files_properties(${tools}/kovac/kovac_convert_icu.cpp
      ${tools}/kovac/kovac_umalqura.cpp PROPERTIES COMPILE_DEFINITIONS KOVAC_HAS_ICU)
  target_link_libraries(kovac_parts PUBLIC ${CMAKE_DL_LIBS})
endif()

set_source_files_properties(${tools}/common/tool_help.cpp PROPERTIES
    COMPILE_DEFINITIONS KOVA_RELEASE="${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}")

# Tables of options take long to optimise and run rarely. Builds for checks optimise no command; under
# sanitizers kovac and what passes over whole texts still are.
file(GLOB quick CONFIGURE_DEPENDS ${tools}/kova/kova_options*.cpp)
list(APPEND quick ${tools}/common/tool_describe.cpp ${tools}/common/tool_help.cpp
     ${tools}/kova/kova_words.cpp)
set(busy)
if(KOVA_QUICK)
  target_compile_options(kova_tool_compile INTERFACE -O0)
elseif(kova_instrumented)
  target_compile_options(kova_parts PRIVATE -O0)
  set(busy char clusters convert convert_route detect detect_cost fields io measure read records
      sort_entries sort_key sort_lines sort_runs text width wrap)
  list(TRANSFORM busy REPLACE "(.+)" "${tools}/kova/kova_\\1.cpp")
  set_source_files_properties(${busy} PROPERTIES COMPILE_OPTIONS -O1)
endif()
set_source_files_properties(${quick} PROPERTIES COMPILE_OPTIONS "${kova_quick_build}")
# These builds read the standard headers once. The release does not, which shows that each source
# includes what it uses; a source with other options than its room cannot.
if(KOVA_QUICK OR kova_instrumented)
  foreach(room kova kovac)
    target_precompile_headers(${room}_parts PRIVATE <algorithm> <array> <charconv> <cstdio> <cstring>
        <functional> <map> <memory> <set> <stdexcept> <string> <string_view> <unordered_map> <vector>)
  endforeach()
  set_source_files_properties(${busy} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
endif()
# The compiler takes what is inside std::regex for uninitialised.
set_source_files_properties(${tools}/kova/kova_categories.cpp PROPERTIES COMPILE_OPTIONS
    "$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>")

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)  # a position independent target is then a PIE

function(kova_command name output)
  set(main ${tools}/${output}/${output}.cpp)
  add_executable(${name} ${main})
  set_source_files_properties(${main} PROPERTIES COMPILE_OPTIONS "${kova_quick_build}")
  target_link_libraries(${name} PRIVATE ${output}_parts kova)
  set_target_properties(${name} PROPERTIES OUTPUT_NAME ${output} POSITION_INDEPENDENT_CODE ON)
  if(kova_bin_to_lib)
    set_target_properties(${name} PROPERTIES INSTALL_RPATH "${kova_bin_to_lib}")
  endif()
endfunction()
if(TARGET kova)
  # From an installed command to the library, so that an installed tree can be moved.
  set(kova_bin_to_lib "")
  if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}")
    file(RELATIVE_PATH kova_bin_to_lib "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
    set(kova_bin_to_lib "$<IF:$<PLATFORM_ID:Darwin>,@loader_path,$ORIGIN>/${kova_bin_to_lib}")
  endif()
  kova_command(kovac_command kovac)
  kova_command(kova_command kova)
endif()
