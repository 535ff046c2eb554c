// backup, restore: all that the agent keeps, as one file.
#include <filesystem>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/host/store_copy.h"
#include "agent/status/daemon_lock.h"

namespace cli {

namespace {

int BackUp(Context &context, const std::string &file)
{
    context.OpenToRead();
    host::BackUpStore(context.Host().store(), file);
    if (context.json)
        PrintJson({{"backup", file}, {"bytes", std::filesystem::file_size(file)}});
    return kExitDone;
}

int Restore(Context &context, const std::string &file)
{
    // Looked for before anything is made.
    if (!std::filesystem::exists(file))
        throw host::Error("cannot restore " + file, "there is no such file",
                          "name one that syslogmon backup has made");
    const auto daemon = status::DaemonLock::Holder(context.layout);
    if (daemon)
        throw host::Error("cannot restore " + file,
                          "syslogmond is running, as process " + std::to_string(*daemon),
                          "stop it, with systemctl stop syslogmond");
    context.layout.CreateFolders();
    host::RestoreStore(file, context.layout.Store());
    if (context.json)
        PrintJson({{"restored", file}});
    return kExitDone;
}

template <int (*function)(Context &, const std::string &)>
void SetUpWithFile(Parser &parser, Context &context, const char *help)
{
    auto file = std::make_shared<std::string>();
    parser.Add("file", *file, help).TypeName("FILE").Required();
    parser.Runs([&context, file] { return function(context, *file); });
}

void SetUpBackUp(Parser &parser, Context &context)
{
    SetUpWithFile<BackUp>(parser, context, "The file to write; there must be none of that name");
}

void SetUpRestore(Parser &parser, Context &context)
{
    SetUpWithFile<Restore>(parser, context, "A file that backup has made");
}

} // namespace

const std::vector<Command> kBackupCommands = {
    {"backup", "Write all that is stored into a file, while the monitor works", SetUpBackUp},
    {"restore", "Put such a file into the place of what is stored; the daemon must not run",
     SetUpRestore},
};

} // namespace cli
