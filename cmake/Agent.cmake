# The stand-alone agent above the host library: a library for each folder, the sibling libraries, the daemon and the
# command. Folders are listed from the floor up, each with what it links; none includes a header of one that stands
# behind it (tests/style/arrows).
include(cmake/Host.cmake)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(CURL REQUIRED)
find_library(NETSNMP netsnmp REQUIRED)
find_library(NATS nats REQUIRED)
find_library(CCTZ cctz REQUIRED)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
pkg_check_modules(YAML REQUIRED IMPORTED_TARGET yaml-0.1)
pkg_check_modules(NCURSES REQUIRED IMPORTED_TARGET ncursesw)
pkg_check_modules(MICROHTTPD REQUIRED IMPORTED_TARGET libmicrohttpd)
include(cmake/Embed.cmake)

# What a folder compiles is compiled once. Programs, sibling libraries and tests link it. UNHURRIED: nothing of it is in
# a hurry, as what stores alerts or makes lines of entries is. WITH_JSON: most of its files need that heavy header.
function(add_agent_folder folder)
    cmake_parse_arguments(PARSE_ARGV 1 IS "UNHURRIED;WITH_JSON" "" "")
    list(TRANSFORM IS_UNPARSED_ARGUMENTS PREPEND agent/${folder}/)
    add_library(agent_${folder} STATIC ${IS_UNPARSED_ARGUMENTS})
    set_target_properties(agent_${folder} PROPERTIES CXX_VISIBILITY_PRESET hidden)
    target_link_libraries(agent_${folder} PUBLIC tarsk)
    target_compile_options(agent_${folder} PRIVATE ${WITH_AGENT_HEADERS})
    build_by_folder(agent_${folder})
    if(IS_UNHURRIED)
        target_compile_options(agent_${folder} PRIVATE ${QUICK_BUILD})
    endif()
    if(IS_WITH_JSON)
        target_link_libraries(agent_${folder} PUBLIC nlohmann_json::nlohmann_json)
        target_precompile_headers(agent_${folder} PRIVATE ${AGENT_HEADERS} <nlohmann/json.hpp>)
    else()
        target_precompile_headers(agent_${folder} REUSE_FROM agent_headers)
    endif()
endfunction()

# The sibling libraries, under the names by which the module loads them.
function(add_sibling name)
    add_library(${name} SHARED ${ARGN})
    set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".dll" CXX_VISIBILITY_PRESET hidden
                          LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/root/lib
                          BUILD_RPATH "$ORIGIN" INSTALL_RPATH "$ORIGIN")
    target_link_libraries(${name} PRIVATE tarsk)
endfunction()

function(add_program name)
    add_executable(${name} ${ARGN})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/root/bin
                          BUILD_RPATH "$ORIGIN/../lib" INSTALL_RPATH "${SYSLOGMON_ROOT}/lib")
endfunction()

add_agent_folder(text base64.cc duration.cc flush.cc last_words.cc printable.cc say.cc shell_word.cc split.cc suggestion.cc template.cc text_file.cc times.cc utf8.cc whole_file.cc)

add_agent_folder(commandline UNHURRIED parser.cc)
target_link_libraries(agent_commandline PRIVATE agent_text CLI11::CLI11)

add_agent_folder(events UNHURRIED event_checks.cc event_policy.cc events.cc expressions.cc hours.cc required_text.cc)
target_link_libraries(agent_events PRIVATE agent_text)

add_agent_folder(settings UNHURRIED settings.cc web_address.cc)
target_link_libraries(agent_settings PRIVATE agent_text)

add_agent_folder(monitor UNHURRIED module.cc)
target_link_libraries(agent_monitor PUBLIC ${CMAKE_DL_LIBS})

add_agent_folder(logs UNHURRIED log_files.cc log_witness.cc places.cc stamps.cc unread.cc witnessed_file.cc)
target_link_libraries(agent_logs PUBLIC agent_monitor)

add_agent_folder(status UNHURRIED daemon_lock.cc sign_of_life.cc status_file.cc)
target_link_libraries(agent_status PRIVATE nlohmann_json::nlohmann_json)

