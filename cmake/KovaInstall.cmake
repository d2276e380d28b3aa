# Installs library, headers, pkg-config file, commands and, if it was compiled, the data root.
if(NOT TARGET kova)
  return()
endif()
install(TARGETS kova)
install(FILES include/kova.h include/kova_host.h TYPE INCLUDE)
# The prefix is found from the place of the file, so that an installed tree can be moved.
set(kova_pc_prefix "${CMAKE_INSTALL_PREFIX}")
set(kova_pc_data "${KOVA_DATA_ROOT}")
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" /)
  string(REGEX REPLACE "/$" "" up "${up}")
  set(kova_pc_prefix "\${pcfiledir}/${up}")
  if(KOVA_DATA_ROOT STREQUAL "${CMAKE_INSTALL_PREFIX}/share/vantor/")
    set(kova_pc_data "\${prefix}/share/vantor/")
  endif()
endif()
configure_file(cmake/kova.pc.in ${PROJECT_BINARY_DIR}/kova.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kova.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
foreach(command kova_command kovac_command)
  if(TARGET ${command})
    install(TARGETS ${command})
  endif()
endforeach()
# The target "data" compiles data/locales.list below the build directory, as the tests do.
if(TARGET kovac_command AND NOT CMAKE_CROSSCOMPILING)
  add_custom_target(data USES_TERMINAL
      COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/cmake/compile_data $<TARGET_FILE:kovac_command>
              ${PROJECT_BINARY_DIR}/data
      DEPENDS kovac_command)
endif()
# Conversion objects have a second name, FROM_TO.cvo, beside their numbers; a copy would take its
# room again.
install(DIRECTORY ${PROJECT_BINARY_DIR}/data/kova DESTINATION ${CMAKE_INSTALL_DATADIR}/vantor OPTIONAL
        PATTERN "*_*.cvo" EXCLUDE)
install(CODE "
  set(made \"${PROJECT_BINARY_DIR}/data/kova/cv9\")
  set(installed \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/vantor/kova/cv9\")
  file(GLOB objects \${made}/*.cvo)
  foreach(object \${objects})
    get_filename_component(name \${object} NAME)
    file(SHA256 \${object} hash)
    if(name MATCHES _)
      list(APPEND names \${name})
      set(hash_of_\${name} \${hash})
    else()
      set(number_of_\${hash} \${name})
    endif()
  endforeach()
  foreach(name \${names})
    file(REMOVE \${installed}/\${name})
    file(CREATE_LINK \${installed}/\${number_of_\${hash_of_\${name}}} \${installed}/\${name}
         COPY_ON_ERROR)
  endforeach()
")
