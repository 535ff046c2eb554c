#include "agent/cli/text_input.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agent/cli/output.h"
#include "agent/common/alert_text.h"

namespace cli {

void RefuseIfFaulty(const Context &context, const std::string &doing, const std::string &path,
                    const std::vector<agent::Issue> &issues)
{
    if (issues.empty())
        return;
    const std::string name = agent::ShownName(path);
    nlohmann::json list = nlohmann::json::array();
    for (const agent::Issue &issue : issues) {
        const std::string line = name + ":" + std::to_string(issue.at.line) + ":" +
                                 std::to_string(issue.at.column) + ": " + issue.what;
        fprintf(stderr, "%s\n", agent::Printable(line).c_str());
        list.push_back({{"file", name},
                        {"line", issue.at.line},
                        {"column", issue.at.column},
                        {"message", issue.what}});
    }
    if (context.json)
        PrintJson({{"errors", list}});
    throw Refused(doing, path, issues.size());
}

void PrintFile(const std::string &text)
{
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size() || fflush(stdout) != 0)
        throw tarsk::Error("cannot write the file", strerror(errno),
                           "what was written of it is not complete: make room, and try again");
}

} // namespace cli
