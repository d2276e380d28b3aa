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
install(DIRECTORY ${CMAKE_BINARY_DIR}/data/kova DESTINATION ${CMAKE_INSTALL_DATADIR}/vantor OPTIONAL)
