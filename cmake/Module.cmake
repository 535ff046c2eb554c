# The module: one object library, which both the shared library and the tests link, so what is tested is
# what ships.
add_library(vkevmon_objects OBJECT
    vkevmon/entry.cc vkevmon/host_calls.cc vkevmon/loop.cc vkevmon/settings.cc vkevmon/table.cc
    vkevmon/table_lock.cc vkevmon/product_filter.cc vkevmon/reload.cc vkevmon/syslog_time.cc
    vkevmon/hits.cc vkevmon/match.cc vkevmon/expression.cc vkevmon/literal_set.cc vkevmon/table_index.cc
    vkevmon/backup_list.cc vkevmon/file_set.cc vkevmon/scan.cc
    fileacc/open_log.cc fileacc/block.cc fileacc/lines.cc fileacc/resume.cc
    regacc/regacc.cc
    filemonitor/object.cc filemonitor/scan.cc)
target_include_directories(vkevmon_objects PUBLIC ${CMAKE_SOURCE_DIR})
# The module's state is its own: nothing is seen from outside but what is marked for export. No exception
# crosses the C interface, since there are none.
target_compile_options(vkevmon_objects PRIVATE -fvisibility=hidden -fno-exceptions -fno-rtti
                       -fno-semantic-interposition)

# Loaded by a host under this name. The host supplies the calls declared in platform/, so they stay
# undefined here.
add_library(vkevmon SHARED)
target_link_libraries(vkevmon PRIVATE vkevmon_objects)
set_target_properties(vkevmon PROPERTIES PREFIX "" SUFFIX ".dll"
                      LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/root/lib)
target_link_options(vkevmon PRIVATE -Wl,-Bsymbolic-functions -Wl,-z,now -Wl,-z,relro
                    -Wl,--hash-style=gnu)
