// Notices what the monitor passes over, or reads again, in a log that it follows by rules of its own: the system log, and
// the customer file.
//
// It knows the files that have had the log's name, oldest first, from the one in which the monitor stands on, holds them
// open, and is told which part of which file was read. What lies between the parts was passed over:
//
//   W1  A part begins where the part before it in the file has ended. What is between them was passed over, what is in
//       both was read again.
//   W2  When the monitor reads a file, it never comes back to an older one. What is unread there was passed over.
//   W3  When it starts afresh behind a line, everything before that line was passed over. It was not at its first start:
//       then nothing is known of the log.
//   W4  A file that was emptied has lost what was unread in it, unless a copy of it is read.
//   W5  What is written to a file that the monitor has left, to go on to a newer one, is passed over.
//   W6  Where a log was edited or cut off, the line that was read last is looked for. When it is gone, it is not known how
//       much of the rest is new: that something was read again is told only when it is for certain.
//   W7  What holds no line is no loss: zero bytes that a power cut has left are read again with each pass until a line
//       stands behind them.
//   W8  Where a file could not be read for this, nothing is known of the log any more, and nothing is told, as at the first
//       start. The next part says where the monitor stands.
//
// Of the monitor thread.
#ifndef AGENT_LOGS_LOG_WITNESS_H
#define AGENT_LOGS_LOG_WITNESS_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "agent/logs/witnessed_file.h"
#include "platform/agent.h"

namespace logs {

struct LogLoss {
    std::string file;
    int64_t begin = 0; // bytes
    int64_t end = 0;
    int64_t lines = 0;     // -1: not known
    bool is_twice = false; // not passed over, but read a second time
    std::string why;
};

// "/var/log/messages.1: 12 lines (bytes 100 to 900) were passed over: ..."
std::string TextOf(const LogLoss &loss);

class LogWitness {
  public:
    // What was known of the log when the daemon was stopped; nothing: it was not followed.
    LogWitness(std::filesystem::path log, std::vector<FileRecord> files);

    [[nodiscard]] const std::filesystem::path &log() const { return log_; }

    // Looks which file has the name, and at those that are held. The more often, the less escapes: a file that comes and
    // goes between two looks was never seen.
    void Look();
    // A pass has come to its end, and was told to read these parts of the log, in this order. Returns what it has passed
    // over.
    std::vector<LogLoss> Take(const std::vector<LogPart> &parts);
    // Could all be read that the last call of Take had to read for its parts? Else it has told nothing of them.
    [[nodiscard]] bool CouldRead() const { return could_read_; }

    // To be kept.
    [[nodiscard]] std::vector<FileRecord> Records() const;

  private:
    using Files = std::vector<WitnessedFile>;

    void LookAtContents();
    void NoteCut(int64_t before, WitnessedFile *file);
    void FindFilesOfTheTimeBetween();
    void TakeFilesOfTheTimeBetween(const LogPart &first);
    size_t FileOf(const LogPart &part);
    void LeaveFilesBefore(size_t at, const std::string &why, std::vector<LogLoss> *losses);
    void Account(const LogPart &part, WitnessedFile *file, std::vector<LogLoss> *losses);
    void LookAtThoseThatWereLeft(std::vector<LogLoss> *losses);
    void Forget();

    std::filesystem::path log_;
    Files files_;
    Files
        between_; // that may have come and gone while the daemon was stopped; until the first pass
    bool is_followed_;             // a place of the monitor is known
    Files left_;                   // the last files that the monitor has left, oldest first
    std::vector<LogLoss> noticed_; // at a look, and not told yet
    bool could_read_ = true;
};

} // namespace logs

#endif // AGENT_LOGS_LOG_WITNESS_H
