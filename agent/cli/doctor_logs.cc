// The checks of the logs: can they be read, do their lines have time stamps that the monitor reads,
// are their rotated files found, where does the monitor stand.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/cli/doctor.h"
#include "agent/cli/trial.h"
#include "agent/logs/stamps.h"
#include "agent/settings/settings.h"
#include "agent/status/daemon_lock.h"
#include "platform/contract.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

using logs::StampProblem;
using logs::WatchedFile;

// Lines whose time stamps are looked at: the newest, since they show how the log is written now.
constexpr size_t kNewestLines = 50;
// Bytes that hold them, more or less: 1300 for each line.
constexpr int64_t kNewestBytes = 64 * 1024;

// More than the monitor reads in a second: it does not get along.
constexpr int64_t kMuchBehind = int64_t{1024} * 1024; // bytes

// ---- time stamps ----

std::vector<std::string> NewestLines(const fs::path &path)
{
    std::vector<std::string> lines;
    std::error_code failed;
    const auto size = static_cast<int64_t>(fs::file_size(path, failed));
    if (failed)
        return lines;
    const int64_t begin = std::max<int64_t>(0, size - kNewestBytes);
    // A file that shrinks meanwhile gives fewer lines, or none.
    std::istringstream newest(logs::ReadPart(path, begin, kNewestBytes));
    std::string line;
    if (begin > 0)
        std::getline(newest, line); // a part of one
    while (std::getline(newest, line))
        lines.push_back(line);
    if (lines.size() > kNewestLines)
        lines.erase(lines.begin(), lines.end() - kNewestLines);
    return lines;
}

// What is wrong with the stamps of the newest lines.
// By the index of the problem.
struct Stamps {
    size_t lines = 0;
    std::array<size_t, logs::kStampProblems> problems{};
    std::array<std::string, logs::kStampProblems> examples;
    std::optional<StampProblem> newest; // of the newest line that is no continuation
};

Stamps LookAtStamps(const monitor::Module &module, const fs::path &path)
{
    Stamps stamps;
    for (const std::string &line : NewestLines(path)) {
        ++stamps.lines;
        time_t time = 0;
        if (module.GetSyslogTime(line.c_str(), &time) != 0) {
            // A newer line with a good stamp: whatever was wrong is over.
            stamps.newest.reset();
            continue;
        }
        const StampProblem problem = logs::StampProblemOf(line);
        const auto index = static_cast<size_t>(problem);
        ++stamps.problems[index];
        // The newest one stays, shortened to what fits behind the sentence.
        stamps.examples[index] = line.substr(0, 60);
        if (!logs::IsContinuation(problem))
            stamps.newest = problem;
    }
    return stamps;
}

// A few lines without a stamp are the second lines of longer messages; a log that holds more of
// them than others is no syslog.
bool IsWrong(const Stamps &stamps, StampProblem problem)
{
    const size_t count = stamps.problems[static_cast<size_t>(problem)];
    if (logs::IsContinuation(problem))
        return count * 2 > stamps.lines;
    if (problem == StampProblem::kOtherMonth)
        return stamps.newest == problem; // older lines are none of our business
    return count > 0;
}

void CheckStampsOf(const monitor::Module &module, const fs::path &path, Examination *examination)
{
    const Stamps stamps = LookAtStamps(module, path);
    bool well = true;
    for (int p = 0; p < logs::kStampProblems; ++p) {
        const auto problem = static_cast<StampProblem>(p);
        if (!IsWrong(stamps, problem))
            continue;
        well = false;
        const auto index = static_cast<size_t>(p);
        std::string advice = logs::StampProblemAdvice(problem);
        // It is a problem here after all: such lines are more than the others.
        if (advice.empty())
            advice =
                "name a log that a syslog daemon writes, or watch this file with syslogmon set "
                "file-monitor, which needs no time stamps";
        examination->Finding(path,
                             std::to_string(stamps.problems[index]) + " of the newest " +
                                 std::to_string(stamps.lines) +
                                 " lines cannot match any event. What is wrong with each: " +
                                 logs::StampProblemText(problem) +
                                 "; for example: " + stamps.examples[index],
                             advice);
    }
    if (well && stamps.lines == 0)
        examination->Well(path, "it has no lines yet");
    else if (well)
        examination->Well(path, "the newest " + std::to_string(stamps.lines) +
                                    " lines have stamps that the monitor reads");
}

// ---- rotated files ----

