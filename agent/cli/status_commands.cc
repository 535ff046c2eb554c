// status: what the daemon tells of itself, and where the monitor stands in each file, which the
// command finds out by itself. Works with and without a daemon; the exit status says which.
#include <cinttypes>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/cli/table.h"
#include "agent/events/events.h"
#include "agent/host/here_and_now.h"
#include "agent/host/room.h"
#include "agent/inputs/input_registry.h"
#include "agent/logs/places.h"
#include "agent/settings/settings.h"
#include "agent/status/daemon_lock.h"
#include "agent/status/sign_of_life.h"
#include "agent/status/status_file.h"
#include "agent/text/printable.h"
#include "agent/text/times.h"

namespace cli {

namespace {

using events::StoredEvent;
using logs::WatchedFile;
using nlohmann::json;
using status::Status;

std::string Seconds(int64_t microseconds)
{
    char text[32];
    snprintf(text, sizeof text, "%.3f s", static_cast<double>(microseconds) / 1e6);
    return text;
}

// Events that the monitor cannot load. One of them is enough to keep the whole table from being
// loaded.
std::vector<StoredEvent> DamagedEvents(const Context &context)
{
    std::vector<StoredEvent> damaged;
    for (const auto &source : events::EventRegistry(context.Host().registry()).ReadAll()) {
        for (const StoredEvent &stored : source.events) {
            if (!source.is_new_application_type && !stored.problem.empty())
                damaged.push_back(stored);
        }
    }
    return damaged;
}

// The command that repairs an event. It is removed first, because adding refuses one that is
// registered.
std::string MendingCommand(const StoredEvent &stored)
{
    const auto &key = stored.event.key;
    return "syslogmon event remove '" + key.source + "' " + events::FormatEventId(key.id) +
           ", then syslogmon event add with all its values";
}

// The daemon as it shows from outside.
struct Daemon {
    bool running = false;
    std::string stands;           // why it does not do its work; empty: it does
    std::optional<Status> status; // what it tells, while it is running
};

Daemon LookAtDaemon(const Context &context)
{
    Daemon daemon;
    // The lock says whether it runs; a status alone may be what a dead one has left.
    const auto holder = status::DaemonLock::Holder(context.layout);
    if (!holder)
        return daemon;
    daemon.running = true;
    daemon.status = status::ReadStatus(context.layout.run);
    daemon.stands = status::WhyItStands(*holder, daemon.status);
    return daemon;
}

std::string StateText(const Daemon &daemon)
{
    const auto &status = daemon.status;
    if (!daemon.running)
        return "not running";
    // Before what stands: it is the cause of it.
    if (status && status->waiting_since_ms != 0)
        return "waits for the store's lock, which another process holds, since " +
               text::LocalTime(status->waiting_since_ms);
    if (!daemon.stands.empty())
        return "not working: " + daemon.stands;
    // It has the lock, and has not written its status yet.
    if (!status)
        return "starting";
    std::string text = status::MonitorStateName(status->state);
    if (status->state == status::MonitorState::kPausing)
        text += ", starts again at " + text::LocalTime(status->next_start_ms);
    return text;
}

// As WatchedFile has it.
std::string PositionText(const WatchedFile &file)
{
    if (!file.position)
        return "-";
    // No line was checked; the place is known all the same.
    if (*file.position < 0)
        return "at its beginning";
    return std::to_string(*file.position);
}

// A dash for what is not known.
void PrintFiles(const std::vector<WatchedFile> &files)
{
    Table table({"FILE", "ROLE", "RESUMES IN", "AT BYTE", "BEHIND", "PROBLEM"});
    for (const WatchedFile &file : files)
        table.Add({file.path, file.role, file.resume_file.empty() ? "-" : file.resume_file.string(),
                   PositionText(file), file.behind ? std::to_string(*file.behind) + " bytes" : "-",
                   file.problem.empty() ? "-" : file.problem});
    table.Print();
}

int64_t Cycle(const Context &context)
{
    return std::stoll(
        settings::GetSetting(context.Host().registry(), settings::FindSetting("cycle")));
}

std::string LookText(const Status &status, int64_t seconds, int64_t cycle_s)
{
    std::string text = std::to_string(seconds) + " s ago";
    if (status::IsLate(status, cycle_s))
        text += ", which is late: one begins at least every " + std::to_string(cycle_s) + " s";
    return text;
}

// Of what a daemon that has ended has left, how old it is.
std::optional<std::string> LastLookBeforeItsEnd(const Context &context)
{
    const auto left = status::ReadStatus(context.layout.run);
    if (!left || left->last_full_pass.number == 0)
        return std::nullopt;
    const int64_t began_ms = left->last_full_pass.began_ms;
    return std::to_string(status::SecondsSinceLook(began_ms, host::NowMs())) + " s ago, at " +
           text::LocalTime(began_ms);
}

// What the daemon tells is shown while it runs; the cycle is a setting, and known without it.
void PrintDaemon(const Context &context, const Daemon &daemon)
{
    const auto &status = daemon.status;
    Table table({"MONITOR", ""});
    table.Add({"state", StateText(daemon)});
    if (status) {
        table.Add({"process", std::to_string(status->pid)});
        table.Add({"running since", text::LocalTime(status->started_ms)});
        table.Add({"events", std::to_string(status->table_size)});
        const auto &pass = status->last_pass;
        if (pass.number > 0)
            table.Add({"last pass", "number " + std::to_string(pass.number) + " (" +
                                        status::PassKindName(pass.kind) + ") at " +
                                        text::LocalTime(pass.began_ms) + ", took " +
                                        Seconds(pass.took_us)});
        if (const auto seconds = status::SecondsSinceLook(*status))
            table.Add({"looked at all files", LookText(*status, *seconds, Cycle(context))});
        if (!status->watch_problem.empty())
            table.Add({"watching", status->watch_problem + "; changes are found once in a cycle"});
        if (status->restarts > 0)
            table.Add({"ended by itself",
                       std::to_string(status->restarts) + " times, last: " + status->last_error});
    }
    if (const auto ended = daemon.running ? std::nullopt : LastLookBeforeItsEnd(context))
        table.Add({"looked at all files", *ended});
    table.Add({"cycle", std::to_string(Cycle(context)) + " seconds"});
    table.Add({"store", std::to_string(host::SizeOfStore(context.layout.Store())) + " bytes"});
    table.Print();
}

// ---- inputs ----

// One as it is configured, and what the daemon tells of it; without a daemon, nothing.
struct ShownInput {
    inputs::InputConfig config;
    std::optional<status::InputStatus> status;
};

std::vector<ShownInput> LookAtInputs(const Context &context, const Daemon &daemon)
{
    std::vector<ShownInput> shown;
    host::Host &host = context.Host();
    for (auto &config : inputs::InputRegistry(host.store(), host.registry()).ReadAll()) {
        shown.push_back({std::move(config), {}});
        if (!daemon.status)
            continue;
        for (const status::InputStatus &status : daemon.status->inputs) {
            if (status.name == shown.back().config.name)
                shown.back().status = status;
        }
    }
    return shown;
}

std::string BehindText(const status::InputStatus &input)
{
    const std::string seconds = std::to_string(SecondsBehind(input, status::WallTimeMs())) + " s";
    return input.behind_bytes < 0 ? seconds
                                  : std::to_string(input.behind_bytes) + " bytes, " + seconds;
}

std::string Joined(const std::vector<std::string> &sentences)
{
    std::string text;
    for (const std::string &sentence : sentences)
        text += (text.empty() ? "" : "; ") + sentence;
    return text.empty() ? "-" : text;
}

void PrintInputs(const std::vector<ShownInput> &shown, const Daemon &daemon)
{
    Table table({"INPUT", "KIND", "OPEN FILES", "BEHIND", "LAST ENTRY", "PROBLEM"});
    for (const ShownInput &input : shown) {
        if (!input.status) {
            table.Add({input.config.name, input.config.kind, "-", "-", "-", "-"});
            continue;
        }
        const status::InputStatus &status = *input.status;
        table.Add({status.name, status.kind, std::to_string(status.open_files), BehindText(status),
                   status.last_entry_ms == 0 ? "-" : text::LocalTime(status.last_entry_ms),
                   Joined(status.problems)});
    }
    table.Print();
    if (daemon.status && !daemon.status->inputs_wait.empty())
        printf("\nthe inputs wait: %s\n", text::Printable(daemon.status->inputs_wait).c_str());
}

json ToJson(const ShownInput &input)
{
    json object = {{"name", input.config.name}, {"kind", input.config.kind},
                   {"open_files", nullptr},     {"behind_bytes", nullptr},
                   {"behind_seconds", nullptr}, {"last_entry_ms", nullptr},
                   {"problems", json::array()}};
    if (!input.status)
        return object;
    object["open_files"] = input.status->open_files;
    if (input.status->behind_bytes >= 0)
        object["behind_bytes"] = input.status->behind_bytes;
    object["behind_seconds"] = SecondsBehind(*input.status, status::WallTimeMs());
    if (input.status->last_entry_ms != 0)
        object["last_entry_ms"] = input.status->last_entry_ms;
    object["problems"] = input.status->problems;
    return object;
}

json ToJson(const WatchedFile &file)
{
    // Every field is there, null where nothing is known: a program need not ask for its presence.
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

json ToJson(const status::PassStatus &pass)
{
    return {{"number", pass.number},
            {"kind", status::PassKindName(pass.kind)},
            {"began_ms", pass.began_ms},
            {"took_us", pass.took_us}};
}

// Null for a text that says nothing.
json TextOrNull(const std::string &text)
{
    return text.empty() ? json(nullptr) : json(text);
}

void PrintAsJson(const Context &context, const Daemon &daemon,
                 const std::vector<WatchedFile> &files, const std::vector<ShownInput> &inputs,
                 const std::vector<StoredEvent> &damaged)
{
    const auto &status = daemon.status;
    // Without a daemon, its fields are not there.
    json object = {{"running", daemon.running},
                   {"stands", TextOrNull(daemon.stands)},
                   {"files", json::array()},
                   {"inputs", json::array()},
                   {"inputs_wait", TextOrNull(status ? status->inputs_wait : "")},
                   {"store_bytes", host::SizeOfStore(context.layout.Store())},
                   {"damaged", json::array()}};
    if (status) {
        object["state"] = status::MonitorStateName(status->state);
        object["pid"] = status->pid;
        object["started_ms"] = status->started_ms;
        object["events"] = status->table_size;
        object["last_pass"] = ToJson(status->last_pass);
        const auto seconds = status::SecondsSinceLook(*status);
        object["seconds_since_look"] = seconds ? json(*seconds) : json(nullptr);
        object["is_late"] = status::IsLate(*status, Cycle(context));
        object["restarts"] = status->restarts;
        object["last_error"] = status->last_error;
        object["watch_problem"] = TextOrNull(status->watch_problem);
        object["waiting_since_ms"] =
            status->waiting_since_ms == 0 ? json(nullptr) : json(status->waiting_since_ms);
    }
    for (const WatchedFile &file : files)
        object["files"].push_back(ToJson(file));
    for (const ShownInput &input : inputs)
        object["inputs"].push_back(ToJson(input));
    for (const StoredEvent &stored : damaged)
        object["damaged"].push_back({{"source", stored.event.key.source},
                                     {"id", stored.id_text},
                                     {"problem", stored.problem},
                                     {"mend", MendingCommand(stored)}});
    PrintJson(object);
}

int ShowStatus(Context &context)
{
    context.OpenToRead();
    const Daemon daemon = LookAtDaemon(context);
    // Loaded in this process: the daemon is not asked, so it is told how far it is even when it
    // stands.
    monitor::Module module(context.layout);
    const auto files = logs::ReadWatchedFiles(module, context.Host().registry());
    const auto inputs = LookAtInputs(context, daemon);
    const auto damaged = DamagedEvents(context);
    if (context.json) {
        PrintAsJson(context, daemon, files, inputs, damaged);
    } else {
        PrintDaemon(context, daemon);
        printf("\n");
        PrintFiles(files);
        if (!inputs.empty()) {
            printf("\n");
            PrintInputs(inputs, daemon);
        }
        for (const StoredEvent &stored : damaged)
            printf("\nevent %s %s cannot be loaded: %s\n  repair it with: %s\n",
                   text::Printable(stored.event.key.source).c_str(),
                   text::Printable(stored.id_text).c_str(), stored.problem.c_str(),
                   MendingCommand(stored).c_str());
    }
    // A daemon that does not do its work is as good as none to whoever checks it.
    return daemon.running && daemon.stands.empty() ? kExitDone : kExitNotRunning;
}

void SetUpStatus(Parser &parser, Context &context)
{
    parser.Runs([&] { return ShowStatus(context); });
}

} // namespace

const std::vector<Command> kStatusCommands = {
    {"status", "Show the monitor, its last pass, and how far it is in each file", SetUpStatus},
};

} // namespace cli
