#include "agent/alarms/sight.h"

#include <algorithm>
#include <sys/stat.h>

#include "agent/host/agent_values.h"
#include "agent/host/room.h"
#include "agent/logs/log_files.h"
#include "agent/settings/settings.h"
#include "agent/sinks/delivery_store.h"
#include "agent/sinks/sink_registry.h"
#include "agent/text/duration.h"
#include "platform/contract.h"

namespace alarms {

namespace {

using alerts::OwnEvent;

constexpr int64_t kMsPerSecond = 1000;
constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kMebibyte = int64_t{1024} * 1024;

// Nearly full: less than a twentieth is free, and less than this. A large disk has room for long at a hundredth.
constexpr int64_t kPlenty = 256 * kMebibyte;
constexpr int64_t kTwentieth = 20;

// What a time server does at once is less.
constexpr int64_t kSetMs = 10 * kMsPerSecond;

std::string Span(int64_t seconds)
{
    return text::FormatDuration(seconds);
}

// ---- looking ----

int64_t WrittenMs(const std::string &path)
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return 0;
    return int64_t{status.st_mtim.tv_sec} * kMsPerSecond;
}

// The spool is the daemon's own. A host that never had a system log, and reads its journal, misses none.
std::vector<WatchedFile> LookAtFiles(host::RegistryTree &registry, bool has_inputs)
{
    const std::string spool = host::AgentText(registry, host::kInputSpool).value_or("");
    std::vector<WatchedFile> files;
    for (const auto &path : logs::WatchedPaths(registry)) {
        const int64_t written_ms = WrittenMs(path);
        const bool is_system_log = path == kSystemLog;
        if (path == spool || (is_system_log && has_inputs && written_ms == 0))
            continue;
        files.push_back({path, logs::WhyUnreadable(path), written_ms, is_system_log});
    }
    return files;
}

std::vector<SinkState> LookAtSinks(host::Store &store, host::RegistryTree &registry)
{
    std::vector<SinkState> states;
    for (const sinks::StoredSink &sink : sinks::SinkRegistry(store, registry).ReadAll()) {
        SinkState state{sink.config.name, ""};
        const auto rows = store.Read([&](host::Database &database) {
            return sinks::ReadDeliveries(database, sink.config.key);
        });
        for (const auto &[peer, row] : rows) {
            if (!row.last_error.empty())
                state.error = (peer.empty() ? "" : peer + ": ") + row.last_error;
        }
        states.push_back(std::move(state));
    }
    return states;
}

int64_t Number(host::RegistryTree &registry, const char *setting)
{
    return std::stoll(settings::GetSetting(registry, settings::FindSetting(setting)));
}

} // namespace

void LookAround(host::Store &store, host::RegistryTree &registry, Sight *sight)
{
    sight->files = LookAtFiles(registry, !sight->status.inputs.empty());
    sight->sinks = LookAtSinks(store, registry);
    sight->store = store.database().path();
    sight->free_bytes = host::FreeSpace(sight->store);
    sight->disk_bytes = host::SizeOfDisk(sight->store);
    sight->cycle_s = Number(registry, "cycle");
    sight->after_s = Number(registry, "alarm-after");
    sight->silent_s = Number(registry, "silent-after") * 3600;
}

// ---- judging ----

