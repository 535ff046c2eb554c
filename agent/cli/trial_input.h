// The logs of a trial. The monitor reads regular files only, so what comes through a pipe, is compressed, or is to be
// read as an input reads it, is copied into one first.
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

#include "agent/cli/rendered_log.h"
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
    // Of the names on the command line; "-" is standard input, and "journal", unless there is such a file, the journal of
    // this host. `go_on` is asked while something is copied; false ends it. Throws host::Error for what cannot be read.
    //   as_input  lines have stamps of any usual form and of any age
    //   options   with which an input reads them, and of the journal
    TrialInput(const std::vector<std::string> &names, bool as_input, const RenderOptions &options,
               const std::function<bool()> &go_on);

    [[nodiscard]] const std::vector<TrialLog> &logs() const { return logs_; }
    [[nodiscard]] int64_t bytes() const;

  private:
    std::filesystem::path Copy(const std::string &name, const std::function<bool()> &go_on);
    // A new file in the folder, with what is put into it.
    std::filesystem::path Fill(const std::function<void(const TakeText &)> &put,
                               const std::function<bool()> &go_on);

    std::optional<TemporaryFolder> folder_; // for copies
    size_t copies_ = 0;
    std::vector<TrialLog> logs_;
};

} // namespace cli

#endif // AGENT_CLI_TRIAL_INPUT_H
