#include "agent/cli/text_input.h"

#include <cstdio>

#include <nlohmann/json.hpp>

#include "agent/cli/output.h"
#include "agent/text/flush.h"
#include "agent/text/printable.h"

namespace cli {

// Both outputs are written: people see the mistakes although the JSON goes into a pipe.
void RefuseIfFaulty(const Context &context, const std::string &doing, const std::string &path,
                    const std::vector<text::Issue> &issues, const std::vector<std::string> &files)
{
    if (issues.empty())
        return;
    nlohmann::json list = nlohmann::json::array();
    for (const text::Issue &issue : issues) {
        const std::string name =
            issue.at.file < files.size() ? files[issue.at.file] : text::ShownName(path);
        const std::string line = name + ":" + std::to_string(issue.at.line) + ":" +
                                 std::to_string(issue.at.column) + ": " + issue.what;
        fprintf(stderr, "%s\n", text::Printable(line).c_str());
        list.push_back({{"file", name},
                        {"line", issue.at.line},
                        {"column", issue.at.column},
                        {"message", issue.what}});
    }
    if (context.json)
        PrintJson({{"errors", list}});
    // Behind the list, so the last line on a terminal says what became of the whole.
    throw Refused(doing, path, text::CountMistakes(issues));
}

void PrintFile(const std::string &text)
{
    // Not printf: the text may hold zero bytes, in UTF-16 for one.
    fwrite(text.data(), 1, text.size(), stdout);
    text::FlushOutput();
}

} // namespace cli
