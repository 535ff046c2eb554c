// get, set: the settings by their names. What they are, and what is accepted, is in the rows of
// agent/settings.
#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/cli/table.h"
#include "agent/settings/settings.h"

namespace cli {

namespace {

using nlohmann::json;

// Without a name, all settings.
struct SettingOptions {
    std::string name;
    std::string value;
};

// In the form in which they are typed: what is shown can be set again.
int GetSettings(Context &context, const SettingOptions &options)
{
    context.OpenToRead();
    auto &registry = context.Host().registry();
    if (!options.name.empty()) {
        const settings::Setting &setting = settings::FindSetting(options.name);
        const std::string value = settings::GetSetting(registry, setting);
        if (context.json)
            PrintJson({{"settings", {{setting.name, value}}}});
        else
            PrintValue(value);
        return kExitDone;
    }
    json all = json::object();
    Table table({"SETTING", "VALUE", "UNIT", "MEANING"});
    for (const settings::Setting &setting : settings::AllSettings()) {
        const std::string value = settings::GetSetting(registry, setting);
        all[setting.name] = value;
        table.Add({setting.name, value, setting.unit, setting.help});
    }
    if (context.json)
        PrintJson({{"settings", all}});
    else
        table.Print();
    return kExitDone;
}

// Nothing is printed: a script reads the exit status.
int SetSetting(Context &context, const SettingOptions &options)
{
    // Before the store is opened, which a wrong name shall not make.
    const settings::Setting &setting = settings::FindSetting(options.name);
    context.Open();
    settings::ChangeSetting(context.Host(), setting, options.value);
    return kExitDone;
}

// From the rows, so help names what there is.
std::string SettingNames()
{
    std::string names;
    for (const settings::Setting &setting : settings::AllSettings())
        names += std::string(names.empty() ? "" : ", ") + setting.name;
    return names;
}

void SetUpGet(Parser &parser, Context &context)
{
    auto options = std::make_shared<SettingOptions>();
    parser.Add("setting", options->name, "One of " + SettingNames() + "; all without it");
    parser.Runs([&, options] { return GetSettings(context, *options); });
}

void SetUpSetSetting(Parser &parser, Context &context)
{
    auto options = std::make_shared<SettingOptions>();
    parser.Add("setting", options->name, "One of " + SettingNames()).Required();
    parser.Add("value", options->value, "Its new value, or default").Required();
    parser.Runs([&, options] { return SetSetting(context, *options); });
}

} // namespace

const std::vector<Command> kSettingCommands = {
    {"get", "Show settings", SetUpGet},
    {"set", "Change a setting; a running monitor takes it at once", SetUpSetSetting},
};

} // namespace cli