add_agent_folder(alerts alert_store.cc alert_text.cc own_alert.cc report_alert.cc report_folder.cc)
target_link_libraries(agent_alerts PUBLIC agent_events PRIVATE agent_text)
add_sibling(vkmncall agent/alerts/vkmncall.cc)
target_link_libraries(vkmncall PRIVATE agent_alerts)

add_agent_folder(history history_reader.cc history_writer.cc steps.cc)

add_agent_folder(policy count_store.cc count_text.cc event_count.cc expression.cc policies.cc report_desk.cc silence.cc silence_desk.cc
    silence_registry.cc summary.cc value_count.cc zone.cc)
target_link_libraries(agent_policy PUBLIC agent_alerts agent_events PRIVATE agent_text PkgConfig::RE2 ${CCTZ})

add_agent_folder(nats UNHURRIED connection.cc)
target_link_libraries(agent_nats PUBLIC ${NATS})

add_agent_folder(sinks UNHURRIED alert_json.cc alertmanager_sink.cc backoff.cc body_template.cc console_sink.cc deliverer.cc
    delivery_store.cc digest.cc file_sink.cc file_trust.cc heartbeat.cc held_store.cc http.cc journal_sink.cc mail_sink.cc mail_text.cc
    option_checks.cc program_sink.cc progress.cc rate.cc route.cc sink.cc sink_kinds.cc sink_registry.cc snmp_sink.cc
    syslog_sink.cc syslog_words.cc undelivered.cc webhook_format.cc webhook_sink.cc worker.cc nats_options.cc nats_sink.cc)
target_link_libraries(agent_sinks PUBLIC agent_alerts agent_nats
                      PRIVATE agent_events agent_settings agent_status agent_text nlohmann_json::nlohmann_json CURL::libcurl
                      PkgConfig::SYSTEMD Threads::Threads ${CMAKE_DL_LIBS})

include(cmake/Snmp.cmake)
include(cmake/Inputs.cmake)

add_agent_folder(alarms UNHURRIED alarm_book.cc alarm_watch.cc sight.cc)
target_link_libraries(agent_alarms PUBLIC agent_alerts agent_status
                      PRIVATE agent_logs agent_settings agent_sinks agent_text Threads::Threads)

add_agent_folder(metrics UNHURRIED metrics_text.cc overview.cc quick_place.cc)
target_link_libraries(agent_metrics PUBLIC agent_events agent_history agent_logs agent_settings agent_sinks agent_status
                      PRIVATE agent_text)

add_agent_folder(report UNHURRIED plots.cc report.cc trial_report.cc)
target_link_libraries(agent_report PUBLIC agent_alerts agent_history PRIVATE agent_events agent_text)

add_agent_folder(web UNHURRIED answers.cc deadlines.cc guard.cc listener.cc own_names.cc page_server.cc streams.cc)
target_link_libraries(agent_web PUBLIC agent_metrics agent_settings
                      PRIVATE agent_history agent_policy agent_sinks nlohmann_json::nlohmann_json PkgConfig::MICROHTTPD Threads::Threads)
embed_page_files(agent_web agent/web/page
    "/|index.html|text/html\; charset=utf-8"
    "/app.js|app.js|text/javascript\; charset=utf-8"
    "/icon.svg|icon.svg|image/svg+xml"
    "/uPlot.js|uPlot.iife.min.js|text/javascript\; charset=utf-8"
    "/uPlot.css|uPlot.min.css|text/css\; charset=utf-8")

add_sibling(vkirtupt agent/products/vkirtupt.cc)

add_agent_folder(regfile UNHURRIED reg_import.cc reg_path.cc reg_reader.cc reg_writer.cc)
target_link_libraries(agent_regfile PUBLIC agent_text)

add_agent_folder(rules UNHURRIED apply.cc event_reader.cc node_reader.cc policy_reader.cc policy_text.cc rule_test.cc rules_diff.cc rules_file.cc
    section_diff.cc section_values.cc sections.cc yaml_text.cc yaml_tree.cc)
target_link_libraries(agent_rules PUBLIC agent_events agent_inputs agent_policy agent_settings agent_sinks agent_text PRIVATE PkgConfig::YAML)

