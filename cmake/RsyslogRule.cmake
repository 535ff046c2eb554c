# The rule by which rsyslog writes the system log has one text, packaging/rsyslog.conf: the package installs it, ./run
# shows it, and the advice of syslogmon doctor is made of it here.
set(packaged_rule ${CMAKE_SOURCE_DIR}/packaging/rsyslog.conf)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${packaged_rule})
file(READ ${packaged_rule} RSYSLOG_RULE)
string(REGEX REPLACE "#[^\n]*\n" "" RSYSLOG_RULE "${RSYSLOG_RULE}")
configure_file(agent/cli/rsyslog_rule.h.in ${CMAKE_BINARY_DIR}/generated/agent/cli/rsyslog_rule.h @ONLY)
