# The inputs: what they read, and the spool by which the module gets it.
find_package(LibArchive REQUIRED)
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET re2)
# Its -pthread, of which only the macro is left today, would make the precompiled headers unfit.
set_property(TARGET PkgConfig::RE2 PROPERTY INTERFACE_COMPILE_OPTIONS)

add_agent_folder(inputs
    change_watch.cc charset.cc copies.cc counted_twice.cc customer_file.cc file_follower.cc
    file_identity.cc first_input.cc folder_view.cc followed_file.cc followed_files.cc input_registry.cc
    input_store.cc input_thread.cc journal_reader.cc line_origin.cc local_clock.cc log_content.cc
    log_names.cc place.cc protected_words.cc records.cc rendering.cc rotated_names.cc rotation.cc
    sample.cc spool.cc spool_keeper.cc stamp_formats.cc)
target_link_libraries(agent_inputs PUBLIC agent_alerts agent_logs agent_status
                      PRIVATE agent_text nlohmann_json::nlohmann_json LibArchive::LibArchive PkgConfig::RE2
                      PkgConfig::SYSTEMD Threads::Threads)
# These keep places and settings; the others make lines of entries.
set_source_files_properties(agent/inputs/customer_file.cc agent/inputs/input_registry.cc agent/inputs/place.cc
                            PROPERTIES COMPILE_OPTIONS "${QUICK_BUILD}")
