# The inputs: what they read, and the spool by which the module gets it.
find_package(LibArchive REQUIRED)
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET re2)

add_library(agent_inputs STATIC
    agent/inputs/change_watch.cc agent/inputs/charset.cc agent/inputs/file_follower.cc
    agent/inputs/file_identity.cc agent/inputs/folder_view.cc agent/inputs/followed_file.cc
    agent/inputs/line_origin.cc agent/inputs/local_clock.cc agent/inputs/log_content.cc
    agent/inputs/place.cc agent/inputs/protected_words.cc agent/inputs/records.cc
    agent/inputs/rendering.cc agent/inputs/rotated_names.cc agent/inputs/stamp_formats.cc)
target_link_libraries(agent_inputs PUBLIC tarsk PRIVATE nlohmann_json::nlohmann_json
                      LibArchive::LibArchive PkgConfig::RE2 PkgConfig::SYSTEMD)
