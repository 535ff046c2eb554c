#include "agent/host/layout.h"

#include <string_view>
#include <system_error>

#include "agent/host/error.h"
#include "agent/host/private_file.h"

namespace host {

namespace fs = std::filesystem;

namespace {

// By this file an install root is told from any other folder.
constexpr char kModule[] = "vkevmon.dll";

// How the names of the files begin that the agent makes in each folder. A folder that holds others,
// too, is not the agent's own, and its mode is left alone: see CreatePrivateFolder.
constexpr std::string_view kStateNames[] = {"agent.db", "has-store", "reserve"};
constexpr std::string_view kRunNames[] = {"syslogmond.lock", "status.json",     "Agent_",
                                          "Eventlog_",       "Driving_Syslog_", "EVENTLOG_SEMA"};
constexpr std::string_view kLogNames[] = {"trace."};

// The root of the tree in whose bin folder this program lies, or nothing for a program of the
// package. By /proc/self/exe, since argv[0] is what somebody chose to write; the link also follows
// symbolic links to the program.
fs::path RootOfProgram()
{
    std::error_code failed;
    const fs::path folder = fs::read_symlink("/proc/self/exe", failed).parent_path();
    if (failed || folder.filename() != "bin" ||
        folder == fs::weakly_canonical(SYSLOGMON_BIN_DIR, failed))
        return {};
    return folder.parent_path();
}

} // namespace

Layout Layout::Below(const fs::path &root)
{
    fs::path base = fs::absolute(root).lexically_normal();
    if (!base.has_filename() && base.has_relative_path())
        // The path is compared and shown as it is, so one folder has one name.
        base = base.parent_path(); // it ended in a slash
    return {base, base / "state", base / "run", base / "log"};
}

Layout Layout::Find()
{
    const fs::path root = RootOfProgram();
    if (!root.empty()) {
        const Layout layout = Below(root);
        std::error_code failed;
        if (!fs::exists(layout.Library(kModule), failed))
            throw Error("cannot find " + layout.Library(kModule).string(),
                        "the program lies in an install root without its module",
                        "build it, or name another install root with --root");
        return layout;
    }
    return {SYSLOGMON_ROOT, SYSLOGMON_STATE_DIR, SYSLOGMON_RUN_DIR, SYSLOGMON_LOG_DIR};
}

void Layout::CheckRoot() const
{
    std::error_code failed;
    // Two errors: a name that was mistyped, and a folder that is something else. An empty folder is
    // refused as well: a command would make a store in it and find nothing.
    if (!fs::is_directory(root, failed))
        throw Error("cannot use the install root " + root.string(),
                    failed ? failed.message() : "it is not a folder",
                    "name an install root with --root");
    if (!fs::exists(Library(kModule), failed) && !fs::exists(Store(), failed))
        throw Error("cannot use the install root " + root.string(),
                    std::string("there is neither lib/") + kModule + " nor state/agent.db in it",
                    "name an install root with --root");
}

void Layout::CreateFolders() const
{
    CreatePrivateFolder(state, kStateNames);
    CreatePrivateFolder(run, kRunNames);
    CreatePrivateFolder(log, kLogNames);
}

} // namespace host
