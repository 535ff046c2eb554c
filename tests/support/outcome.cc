#include "tests/support/outcome.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "match/table_data.h"
#include "tests/support/scripted_host.h"

namespace test {

namespace {

constexpr char kTestUnit[] = "(test)";

// An entry mark without the addresses of what was passed: "line=0x7ffd12" becomes "line=".
std::string WithoutAddresses(const std::string &mark)
{
    std::string text;
    for (size_t at = 0; at < mark.size();) {
        if (mark.compare(at, 2, "0x") == 0) {
            at += 2;
            while (at < mark.size() && isxdigit(static_cast<unsigned char>(mark[at])) != 0)
                ++at;
        } else {
            text += mark[at++];
        }
    }
    return text;
}

std::string Shown(const TraceRecord &record)
{
    return std::to_string(record.level) + " " + record.unit + " " + record.function + ": " +
           (record.text.starts_with('>') ? WithoutAddresses(record.text) : record.text);
}

// Both ends of a long step, and how long it is.
std::string Shortened(const std::string &step)
{
    constexpr size_t kShown = 120;
    if (step.size() <= 2 * kShown)
        return step;
    return step.substr(0, kShown) + " ... " + step.substr(step.size() - kShown) + " (" +
           std::to_string(step.size()) + " bytes)";
}

std::string Around(const std::vector<std::string> &steps, size_t at)
{
    std::string text;
    for (size_t i = at >= 4 ? at - 4 : 0; i < std::min(at + 3, steps.size()); ++i)
        text += (i == at ? "  > " : "    ") + Shortened(steps[i]) + "\n";
    return at < steps.size() ? text : text + "  > (end)\n";
}

} // namespace

void NoteStep(const std::string &text)
{
    Host().trace.push_back({0, kTestUnit, "", text});
}

void BeginOutcome()
{
    Host().ForgetRecords();
    Host().convert = [](const std::string &text, int from, int to) {
        NoteStep("convert " + std::to_string(from) + " to " + std::to_string(to) + ": " + text);
        return text;
    };
    Host().on_report = [](const ReportRequest & /*request*/) {
        const SentReport &report = Host().reports.back();
        char id[16];
        snprintf(id, sizeof id, "%X", report.event_id);
        NoteStep("report " + report.log_name + "|" + report.source + "|" + id + "|" +
                 report.message + (report.other_fields_are_zero ? "" : "|other fields"));
    };
}

Outcome TakeOutcome()
{
    Outcome outcome;
    outcome.steps.reserve(Host().trace.size());
    for (const TraceRecord &record : Host().trace)
        outcome.steps.push_back(Shown(record));
    outcome.counters = HitCounters();
    return outcome;
}

std::vector<int32_t> HitCounters()
{
    std::vector<int32_t> counters;
    for (int i = 0; i < nCnt; ++i)
        counters.push_back(lpVKVMon[i]->CurrentCount);
    return counters;
}

void SetHitCounters(const std::vector<int32_t> &counters)
{
    for (size_t i = 0; i < counters.size(); ++i)
        lpVKVMon[i]->CurrentCount = counters[i];
}

std::string Difference(const Outcome &slow, const Outcome &fast)
{
    const auto [a, b] =
        std::mismatch(slow.steps.begin(), slow.steps.end(), fast.steps.begin(), fast.steps.end());
    if (a != slow.steps.end() || b != fast.steps.end()) {
        const auto at = static_cast<size_t>(a - slow.steps.begin());
        return "step " + std::to_string(at) + "\n  the slow twin:\n" + Around(slow.steps, at) +
               "  the module:\n" + Around(fast.steps, at);
    }
    for (size_t i = 0; i < slow.counters.size(); ++i) {
        if (slow.counters[i] != fast.counters[i])
            return "hits of entry " + std::to_string(i) + ": slow twin " +
                   std::to_string(slow.counters[i]) + ", module " +
                   std::to_string(fast.counters[i]);
    }
    return "";
}

} // namespace test
