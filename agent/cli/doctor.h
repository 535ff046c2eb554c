// The examination of a host: what each check looked at, what it found, what to do.
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
        const std::string text = error.what();
        const size_t end = std::min(text.find("; "), text.size());
        Finding(looked_at, text.substr(0, end), text.substr(std::min(end + 2, text.size())));
    }
    void Skipped(const std::string &looked_at, const std::string &why)
    {
        results_.push_back({check_, looked_at, Health::kSkipped, why, ""});
    }
    [[nodiscard]] const std::vector<CheckResult> &results() const { return results_; }
    [[nodiscard]] size_t Findings() const;

  private:
    std::string check_;
    std::vector<CheckResult> results_;
};

// ---- the checks of the agent: doctor_agent.cc ----

void CheckDaemon(const Context &context, Examination *examination);
void CheckDisk(const Context &context, Examination *examination);
// Without a host that can be started, the rest can only be skipped: false.
bool CheckStore(Context &context, Examination *examination);
void CheckWatching(const Context &context, Examination *examination);
void CheckEvents(const Context &context, Examination *examination);
void CheckTable(const Context &context, Examination *examination);

// ---- the check of the sinks: doctor_sinks.cc ----

void CheckSinks(const Context &context, Examination *examination);

// ---- the syslog daemon that writes the logs: doctor_rsyslog.cc ----

// What makes this host's syslog daemon write the system log. It may have several lines.
std::string HowToWriteTheSystemLog();
void CheckRsyslog(const std::vector<logs::WatchedFile> &files, Examination *examination);

// ---- how far the promise goes for each log: doctor_promises.cc ----

void CheckPromises(const std::vector<logs::WatchedFile> &files, Examination *examination);

// ---- the checks of the logs: doctor_logs.cc ----

void CheckReadable(const std::vector<logs::WatchedFile> &files, Examination *examination);
void CheckStamps(const Context &context, const std::vector<logs::WatchedFile> &files,
                 Examination *examination);
void CheckRotation(const std::vector<logs::WatchedFile> &files, Examination *examination);
void CheckResumePoints(const Context &context, const std::vector<logs::WatchedFile> &files,
                       Examination *examination);
void CheckBacklog(const Context &context, const std::vector<logs::WatchedFile> &files,
                  Examination *examination);

} // namespace cli

#endif // AGENT_CLI_DOCTOR_H
