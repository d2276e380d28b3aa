# Makes the manual pages from what the commands say of their options, the public headers and docs/*.md,
# and installs them. The makers in docs/make need Perl, of which Debian's perl-base has all they use.
option(KOVA_DOCS "Make manual pages and completions (needs Perl)" ${PROJECT_IS_TOP_LEVEL})
if(NOT KOVA_DOCS OR NOT TARGET kova_command)
  return()
endif()
if(CMAKE_CROSSCOMPILING)
  message(STATUS "No manual pages are made: the commands of this build do not run here")
  return()
endif()
find_program(KOVA_PERL perl)
if(NOT KOVA_PERL)
  message(STATUS "No manual pages are made: Perl is not installed")
  return()
endif()

set(docs_source ${CMAKE_CURRENT_SOURCE_DIR}/docs)
set(docs_made ${PROJECT_BINARY_DIR}/docs)
file(GLOB docs_sources CONFIGURE_DEPENDS ${docs_source}/*.md ${docs_source}/make/*
     ${CMAKE_CURRENT_SOURCE_DIR}/include/*.h)
add_custom_command(OUTPUT ${docs_made}/man/pages.list
    COMMAND ${KOVA_PERL} ${docs_source}/make/make_man $<TARGET_FILE:kova_command>
            $<TARGET_FILE:kovac_command> ${PROJECT_VERSION} ${CMAKE_CURRENT_SOURCE_DIR} ${docs_made}/man
    DEPENDS kova_command kovac_command ${docs_sources}
    COMMENT "Making the manual pages" VERBATIM)
add_custom_target(man ALL DEPENDS ${docs_made}/man/pages.list)
foreach(section man1 man3 man5)
  install(DIRECTORY ${docs_made}/man/${section} DESTINATION ${CMAKE_INSTALL_MANDIR})
endforeach()
