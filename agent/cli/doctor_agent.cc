// The checks of the agent: daemon, disk, store, watching, events.
#include <cerrno>
#include <cstring>
#include <set>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include "agent/cli/doctor.h"
#include "agent/cli/trial.h"
#include "agent/events/event_checks.h"
#include "agent/host/room.h"
#include "agent/settings/settings.h"
#include "agent/status/daemon_lock.h"
#include "agent/status/sign_of_life.h"
#include "agent/text/times.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

using status::MonitorState;
using status::Status;

// Bytes. A pass over a few gigabytes needs this much for its journal.
constexpr uint64_t kLittleSpace = uint64_t{64} * 1024 * 1024;

constexpr char kStartDaemon[] = "start it with systemctl start syslogmond, or run syslogmond";

// In decimal units, as disks are sold.
std::string Amount(uint64_t bytes)
{
    const auto size = static_cast<double>(bytes);
    char text[48];
    snprintf(text, sizeof text, size < 1e9 ? "%.1f MB" : "%.1f GB",
             size / (size < 1e9 ? 1e6 : 1e9));
    return text;
}

void CheckSpaceIn(const fs::path &folder, Examination *examination)
{
    struct statvfs disk {};
    if (statvfs(folder.c_str(), &disk) != 0) {
        if (errno == ENOENT)
            examination->Skipped(folder, "it is not there yet");
        else
            examination->Finding(folder, strerror(errno), "run the command as root");
        return;
    }
    // What a user may use who is not root: the rest is a reserve of the file system.
    const uint64_t free_bytes = uint64_t{disk.f_bavail} * disk.f_frsize;
    // Some file systems count none; they have no end of files.
    const bool no_inodes = disk.f_files > 0 && disk.f_favail == 0;
    // The cause that is worse comes first: more room does not help a file system that nobody can
    // write.
    if ((disk.f_flag & ST_RDONLY) != 0)
        examination->Finding(folder, "its file system is mounted read-only",
                             "mount it for writing");
    else if (no_inodes)
        examination->Finding(folder, "its file system has no room for another file",
                             "remove files that are not needed");
    else if (free_bytes < kLittleSpace)
        examination->Finding(folder, "only " + Amount(free_bytes) + " are free",
                             "make room: a pass that does not fit on the disk is not stored, and "
                             "is read again until it fits");
    else
        examination->Well(folder, Amount(free_bytes) + " are free");
}

// With those that are not the monitor's.
std::vector<events::StoredSource> Sources(const Context &context)
{
    return events::EventRegistry(context.Host().registry()).ReadAll();
}

} // namespace

// One result, the worst that can be said: what comes later is a consequence.
void CheckDaemon(const Context &context, Examination *examination)
{
    examination->Begin("daemon");
    const fs::path &run = context.layout.run;
    const auto holder = status::DaemonLock::Holder(context.layout);
    if (!holder) {
        examination->Finding("syslogmond", "it is not running", kStartDaemon);
        return;
    }
    const std::string process = "process " + std::to_string(*holder);
    const auto status = status::ReadStatus(run);
    // Before the other signs: a daemon that waits also reads nothing, and this is the cause.
    if (status && status->waiting_since_ms != 0) {
        examination->Finding(process,
                             "it has been waiting for the store's lock since " +
                                 text::LocalTime(status->waiting_since_ms),
                             "find the process that holds it with fuser " +
                                 context.layout.Store().string());
        return;
    }
    const std::string stands = status::WhyItStands(*holder, status);
    if (!stands.empty()) {
        examination->Finding(process, stands,
                             "let it go on with kill -CONT " + std::to_string(*holder) +
                                 " if it is stopped, or restart it");
        return;
    }
    if (!status) {
        examination->Well(process, "it is starting");
        return;
    }
    const std::string ended =
        "its monitor has ended by itself " + std::to_string(status->restarts) +
        (status->restarts == 1 ? " time" : " times") + ", last because: " + status->last_error;
    const std::string advice = "remove the cause; more is in " + context.layout.TraceLog().string();
    if (status->state == MonitorState::kPausing)
        examination->Finding(
            process, ended + "; it is started again at " + text::LocalTime(status->next_start_ms),
            advice);
    else if (status->restarts > 0)
        examination->Finding(process, ended, advice + "; a restart of the daemon clears the count");
    else
        examination->Well(process, "it is " + std::string(status::MonitorStateName(status->state)) +
                                       " since " + text::LocalTime(status->started_ms));
}

// Of a daemon that does its work: a pass over gigabytes takes long.
void CheckLook(const Context &context, Examination *examination)
{
    examination->Begin("last look");
    const auto status = status::ReadStatus(context.layout.run);
    if (!status::DaemonLock::Holder(context.layout) || !status) {
        const bool has_looked = status && status->last_full_pass.number > 0;
        examination->Skipped("all files",
                             std::string("the daemon is not running") +
                                 (has_looked ? "; it last looked at " +
                                                   text::LocalTime(status->last_full_pass.began_ms)
                                             : ""));
        return;
    }
    const auto seconds = status::SecondsSinceLook(*status);
    const std::string cycle =
        settings::GetSetting(context.Host().registry(), settings::FindSetting("cycle"));
    const std::string found = !seconds ? "the first one has not ended yet"
                                       : "the last one began " + std::to_string(*seconds) +
                                             " s ago; one begins at least "
                                             "every " +
                                             cycle + " s";
    if (status::IsLate(*status, std::stoll(cycle)))
        examination->Note("all files", found,
                          "either much is being read, or the monitor was kept from it: see "
                          "syslogmon status and " +
                              context.layout.TraceLog().string());
    else
        examination->Well("all files", found);
}

