// The inputs: can each be read, does it bring what the system log has as well, and do they have to wait.
#include <algorithm>

#include "agent/cli/doctor.h"
#include "agent/host/agent_values.h"
#include "agent/inputs/counted_twice.h"
#include "agent/inputs/input_registry.h"
#include "agent/inputs/journal_reader.h"
#include "agent/inputs/sample.h"
#include "agent/status/daemon_lock.h"

namespace cli {

namespace {

using inputs::InputConfig;

std::vector<InputConfig> AllInputs(const Context &context)
{
    host::Host &host = context.Host();
    return inputs::InputRegistry(host.store(), host.registry()).ReadAll();
}

std::optional<status::Status> StatusOfDaemon(const Context &context)
{
    if (!status::DaemonLock::Holder(context.layout))
        return std::nullopt;
    return status::ReadStatus(context.layout.run);
}

// As this command sees it, and then as the daemon does, which may have other rights.
std::vector<std::string> ProblemsOf(const Context &context, const InputConfig &input,
                                    const std::optional<status::Status> &daemon)
{
    const std::string charset =
        host::AgentText(context.Host().registry(), "LogCharset").value_or(host::kDefaultLogCharset);
    std::vector<std::string> problems = inputs::TakeSample(input, charset, 1).problems;
    for (const status::InputStatus &told :
         daemon ? daemon->inputs : std::vector<status::InputStatus>{}) {
        for (const std::string &problem : told.problems) {
            if (told.name == input.name &&
                std::find(problems.begin(), problems.end(), problem) == problems.end())
                problems.push_back(problem);
        }
    }
    return problems;
}

void CheckInput(const Context &context, const InputConfig &input, const inputs::WhatIsRead &read,
                const std::optional<status::Status> &daemon, Examination *examination)
{
    const size_t findings = examination->Findings();
    try {
        for (const std::string &problem : ProblemsOf(context, input, daemon))
            examination->Finding(input.name, problem,
                                 "syslogmon input test " + input.name + " shows its last entries");
        for (const inputs::CountedTwice &twice : FindCountedTwice(input, read))
            examination->Finding(input.name, twice.found, twice.advice);
    } catch (const host::Error &error) {
        examination->Finding(input.name, error);
    }
    if (examination->Findings() == findings)
        examination->Well(input.name, "it can be read");
}

} // namespace

bool HasInputs(const Context &context)
{
    return !AllInputs(context).empty();
}

void CheckInputs(const Context &context, Examination *examination)
{
    examination->Begin("input");
    const auto daemon = StatusOfDaemon(context);
    host::Host &host = context.Host();
    inputs::InputRegistry registry(host.store(), host.registry());
    const inputs::WhatIsRead read = AllThatIsRead(registry, host.registry());
    for (const InputConfig &input : read.inputs)
        CheckInput(context, input, read, daemon, examination);
    if (daemon && !daemon->inputs_wait.empty())
        examination->Finding("inputs' spool", "the inputs wait: " + daemon->inputs_wait,
                             "nothing is lost; see with syslogmon status whether the monitor "
                             "catches up");
}

std::string HowToWatchSomething()
{
    const std::string journal = inputs::JournalReader::HostsIsReadable()
                                    ? "read the journal: syslogmon input add journal journal; or "
                                    : "";
    return journal + HowToWriteTheSystemLog();
}

} // namespace cli