add_agent_folder(fleet UNHURRIED buckets.cc collector.cc fleet_keeper.cc fleet_rules.cc group_files.cc holes.cc host_status.cc identity.cc ledger.cc
    look_back.cc member.cc offers.cc permitted.cc setup.cc stream_message.cc stream_reader.cc wire_alert.cc flood_watch.cc)
target_link_libraries(agent_fleet PUBLIC agent_nats agent_rules agent_sinks
                      PRIVATE agent_alerts agent_events agent_metrics agent_text nlohmann_json::nlohmann_json Threads::Threads)

# Editors check rules files against this schema, and complete what is typed into them.
set(SYSLOGMON_RULES_SCHEMA ${CMAKE_INSTALL_FULL_DATADIR}/syslogmon/rules.schema.json)
install(FILES packaging/rules.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/syslogmon)

add_agent_folder(cli UNHURRIED WITH_JSON alert_commands.cc author.cc backup_commands.cc context.cc doctor_agent.cc doctor_commands.cc doctor_inputs.cc doctor_logs.cc
    doctor_promises.cc doctor_rsyslog.cc doctor_sinks.cc event_commands.cc event_json.cc explain.cc
    hour_of.cc input_commands.cc line_trial.cc matched_line.cc metrics_commands.cc option_word.cc output.cc
    progress_bar.cc reg_file_commands.cc registry_commands.cc rendered_log.cc report_commands.cc rsyslog_config.cc rule_tests.cc rules_commands.cc rules_output.cc
    scan_commands.cc setting_commands.cc silence_commands.cc since.cc sink_commands.cc status_commands.cc table.cc tally.cc
    temporary_folder.cc test_commands.cc text_input.cc top_commands.cc top_reason.cc top_view.cc trace_commands.cc trial.cc trial_clock.cc trial_input.cc
    undelivered_commands.cc collect_commands.cc fleet_commands.cc fleet_rules_commands.cc fleet_servers.cc)
target_link_libraries(agent_cli PUBLIC agent_commandline agent_fleet agent_inputs agent_logs agent_metrics agent_regfile agent_report agent_rules
                      agent_settings agent_sinks agent_status)
target_link_libraries(agent_cli PRIVATE PkgConfig::NCURSES)
# Its header has macros of short names.
set_source_files_properties(agent/cli/top_commands.cc PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
# They have functions of one name, for commands of one form.
set_source_files_properties(agent/cli/collect_commands.cc agent/cli/fleet_commands.cc agent/cli/fleet_rules_commands.cc agent/cli/input_commands.cc agent/cli/reg_file_commands.cc agent/cli/registry_commands.cc agent/cli/sink_commands.cc
                            PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
target_include_directories(agent_cli PRIVATE ${CMAKE_BINARY_DIR}/generated)
target_compile_definitions(agent_cli PUBLIC SYSLOGMON_VERSION="${PROJECT_VERSION}"
                           SYSLOGMON_SHARE="${CMAKE_INSTALL_FULL_DATADIR}/syslogmon"
                           PRIVATE SYSLOGMON_RULES_SCHEMA="${SYSLOGMON_RULES_SCHEMA}")
add_program(syslogmon agent/cli/main.cc)
target_link_libraries(syslogmon PRIVATE agent_cli)
target_compile_options(syslogmon PRIVATE ${QUICK_BUILD})

add_agent_folder(daemon UNHURRIED console.cc daemon.cc doorbell.cc file_watch.cc input_feed.cc life_watch.cc
    live_settings.cc loss_notes.cc monitor.cc notify.cc page_keeper.cc pass_counter.cc signals.cc status_board.cc store_wait.cc supervisor.cc trigger.cc)
target_link_libraries(agent_daemon PUBLIC agent_alarms agent_fleet agent_history agent_inputs agent_logs agent_policy agent_settings agent_sinks agent_status agent_web
                      PRIVATE PkgConfig::SYSTEMD Threads::Threads)
target_compile_definitions(agent_daemon PUBLIC SYSLOGMON_VERSION="${PROJECT_VERSION}")
add_program(syslogmond agent/daemon/main.cc)
target_link_libraries(syslogmond PRIVATE agent_daemon agent_commandline)

# Everything that runs, and nothing that tests.
add_custom_target(agent DEPENDS snmp vkevmon vkmncall vkirtupt syslogmond syslogmon)
