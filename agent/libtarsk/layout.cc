#include "agent/libtarsk/layout.h"

#include <string_view>
#include <system_error>

#include "agent/libtarsk/private_file.h"

namespace tarsk {

namespace fs = std::filesystem;

namespace {

// How the names of the files begin that the agent makes in each folder.
constexpr std::string_view kStateNames[] = {"agent.db"};
constexpr std::string_view kRunNames[] = {"syslogmond.lock", "status.json",     "Agent_",
                                          "Eventlog_",       "Driving_Syslog_", "EVENTLOG_SEMA"};
constexpr std::string_view kLogNames[] = {"trace."};

// The root of the tree in whose bin folder this program lies, or nothing.
fs::path RootOfProgram()
{
    std::error_code failed;
    const fs::path program = fs::read_symlink("/proc/self/exe", failed);
    if (failed || program.parent_path().filename() != "bin")
        return {};
    const fs::path root = program.parent_path().parent_path();
    return fs::exists(root / "lib" / "vkevmon.dll", failed) ? root : fs::path{};
}

} // namespace

Layout Layout::Below(const fs::path &root)
{
    fs::path base = fs::absolute(root).lexically_normal();
    if (!base.has_filename() && base.has_relative_path())
        base = base.parent_path(); // it ended in a slash
    return {base, base / "state", base / "run", base / "log"};
}

Layout Layout::Find()
{
    const fs::path root = RootOfProgram();
    if (!root.empty())
        return Below(root);
    return {SYSLOGMON_ROOT, SYSLOGMON_STATE_DIR, SYSLOGMON_RUN_DIR, SYSLOGMON_LOG_DIR};
}

void Layout::CreateFolders() const
{
    CreatePrivateFolder(state, kStateNames);
    CreatePrivateFolder(run, kRunNames);
    CreatePrivateFolder(log, kLogNames);
}

} // namespace tarsk
