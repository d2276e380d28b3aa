# Makes manual pages and a manual in HTML from what the commands say of their options, the public headers
# and docs/*.md, and completions for shells from the options, and installs them. The makers in docs/make need Perl, of which Debian's perl-base has all they use.
option(KOVA_DOCS "Make manual pages and completions (needs Perl)" ${PROJECT_IS_TOP_LEVEL})
if(NOT KOVA_DOCS OR NOT TARGET kova_command)
  return()
endif()
if(CMAKE_CROSSCOMPILING)
  message(STATUS "No manual pages and completions are made: the commands of this build do not run here")
  return()
endif()
find_program(KOVA_PERL perl)
if(NOT KOVA_PERL)
  message(STATUS "No manual pages and completions are made: Perl is not installed")
  return()
endif()

set(docs_source ${CMAKE_CURRENT_SOURCE_DIR}/docs)
set(docs_made ${PROJECT_BINARY_DIR}/docs)
file(GLOB docs_sources CONFIGURE_DEPENDS ${docs_source}/*.md ${docs_source}/tasks/*.md ${docs_source}/make/*
     ${CMAKE_CURRENT_SOURCE_DIR}/include/*.h)
add_custom_command(OUTPUT ${docs_made}/man/pages.list
    COMMAND ${KOVA_PERL} ${docs_source}/make/make_man $<TARGET_FILE:kova_command>
            $<TARGET_FILE:kovac_command> ${PROJECT_VERSION} ${CMAKE_CURRENT_SOURCE_DIR} ${docs_made}/man
    DEPENDS kova_command kovac_command ${docs_sources}
    COMMENT "Making the manual pages" VERBATIM)
add_custom_target(man ALL DEPENDS ${docs_made}/man/pages.list)
install(DIRECTORY ${docs_made}/man/man1 ${docs_made}/man/man5 DESTINATION ${CMAKE_INSTALL_MANDIR}
        COMPONENT commands)
install(DIRECTORY ${docs_made}/man/man3 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT development)

set(completions ${docs_made}/completions)
add_custom_command(OUTPUT ${completions}/bash/kova ${completions}/bash/kovac
    COMMAND ${KOVA_PERL} ${docs_source}/make/make_completion $<TARGET_FILE:kova_command>
            $<TARGET_FILE:kovac_command> ${completions}
    DEPENDS kova_command kovac_command ${docs_sources}
    COMMENT "Making completions for bash, zsh and fish" VERBATIM)
add_custom_target(completions ALL DEPENDS ${completions}/bash/kova)
# Where the shells look below a prefix; Debian's zsh has a folder of its own for packages.
set(KOVA_ZSH_FUNCTIONS ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
    "Where completions for zsh are installed; Debian's packages use share/zsh/vendor-completions")
foreach(place "bash;${CMAKE_INSTALL_DATADIR}/bash-completion/completions" "zsh;${KOVA_ZSH_FUNCTIONS}"
        "fish;${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d")
  list(GET place 0 shell)
  list(GET place 1 folder)
  install(DIRECTORY ${completions}/${shell}/ DESTINATION ${folder} COMPONENT commands)
endforeach()

# The manual in HTML. Its pictures are drawn by kova from compiled locales, so that it is made when asked
# for: --target data, then --target manual.
set(docs_root ${PROJECT_BINARY_DIR}/data)
foreach(root KOVA_TEST_ROOT KOVA_COMPILED_DATA)
  if(${root})
    set(docs_root ${${root}})
  endif()
endforeach()
set(manual_command ${KOVA_PERL} ${docs_source}/make/make_manual $<TARGET_FILE:kova_command>
    $<TARGET_FILE:kovac_command> ${PROJECT_VERSION} ${CMAKE_CURRENT_SOURCE_DIR} ${docs_root}
    ${docs_made}/manual)
add_custom_target(manual COMMAND ${manual_command} COMMENT "Making the manual in HTML" VERBATIM)
add_dependencies(manual kova_command kovac_command)
install(DIRECTORY ${docs_made}/manual/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/html
        COMPONENT documentation OPTIONAL)
