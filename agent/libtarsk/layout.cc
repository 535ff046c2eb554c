#include "agent/libtarsk/layout.h"

#include <system_error>

#include "agent/libtarsk/error.h"

namespace tarsk {

namespace fs = std::filesystem;

namespace {

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
    for (const fs::path &folder : {state, run, log}) {
        std::error_code failed;
        fs::create_directories(folder, failed);
        if (failed)
            throw StoreError("cannot create the folder " + folder.string(), failed.message(),
                             "run as root, or name a folder of your own with --root");
    }
}

} // namespace tarsk
