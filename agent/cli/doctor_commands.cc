// doctor: runs all checks, in the order in which their findings explain each other, and shows their
// results.
#include <algorithm>
#include <cstdio>
#include <sstream>

#include <nlohmann/json.hpp>

#include "agent/cli/doctor.h"
#include "agent/cli/output.h"
#include "agent/cli/trial.h"
#include "agent/text/printable.h"
#include "platform/contract.h"

namespace cli {

using nlohmann::json;

size_t Examination::Findings() const
{
    return static_cast<size_t>(
        std::count_if(results_.begin(), results_.end(),
                      [](const CheckResult &result) { return result.health == Health::kFinding; }));
}

namespace {

// Characters: behind the longest name of a health and a blank or two.
constexpr size_t kIndent = 9;

// In capitals what must not be overlooked; the JSON output has small letters throughout.
const char *HealthName(Health health)
{
    switch (health) {
    case Health::kWell:
        return "well";
    case Health::kNote:
        return "note";
    case Health::kFinding:
        return "FINDING";
    case Health::kSkipped:
        return "skipped";
    }
    return "";
}

// Filled up to the column at which all results begin.
std::string Head(Health health)
{
    const std::string name = HealthName(health);
    const std::string blanks(kIndent - name.size(), ' ');
    switch (health) {
    case Health::kWell:
        return Painted(name, Paint::kGood) + blanks;
    case Health::kNote:
        return Painted(name, Paint::kNotice) + blanks;
    case Health::kFinding:
        return Painted(name, Paint::kBad) + blanks;
    default:
        return name + blanks;
    }
}

void PrintResult(const CheckResult &result)
{
    printf("%s%s: %s: %s\n", Head(result.health).c_str(), result.check.c_str(),
           text::Printable(result.looked_at).c_str(), text::Printable(result.found).c_str());
    // Lines for a configuration file stay lines, so that they can be copied.
    std::istringstream advice(result.advice);
    std::string line;
    for (const char *before = "do: "; std::getline(advice, line); before = "")
        printf("%*s%s%s\n", static_cast<int>(kIndent), "", before, text::Printable(line).c_str());
}

void Print(const Examination &examination)
{
    for (const CheckResult &result : examination.results())
        PrintResult(result);
    const size_t findings = examination.Findings();
    if (findings == 0)
        printf("\nAll is well.\n");
    else
        printf("\n%zu %s.\n", findings, findings == 1 ? "finding" : "findings");
}

void PrintAsJson(const Examination &examination)
{
    json checks = json::array();
    for (const CheckResult &result : examination.results()) {
        std::string health = HealthName(result.health);
        std::transform(health.begin(), health.end(), health.begin(),
                       [](unsigned char c) { return static_cast<char>(tolower(c)); });
        checks.push_back({{"check", result.check},
                          {"looked_at", result.looked_at},
                          {"outcome", health},
                          {"found", result.found},
                          {"advice", result.advice}});
    }
    PrintJson({{"well", examination.Findings() == 0}, {"checks", checks}});
}

// Without a registry, the system log is all that is known to be watched.
std::vector<logs::WatchedFile> SystemLogOnly()
{
    logs::WatchedFile file;
    file.role = "system log";
    file.path = kSystemLog;
    return {file};
}

std::vector<logs::WatchedFile> WatchedFiles(const Context &context)
{
    try {
        monitor::Module module(context.layout);
        return logs::ReadWatchedFiles(module, context.Host().registry());
    } catch (const host::Error &) {
        return SystemLogOnly(); // CheckStamps says what is wrong with the module
    }
}

Examination Examine(Context &context)
{
    Examination examination;
    CheckDaemon(context, &examination);
    CheckDisk(context, &examination);
    // The logs can be examined without one: a host on which nothing was registered yet shall be
    // told what stands in the way.
    const bool has_store = CheckStore(context, &examination);
    const auto files = has_store ? WatchedFiles(context) : SystemLogOnly();
    // From the bottom up: what a later check finds is often caused by what an earlier one has.
    CheckReadable(files, has_store && HasInputs(context), &examination);
    CheckStamps(context, files, &examination);
    CheckRotation(files, &examination);
    CheckRsyslog(files, &examination);
    CheckPromises(files, &examination);
    if (!has_store)
        return examination; // what follows is all in it
    CheckResumePoints(context, files, &examination);
    CheckBacklog(context, files, &examination);
    CheckLook(context, &examination);
    CheckWatching(context, &examination);
    CheckInputs(context, &examination);
    CheckSinks(context, &examination);
    CheckEvents(context, &examination);
    CheckTable(context, &examination);
    return examination;
}

int Diagnose(Context &context)
{
    const Examination examination = Examine(context);
    if (context.json)
        PrintAsJson(examination);
    else
        Print(examination);
    // Notes and what was skipped are no failure.
    return examination.Findings() == 0 ? kExitDone : kExitFailed;
}

void SetUpDoctor(Parser &parser, Context &context)
{
    parser.Footer("Ends with 0 when all is well, and with 1 when something was found.");
    parser.Runs([&] { return Diagnose(context); });
}

} // namespace

const std::vector<Command> kDoctorCommands = {
    {"doctor", "Examine this host: what keeps lines from being reported, and what to do",
     SetUpDoctor},
};

} // namespace cli
