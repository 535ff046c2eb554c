// A folder for the files of one command. A process that is killed leaves it behind; one that is
// interrupted ends as usual, if its command takes care of the signals.
#ifndef AGENT_CLI_TEMPORARY_FOLDER_H
#define AGENT_CLI_TEMPORARY_FOLDER_H

#include <filesystem>

namespace cli {

// Is made in the place for temporary files, and is gone with its contents at the end.
class TemporaryFolder {
  public:
    // Throws host::Error when it cannot be made.
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    [[nodiscard]] const std::filesystem::path &path() const { return path_; }

  private:
    std::filesystem::path path_;
};

} // namespace cli

#endif // AGENT_CLI_TEMPORARY_FOLDER_H
