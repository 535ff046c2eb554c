// The logs of a trial. The monitor reads regular files only, so what comes through a pipe is copied
// into one first.
//
// All are looked at before the first is read: a name with a mistake in it is told of at once, and
// not after gigabytes of others.
#ifndef AGENT_CLI_TRIAL_INPUT_H
#define AGENT_CLI_TRIAL_INPUT_H

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/cli/temporary_folder.h"

namespace cli {

// A log as it is shown, and the regular file that holds its lines. Its size is of the moment at
// which it was looked at; a log that grows may be read further.
struct TrialLog {
    std::string name;
    std::filesystem::path path;
    int64_t bytes = 0;
};

class TrialInput {
  public:
    // Of the names on the command line; "-" is standard input. `go_on` is asked while a pipe is
    // read; false ends it. Throws host::Error for what cannot be read, and for a compressed file.
    TrialInput(const std::vector<std::string> &names, const std::function<bool()> &go_on);

    [[nodiscard]] const std::vector<TrialLog> &logs() const { return logs_; }
    [[nodiscard]] int64_t bytes() const;

  private:
    std::filesystem::path Copy(const std::string &name, const std::function<bool()> &go_on);

    std::optional<TemporaryFolder> folder_; // for what came through pipes
    std::vector<TrialLog> logs_;
};

} // namespace cli

#endif // AGENT_CLI_TRIAL_INPUT_H