namespace {

void JudgeMonitor(const Sight &sight, std::vector<Trouble> *found)
{
    std::optional<MonitorEnd> end = sight.end;
    if (!end)
        return;
    if (end->table_was_loaded)
        found->push_back({OwnEvent::kMonitorEnded, "", "the monitor ended: " + end->reason, 0});
    else
        found->push_back({OwnEvent::kTable, "",
                          "the table of events cannot be loaded, and nothing is watched: " +
                              end->reason + "; see syslogmon status",
                          0});
}

// Lines come to be read by a pass at the latest when a cycle is over, and another one may be under way.
void JudgePasses(const Sight &sight, std::vector<Trouble> *found)
{
    const status::PassStatus &pass = sight.status.last_full_pass;
    if (pass.number == 0 || sight.status.state != status::MonitorState::kRunning)
        return;
    const int64_t since_s = (sight.boot_ns - pass.began_boot_ns) / kNsPerSecond;
    if (since_s >= 2 * sight.cycle_s + sight.after_s)
        found->push_back({OwnEvent::kBacklog, "",
                          "for " + Span(since_s) + " no pass over the files has come to its end",
                          0});
}

void JudgeFiles(const Sight &sight, std::vector<Trouble> *found)
{
    for (const WatchedFile &file : sight.files) {
        const int64_t quiet_s = (sight.now_ms - file.written_ms) / kMsPerSecond;
        if (!file.unreadable.empty())
            found->push_back({OwnEvent::kUnreadable, file.path,
                              file.path + " cannot be read: " + file.unreadable,
                              sight.after_s * kMsPerSecond});
        else if (file.is_to_speak && sight.silent_s > 0 && quiet_s >= sight.silent_s)
            found->push_back({OwnEvent::kSilent, file.path,
                              "no line has come to " + file.path + " for " + Span(quiet_s) +
                                  ": does the syslog daemon write it?",
                              0});
    }
}

// A journal is written all the time; a file of a program may well be quiet.
void JudgeInput(const Sight &sight, const status::InputStatus &input, std::vector<Trouble> *found)
{
    const std::string about = "input " + input.name;
    if (!input.problems.empty())
        found->push_back({OwnEvent::kUnreadable, about, about + ": " + input.problems.front(),
                          sight.after_s * kMsPerSecond});
    const int64_t behind_s = SecondsBehind(input, sight.now_ms);
    if (behind_s > 0 && behind_s >= sight.after_s)
        found->push_back({OwnEvent::kBacklog, about,
                          about + ": something in it has been unread for " + Span(behind_s) +
                              "; see syslogmon status",
                          0});
    const int64_t quiet_s = (sight.now_ms - input.last_entry_ms) / kMsPerSecond;
    if (input.kind == "journal" && input.last_entry_ms != 0 && sight.silent_s > 0 &&
        quiet_s >= sight.silent_s)
        found->push_back(
            {OwnEvent::kSilent, about, about + ": no entry has come for " + Span(quiet_s), 0});
}

void JudgeStore(const Sight &sight, std::vector<Trouble> *found)
{
    const int64_t least = std::min(kPlenty, sight.disk_bytes / kTwentieth);
    if (sight.disk_bytes > 0 && sight.free_bytes < least)
        found->push_back({OwnEvent::kStoreFull, sight.store,
                          "the disk of " + sight.store + " is nearly full: " +
                              std::to_string(sight.free_bytes / kMebibyte) + " MiB are free",
                          0});
}

void JudgeSinks(const Sight &sight, std::vector<Trouble> *found)
{
    for (const SinkState &sink : sight.sinks) {
        if (!sink.error.empty())
            found->push_back({OwnEvent::kSinkFails, sink.name,
                              "the sink " + sink.name + " takes no alerts: " + sink.error,
                              sight.after_s * kMsPerSecond});
    }
}

} // namespace

std::vector<Trouble> TroublesIn(const Sight &sight)
{
    std::vector<Trouble> found;
    JudgeMonitor(sight, &found);
    JudgePasses(sight, &found);
    JudgeFiles(sight, &found);
    for (const status::InputStatus &input : sight.status.inputs)
        JudgeInput(sight, input, &found);
    if (!sight.status.inputs_wait.empty())
        found.push_back(
            {OwnEvent::kBacklog, "spool", sight.status.inputs_wait, sight.after_s * kMsPerSecond});
    JudgeStore(sight, &found);
    JudgeSinks(sight, &found);
    return found;
}

int64_t ClockWatch::Look(int64_t wall_ms, int64_t boot_ns)
{
    const int64_t ahead = wall_ms - boot_ns / 1'000'000;
    const int64_t set = ahead_ms_ ? ahead - *ahead_ms_ : 0;
    ahead_ms_ = ahead;
    return set >= kSetMs || set <= -kSetMs ? set : 0;
}

} // namespace alarms
