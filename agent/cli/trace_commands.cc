// trace level: the same as get and set of the setting trace-level.
#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/settings/settings.h"

namespace cli {

namespace {

int Level(Context &context, const std::string &level)
{
    const settings::Setting &setting = settings::FindSetting("trace-level");
    if (!level.empty()) {
        context.Open();
        settings::ChangeSetting(context.Host(), setting, level);
        return kExitDone;
    }
    context.OpenToRead();
    const std::string current = settings::GetSetting(context.Host().registry(), setting);
    if (context.json)
        PrintJson({{"trace_level", current}});
    else
        PrintValue(current);
    return kExitDone;
}

void SetUpLevel(Parser &parser, Context &context)
{
    auto level = std::make_shared<std::string>();
    parser.Add("level", *level,
               "detail, error, system, notable or off; without it, the level is shown");
    parser.Runs([&, level] { return Level(context, *level); });
}

} // namespace

const std::vector<Command> kTraceCommands = {
    {"trace level", "Show or set the lowest level that the trace log keeps", SetUpLevel},
};

} // namespace cli
