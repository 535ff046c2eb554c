#include "agent/cli/temporary_folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "agent/host/error.h"

namespace cli {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder()
{
    std::string name = (fs::temp_directory_path() / "syslogmon.XXXXXX").string();
    // A new one of a name that nobody can foresee, for this user alone: there are copies of logs in
    // it.
    if (mkdtemp(name.data()) == nullptr)
        throw host::Error("cannot create a temporary folder", strerror(errno),
                          "make room in " + fs::temp_directory_path().string() +
                              ", or name another place with TMPDIR");
    path_ = name;
}

TemporaryFolder::~TemporaryFolder()
{
    // Nobody could do anything about it at this point.
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

} // namespace cli
