// The examination of a host: what each check looked at, what it found, what to do.
//
// Each check is a function that writes its results into one examination, in the order in which they
// are shown, and changes nothing on the host. What is wrong is a finding and no error, so that the
// checks behind it are made, too. With one finding at least, the command ends with a failure, for
// scripts.
#ifndef AGENT_CLI_DOCTOR_H
#define AGENT_CLI_DOCTOR_H

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/cli/command.h"
#include "agent/logs/log_files.h"
#include "agent/logs/places.h"
#include "agent/status/status_file.h"

namespace cli {

enum class Health {
    kWell,
    kNote,    // nothing is wrong, and yet it should be known
    kFinding, // something keeps lines from being reported, or will
    kSkipped, // it could not be looked at; another finding says why
};

// A program reads `check`, the outcome and `looked_at`; the two others are sentences for people.
struct CheckResult {
    std::string check; // "time stamps"
    std::string looked_at;
    Health health = Health::kWell;
    std::string found;
    std::string advice; // what to do; may have several lines
};

// The results so far.
class Examination {
  public:
    // Everything after it belongs to this check.
    void Begin(std::string check) { check_ = std::move(check); }
    void Well(const std::string &looked_at, const std::string &found)
    {
        results_.push_back({check_, looked_at, Health::kWell, found, ""});
    }
    void Note(const std::string &looked_at, const std::string &found, const std::string &advice)
    {
        results_.push_back({check_, looked_at, Health::kNote, found, advice});
    }
    void Finding(const std::string &looked_at, const std::string &found, const std::string &advice)
    {
        results_.push_back({check_, looked_at, Health::kFinding, found, advice});
    }
    // What an error says: its next step, behind the first semicolon, is the advice.
    void Finding(const std::string &looked_at, const host::Error &error)
    {
        // The words of an error are the thing, the cause and the next step, in this order.
        const std::string text = error.what();
        const size_t end = std::min(text.find("; "), text.size());
        Finding(looked_at, text.substr(0, end), text.substr(std::min(end + 2, text.size())));
    }
    void Skipped(const std::string &looked_at, const std::string &why)
    {
        results_.push_back({check_, looked_at, Health::kSkipped, why, ""});
    }
    [[nodiscard]] const std::vector<CheckResult> &results() const { return results_; }
    // How many there are; a check compares it with the number before to see whether it has found
    // anything.
    [[nodiscard]] size_t Findings() const;

  private:
    std::string check_;
    std::vector<CheckResult> results_;
};

// ---- the checks of the agent: doctor_agent.cc ----

// Does the daemon run, and does it do its work? Needs no store.
void CheckDaemon(const Context &context, Examination *examination);
// Is there room for passes? Needs no store.
void CheckDisk(const Context &context, Examination *examination);
// Without a host that can be started, the rest can only be skipped: false.
bool CheckStore(Context &context, Examination *examination);
// Has the daemon looked at all files lately?
void CheckLook(const Context &context, Examination *examination);
// Are lines found as they are written, or once in a cycle?
void CheckWatching(const Context &context, Examination *examination);
// Can each registered event be reported at all?
void CheckEvents(const Context &context, Examination *examination);
// What does the module load of them? By a trial: see trial.h.
void CheckTable(const Context &context, Examination *examination);

// ---- the inputs: doctor_inputs.cc ----

// Are there any?
bool HasInputs(const Context &context);
// Can each be read, and does it bring anything that is counted already?
void CheckInputs(const Context &context, Examination *examination);
// What is to be done on a host without a system log: the journal, if it can be read, or what makes a syslog daemon
// write the log.
std::string HowToWatchSomething();

// ---- the check of the sinks: doctor_sinks.cc ----

// Does each receiver take the alerts?
void CheckSinks(const Context &context, Examination *examination);

// ---- the syslog daemon that writes the logs: doctor_rsyslog.cc ----

// Is this host's syslog daemon rsyslog?
bool HasRsyslog();
// What makes this host's syslog daemon write the system log. It may have several lines.
std::string HowToWriteTheSystemLog();
// Does the daemon that writes the logs write each line, and whole? Of rsyslog only; another one is
// not looked at.
void CheckRsyslog(const std::vector<logs::WatchedFile> &files, Examination *examination);

// ---- how far the promise goes for each log: doctor_promises.cc ----

// A note for each log whose rotation can lose lines.
void CheckPromises(const std::vector<logs::WatchedFile> &files, Examination *examination);

// ---- the checks of the logs: doctor_logs.cc ----

// Can the monitor read the files, as far as this user can tell? With inputs, there need be no system log.
void CheckReadable(const std::vector<logs::WatchedFile> &files, bool has_inputs,
                   Examination *examination);
// Can the monitor read the time stamps of the newest lines? By its own function; a line without one
// that it can read matches no event.
void CheckStamps(const Context &context, const std::vector<logs::WatchedFile> &files,
                 Examination *examination);
// Are the rotated files of the logs found? Only of the logs of which the monitor looks for any.
void CheckRotation(const std::vector<logs::WatchedFile> &files, Examination *examination);
// Does the monitor know where to go on?
void CheckResumePoints(const Context &context, const std::vector<logs::WatchedFile> &files,
                       Examination *examination);
// Does it keep up?
void CheckBacklog(const Context &context, const std::vector<logs::WatchedFile> &files,
                  Examination *examination);

} // namespace cli

#endif // AGENT_CLI_DOCTOR_H
