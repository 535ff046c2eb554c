# What is installed and where, and the Debian package of it:
#
#   cmake --preset release && cmake --build --preset release && (cd build/release && cpack -G DEB)
#
# What sends notifications of SNMP is a package of its own, the component snmp: it needs a library that brings 47 MB of Perl.
# The libraries have a folder of their own, since no other program may link with them: SYSLOGMON_ROOT/lib.
set(package_files ${CMAKE_BINARY_DIR}/packaging)
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON) # the target agent is all that is installed

install(TARGETS syslogmon RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS syslogmond RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS tarsk vkevmon vkmncall vkirtupt LIBRARY DESTINATION ${SYSLOGMON_ROOT}/lib)
install(TARGETS snmp LIBRARY DESTINATION ${SYSLOGMON_ROOT}/lib COMPONENT snmp)

# ---- documents ----

# Debian wants manual pages and changelogs compressed, in the same way each time. Further arguments are install()'s.
function(install_compressed source folder name)
    install(CODE "
        execute_process(COMMAND gzip -9nc \"${source}\" OUTPUT_FILE \"${package_files}/${name}.gz\"
                        COMMAND_ERROR_IS_FATAL ANY)" ${ARGN})
    install(FILES ${package_files}/${name}.gz DESTINATION ${folder} ${ARGN})
endfunction()

file(GLOB manual_pages CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/man/*.[158])
foreach(page ${manual_pages})
    cmake_path(GET page FILENAME name)
    string(REGEX MATCH "[158]$" section ${name})
    install_compressed(${page} ${CMAKE_INSTALL_MANDIR}/man${section} ${name})
endforeach()

install_compressed(${CMAKE_CURRENT_LIST_DIR}/debian/changelog ${CMAKE_INSTALL_DOCDIR} changelog)
install_compressed(${CMAKE_CURRENT_LIST_DIR}/debian/changelog ${CMAKE_INSTALL_DOCDIR}-snmp changelog COMPONENT snmp)
file(STRINGS ${CMAKE_SOURCE_DIR}/LICENSE licence_lines)
list(SUBLIST licence_lines 4 -1 licence_lines) # without its title and copyright lines
set(LICENSE_FIELD "")
foreach(line IN LISTS licence_lines)
    string(APPEND LICENSE_FIELD " ${line}\n")
endforeach()
string(REPLACE " \n" " .\n" LICENSE_FIELD "${LICENSE_FIELD}")
string(STRIP "${LICENSE_FIELD}" LICENSE_FIELD)
string(PREPEND LICENSE_FIELD " ")
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/copyright.in ${package_files}/copyright @ONLY)
install(FILES ${package_files}/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES ${package_files}/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR}-snmp COMPONENT snmp)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/logrotate-other-logs DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
foreach(name rules policies host)
    file(READ ${CMAKE_SOURCE_DIR}/examples/${name}.yaml rules)
    string(REPLACE "../packaging/rules.schema.json" "${SYSLOGMON_RULES_SCHEMA}" rules "${rules}")
    file(WRITE ${package_files}/${name}.yaml "${rules}")
    install(FILES ${package_files}/${name}.yaml DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
endforeach()

install(DIRECTORY ${CMAKE_SOURCE_DIR}/examples/prometheus ${CMAKE_SOURCE_DIR}/examples/grafana ${CMAKE_SOURCE_DIR}/examples/ansible
        DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(PROGRAMS ${CMAKE_SOURCE_DIR}/examples/fleet/accounts DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples/fleet)

# What an administrator reads: the rest of the documents is about the sources.
install(FILES ${CMAKE_SOURCE_DIR}/docs/fleet.md ${CMAKE_SOURCE_DIR}/docs/histories.md ${CMAKE_SOURCE_DIR}/docs/json.md
              ${CMAKE_SOURCE_DIR}/docs/metrics.md ${CMAKE_SOURCE_DIR}/docs/web.md
              ${CMAKE_CURRENT_LIST_DIR}/debian/README.Debian DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/sinks DESTINATION ${CMAKE_INSTALL_DOCDIR})

install(FILES ${CMAKE_CURRENT_LIST_DIR}/SYSLOGMON-MIB.txt DESTINATION ${CMAKE_INSTALL_DATADIR}/snmp/mibs COMPONENT snmp)

# ---- completions ----

set(completions ${CMAKE_CURRENT_LIST_DIR}/completions)
set(bash_folder ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
install(FILES ${completions}/syslogmon.bash DESTINATION ${bash_folder} RENAME syslogmon)
install(CODE "
    file(CREATE_LINK syslogmon
         \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${bash_folder}/syslogmond\" SYMBOLIC)")
install(FILES ${completions}/_syslogmon DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/vendor-completions)
install(FILES ${completions}/syslogmon.fish DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/fish/vendor_completions.d)
install(CODE "
    file(CREATE_LINK syslogmon.fish
         \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATAROOTDIR}/fish/vendor_completions.d/syslogmond.fish\"
         SYMBOLIC)")

# ---- service, and the configuration of its neighbours ----

configure_file(${CMAKE_CURRENT_LIST_DIR}/syslogmond.service.in ${package_files}/syslogmond.service @ONLY)
install(FILES ${package_files}/syslogmond.service DESTINATION /lib/systemd/system)
# Put in place by the administrator where rsyslog is used: syslogmon doctor has the command.
install(FILES ${CMAKE_CURRENT_LIST_DIR}/rsyslog.conf ${CMAKE_CURRENT_LIST_DIR}/logrotate.conf
        DESTINATION ${CMAKE_INSTALL_DATADIR}/syslogmon)
# For the secrets of sinks, and for rules files: apply takes the folder as a whole.
install(DIRECTORY DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/syslogmon/conf.d)

# ---- the package ----

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Unspecified snmp)
set(CPACK_PACKAGE_NAME syslogmon)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_NAME syslogmon)
set(CPACK_DEBIAN_SNMP_PACKAGE_NAME syslogmon-snmp)
set(CPACK_PACKAGE_CONTACT "the syslog monitor's authors <maintainers@syslogmon.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
# The first line of each is its summary.
set(CPACK_DEBIAN_UNSPECIFIED_DESCRIPTION
"watches the system log and reports registered events
A daemon reads the system log as it is written, across rotations, restarts and
crashes. Events are registered with a command: texts that a line must contain,
how many hits make one report, and the hours in which they count.")
set(CPACK_DEBIAN_SNMP_DESCRIPTION
"notifications of SNMP for the syslog monitor
With this package, alerts of the package syslogmon can be sent as informs or
traps of SNMP, by a sink of the kind snmp.")
# The unit's reload needs kill, which the smallest Debian does not have; hours of silences may name a time zone.
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_DEPENDS "procps, tzdata")
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_SUGGESTS syslogmon-snmp)
# Both sides of snmp.so are built together.
set(CPACK_DEBIAN_SNMP_PACKAGE_DEPENDS "syslogmon (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR}/root/lib)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(control ${CMAKE_CURRENT_LIST_DIR}/debian)
set(CPACK_DEBIAN_UNSPECIFIED_PACKAGE_CONTROL_EXTRA ${control}/postinst ${control}/prerm ${control}/postrm)
include(CPack)
