// fleet apply, diff, export: the files of a group of hosts, in the bucket of the fleet's servers.
//
// `apply` checks the files as for this host, then writes them into the bucket, from which the hosts take them. A canary
// is written beside them, for a share of the hosts; only when these have run it for a while without trouble does it
// become what all have. The bucket's value for all is untouched until then, so taking the canary away is all that has
// to be done to put back what was before.
#include <algorithm>
#include <atomic>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <set>
#include <thread>

#include <nlohmann/json.hpp>

#include "agent/cli/author.h"
#include "agent/cli/command.h"
#include "agent/cli/fleet_servers.h"
#include "agent/cli/output.h"
#include "agent/cli/rule_tests.h"
#include "agent/cli/rules_output.h"
#include "agent/cli/temporary_folder.h"
#include "agent/cli/text_input.h"
#include "agent/fleet/fleet_rules.h"
#include "agent/fleet/permitted.h"
#include "agent/host/here_and_now.h"
#include "agent/text/duration.h"
#include "agent/text/flush.h"
#include "agent/text/times.h"

namespace cli {

namespace {

using fleet::GroupFiles;
using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kLookAgain{200};

struct FleetApply {
    std::string file;
    std::string group;
    std::string canary; // "5%"
    std::string after = "60s";
    std::string within = "60s";
    bool wait = false;
    bool dry_run = false;
};

// ---- words ----

// From 0 (not included) to 100; 0: it is none.
double PercentIn(const std::string &text)
{
    double percent = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, failed] = std::from_chars(text.data(), end, percent);
    const bool is_sound = failed == std::errc() && stopped + 1 == end && *stopped == '%' &&
                          percent > 0 && percent <= 100;
    return is_sound ? percent : 0;
}

std::string CheckPercent(const std::string &word)
{
    return PercentIn(word) > 0 ? "" : "a share of the hosts is needed, such as 5%";
}

std::string CheckSpan(const std::string &word)
{
    return text::ParseDuration(word) ? "" : "a span of time is needed, such as 60s or 10m";
}

std::string CheckGroup(const std::string &word)
{
    const bool is_one = fleet::CheckGroups(word).empty() && fleet::GroupsIn(word).size() == 1;
    return is_one ? "" : "the name of one group is needed: letters, digits, \"_\" and \"-\"";
}

void AddGroup(Parser &parser, std::string &group)
{
    parser.Add("--group", group, "The group of hosts")
        .TypeName("GROUP")
        .Required()
        .Check(CheckGroup);
}

// ---- the files ----

// As the hosts name them: without the folders of this one.
GroupFiles ReadFiles(const std::string &path)
{
    GroupFiles read;
    read.files = rules::ReadRulesFiles(path);
    for (rules::SourceText &file : read.files)
        file.name =
            path == "-" ? "stdin.yaml" : std::filesystem::path(file.name).filename().string();
    read.author = Author();
    read.made_ms = host::NowMs();
    return read;
}

// All that can be said without a host of the group, at their places.
void CheckFiles(Context &context, const std::string &path, const GroupFiles &read)
{
    std::vector<std::string> names;
    for (const rules::SourceText &file : read.files)
        names.push_back(file.name);
    const rules::ParsedRules parsed = rules::ParseRulesFiles(read.files);
    RefuseIfFaulty(context, "apply", path, parsed.issues, names);
    RefuseIfFaulty(context, "apply", path, fleet::NotPermitted(parsed), names);
    if (CountTests(parsed.rules) == 0)
        return;
    context.OpenToRead();
    RefuseIfFaulty(context, "apply", path,
                   RunTests(CopyRules(context.Host().registry(), false), parsed.rules), names);
}

bool AreSame(const GroupFiles &one, const GroupFiles &other)
{
    return std::equal(
        one.files.begin(), one.files.end(), other.files.begin(), other.files.end(),
        [](const auto &a, const auto &b) { return a.name == b.name && a.bytes == b.bytes; });
}

// What one makes of the other, on a host that has nothing else.
rules::RulesChange Compare(const std::string &group, const std::optional<GroupFiles> &before,
                           const GroupFiles &after)
{
    const TemporaryFolder folder;
    const host::Layout layout = host::Layout::Below(folder.path());
    layout.CreateFolders();
    host::Store store(layout.Store());
    host::RegistryTree registry(store);
    const auto state_of = [&](const GroupFiles &files) {
        return std::vector{fleet::GroupState{group, 0, 0, false, fleet::FormatGroup(group, files)}};
    };
    try {
        if (before)
            fleet::TakeGroups(layout, store, registry, state_of(*before), [] { return false; });
    } catch (const host::StoreError &) {
        throw;
    } catch (const host::Error &error) {
        // No host has taken them, and whoever gives others must not be kept from it.
        fprintf(stderr, "syslogmon: warning: the files that the group %s has cannot be used: %s\n",
                group.c_str(), error.what());
    }
    const host::Snapshot snapshot(store);
    return fleet::CompareGroups(store, registry, state_of(after));
}

std::string NameOf(const std::string &group, uint64_t revision)
{
    return "group " + group +
           (revision == 0 ? ", which has no files" : ", revision " + std::to_string(revision));
}

// A group whose value is damaged is compared as one without files, and can be given others.
void TellOfDamage(const GroupContent &content)
{
    if (!content.damage.empty())
        fprintf(stderr, "syslogmon: warning: %s\n", content.damage.c_str());
}

[[noreturn]] void TellOfNoFiles(const std::string &doing, const std::string &group,
                                const GroupContent &content)
{
    throw host::Error("cannot " + doing + " the group " + group,
                      content.damage.empty() ? "it has no files" : content.damage,
                      "give it some with syslogmon fleet apply");
}

void Show(const Context &context, const ShownChange &shown, const rules::RulesChange &change,
          json more)
{
    if (!context.json) {
        PrintChange(shown, change);
        return;
    }
    json object = ChangeToJson(shown, change, true);
    object.update(more);
    PrintJson(std::move(object));
}

// ---- waiting for hosts ----

// Set by a signal: what is under way is put back before the command ends.
std::atomic<bool> interrupted{false};

void CatchSignals()
{
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = true; };
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaction(number, &action, nullptr);
}

