// One line under the rules of a trial, for saying why each event matches it or does not.
//
// The module checks the line by itself, and each keyword that is asked for by itself. It tells of a match in two ways:
// by a report, and by a hit counter that has changed.
//
// Of the one thread that runs the trial, in its pause (see trial.h).
#ifndef AGENT_CLI_LINE_TRIAL_H
#define AGENT_CLI_LINE_TRIAL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/cli/hour_of.h"
#include "agent/logs/stamps.h"
#include "agent/monitor/module.h"

namespace cli {

class LineTrial {
  public:
    // For a module whose table is loaded. One at a time.
    LineTrial(monitor::Module &module, HourOf hour);
    ~LineTrial();
    LineTrial(const LineTrial &) = delete;
    LineTrial &operator=(const LineTrial &) = delete;

    // Checks a line for so many occurrences, and counts it. Returns which entries of the table it has matched, by
    // index, in ascending order.
    std::vector<size_t> Check(const std::string &line, int times);
    // Which of them have reported the line that was checked last, by index, in table order.
    [[nodiscard]] const std::vector<size_t> &reported() const { return reported_; }

    // Why no event can match the line because of its time stamp; nothing: one can.
    [[nodiscard]] std::optional<logs::StampProblem> StampProblem(const std::string &line) const;
    // The hour that counts for it, 0 to 23; does the entry watch that hour?
    [[nodiscard]] int HourOfLine(const std::string &line) const;
    [[nodiscard]] bool IsWatched(size_t index, int hour) const;
    // Would the module find this keyword, alone, in the line? By a check: reported() is forgotten.
    bool FindsKeyword(const std::string &line, const std::string &keyword);

    [[nodiscard]] const VKVMon &entry(size_t index) const { return *table_[index]; }
    [[nodiscard]] size_t entries() const { return table_.size(); }

  private:
    static int TakeReport(ReportRequest *request);
    void WatchHour(int hour);

    monitor::Module &module_;
    HourOf hour_of_;
    // A copy of the pointers, which stay good for the pause; FindsKeyword exchanges those of the
    // module.
    std::vector<VKVMon *> table_;
    std::vector<uint32_t> hours_; // of each entry, as loaded
    std::vector<size_t> reported_;
};

} // namespace cli

#endif // AGENT_CLI_LINE_TRIAL_H
