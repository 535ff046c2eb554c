#include "agent/inputs/counted_twice.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <strings.h>
#include <sys/stat.h>
#include <systemd/sd-id128.h>

#include "agent/host/agent_values.h"
#include "agent/inputs/folder_view.h"
#include "agent/inputs/log_names.h"
#include "agent/logs/log_files.h"
#include "agent/text/shell_word.h"
#include "platform/contract.h"

namespace inputs {

namespace {

// A log that nobody has written for so long, in seconds, is one that was left behind.
constexpr time_t kLeftBehind = 24 * 3600;

// Into which syslog daemons write what is in the journal too, as they are set up on usual systems, beside the system log.
constexpr const char *kSyslogFiles[] = {
    "/var/log/syslog",   "/var/log/auth.log", "/var/log/kern.log", "/var/log/daemon.log",
    "/var/log/user.log", "/var/log/mail.log", "/var/log/mail.err", "/var/log/cron.log",
    "/var/log/cron",     "/var/log/debug",    "/var/log/secure",   "/var/log/maillog",
};

bool IsWritten(const std::string &path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && status.st_size > 0 &&
           time(nullptr) - status.st_mtime < kLeftBehind;
}

bool IsSame(const InputConfig &one, const InputConfig &other)
{
    return strcasecmp(one.name.c_str(), other.name.c_str()) == 0;
}

PathRules RulesOf(const InputConfig &input)
{
    return FollowOptionsOf(input, host::kDefaultLogCharset).rules;
}

// Files that an input of files follows, by what they are: a path may be a link.
std::map<FileIdentity, std::string> FilesOf(const PathRules &rules)
{
    std::map<FileIdentity, std::string> files;
    for (const auto &[path, look] : ViewFolders(rules.Folders()).files) {
        if (rules.Match(path))
            files.emplace(look.identity, path);
    }
    return files;
}

bool Reads(const PathRules &rules, const std::string &path)
{
    if (rules.Match(path))
        return true;
    const auto look = LookAt(path);
    return look && FilesOf(rules).contains(look->identity);
}

// What is excluded already stays so: a new value takes the place of all.
std::string Excluding(const InputConfig &input, const std::string &path)
{
    std::string command = "syslogmon input set " + input.name;
    for (const std::string &excluded : input.Values("exclude"))
        command += " " + text::ShellWord("exclude=" + excluded);
    return command + " " + text::ShellWord("exclude=" + PatternOf(path));
}

// A rotated file of this log, there or to come, that the rules have for a log of its own; nothing: there is none.
std::optional<std::string> RotatedThatIsLog(const std::string &log, const FolderView &view,
                                            const PathRules &rules)
{
    if (rules.Match(log))
        return std::nullopt;
    std::vector<std::string> paths;
    for (const auto &[path, look] : view.files) {
        if (FolderOf(path) == FolderOf(log) &&
            RotatedNameOf(NameOf(path), NameOf(log)) == NameKind::kRotated)
            paths.push_back(path);
    }
    for (const char *next : {".1", "-20270101"})
        paths.push_back(log + next);
    const auto found = std::find_if(paths.begin(), paths.end(), [&](const std::string &path) {
        return rules.Match(path) && !rules.ExcludeLogOf(path);
    });
    return found == paths.end() ? std::nullopt : std::optional(*found);
}

void FindReadBeforeRotation(const std::string &reader, const std::string &log,
                            const FolderView &view, const InputConfig &input,
                            const PathRules &rules, std::vector<CountedTwice> *found)
{
    if (const auto path = RotatedThatIsLog(log, view, rules))
        found->push_back({*path + " has what " + reader + " has read of " + log +
                              " before it was rotated, so its lines count twice",
                          "leave it out: " + Excluding(input, log)});
}

// One log is named; what is advised of it shows how.
void FindRotatedFiles(const InputConfig &logs, const InputConfig &input,
                      std::vector<CountedTwice> *found)
{
    const PathRules rules = RulesOf(input);
    LogNamesByFolder names(RulesOf(logs));
    const FolderView view = ViewFolders(names.rules().Folders());
    names.Learn(view);
    const size_t before = found->size();
    for (const auto &[path, look] : view.files) {
        if (found->size() == before && names.IsLive(path))
            FindReadBeforeRotation("the input " + logs.name, path, view, input, rules, found);
    }
}

void FindWhatTheMonitorReads(const InputConfig &input, const WhatIsRead &read,
                             std::vector<CountedTwice> *found)
{
    const PathRules rules = RulesOf(input);
    const std::pair<std::string, std::string> by_itself[] = {
        {kSystemLog, ""},
        {read.customer_file, " as the customer file"},
        {read.file_monitor, " as the file monitor's target"}};
    for (const auto &[path, how] : by_itself) {
        if (!path.empty() && Reads(rules, path))
            found->push_back(
                {path + " is read without an input" + how + ", so its lines count twice",
                 "leave it out: " + Excluding(input, path)});
    }
    FindReadBeforeRotation("the monitor", kSystemLog, ViewFolders({FolderOf(kSystemLog)}), input,
                           rules, found);
}

void FindSharedFiles(const InputConfig &input, const InputConfig &other,
                     std::vector<CountedTwice> *found)
{
    const std::map<FileIdentity, std::string> files = FilesOf(RulesOf(input));
    std::vector<std::string> shared;
    for (const auto &[identity, path] : FilesOf(RulesOf(other))) {
        const auto here = files.find(identity);
        if (here != files.end())
            shared.push_back(here->second);
    }
    if (shared.size() == 1)
        found->push_back(
            {shared[0] + " is read by the input " + other.name + " too, so its lines count twice",
             "leave it out of one of them: " + Excluding(input, shared[0])});
    else if (!shared.empty())
        found->push_back({std::to_string(shared.size()) + " files, as " + shared[0] +
                              ", are read by the input " + other.name +
                              " too, so their lines count twice",
                          "leave them out of one of them with exclude=, or remove one: syslogmon "
                          "input remove " +
                              input.name});
}

// May entries be wanted by both? Not when there is a field of which they want different values.
bool WantSame(const InputConfig &one, const InputConfig &other)
{
    std::map<std::string, std::set<std::string>> wanted;
    std::map<std::string, bool> agree;
    for (const std::string &match : one.Values("match"))
        wanted[match.substr(0, match.find('='))].insert(match);
    for (const std::string &match : other.Values("match")) {
        const auto field = wanted.find(match.substr(0, match.find('=')));
        if (field != wanted.end())
            agree[field->first] = agree[field->first] || field->second.contains(match);
    }
    return std::all_of(agree.begin(), agree.end(), [](const auto &row) { return row.second; });
}

std::filesystem::path Canonical(const std::filesystem::path &folder)
{
    std::error_code failed;
    const std::filesystem::path path = std::filesystem::weakly_canonical(folder, failed);
    const std::filesystem::path known = failed ? folder.lexically_normal() : path;
    return known.has_filename() ? known : known.parent_path(); // without a slash at its end
}

// The folders with the files of an input's journal. Those of this host and of its namespaces have one each, of the host's
// name among journals, in the folders of all journals.
std::vector<std::filesystem::path> FoldersOfJournal(const InputConfig &input)
{
    if (const std::string named = input.Value("directory"); !named.empty())
        return {Canonical(named)};
    sd_id128_t machine{};
    sd_id128_get_machine(&machine);
    char name[SD_ID128_STRING_MAX] = {};
    std::string folder = sd_id128_to_string(machine, name);
    if (const std::string space = input.Value("namespace"); !space.empty())
        folder += "." + space;
    return {Canonical("/run/log/journal/" + folder), Canonical("/var/log/journal/" + folder)};
}

// Are there files that both read? A journal is what lies in its folder, and in the folders of that.
bool ShareJournal(const InputConfig &input, const InputConfig &other)
{
    for (const auto &one : FoldersOfJournal(input)) {
        for (const auto &two : FoldersOfJournal(other)) {
            if (one == two || one.parent_path() == two || one == two.parent_path())
                return true;
        }
    }
    return false;
}

void FindSharedJournal(const InputConfig &input, const InputConfig &other,
                       std::vector<CountedTwice> *found)
{
    if (!ShareJournal(input, other) || !WantSame(input, other))
        return;
    found->push_back({"the input " + other.name +
                          " reads this journal too, so entries that both want count twice",
                      "choose with match= which of them gets what, or remove one: syslogmon input "
                      "remove " +
                          input.name});
}

bool IsHostsJournal(const InputConfig &input)
{
    return input.kind == kJournalKind && ShareJournal(input, {0, "", kJournalKind, {}});
}

// Entries of the journal that a syslog daemon may write into a file that this input of files reads.
void FindJournalInFiles(const InputConfig &journal, const InputConfig &files,
                        std::vector<CountedTwice> *found)
{
    const PathRules rules = RulesOf(files);
    for (const char *path : kSyslogFiles) {
        if (IsWritten(path) && Reads(rules, path))
            found->push_back({std::string(path) + " is read by the input " + files.name +
                                  ", and the journal by the input " + journal.name +
                                  ": where a syslog daemon writes the journal's entries into that "
                                  "file, they count twice",
                              "choose one of them: " + Excluding(files, path) +
                                  ", or syslogmon input remove " + journal.name});
    }
}

void FindJournalInWatchedFiles(const InputConfig &journal, const WhatIsRead &read,
                               std::vector<CountedTwice> *found)
{
    if (IsWritten(kSystemLog))
        found->push_back(
            {std::string(kSystemLog) +
                 " is written and read, too: where a syslog daemon writes the journal's entries "
                 "into it, they count twice",
             "choose one of them: syslogmon input remove " + journal.name +
                 " leaves the log; a syslog daemon that no longer writes that file, and the file "
                 "removed, leave the journal"});
    for (const std::string &path : {read.customer_file, read.file_monitor}) {
        const bool is_syslogs = std::find(std::begin(kSyslogFiles), std::end(kSyslogFiles), path) !=
                                std::end(kSyslogFiles);
        if (is_syslogs && IsWritten(path))
            found->push_back({path + " is read without an input: where a syslog daemon writes the "
                                     "journal's entries into it, they count twice",
                              "choose one of them: let the monitor read another file, or syslogmon "
                              "input remove " +
                                  journal.name});
    }
}

void FindTwiceWith(const InputConfig &input, const InputConfig &other,
                   std::vector<CountedTwice> *found)
{
    if (input.kind == kFilesKind && other.kind == kFilesKind) {
        FindSharedFiles(input, other, found);
        FindRotatedFiles(other, input, found);
        FindRotatedFiles(input, other, found);
    } else if (input.kind == kJournalKind && other.kind == kJournalKind)
        FindSharedJournal(input, other, found);
    else if (IsHostsJournal(input))
        FindJournalInFiles(input, other, found);
    else if (IsHostsJournal(other))
        FindJournalInFiles(other, input, found);
}

} // namespace

WhatIsRead AllThatIsRead(InputRegistry &inputs, host::RegistryTree &registry)
{
    WhatIsRead read;
    read.inputs = inputs.ReadAll();
    read.file_monitor = logs::NameOfFile(registry, kFileMonitorKey);
    read.customer_file = logs::NameOfFile(registry, kMonitorKey);
    const bool is_spool =
        read.customer_file == host::AgentText(registry, host::kInputSpool).value_or("");
    if (is_spool)
        read.customer_file.clear();
    return read;
}

bool ReadsFile(const InputConfig &input, const std::string &path)
{
    return input.kind == kFilesKind && Reads(RulesOf(input), path);
}

std::vector<CountedTwice> FindCountedTwice(const InputConfig &input, const WhatIsRead &read)
{
    std::vector<CountedTwice> found;
    if (input.kind == kFilesKind)
        FindWhatTheMonitorReads(input, read, &found);
    else if (IsHostsJournal(input))
        FindJournalInWatchedFiles(input, read, &found);
    for (const InputConfig &other : read.inputs) {
        if (!IsSame(input, other))
            FindTwiceWith(input, other, &found);
    }
    return found;
}

} // namespace inputs
