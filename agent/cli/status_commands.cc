// status
#include <cinttypes>
#include <cstdio>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/common/alert_text.h"
#include "agent/common/daemon_lock.h"
#include "agent/common/events.h"
#include "agent/common/log_files.h"
#include "agent/common/monitor_settings.h"
#include "agent/common/status_file.h"

namespace cli {

namespace {

using agent::Status;
using agent::StoredEvent;
using agent::WatchedFile;
using nlohmann::json;

std::string Seconds(int64_t microseconds)
{
    char text[32];
    snprintf(text, sizeof text, "%.3f s", static_cast<double>(microseconds) / 1e6);
    return text;
}

// Events that the monitor cannot load. One of them is enough to keep the whole table from being
// loaded.
std::vector<StoredEvent> DamagedEvents()
{
    std::vector<StoredEvent> damaged;
    for (const auto &source : agent::EventRegistry(tarsk::HostRegistry()).ReadAll()) {
        for (const StoredEvent &stored : source.events) {
            if (!source.is_new_application_type && !stored.problem.empty())
                damaged.push_back(stored);
        }
    }
    return damaged;
}

// The command that mends an event.
std::string MendingCommand(const StoredEvent &stored)
{
    const auto &key = stored.event.key;
    return "syslogmon event remove '" + key.source + "' " + agent::FormatEventId(key.id) +
           ", then syslogmon event add with all its values";
}

std::string StateText(const std::optional<Status> &status, bool running)
{
    if (!running)
        return "not running";
    if (!status)
        return "starting";
    std::string text = agent::MonitorStateName(status->state);
    if (status->state == agent::MonitorState::kPausing)
        text += ", starts again at " + agent::LocalTime(status->next_start_ms);
    return text;
}

std::string PositionText(const WatchedFile &file)
{
    if (!file.position)
        return "-";
    if (*file.position < 0)
        return "at its beginning";
    return std::to_string(*file.position);
}

void PrintFiles(const std::vector<WatchedFile> &files)
{
    Table table({"FILE", "ROLE", "RESUMES IN", "AT BYTE", "BEHIND", "PROBLEM"});
    for (const WatchedFile &file : files)
        table.Add({file.path, file.role, file.resume_file.empty() ? "-" : file.resume_file.string(),
                   PositionText(file), file.behind ? std::to_string(*file.behind) + " bytes" : "-",
                   file.problem.empty() ? "-" : file.problem});
    table.Print();
}

void PrintDaemon(const std::optional<Status> &status, bool running)
{
    Table table({"MONITOR", ""});
    table.Add({"state", StateText(status, running)});
    if (running && status) {
        table.Add({"process", std::to_string(status->pid)});
        table.Add({"running since", agent::LocalTime(status->started_ms)});
        table.Add({"events", std::to_string(status->table_size)});
        const auto &pass = status->last_pass;
        if (pass.number > 0)
            table.Add({"last pass", "number " + std::to_string(pass.number) + " (" +
                                        agent::PassKindName(pass.kind) + ") at " +
                                        agent::LocalTime(pass.began_ms) + ", took " +
                                        Seconds(pass.took_us)});
        if (status->restarts > 0)
            table.Add({"ended by itself",
                       std::to_string(status->restarts) + " times, last: " + status->last_error});
    }
    table.Add({"cycle",
               agent::GetSetting(tarsk::HostRegistry(), agent::FindSetting("cycle")) + " seconds"});
    table.Print();
}

json ToJson(const WatchedFile &file)
{
    json object = {{"path", file.path.string()}, {"role", file.role}, {"resume_file", nullptr},
                   {"position", nullptr},        {"behind", nullptr}, {"problem", nullptr}};
    if (!file.resume_file.empty())
        object["resume_file"] = file.resume_file.string();
    if (file.position)
        object["position"] = *file.position;
    if (file.behind)
        object["behind"] = *file.behind;
    if (!file.problem.empty())
        object["problem"] = file.problem;
    return object;
}

json ToJson(const agent::PassStatus &pass)
{
    return {{"number", pass.number},
            {"kind", agent::PassKindName(pass.kind)},
            {"began_ms", pass.began_ms},
            {"took_us", pass.took_us}};
}

void PrintAsJson(const std::optional<Status> &status, bool running,
                 const std::vector<WatchedFile> &files, const std::vector<StoredEvent> &damaged)
{
    json object = {{"running", running}, {"files", json::array()}, {"damaged", json::array()}};
    if (running && status) {
        object["state"] = agent::MonitorStateName(status->state);
        object["pid"] = status->pid;
        object["started_ms"] = status->started_ms;
        object["events"] = status->table_size;
        object["last_pass"] = ToJson(status->last_pass);
        object["restarts"] = status->restarts;
        object["last_error"] = status->last_error;
    }
    for (const WatchedFile &file : files)
        object["files"].push_back(ToJson(file));
    for (const StoredEvent &stored : damaged)
        object["damaged"].push_back({{"source", stored.event.key.source},
                                     {"id", stored.id_text},
                                     {"problem", stored.problem},
                                     {"mend", MendingCommand(stored)}});
    PrintJson(object);
}

int ShowStatus(const Context &context)
{
    context.Open();
    const bool running = agent::DaemonLock::Holder(context.layout.run).has_value();
    const auto status = agent::ReadStatus(context.layout.run);
    const auto files = agent::ReadWatchedFiles(tarsk::HostRegistry());
    const auto damaged = DamagedEvents();
    if (context.json) {
        PrintAsJson(status, running, files, damaged);
    } else {
        PrintDaemon(status, running);
        printf("\n");
        PrintFiles(files);
        for (const StoredEvent &stored : damaged)
            printf("\nevent %s %s cannot be loaded: %s\n  mend it with: %s\n",
                   agent::Printable(stored.event.key.source).c_str(),
                   agent::Printable(stored.id_text).c_str(), stored.problem.c_str(),
                   MendingCommand(stored).c_str());
    }
    return running ? kExitDone : kExitNotRunning;
}

void SetUpStatus(CLI::App &app, Context &context, Action &action)
{
    app.callback([&] { action = [&] { return ShowStatus(context); }; });
}

} // namespace

const std::vector<Command> kStatusCommands = {
    {"status", "Show the monitor, its last pass, and how far it is in each file", SetUpStatus},
};

} // namespace cli
