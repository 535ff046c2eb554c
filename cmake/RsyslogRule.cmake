# The rule by which rsyslog writes the system log has one text, packaging/rsyslog.conf: the package installs it, ./run
# shows it, and the advice of syslogmon doctor is made of it here.
set(packaged_rule ${CMAKE_SOURCE_DIR}/packaging/rsyslog.conf)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${packaged_rule})
file(READ ${packaged_rule} RSYSLOG_RULE)
string(REGEX REPLACE "#[^\n]*\n" "" RSYSLOG_RULE "${RSYSLOG_RULE}")
configure_file(agent/cli/rsyslog_rule.h.in ${CMAKE_BINARY_DIR}/generated/agent/cli/rsyslog_rule.h @ONLY)

target_sources(syslogmon PRIVATE agent/cli/doctor_promises.cc agent/cli/doctor_rsyslog.cc)
# By itself, for its tests.
add_library(rsyslog_config OBJECT agent/cli/rsyslog_config.cc)
target_include_directories(rsyslog_config PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(syslogmon PRIVATE rsyslog_config)
target_include_directories(syslogmon PRIVATE ${CMAKE_BINARY_DIR}/generated)