// Of those that say that they are there.
std::set<std::string> UuidsOf(const nats::Connection &servers, const std::string &group)
{
    const int64_t now_ms = fleet::ServersClock(servers).NowMs();
    std::set<std::string> uuids;
    for (const fleet::HostStatus &host : ReadHosts(servers)) {
        if (fleet::GroupOf(host, group) != nullptr && fleet::SilentFor(host, now_ms) == 0)
            uuids.insert(host.uuid);
    }
    return uuids;
}

[[noreturn]] void TellOfHosts(const std::string &group, const std::string &why,
                              const std::string &next_step)
{
    throw host::Error("cannot give the group " + group + " these files", why, next_step);
}

// Follows hosts with a revision of a group.
class Rollout {
  public:
    Rollout(const nats::Connection &servers, std::string group, std::set<std::string> uuids,
            uint64_t revision)
        : servers_(servers), clock_(servers), group_(std::move(group)), uuids_(std::move(uuids)),
          revision_(revision)
    {
    }

    // Returns when all of them run it, or why they do not.
    std::string AwaitRunning(seconds within) const
    {
        const auto end = steady_clock::now() + within;
        for (;;) {
            const fleet::RolloutState state = State();
            if (!state.failed.empty())
                return state.failed;
            if (state.waiting.empty() && !state.running.empty())
                return "";
            if (steady_clock::now() >= end)
                return std::to_string(state.waiting.size()) + " of " +
                       std::to_string(uuids_.size()) + " hosts do not say that they run them";
            if (interrupted)
                return "the command was interrupted";
            std::this_thread::sleep_for(kLookAgain);
        }
    }
    // Returns when they have run it for so long, and have all said so, or what has happened to one of them.
    std::string WatchHealth(seconds after) const
    {
        for (fleet::Probation probation(milliseconds(after).count());;) {
            const fleet::RolloutState state = State();
            if (!state.failed.empty())
                return state.failed;
            if (state.running.size() < uuids_.size())
                return "a host has fallen silent";
            if (interrupted)
                return "the command was interrupted";
            if (probation.IsOver(state))
                return "";
            std::this_thread::sleep_for(kLookAgain);
        }
    }

