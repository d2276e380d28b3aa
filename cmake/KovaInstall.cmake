# Installs the library, shared and static, with headers, CMake package and pkg-config file, the
# commands and, if they were compiled, the data. Components: runtime, development, commands, data.
if(NOT TARGET kova)
  return()
endif()
include(CMakePackageConfigHelpers)

install(TARGETS kova EXPORT kova-shared-targets
        RUNTIME COMPONENT runtime
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development)
install(FILES include/kova.h include/kova_host.h TYPE INCLUDE COMPONENT development)
set(kova_package ${CMAKE_INSTALL_LIBDIR}/cmake/kova)
install(EXPORT kova-shared-targets NAMESPACE kova:: DESTINATION ${kova_package}
        COMPONENT development)
if(TARGET kova_static)
  install(TARGETS kova_static EXPORT kova-static-targets ARCHIVE COMPONENT development)
  install(EXPORT kova-static-targets NAMESPACE kova:: DESTINATION ${kova_package}
          COMPONENT development)
endif()
configure_package_config_file(cmake/kova-config.cmake.in ${PROJECT_BINARY_DIR}/kova-config.cmake
    INSTALL_DESTINATION ${kova_package} PATH_VARS KOVA_DATA_ROOT)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kova-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kova-config.cmake ${PROJECT_BINARY_DIR}/kova-config-version.cmake
        DESTINATION ${kova_package} COMPONENT development)

# The prefix is found from the place of the file, so that an installed tree can be moved.
set(kova_pc_prefix "${CMAKE_INSTALL_PREFIX}")
set(kova_pc_data "${KOVA_DATA_ROOT}")
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" /)
  string(REGEX REPLACE "/$" "" up "${up}")
  set(kova_pc_prefix "\${pcfiledir}/${up}")
  if(kova_beside_lib)
    set(kova_pc_data "\${prefix}/${CMAKE_INSTALL_DATADIR}/vantor/")
  endif()
endif()
list(TRANSFORM kova_system_libs PREPEND -l OUTPUT_VARIABLE kova_pc_private)
list(JOIN kova_pc_private " " kova_pc_private)
configure_file(cmake/kova.pc.in ${PROJECT_BINARY_DIR}/kova.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kova.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
foreach(command kova_command kovac_command)
  if(TARGET ${command})
    install(TARGETS ${command} RUNTIME COMPONENT commands)
  endif()
endforeach()

# The target "data" compiles data/locales.list below the build directory, as the tests do.
if(TARGET kovac_command AND NOT CMAKE_CROSSCOMPILING)
  add_custom_target(data USES_TERMINAL
      COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/cmake/compile_data $<TARGET_FILE:kovac_command>
              ${PROJECT_BINARY_DIR}/data
      DEPENDS kovac_command)
endif()
set(kova_made_data ${PROJECT_BINARY_DIR}/data)
if(KOVA_COMPILED_DATA)
  set(kova_made_data ${KOVA_COMPILED_DATA})
endif()
if(kova_beside_lib)
  set(kova_data_place ${CMAKE_INSTALL_DATADIR}/vantor)
else()
  set(kova_data_place ${KOVA_DATA_ROOT})
endif()
# Conversion objects have a second name, FROM_TO.cvo, beside their numbers; a copy would take its
# room again. An image states the times of its objects, so "kovac image" makes it in place.
install(DIRECTORY ${kova_made_data}/kova DESTINATION ${kova_data_place} COMPONENT data OPTIONAL
        PATTERN "*_*.cvo" EXCLUDE PATTERN "image1" EXCLUDE)
install(CODE "
  set(made \"${kova_made_data}/kova/cv9\")
  set(place \"${kova_data_place}\")
  if(NOT IS_ABSOLUTE \"\${place}\")
    set(place \"\${CMAKE_INSTALL_PREFIX}/\${place}\")
  endif()
  set(copied ${WIN32})  # archives for Windows have no links
  include(\"${CMAKE_CURRENT_SOURCE_DIR}/cmake/install_names.cmake\")
" COMPONENT data)

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -P
                    ${CMAKE_CURRENT_SOURCE_DIR}/cmake/uninstall.cmake
                    WORKING_DIRECTORY ${PROJECT_BINARY_DIR})
  set(CPACK_GENERATOR TGZ)
  if(WIN32)
    set(CPACK_GENERATOR ZIP)
  endif()
  string(TOLOWER "${PROJECT_NAME}-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}"
         CPACK_PACKAGE_FILE_NAME)
  install(FILES LICENSE README.md CHANGELOG.md SECURITY.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
          COMPONENT development)
  set(CPACK_STRIP_FILES ON)
  set(CPACK_VERBATIM_VARIABLES ON)
  set(CPACK_SOURCE_GENERATOR TGZ)
  set(CPACK_SOURCE_IGNORE_FILES "/build/;/\\.git/")
  include(CPack)
endif()
