# What `cmake --install` puts beside the two binaries (which their own
# CMakeLists install to sbin): the man pages, the bash completion of
# pppoeplusctl, the systemd unit, the example configuration and the
# documentation; and the Debian package built from that installation
# (cpack -G DEB, see scripts/package). Included by the top CMakeLists.txt.
#
# -DPPPOEPLUS_PACKAGE=ON installs as the package does: the example
# configuration also becomes ${CMAKE_INSTALL_FULL_SYSCONFDIR}/pppoeplus.conf.
# A plain `cmake --install` never writes into /etc, so an operator's
# configuration is never overwritten.
#
# These files form the install component "data" (installed on their own,
# they need no build); the binaries are in the default component. The
# package holds both.

option(PPPOEPLUS_PACKAGE "Install as the Debian package does (the example configuration as /etc/pppoeplus.conf)" OFF)

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

# ---- systemd unit -------------------------------------------------------------------------
# The example unit names the binaries where a plain install from source puts
# them; the installed copy names where this installation puts them. Every
# path of pppoeplusd or pppoeplusctl in the file is rewritten, whatever
# directory it names, and the documentation's directory too.
set(PPPOEPLUS_UNIT_SOURCE ${CMAKE_SOURCE_DIR}/examples/pppoeplusd.service)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PPPOEPLUS_UNIT_SOURCE})
file(READ ${PPPOEPLUS_UNIT_SOURCE} PPPOEPLUS_UNIT_TEXT)
string(REGEX REPLACE "/[^ \t\n=\"']*/(pppoeplusd|pppoeplusctl)([ \t\n\"'])" "${CMAKE_INSTALL_FULL_SBINDIR}/\\1\\2"
       PPPOEPLUS_UNIT_TEXT "${PPPOEPLUS_UNIT_TEXT}")
string(REPLACE "/usr/share/doc/pppoeplus/" "${CMAKE_INSTALL_FULL_DOCDIR}/" PPPOEPLUS_UNIT_TEXT "${PPPOEPLUS_UNIT_TEXT}")
# A unit that would start another binary, or none, is not installed.
if(NOT PPPOEPLUS_UNIT_TEXT MATCHES "\nExecStart=[-@:+!]*${CMAKE_INSTALL_FULL_SBINDIR}/pppoeplusd[ \t\n]")
  message(FATAL_ERROR "${PPPOEPLUS_UNIT_SOURCE}: no ExecStart line that starts .../pppoeplusd; "
                      "the installed unit could not be pointed at ${CMAKE_INSTALL_FULL_SBINDIR}/pppoeplusd")
endif()
file(CONFIGURE OUTPUT ${PPPOEPLUS_GENERATED_DIR}/pppoeplusd.service CONTENT "${PPPOEPLUS_UNIT_TEXT}")
install(FILES ${PPPOEPLUS_GENERATED_DIR}/pppoeplusd.service DESTINATION ${PPPOEPLUS_UNIT_DIR} COMPONENT data)

# ---- configuration and documentation ------------------------------------------------------
install(FILES ${CMAKE_SOURCE_DIR}/examples/pppoeplus.conf
              # pppoeplusctl metrics for node_exporter's textfile collector, every 15 s
              ${CMAKE_SOURCE_DIR}/examples/pppoeplus-metrics.service
              ${CMAKE_SOURCE_DIR}/examples/pppoeplus-metrics.timer
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT data)
if(PPPOEPLUS_PACKAGE)
  if(NOT CMAKE_INSTALL_FULL_SYSCONFDIR STREQUAL "/etc")
    message(WARNING "PPPOEPLUS_PACKAGE: the configuration goes to ${CMAKE_INSTALL_FULL_SYSCONFDIR}, "
                    "but pppoeplusd reads /etc/pppoeplus.conf (use -DCMAKE_INSTALL_PREFIX=/usr)")
  endif()
  install(FILES ${CMAKE_SOURCE_DIR}/examples/pppoeplus.conf DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR} COMPONENT data)
endif()
install(FILES ${CMAKE_SOURCE_DIR}/README.md ${CMAKE_SOURCE_DIR}/docs/linux-platform.md
              ${CMAKE_SOURCE_DIR}/docs/command-protocol.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT data)

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
  if(TARGET pppoeplusd)
    # cmake --install into a scratch directory puts every file where it
    # belongs, with and without PPPOEPLUS_PACKAGE.
    add_test(NAME install_layout
             COMMAND ${CMAKE_SOURCE_DIR}/tests/install/install_test.sh ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR}
                     ${CMAKE_COMMAND})
    set_tests_properties(install_layout PROPERTIES LABELS tools TIMEOUT 300)
  endif()
endif()

# ---- the Debian package -------------------------------------------------------------------
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pppoeplus)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "pppoeplus maintainers <maintainers@pppoeplus.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "PPPoE intermediate agent for Linux access switches")
# The long description; the summary above is its first line.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "pppoeplusd takes the PPPoE discovery frames that subscribers send (PADI,
PADR, PADT) on the ports of a Linux bridge, validates them, tags them with
a Vendor-Specific tag carrying a Circuit-ID and a Remote-ID built from
operator format strings, and sends them out of the trusted uplinks, so that
the access concentrator knows which line every subscriber is on.
pppoeplusctl manages the running daemon.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
find_program(PPPOEPLUS_DPKG dpkg)
if(PPPOEPLUS_DPKG)
  execute_process(COMMAND ${PPPOEPLUS_DPKG} --print-architecture OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
# The libraries' packages, as dpkg-shlibdeps finds them (libnftables and
# libmnl among them), and the nft tool with which an operator lists or
# removes the hardware rule's table.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "nftables")
# /etc/pppoeplus.conf is a conffile: an upgrade keeps the operator's edits.
# The maintainer scripts only make systemd see the unit; the service is
# neither enabled nor started (the bridge and the configuration come first).
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "")
foreach(script postinst prerm postrm)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/debian/${script} ${PPPOEPLUS_GENERATED_DIR}/debian/${script} COPYONLY)
  list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PPPOEPLUS_GENERATED_DIR}/debian/${script})
endforeach()
if(PPPOEPLUS_PACKAGE)
  configure_file(${CMAKE_SOURCE_DIR}/cmake/debian/conffiles.in ${PPPOEPLUS_GENERATED_DIR}/debian/conffiles @ONLY)
  list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PPPOEPLUS_GENERATED_DIR}/debian/conffiles)
endif()
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# /etc is an absolute destination: install below DESTDIR, not into the
# build machine's /etc.
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
include(CPack)