  private:
    [[nodiscard]] fleet::RolloutState State() const
    {
        return fleet::StateOf(ReadHosts(servers_), group_, uuids_, revision_, clock_.NowMs());
    }

    const nats::Connection &servers_;
    fleet::ServersClock clock_;
    std::string group_;
    std::set<std::string> uuids_;
    uint64_t revision_;
};

seconds SpanOf(const std::string &text)
{
    return seconds(text::ParseDuration(text).value_or(0));
}

// ---- apply ----

// A share of the hosts has them first; returns when these have shown that they can be given to all. Throws, with what
// was before put back, when they cannot.
void TryOnSome(const nats::Connection &servers, const FleetApply &options, GroupFiles files)
{
    const std::string &group = options.group;
    const std::set<std::string> alive = UuidsOf(servers, group);
    if (alive.empty())
        TellOfHosts(group, "none of its hosts says that it is there",
                    "see syslogmon fleet status, or leave out --canary");
    files.below = fleet::BoundOf(group, {alive.begin(), alive.end()}, PercentIn(options.canary));
    std::set<std::string> first;
    std::copy_if(
        alive.begin(), alive.end(), std::inserter(first, first.end()),
        [&](const std::string &uuid) { return fleet::NumberOf(group, uuid) < files.below; });
    CatchSignals();
    const uint64_t revision = fleet::WriteKey(servers, fleet::kRulesBucket, fleet::CanaryKey(group),
                                              fleet::FormatGroup(group, files));
    fprintf(stderr, "syslogmon: %zu of %zu hosts try them first, as revision %llu\n", first.size(),
            alive.size(), static_cast<unsigned long long>(revision));
    const Rollout rollout(servers, group, first, revision);
    std::string trouble = rollout.AwaitRunning(SpanOf(options.within));
    if (trouble.empty())
        trouble = rollout.WatchHealth(SpanOf(options.after));
    if (trouble.empty())
        return;
    TellOfHosts(group, trouble,
                "the hosts that have tried them take those of before again; see syslogmon fleet "
                "status");
}

// Hosts that have tried something go on with what all have.
void EndCanary(const nats::Connection &servers, const std::string &group)
{
    const auto canary = fleet::ReadKey(servers, fleet::kRulesBucket, fleet::CanaryKey(group));
    if (canary && !canary->is_deleted)
        fleet::DeleteKey(servers, fleet::kRulesBucket, fleet::CanaryKey(group));
}

uint64_t GiveToAll(const nats::Connection &servers, const FleetApply &options,
                   const GroupFiles &files, uint64_t before)
{
    const std::string &group = options.group;
    const uint64_t revision = fleet::WriteKey(servers, fleet::kRulesBucket, fleet::AllKey(group),
                                              fleet::FormatGroup(group, files), before);
    EndCanary(servers, group); // behind it: a host that has tried them goes on with the same
    return revision;
}

// Whatever keeps them from being given to all, the hosts that have tried them do not stay with them alone.
uint64_t GiveToSomeAndThenToAll(Context &context, const nats::Connection &servers,
                                const FleetApply &options, const GroupFiles &files, uint64_t before)
{
    try {
        TryOnSome(servers, options, files);
        return GiveToAll(servers, options, files, before);
    } catch (const host::Error &) {
        try {
            // The connection may be why. Another server may not have seen the key yet, so it is not asked.
            fleet::DeleteKey(*ConnectToFleet(context), fleet::kRulesBucket,
                             fleet::CanaryKey(options.group));
        } catch (const host::Error &error) {
            PrintError("the hosts that have tried them go on with them, until syslogmon fleet "
                       "apply comes through for the group " +
                       options.group + ": " + error.what());
        }
        throw;
    }
}