// The names beside a log that look rotated away from it. Which of them the monitor reads, it says itself.
struct Backups {
    std::set<long> numbers;        // messages.1, messages.2, ...
    std::set<std::string> dates;   // messages-20240105
    std::set<std::string> packed;  // messages.1.gz, messages-20240105.xz, ...
    std::set<std::string> unknown; // messages-2024-01-05, messages.old, ...
};

bool EndsWith(const std::string &text, const std::string &end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool IsPacked(const std::string &name)
{
    // What the usual programs of compression leave at the end of a name.
    constexpr const char *kEnds[] = {".gz", ".xz", ".bz2", ".zst", ".lz4", ".Z"};
    return std::any_of(std::begin(kEnds), std::end(kEnds),
                       [&](const char *end) { return EndsWith(name, end); });
}

bool IsAllDigits(const std::string &text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// `rest` is what stands behind the name of the log, with its separator.
void Sort(const std::string &name, const std::string &rest, Backups *backups)
{
    // Only these two forms are read as backups; the others are looked for to be told of.
    const std::string digits = rest.substr(1);
    if (IsPacked(name))
        backups->packed.insert(name);
    else if (rest[0] == '.' && IsAllDigits(digits) && digits[0] != '0' && digits.size() < 10)
        backups->numbers.insert(std::stol(digits));
    else if (rest[0] == '-' && IsAllDigits(digits) && digits.size() == 8)
        backups->dates.insert(name);
    else
        backups->unknown.insert(name);
}

Backups FindBackups(const fs::path &log)
{
    Backups backups;
    const std::string base = log.filename();
    std::error_code ignored;
    // A folder that cannot be read has no entries here; CheckReadable tells of it.
    for (const auto &entry : fs::directory_iterator(log.parent_path(), ignored)) {
        const std::string name = entry.path().filename();
        // A separator and something behind it at least.
        if (name.size() <= base.size() + 1 || name.compare(0, base.size(), base) != 0)
            continue;
        const std::string rest = name.substr(base.size());
        if (rest[0] == '.' || rest[0] == '-')
            Sort(name, rest, &backups);
    }
    return backups;
}

// The first number that is missing before one that is there; 0: none is.
long MissingNumber(const std::set<long> &numbers)
{
    // Logs are numbered without a gap, and the monitor stops at the first that is missing.
    long expected = 1;
    for (const long number : numbers) {
        if (number != expected)
            return expected;
        ++expected;
    }
    return 0;
}

// The newest rotated file, when it is packed: the monitor cannot read what was written between its
// last pass and the rotation.
std::string PackedNewest(const std::string &base, const Backups &backups)
{
    // Numbered, it is number 1 and not there as text; dated, it is newer than every one that is.
    std::string newest;
    for (const std::string &name : backups.packed) {
        const bool is_first = name.rfind(base + ".1.", 0) == 0;
        const bool is_dated =
            name[base.size()] == '-' && (backups.dates.empty() || *backups.dates.rbegin() < name);
        if ((is_first && backups.numbers.count(1) == 0) || (is_dated && name > newest))
            newest = name;
    }
    return newest;
}

void CheckRotationOf(const WatchedFile &file, Examination *examination)
{
    const fs::path &log = file.path;
    const Backups backups = FindBackups(log);
    const std::string base = log.filename();
    const size_t findings = examination->Findings();
    const std::string packed = PackedNewest(base, backups);
    const long missing = MissingNumber(backups.numbers);
    if (!packed.empty())
        examination->Finding(log.parent_path() / packed,
                             "the newest rotated file is compressed, so what was written just "
                             "before the rotation cannot be read",
                             "add delaycompress to the configuration of logrotate for " +
                                 log.string());
    else if (missing > 0)
        examination->Finding(
            log.parent_path() / (base + "." + std::to_string(missing)),
            "it is missing, and so the rotated files with higher numbers are not looked at",
            "number them without a gap from 1, or remove them");
    // Only when none is recognised: one odd copy beside good backups is nobody's fault.
    if (!backups.unknown.empty() && file.backups.empty() && missing == 0)
        examination->Finding(log.parent_path() / *backups.unknown.rbegin(),
                             "rotated files with such names are not recognised",
                             "let logrotate number them, or add dateext and dateformat -%Y%m%d to "
                             "its configuration");
    const size_t known = file.backups.size();
    if (examination->Findings() == findings)
        examination->Well(log, known == 0
                                   ? "it has no rotated files"
                                   : std::to_string(known) +
                                         (known == 1 ? " rotated file is" : " rotated files are") +
                                         " recognised");
}

// Asked anew each time: the daemon may have been started or ended since.
bool IsRunning(const Context &context)
{
    return status::DaemonLock::Holder(context.layout).has_value();
}

bool IsEmpty(const fs::path &path)
{
    std::error_code failed;
    return fs::file_size(path, failed) == 0 && !failed;
}

// That is well. Where a syslog daemon runs, it could write the log.
void SayThatInputsAreRead(const fs::path &log, Examination *examination)
{
    const std::string found = "it is not there; the inputs are read";
    if (HasRsyslog())
        examination->Note(
            log, found,
            "nothing, or to read what rsyslog writes in place of the journal: syslogmon input "
            "remove journal; then\n" +
                HowToWriteTheSystemLog());
    else
        examination->Well(log, found);
}

} // namespace

void CheckReadable(const std::vector<WatchedFile> &files, bool has_inputs, Examination *examination)
{
    for (const WatchedFile &file : files) {
        examination->Begin(file.role);
        struct stat status {};
        if (stat(file.path.c_str(), &status) != 0) {
            const bool missing = errno == ENOENT;
            if (missing && has_inputs && file.path == kSystemLog) {
                SayThatInputsAreRead(file.path, examination);
                continue;
            }
            const std::string advice = !missing ? "run the daemon, and this command, as root"
                                       : file.path == kSystemLog
                                           ? HowToWatchSomething()
                                           : "write it, or name another file with syslogmon set";
            examination->Finding(file.path, missing ? "it is not there" : strerror(errno), advice);
        } else if (!S_ISREG(status.st_mode)) {
            examination->Finding(file.path, "it is not a regular file",
                                 "put a log in its place: the monitor reads nothing else");
        } else if (access(file.path.c_str(), R_OK) != 0) {
            // Of this user. The daemon may be another one, with other rights.
            examination->Finding(file.path, strerror(errno),
                                 "run the daemon, and this command, as root");
        } else {
            examination->Well(file.path, "it can be read");
        }
    }
}

void CheckStamps(const Context &context, const std::vector<WatchedFile> &files,
                 Examination *examination)
{
    examination->Begin("time stamps");
    try {
        const monitor::Module module(context.layout);
        for (const WatchedFile &file : files) {
            if (file.role == "file monitor")
                continue; // its lines need none
            if (!logs::WhyUnreadable(file.path).empty())
                examination->Skipped(file.path, "it cannot be read");
            else
                CheckStampsOf(module, file.path, examination);
        }
    } catch (const host::Error &error) {
        examination->Finding("monitor module", error);
    }
}

void CheckRotation(const std::vector<WatchedFile> &files, Examination *examination)
{
    examination->Begin("rotation");
    for (const WatchedFile &file : files) {
        // Of no other file are rotated ones looked at.
        if (file.path == kSystemLog || file.path == kVmkernelLog)
            CheckRotationOf(file, examination);
    }
}

void CheckResumePoints(const Context &context, const std::vector<WatchedFile> &files,
                       Examination *examination)
{
    examination->Begin("resume point");
    for (const WatchedFile &file : files) {
        if (!file.resume_file.empty())
            examination->Well(file.path, "the monitor goes on in " + file.resume_file.string());
        else if (!logs::WhyUnreadable(file.path).empty())
            examination->Skipped(file.path, "it cannot be read");
        else if (IsEmpty(file.path))
            examination->Well(file.path, "it has no lines yet");
        // A host that is just set up; with a daemon that runs, it is a finding.
        else if (file.problem == "not looked at yet" && !IsRunning(context))
            examination->Skipped(file.path, "the daemon has not looked at it yet");
        else
            examination->Finding(
                file.path, file.problem,
                "syslogmon scan makes the monitor look now and go on from the end; "
                "lines before that are not checked, but syslogmon test shows what "
                "is in them");
    }
}

void CheckBacklog(const Context &context, const std::vector<WatchedFile> &files,
                  Examination *examination)
{
    examination->Begin("backlog");
    const std::string why = IsRunning(context)
                                ? "see with syslogmon status whether it shrinks; a pass that "
                                  "takes long finds many events or a slow disk"
                                : "start the daemon: systemctl start syslogmond, or syslogmond";
    for (const WatchedFile &file : files) {
        // Another check says why.
        if (!file.behind)
            examination->Skipped(file.path, "it is not known where the monitor stands");
        else if (*file.behind > kMuchBehind)
            examination->Finding(file.path,
                                 std::to_string(*file.behind) + " bytes are not checked yet", why);
        else
            examination->Well(file.path,
                              std::to_string(*file.behind) + " bytes are not checked yet");
    }
}

} // namespace cli
