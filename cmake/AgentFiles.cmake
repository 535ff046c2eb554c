# The files that people write for the agent, rules files and the text form of the registry: readers and
# writers as functions of text, and the commands around them.
pkg_check_modules(YAML REQUIRED IMPORTED_TARGET yaml-0.1)

add_library(agent_files STATIC
    agent/common/base64.cc agent/common/reg_import.cc agent/common/reg_path.cc
    agent/common/reg_reader.cc
    agent/common/reg_writer.cc agent/common/rules_diff.cc agent/common/rules_file.cc
    agent/common/text_file.cc agent/common/yaml_tree.cc)
target_link_libraries(agent_files PUBLIC agent_common PRIVATE PkgConfig::YAML)

# Editors check rules files against this schema, and complete what is typed into them.
set(SYSLOGMON_RULES_SCHEMA ${CMAKE_INSTALL_FULL_DATADIR}/syslogmon/rules.schema.json)
install(FILES packaging/rules.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/syslogmon)

target_sources(syslogmon PRIVATE agent/cli/event_json.cc agent/cli/reg_file_commands.cc
                                 agent/cli/rules_commands.cc agent/cli/since.cc
                                 agent/cli/text_input.cc)
target_compile_definitions(syslogmon PRIVATE SYSLOGMON_RULES_SCHEMA="${SYSLOGMON_RULES_SCHEMA}")
target_link_libraries(syslogmon PRIVATE agent_files)
