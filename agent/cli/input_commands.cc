// input add, set, remove, list, show, test
#include <algorithm>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/option_word.h"
#include "agent/cli/output.h"
#include "agent/cli/sink_commands.h"
#include "agent/cli/table.h"
#include "agent/host/agent_values.h"
#include "agent/host/waitable.h"
#include "agent/inputs/counted_twice.h"
#include "agent/inputs/input_registry.h"
#include "agent/inputs/sample.h"
#include "agent/text/printable.h"

namespace cli {

namespace {

using inputs::InputConfig;
using nlohmann::json;

// Entries that input test shows.
constexpr size_t kShownEntries = 10;

struct InputOptions {
    std::string kind;
    std::string name;
    std::vector<std::string> options; // "name=value"
    std::vector<std::string> unset;   // "name"
};

inputs::InputRegistry Inputs(const Context &context)
{
    return {context.Host().store(), context.Host().registry()};
}

std::string Charset(const Context &context)
{
    return host::AgentText(context.Host().registry(), "LogCharset")
        .value_or(host::kDefaultLogCharset);
}

void TellDaemonOfInputs(const Context &context)
{
    host::WakeEvent::Create(context.layout.run, inputs::kInputsEvent, false, false)->Set();
}

// An option that is given takes the place of all values that it had.
void TakeInputOptions(const std::vector<std::string> &words, InputConfig *config)
{
    std::map<std::string, std::vector<std::string>> given;
    for (const std::string &word : words) {
        auto [name, value] = SplitOption(word);
        given[name].push_back(std::move(value));
    }
    for (auto &[name, values] : given)
        config->options[name] = std::move(values);
}

std::vector<std::string> Warnings(const Context &context, const InputConfig &config)
{
    inputs::InputRegistry registry = Inputs(context);
    const inputs::WhatIsRead read = AllThatIsRead(registry, context.Host().registry());
    std::vector<std::string> warnings;
    for (const inputs::CountedTwice &twice : FindCountedTwice(config, read))
        warnings.push_back(twice.found + "; " + twice.advice);
    for (const sinks::StoredSink &sink : Sinks(context).ReadAll()) {
        const std::string file = sink.config.WrittenFile();
        if (!file.empty() && ReadsFile(config, file))
            warnings.push_back("it reads " + file + ", to which the sink " + sink.config.name +
                               " writes: " + kReportsItself);
    }
    return warnings;
}

// What is wrong with an input that was stored just now. It stays: a file that is missing today is read once it is there.
// Says it on standard error, too. A journal is not looked through: that can take long, and input test does it.
std::vector<std::string> Warn(const Context &context, const InputConfig &config)
{
    std::vector<std::string> warnings = Warnings(context, config);
    if (config.kind == inputs::kFilesKind) {
        const inputs::Sample sample = inputs::TakeSample(config, Charset(context), 1);
        warnings.insert(warnings.end(), sample.problems.begin(), sample.problems.end());
    }
    for (const std::string &warning : warnings)
        fprintf(stderr, "syslogmon: warning: %s\n", text::Printable(warning).c_str());
    return warnings;
}

int AddInput(Context &context, const InputOptions &options)
{
    InputConfig config;
    config.kind = options.kind;
    config.name = options.name;
    TakeInputOptions(options.options, &config);
    context.Open();
    config = Inputs(context).Add(std::move(config), Charset(context));
    TellDaemonOfInputs(context);
    const std::vector<std::string> warnings = Warn(context, config);
    if (context.json)
        PrintJson({{"added", config.name}, {"warnings", warnings}});
    return kExitDone;
}

int ChangeInput(Context &context, const InputOptions &options)
{
    context.Open();
    InputConfig config = Inputs(context).Find(options.name);
    TakeInputOptions(options.options, &config);
    for (const std::string &name : options.unset) {
        inputs::FindOption(config.kind, name);
        config.options.erase(name);
    }
    Inputs(context).Change(config);
    TellDaemonOfInputs(context);
    const std::vector<std::string> warnings = Warn(context, config);
    if (context.json)
        PrintJson({{"changed", config.name}, {"warnings", warnings}});
    return kExitDone;
}

int RemoveInput(Context &context, const InputOptions &options)
{
    context.Open();
    Inputs(context).Remove(options.name);
    TellDaemonOfInputs(context);
    if (context.json)
        PrintJson({{"removed", options.name}});
    return kExitDone;
}

json ToJson(const InputConfig &config)
{
    return {{"name", config.name}, {"kind", config.kind}, {"options", config.options}};
}

int ListInputs(Context &context, const InputOptions & /*options*/)
{
    context.OpenToRead();
    json list = json::array();
    Table table({"NAME", "KIND", "OPTIONS"});
    for (const InputConfig &config : Inputs(context).ReadAll()) {
        list.push_back(ToJson(config));
        std::string text;
        for (const auto &[name, values] : config.options) {
            for (const std::string &value : values)
                text += (text.empty() ? "" : " ") + name + "=" + value;
        }
        table.Add({config.name, config.kind, text.empty() ? "-" : text});
    }
    if (context.json)
        PrintJson({{"inputs", list}});
    else
        table.Print();
    return kExitDone;
}

int ShowInput(Context &context, const InputOptions &options)
{
    context.OpenToRead();
    const InputConfig config = Inputs(context).Find(options.name);
    if (context.json) {
        PrintJson({{"input", ToJson(config)}});
        return kExitDone;
    }
    Table table({"OPTION", "VALUE"});
    table.Add({"kind", config.kind});
    for (const auto &[name, values] : config.options) {
        for (const std::string &value : values)
            table.Add({name, value});
    }
    table.Print();
    return kExitDone;
}

int TestInput(Context &context, const InputOptions &options)
{
    context.OpenToRead();
    const InputConfig config = Inputs(context).Find(options.name);
    const inputs::Sample sample = inputs::TakeSample(config, Charset(context), kShownEntries);
    std::vector<std::string> problems = sample.problems;
    const std::vector<std::string> warnings = Warnings(context, config);
    problems.insert(problems.end(), warnings.begin(), warnings.end());
    if (context.json) {
        PrintJson({{"input", config.name}, {"entries", sample.lines}, {"problems", problems}});
        return problems.empty() ? kExitDone : kExitFailed;
    }
    for (const std::string &line : sample.lines)
        PrintValue(line);
    for (const std::string &problem : problems)
        PrintError(problem);
    return problems.empty() ? kExitDone : kExitFailed;
}

// ---- the command line ----

using Function = int (*)(Context &, const InputOptions &);

template <Function function>
InputOptions &SetUp(Parser &parser, Context &context)
{
    auto options = std::make_shared<InputOptions>();
    parser.Runs([&context, options] { return function(context, *options); });
    return *options;
}

std::string OptionsHelp()
{
    std::string help = "\nOptions, as NAME=VALUE:\n";
    for (const inputs::InputOption &option : inputs::AllInputOptions())
        help += "  " + std::string(option.kind) + ": " + option.name + "=" +
                (option.is_repeated ? " (repeated)" : "") + "  " + option.help + "\n";
    return help;
}

void SetUpAdd(Parser &parser, Context &context)
{
    InputOptions &options = SetUp<AddInput>(parser, context);
    parser.Add("kind", options.kind, "What it is: files or journal").Required();
    parser.Add("name", options.name, "Its name").Required();
    parser.Add("options", options.options, "NAME=VALUE, see below").TypeName("OPTION ...");
    parser.Footer(OptionsHelp);
}

void SetUpSetInput(Parser &parser, Context &context)
{
    InputOptions &options = SetUp<ChangeInput>(parser, context);
    parser.Add("name", options.name, "Its name").Required();
    parser.Add("options", options.options, "NAME=VALUE, see below").TypeName("OPTION ...");
    parser.Add("--unset", options.unset, "Take this option away: its standard value holds")
        .OneWordEach() // what follows are options of the input
        .TypeName("NAME");
    parser.Footer(OptionsHelp);
}

template <Function function>
void SetUpNamed(Parser &parser, Context &context)
{
    InputOptions &options = SetUp<function>(parser, context);
    parser.Add("name", options.name, "Its name").Required();
}

void SetUpList(Parser &parser, Context &context)
{
    SetUp<ListInputs>(parser, context);
}

} // namespace

const std::vector<Command> kInputCommands = {
    {"input list", "Show what is read beside the system log", SetUpList},
    {"input show", "Show one input with its options", SetUpNamed<ShowInput>},
    {"input add", "Add an input; its entries count from now on", SetUpAdd},
    {"input set", "Change options of an input; what it reads still goes on where it was",
     SetUpSetInput},
    {"input test", "Show the last entries as the monitor gets them, and what is wrong",
     SetUpNamed<TestInput>},
    {"input remove", "Remove an input", SetUpNamed<RemoveInput>},
};

} // namespace cli