int Apply(Context &context, const FleetApply &options)
{
    GroupFiles files = ReadFiles(options.file);
    const std::string name = text::ShownName(options.file);
    CheckFiles(context, options.file, files);
    const auto servers = ConnectToFleet(context);
    if (!options.dry_run) {
        fleet::MakeBuckets(*servers, ReplicasOf(context));
        // Hosts compare it with when the servers have stored something.
        files.made_ms = fleet::ServersClock(*servers).NowMs();
    }
    const GroupContent before = ReadGroup(*servers, options.group);
    TellOfDamage(before);
    const rules::RulesChange change = Compare(options.group, before.files, files);
    uint64_t revision = before.revision;
    const ShownChange shown{NameOf(options.group, before.RevisionOfFiles()), name, options.dry_run};
    const bool is_new = !before.files || !AreSame(*before.files, files);
    if (is_new && !options.dry_run) {
        if (!options.canary.empty()) {
            if (!before.files)
                throw host::Error("cannot try files on some hosts of the group " + options.group,
                                  "the group has none to which they could go back",
                                  "give it files without --canary first");
            revision = GiveToSomeAndThenToAll(context, *servers, options, files, revision);
        } else {
            revision = GiveToAll(*servers, options, files, revision);
        }
    } else if (!options.dry_run) {
        EndCanary(*servers, options.group); // of a command that was killed
    }
    Show(context, shown, change, {{"group", options.group}, {"revision", revision}});
    if (options.dry_run)
        return kExitDone;
    if (!context.json)
        printf("The group %s has the revision %llu.\n", options.group.c_str(),
               static_cast<unsigned long long>(revision));
    if (!options.wait)
        return kExitDone;
    text::FlushOutput();
    const std::set<std::string> alive = UuidsOf(*servers, options.group);
    if (alive.empty()) {
        fprintf(stderr, "syslogmon: no host of the group %s says that it is there\n",
                options.group.c_str());
        return kExitDone;
    }
    const Rollout rollout(*servers, options.group, alive, revision);
    const std::string trouble = rollout.AwaitRunning(SpanOf(options.within));
    if (!trouble.empty())
        throw host::Error("not all hosts of the group " + options.group + " run these files",
                          trouble, "see syslogmon fleet status; the files stay in the group");
    return kExitDone;
}

// ---- diff, export ----

// Between what the group has and a file, or between its last two revisions.
int Diff(Context &context, const std::string &file, const std::string &group)
{
    std::optional<GroupFiles> files;
    if (!file.empty()) {
        files = ReadFiles(file);
        CheckFiles(context, file, *files);
    }
    const auto servers = ConnectToFleet(context);
    GroupContent before;
    GroupContent now;
    for (const fleet::KeyValue &value :
         fleet::ReadHistory(*servers, fleet::kRulesBucket, fleet::AllKey(group)))
        before = std::exchange(now, ContentOf(value, group));
    if (!files && !now.files)
        TellOfNoFiles("show what was changed in", group, now);
    const GroupContent &from = files ? now : before;
    TellOfDamage(from);
    const ShownChange shown{NameOf(group, from.RevisionOfFiles()),
                            files ? text::ShownName(file) : NameOf(group, now.revision), false};
    Show(context, shown, Compare(group, from.files, files ? *files : *now.files),
         {{"group", group}, {"revision", now.RevisionOfFiles()}});
    return kExitDone;
}

