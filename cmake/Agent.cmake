# The stand-alone agent: the host library, the sibling libraries, the daemon and the command.
find_package(SQLite3 REQUIRED)
find_package(spdlog REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(CURL REQUIRED)
find_library(NETSNMP netsnmp REQUIRED)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)

# Where a packaged agent finds its libraries, in a folder lib. Follows the install prefix.
set(SYSLOGMON_ROOT ${CMAKE_INSTALL_FULL_LIBDIR}/syslogmon)
set(SYSLOGMON_STATE_DIR /var/lib/syslogmon CACHE PATH "Where a packaged agent keeps its store")
set(SYSLOGMON_RUN_DIR /run/syslogmon CACHE PATH "Where a packaged agent keeps its run-time files")
set(SYSLOGMON_LOG_DIR /var/log/syslogmon CACHE PATH "Where a packaged agent writes its trace log")

add_library(tarsk SHARED
    agent/libtarsk/agent_info.cc agent/libtarsk/convert.cc agent/libtarsk/database.cc
    agent/libtarsk/hit_counters.cc agent/libtarsk/host.cc agent/libtarsk/layout.cc agent/libtarsk/loader.cc
    agent/libtarsk/private_file.cc
    agent/libtarsk/registry.cc agent/libtarsk/registry_tree.cc
    agent/libtarsk/reported_hits.cc agent/libtarsk/room.cc agent/libtarsk/schema.cc
    agent/libtarsk/settings.cc agent/libtarsk/store.cc agent/libtarsk/store_file.cc agent/libtarsk/sync.cc
    agent/libtarsk/trace_log.cc agent/libtarsk/waitable.cc)
target_include_directories(tarsk PUBLIC ${CMAKE_SOURCE_DIR})
target_compile_definitions(tarsk PRIVATE
    SYSLOGMON_BIN_DIR="${CMAKE_INSTALL_FULL_BINDIR}"
    SYSLOGMON_ROOT="${SYSLOGMON_ROOT}" SYSLOGMON_STATE_DIR="${SYSLOGMON_STATE_DIR}"
    SYSLOGMON_RUN_DIR="${SYSLOGMON_RUN_DIR}" SYSLOGMON_LOG_DIR="${SYSLOGMON_LOG_DIR}")
target_link_libraries(tarsk PUBLIC SQLite::SQLite3 PRIVATE spdlog::spdlog Threads::Threads
                      ${CMAKE_DL_LIBS})
set_target_properties(tarsk PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/root/lib)

# The sibling libraries, under the names by which the module loads them.
function(add_sibling name)
    add_library(${name} SHARED ${ARGN})
    set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".dll" CXX_VISIBILITY_PRESET hidden
                          LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/root/lib
                          BUILD_RPATH "$ORIGIN" INSTALL_RPATH "$ORIGIN")
    target_link_libraries(${name} PRIVATE tarsk)
endfunction()
add_sibling(vkmncall agent/alerts/vkmncall.cc)
add_sibling(vkirtupt agent/products/vkirtupt.cc)

# The stored alerts, for the sibling library that writes them and for those who read them. Hidden, so that the
# library exports its interface only.
add_library(alert_store OBJECT agent/alerts/alert_store.cc agent/alerts/report_folder.cc)
set_target_properties(alert_store PROPERTIES CXX_VISIBILITY_PRESET hidden)
target_link_libraries(alert_store PUBLIC tarsk)
target_link_libraries(vkmncall PRIVATE alert_store)

# What daemon and command share.
add_library(agent_common STATIC
    agent/common/alert_text.cc
    agent/common/daemon_lock.cc agent/common/event_checks.cc agent/common/events.cc
    agent/common/expressions.cc agent/common/hours.cc agent/common/log_files.cc
    agent/common/monitor_settings.cc agent/common/say.cc agent/common/sign_of_life.cc
    agent/common/stamps.cc agent/common/status_file.cc agent/common/suggestion.cc
    agent/common/unread.cc agent/common/utf8.cc)
target_link_libraries(agent_common PUBLIC tarsk PRIVATE alert_store nlohmann_json::nlohmann_json)
target_compile_definitions(agent_common PUBLIC SYSLOGMON_VERSION="${PROJECT_VERSION}")

# The sinks and what delivers to them.
add_library(agent_sinks STATIC
    agent/alerts/alert_json.cc agent/alerts/alertmanager_sink.cc agent/alerts/backoff.cc
    agent/alerts/console_sink.cc agent/alerts/deliverer.cc agent/alerts/delivery_store.cc
    agent/alerts/file_sink.cc agent/alerts/file_trust.cc agent/alerts/http.cc agent/alerts/journal_sink.cc
    agent/alerts/mail_sink.cc agent/alerts/mail_text.cc agent/alerts/option_checks.cc
    agent/alerts/program_sink.cc agent/alerts/progress.cc agent/alerts/sink.cc
    agent/alerts/sink_kinds.cc agent/alerts/sink_registry.cc agent/alerts/snmp_sink.cc
    agent/alerts/syslog_sink.cc agent/alerts/syslog_words.cc agent/alerts/undelivered.cc
    agent/alerts/webhook_sink.cc agent/alerts/worker.cc)
target_link_libraries(agent_sinks PUBLIC agent_common
                      PRIVATE nlohmann_json::nlohmann_json CURL::libcurl PkgConfig::SYSTEMD
                      ${NETSNMP} Threads::Threads)

function(add_program name)
    add_executable(${name} ${ARGN})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/root/bin
                          BUILD_RPATH "$ORIGIN/../lib" INSTALL_RPATH "${SYSLOGMON_ROOT}/lib")
    target_link_libraries(${name} PRIVATE agent_common agent_sinks CLI11::CLI11)
endfunction()
# Also linked by its tests, which put calls of their own in the place of the kernel's.
add_library(file_watch OBJECT agent/daemon/file_watch.cc)
target_link_libraries(file_watch PUBLIC tarsk)

add_program(syslogmond agent/daemon/main.cc agent/daemon/console.cc agent/daemon/daemon.cc
            agent/daemon/doorbell.cc agent/daemon/module.cc agent/daemon/monitor.cc
            agent/daemon/notify.cc agent/daemon/signals.cc agent/daemon/status_board.cc
            agent/daemon/store_wait.cc agent/daemon/trigger.cc)
target_link_libraries(syslogmond PRIVATE file_watch PkgConfig::SYSTEMD Threads::Threads ${CMAKE_DL_LIBS})

add_program(syslogmon agent/cli/main.cc agent/cli/alert_commands.cc agent/cli/doctor_agent.cc
            agent/cli/doctor_commands.cc agent/cli/doctor_logs.cc agent/cli/doctor_sinks.cc
            agent/cli/event_commands.cc agent/cli/output.cc agent/cli/progress.cc
            agent/cli/registry_commands.cc agent/cli/scan_commands.cc agent/cli/setting_commands.cc
            agent/cli/sink_commands.cc agent/cli/status_commands.cc agent/cli/tally.cc
            agent/cli/temporary_folder.cc agent/cli/test_commands.cc agent/cli/trace_commands.cc
            agent/cli/trial.cc agent/cli/trial_input.cc agent/cli/undelivered_commands.cc)
target_link_libraries(syslogmon PRIVATE nlohmann_json::nlohmann_json ${CMAKE_DL_LIBS})
target_compile_options(syslogmon PRIVATE ${QUICK_BUILD})

# Everything that runs, and nothing that tests.
add_custom_target(agent DEPENDS vkevmon vkmncall vkirtupt syslogmond syslogmon)
