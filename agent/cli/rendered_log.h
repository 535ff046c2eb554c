// Logs for a trial as an input would bring them: with stamps of any usual form and of any age, compressed, or from the
// journal. Without an input, and without following anything.
#ifndef AGENT_CLI_RENDERED_LOG_H
#define AGENT_CLI_RENDERED_LOG_H

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "agent/inputs/input_registry.h"

namespace cli {

// The options of the inputs that would bring them.
struct RenderOptions {
    inputs::FollowOptions files;
    inputs::JournalOptions journal;
};
// Of words NAME=VALUE: those of how files are read, and which entries of which journal. Throws host::Error for others.
RenderOptions RenderOptionsOf(const std::vector<std::string> &words);

// What a log is copied to, piece by piece; false: it was told to stop.
using TakeText = std::function<bool(const std::string &text)>;

// The content of a file, compressed or not. Throws host::Error.
void ReadUnpacked(const std::filesystem::path &path, const TakeText &take);

// Its lines as an input of files brings them. An entry whose stamp the monitor would refuse today keeps its time of day
// and gets today's date. Throws host::Error.
//   name  of the log, from which lines without a program have one, unless the options say it
void RenderLog(const std::filesystem::path &path, const std::string &name,
               const RenderOptions &options, const TakeText &take);
// The same of one line.
std::string RenderLine(const std::string &line, const RenderOptions &options);

// All entries of a journal, unless the options say which this host's, as an input of it brings them. Throws host::Error
// when it cannot be read.
void RenderJournal(const RenderOptions &options, const TakeText &take);

} // namespace cli

#endif // AGENT_CLI_RENDERED_LOG_H
