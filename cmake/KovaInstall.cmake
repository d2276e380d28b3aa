# Installs library, headers, pkg-config file, commands and, if it was compiled, the data root.
if(NOT TARGET kova)
  return()
endif()
install(TARGETS kova)
install(FILES include/kova.h include/kova_host.h TYPE INCLUDE)
configure_file(cmake/kova.pc.in ${CMAKE_BINARY_DIR}/kova.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kova.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
foreach(command kova_command kovac_command)
  if(TARGET ${command})
    install(TARGETS ${command})
  endif()
endforeach()
# The target "data" compiles data/locales.list below the build directory, as the tests do.
if(TARGET kovac_command AND NOT CMAKE_CROSSCOMPILING)
  add_custom_target(data USES_TERMINAL
      COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/cmake/compile_data $<TARGET_FILE:kovac_command>
              ${CMAKE_BINARY_DIR}/data
      DEPENDS kovac_command)
endif()
# Conversion objects have a second name, FROM_TO.cvo, beside their numbers; a copy would take its
# room again.
install(DIRECTORY ${CMAKE_BINARY_DIR}/data/kova DESTINATION ${CMAKE_INSTALL_DATADIR}/vantor OPTIONAL
        PATTERN "*_*.cvo" EXCLUDE)
install(CODE "
  set(made \"${CMAKE_BINARY_DIR}/data/kova/cv9\")
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
