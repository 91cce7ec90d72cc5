# What `cmake --install` puts beside the two binaries (which their own
# CMakeLists install to sbin): the man pages and the bash completion of
# pppoeplusctl. Included by the top CMakeLists.txt.
#
# These files form the install component "data" (installed on their own,
# they need no build); the binaries are in the default component.

set(PPPOEPLUS_UNIT_DIR lib/systemd/system)
set(PPPOEPLUS_UNIT_DIR_FULL ${CMAKE_INSTALL_PREFIX}/${PPPOEPLUS_UNIT_DIR})
set(PPPOEPLUS_EXAMPLE_CONF ${CMAKE_INSTALL_FULL_DOCDIR}/examples/pppoeplus.conf)
set(PPPOEPLUS_GENERATED_DIR ${CMAKE_BINARY_DIR}/install)

# ---- man pages ----------------------------------------------------------------------------
# Written by hand in man(7) roff (docs/man/*.in); the build fills in the
# version and the installed paths.
set(PPPOEPLUS_MAN_PAGES pppoeplusd.8 pppoeplusctl.8 pppoeplus.conf.5)
set(PPPOEPLUS_MAN_FILES "")
foreach(page IN LISTS PPPOEPLUS_MAN_PAGES)
  configure_file(${CMAKE_SOURCE_DIR}/docs/man/${page}.in ${PPPOEPLUS_GENERATED_DIR}/man/${page} @ONLY)
  string(REGEX MATCH "[0-9]$" section ${page})
  install(FILES ${PPPOEPLUS_GENERATED_DIR}/man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT data)
  list(APPEND PPPOEPLUS_MAN_FILES ${PPPOEPLUS_GENERATED_DIR}/man/${page})
endforeach()

# ---- bash completion ----------------------------------------------------------------------
install(FILES ${CMAKE_SOURCE_DIR}/tools/completion/pppoeplusctl.bash
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME pppoeplusctl COMPONENT data)

# ---- tests --------------------------------------------------------------------------------
if(PPPOEPLUS_TESTS AND TARGET pppoeplusctl)
  # Every page renders without a warning, man(1) shows it, and the pages name
  # every command and option of the tool and every key of the example
  # configuration.
  add_test(NAME man_pages_lint
           COMMAND ${CMAKE_SOURCE_DIR}/tests/install/man_lint.sh $<TARGET_FILE:pppoeplusctl>
                   ${CMAKE_SOURCE_DIR}/examples/pppoeplus.conf ${PPPOEPLUS_MAN_FILES})
  # The completion offers what the tool takes.
  add_test(NAME bash_completion
           COMMAND ${CMAKE_SOURCE_DIR}/tests/install/completion_test.sh
                   ${CMAKE_SOURCE_DIR}/tools/completion/pppoeplusctl.bash $<TARGET_FILE:pppoeplusctl>)
  set_tests_properties(man_pages_lint bash_completion PROPERTIES LABELS tools)
endif()
