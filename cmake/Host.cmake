# The host library, the floor of the agent: every call that the module makes, and the store.
find_package(SQLite3 REQUIRED)
find_package(spdlog REQUIRED)
find_package(Threads REQUIRED)

# Where a packaged agent finds its libraries, in a folder lib. Follows the install prefix.
set(SYSLOGMON_ROOT ${CMAKE_INSTALL_FULL_LIBDIR}/syslogmon)
set(SYSLOGMON_STATE_DIR /var/lib/syslogmon CACHE PATH "Where a packaged agent keeps its store")
set(SYSLOGMON_RUN_DIR /run/syslogmon CACHE PATH "Where a packaged agent keeps its run-time files")
set(SYSLOGMON_LOG_DIR /var/log/syslogmon CACHE PATH "Where a packaged agent writes its trace log")

# Reading the headers of the standard library is most of what the compiler does for a file of the agent. They are
# read once, for the host library and all folders above it.
set(AGENT_HEADERS <algorithm> <array> <atomic> <chrono> <filesystem> <functional> <map> <memory> <mutex> <optional>
    <sstream> <stdexcept> <string> <string_view> <thread> <vector>)
add_library(agent_headers OBJECT agent/headers.cc)
# In precompiled headers GCC 12 no longer knows that a string's insides are the library's, and warns of "text" + string:
# it takes the short buffer in the object for all of it.
# clang knows none of these warnings, and takes no header that was compiled for another visibility: there each file reads
# them itself.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    set(WITH_AGENT_HEADERS -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread -Wno-restrict)
else()
    set(WITH_AGENT_HEADERS "")
    set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
endif()
target_precompile_headers(agent_headers PRIVATE ${AGENT_HEADERS})

add_library(tarsk SHARED
    agent/host/agent_info.cc agent/host/agent_values.cc agent/host/convert.cc agent/host/database.cc
    agent/host/here_and_now.cc agent/host/hit_counters.cc agent/host/host.cc agent/host/layout.cc agent/host/loader.cc
    agent/host/private_file.cc agent/host/registry.cc agent/host/registry_tree.cc
    agent/host/reported_hits.cc agent/host/room.cc agent/host/schema.cc agent/host/store.cc
    agent/host/store_copy.cc agent/host/store_file.cc agent/host/sync.cc agent/host/trace_log.cc agent/host/waitable.cc)
target_include_directories(tarsk PUBLIC ${CMAKE_SOURCE_DIR})
target_compile_definitions(tarsk PRIVATE
    SYSLOGMON_BIN_DIR="${CMAKE_INSTALL_FULL_BINDIR}"
    SYSLOGMON_ROOT="${SYSLOGMON_ROOT}" SYSLOGMON_STATE_DIR="${SYSLOGMON_STATE_DIR}"
    SYSLOGMON_RUN_DIR="${SYSLOGMON_RUN_DIR}" SYSLOGMON_LOG_DIR="${SYSLOGMON_LOG_DIR}")
target_link_libraries(tarsk PUBLIC SQLite::SQLite3 PRIVATE spdlog::spdlog Threads::Threads
                      ${CMAKE_DL_LIBS})
target_compile_options(tarsk PRIVATE ${WITH_AGENT_HEADERS})
target_precompile_headers(tarsk REUSE_FROM agent_headers)
build_by_folder(tarsk)
set_target_properties(tarsk PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/root/lib)