void CheckDisk(const Context &context, Examination *examination)
{
    examination->Begin("disk");
    std::set<dev_t> seen;
    for (const fs::path &folder : {context.layout.state, context.layout.run, context.layout.log}) {
        struct stat status {};
        const bool known = stat(folder.c_str(), &status) == 0;
        // A file system is told of once, under the first of its folders.
        if (!known || seen.insert(status.st_dev).second)
            CheckSpaceIn(folder, examination);
    }
}

bool CheckStore(Context &context, Examination *examination)
{
    examination->Begin("store");
    const fs::path store = context.layout.Store();
    std::error_code failed;
    // Not there, for certain. When it cannot be said, because a folder may not be read, opening it
    // tells why.
    if (!fs::exists(store, failed) && !failed) {
        examination->Finding(store, "it is missing: nothing has been registered yet",
                             "register events with syslogmon apply or syslogmon event add, and "
                             "start the daemon");
        return false;
    }
    try {
        // Here and in no other check: what follows uses the store that this opens.
        context.OpenToRead();
        context.Host().store().CheckIntegrity();
    } catch (const host::Error &error) {
        examination->Finding(store, error);
        return false;
    }
    const auto bytes = host::SizeOfStore(store);
    examination->Well(store, "it is whole, and takes " + Amount(static_cast<uint64_t>(bytes)));
    return true;
}

// From what the daemon tells: only it knows whether its watches could be set up.
void CheckWatching(const Context &context, Examination *examination)
{
    examination->Begin("watching");
    const auto status = status::ReadStatus(context.layout.run);
    const std::string interval =
        settings::GetSetting(context.Host().registry(), settings::FindSetting("trigger-interval"));
    if (!status::DaemonLock::Holder(context.layout) || !status)
        examination->Skipped("inotify", "the daemon is not running");
    else if (!status->watch_problem.empty())
        examination->Finding("inotify", status->watch_problem,
                             "until this is repaired, lines are found once per cycle");
    else if (interval == "0")
        examination->Well("inotify", "it is turned off: lines are found once per cycle");
    else
        examination->Well("inotify", "lines are found within " + interval + " ms");
}

// Of each event whether it can ever be reported, by itself. Whether the module takes the table as a
// whole is another check.
void CheckEvents(const Context &context, Examination *examination)
{
    examination->Begin("events");
    const bool fault_tolerant = settings::IsFaultTolerant(context.Host().registry());
    size_t events = 0;
    const size_t findings = examination->Findings();
    for (const events::StoredSource &source : Sources(context)) {
        for (const events::StoredEvent &stored : source.events) {
            // With those of other components: there are events here.
            ++events;
            if (source.is_new_application_type)
                continue; // of another component
            if (!stored.problem.empty()) {
                const events::EventDoubt doubt =
                    events::WhyLeftOut(context.Host().registry(), source, stored);
                examination->Finding(events::NameOf(stored),
                                     doubt.cause + ", and so the monitor loads no event at all",
                                     doubt.advice);
                continue;
            }
            for (const events::EventDoubt &doubt : events::DoubtsOf(stored, fault_tolerant))
                examination->Finding(events::NameOf(stored), doubt.cause, doubt.advice);
        }
    }
    const std::string all = std::to_string(events) + (events == 1 ? " event" : " events");
    if (events == 0)
        examination->Finding("all events", "there are none, so nothing is ever reported",
                             "register some with syslogmon apply or syslogmon event add");
    else if (examination->Findings() == findings)
        examination->Well(all, "each can be reported");
}

void CheckTable(const Context &context, Examination *examination)
{
    examination->Begin("table");
    // The module is asked, on a copy: what it loads is what the daemon would load, in whatever
    // state that one is.
    const RulesCopy rules = CopyRules(context.Host().registry(), true);
    try {
        RunTrial(context.layout, rules, [&](monitor::Module &module, host::Host &host) {
            const size_t findings = examination->Findings();
            for (const auto &[source, stored, doubt] : LeftOutEvents(host.registry(), module)) {
                if (source.is_new_application_type)
                    examination->Well(events::NameOf(stored), "it is left out: " + doubt.cause);
                else
                    examination->Finding(events::NameOf(stored), "it is left out: " + doubt.cause,
                                         doubt.advice);
            }
            if (examination->Findings() == findings)
                examination->Well("monitor module",
                                  "it loads " + std::to_string(*module.table().count) +
                                      (*module.table().count == 1 ? " event" : " events"));
        });
    } catch (const host::Error &error) {
        examination->Finding("monitor module", error);
    }
}

} // namespace cli