void WriteFiles(const GroupFiles &files, const std::filesystem::path &folder)
{
    for (const rules::SourceText &file : files.files) {
        // A name that came over the network is no path.
        const bool is_name = !file.name.empty() && !file.name.starts_with('.') &&
                             file.name.find('/') == std::string::npos &&
                             file.name.ends_with(".yaml");
        const std::filesystem::path path = folder / file.name;
        FILE *out = is_name ? fopen(path.c_str(), "wx") : nullptr;
        bool is_written = out != nullptr &&
                          fwrite(file.bytes.data(), 1, file.bytes.size(), out) == file.bytes.size();
        is_written = (out == nullptr || fclose(out) == 0) && is_written;
        if (!is_written)
            throw host::Error("cannot write the file " + text::Shown(file.name) + " into " +
                                  folder.string(),
                              is_name ? "it is there already, or the folder cannot be written"
                                      : "its name is none of a rules file",
                              "name an empty folder");
    }
}

int Export(Context &context, const std::string &group, const std::string &folder)
{
    const auto servers = ConnectToFleet(context);
    const GroupContent content = ReadGroup(*servers, group);
    if (!content.files)
        TellOfNoFiles("export", group, content);
    const GroupFiles &files = *content.files;
    if (!folder.empty()) {
        WriteFiles(files, folder);
    } else if (context.json) {
        json list = json::array();
        for (const rules::SourceText &file : files.files)
            list.push_back({{"name", file.name}, {"text", file.bytes}});
        PrintJson({{"group", group},
                   {"revision", content.revision},
                   {"author", files.author},
                   {"made_ms", files.made_ms},
                   {"files", list}});
    } else if (files.files.size() == 1) {
        PrintFile(files.files[0].bytes);
    } else {
        throw host::Error("cannot print the group " + group,
                          "it has " + std::to_string(files.files.size()) + " files",
                          "name a folder for them");
    }
    return kExitDone;
}

// ---- set-up ----

void SetUpApply(Parser &parser, Context &context)
{
    auto options = std::make_shared<FleetApply>();
    parser
        .Add("file", options->file, "Rules file (YAML), or a folder of them; - for standard input")
        .TypeName("FILE")
        .Required();
    AddGroup(parser, options->group);
    parser.Add("--canary", options->canary, "A share of the hosts has them first, such as 5%")
        .TypeName("PERCENT")
        .Check(CheckPercent);
    parser.Add("--after", options->after, "So long the first hosts must run them without trouble")
        .TypeName("TIME")
        .Check(CheckSpan)
        .ShowDefault();
    parser.Add("--within", options->within, "So long hosts that have not taken them are waited for")
        .TypeName("TIME")
        .Check(CheckSpan)
        .ShowDefault();
    parser.AddFlag("--wait", options->wait, "Wait until all hosts that are there run them");
    parser.AddFlag("--dry-run", options->dry_run, "Show what would change, and change nothing");
    parser.Runs([&, options] { return Apply(context, *options); });
}

void SetUpDiff(Parser &parser, Context &context)
{
    auto file = std::make_shared<std::string>();
    auto group = std::make_shared<std::string>();
    parser.Add("file", *file, "Rules file, or a folder of them; none: what was changed last")
        .TypeName("FILE");
    AddGroup(parser, *group);
    parser.Runs([&, file, group] { return Diff(context, *file, *group); });
}

void SetUpExport(Parser &parser, Context &context)
{
    auto folder = std::make_shared<std::string>();
    auto group = std::make_shared<std::string>();
    parser.Add("folder", *folder, "Write the files into this folder").TypeName("FOLDER");
    AddGroup(parser, *group);
    parser.Runs([&, folder, group] { return Export(context, *group, *folder); });
}

} // namespace

const std::vector<Command> kFleetRulesCommands = {
    {"fleet apply", "Give a group of hosts its rules files", SetUpApply},
    {"fleet diff", "Show what a file would change in a group, or what was changed last", SetUpDiff},
    {"fleet export", "Print the rules file that a group has", SetUpExport},
};

} // namespace cli
