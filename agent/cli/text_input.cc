#include "agent/cli/text_input.h"

#include <cstdio>

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
    throw Refused(doing, path, agent::CountMistakes(issues));
}

void PrintFile(const std::string &text)
{
    fwrite(text.data(), 1, text.size(), stdout);
    FlushOutput();
}

} // namespace cli
