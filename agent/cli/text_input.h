// Files that commands read and write: where their issues go, and that none of them gets lost.
#ifndef AGENT_CLI_TEXT_INPUT_H
#define AGENT_CLI_TEXT_INPUT_H

#include <string>
#include <vector>

#include "agent/cli/command.h"
#include "agent/text/text_file.h"

namespace cli {

// A file was refused: its issues were shown, and nothing was done.
class Refused : public host::Error {
  public:
    Refused(const std::string &doing, const std::string &path, size_t mistakes)
        : host::Error("cannot " + doing + " " + text::ShownName(path),
                      mistakes == 1 ? "it has a mistake"
                                    : "it has " + std::to_string(mistakes) + " mistakes",
                      "correct what is said above; nothing was done")
    {
    }
};

// With no issues, does nothing. Otherwise shows all of them, "FILE:LINE:COLUMN: ..." each, on
// standard error, and with --json as an object on standard output, too; then throws Refused.
//   doing   what the command would have done, for the error: "apply"
// The form is the one of compilers, so editors jump to the place.
//   files   the names of the files to which the places belong, when there are several
void RefuseIfFaulty(const Context &context, const std::string &doing, const std::string &path,
                    const std::vector<text::Issue> &issues,
                    const std::vector<std::string> &files = {});

// Prints a whole file, byte for byte, on standard output. Throws host::Error when not all of it
// could be written.
void PrintFile(const std::string &text);

} // namespace cli

#endif // AGENT_CLI_TEXT_INPUT_H
