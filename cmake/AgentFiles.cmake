# The files that people write for the agent, rules files and the text form of the registry: readers and
# writers as functions of text, and the commands around them.
find_package(yaml-cpp REQUIRED)

add_library(agent_files STATIC
    agent/common/base64.cc agent/common/reg_import.cc agent/common/reg_reader.cc
    agent/common/reg_writer.cc agent/common/rules_diff.cc agent/common/rules_file.cc
    agent/common/text_file.cc agent/common/utf8.cc agent/common/yaml_tree.cc)
target_link_libraries(agent_files PUBLIC agent_common PRIVATE yaml-cpp)

# Editors check rules files against this schema, and complete what is typed into them.
set(SYSLOGMON_RULES_SCHEMA ${CMAKE_INSTALL_FULL_DATADIR}/syslogmon/rules.schema.json)
install(FILES packaging/rules.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/syslogmon)

target_sources(syslogmon PRIVATE agent/cli/reg_file_commands.cc agent/cli/rules_commands.cc
                                 agent/cli/text_input.cc)
target_compile_definitions(syslogmon PRIVATE SYSLOGMON_RULES_SCHEMA="${SYSLOGMON_RULES_SCHEMA}")
target_link_libraries(syslogmon PRIVATE agent_files)
