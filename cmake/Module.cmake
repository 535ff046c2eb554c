# The module: an object library for each folder, which both the shared library and the tests link, so what is
# tested is what ships. Folders are listed from the floor up; none includes a header of one that stands behind it
# (tests/style/arrows).
add_library(vkevmon_objects INTERFACE)
target_include_directories(vkevmon_objects INTERFACE ${CMAKE_SOURCE_DIR})

function(add_module_folder folder)
    list(TRANSFORM ARGN PREPEND ${folder}/)
    add_library(folder_${folder} OBJECT ${ARGN})
    target_include_directories(folder_${folder} PRIVATE ${CMAKE_SOURCE_DIR})
    # The module's state is its own: nothing is seen from outside but what is marked for export. No exception
    # crosses the C interface, since there are none.
    target_compile_options(folder_${folder} PRIVATE -fvisibility=hidden -fno-exceptions -fno-rtti
                           -fno-semantic-interposition)
    target_sources(vkevmon_objects INTERFACE $<TARGET_OBJECTS:folder_${folder}>)
endfunction()
add_module_folder(regacc last_end_time.cc regacc.cc)
add_module_folder(stamp syslog_time.cc)
add_module_folder(match anchors.cc block_search.cc class_filter.cc compiled.cc crowds.cc
    expression.cc gram_cover.cc hits.cc index.cc literal_set.cc log_sample.cc loud_lines.cc match.cc
    pair_filter.cc processor.cc relied_on.cc report.cc sieve_table.cc table_data.cc windows.cc)
add_module_folder(fileacc block.cc lines.cc open_log.cc resume.cc stretch.cc)
add_module_folder(filemonitor block.cc matcher.cc object.cc scan.cc splitter.cc)
add_module_folder(vkevmon backup_list.cc entry.cc file_set.cc loop.cc pass.cc pass_follower.cc pass_lines.cc product_filter.cc
                  reload.cc settings.cc siblings.cc subkeys.cc table.cc table_lock.cc version.cc)

# Loaded by a host under this name. The host supplies the calls declared in platform/, so they stay
# undefined here.
add_library(vkevmon SHARED)
target_link_libraries(vkevmon PRIVATE vkevmon_objects)
set_target_properties(vkevmon PROPERTIES PREFIX "" SUFFIX ".dll"
                      LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/root/lib)
target_link_options(vkevmon PRIVATE -Wl,-Bsymbolic-functions -Wl,--hash-style=gnu)
