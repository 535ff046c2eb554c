#include "tests/agent/support/line_counter.h"

#include <algorithm>

#include "agent/alerts/alert_store.h"
#include "agent/host/error.h"
#include "platform/registry.h"
#include "tests/agent/support/table_of_one.h"
#include "tests/agent/support/the_host.h"

namespace test {

namespace {

constexpr uint32_t kLinesOfAPass = 3;
constexpr char kKey[] = "SOFTWARE\\Log";
constexpr char kValue[] = "Resume";

uint32_t ReadResumePoint()
{
    uint32_t at = 0;
    DWORD size = sizeof at;
    return RegRead(HKEY_LOCAL_MACHINE, kKey, kValue, nullptr, &at, &size) != FALSE ? at : 0;
}

void Report(uint32_t line)
{
    alerts::Alert alert;
    alert.source = "LOG";
    alert.event_id = line;
    alert.message = "line " + std::to_string(line);
    try {
        alerts::AddAlert(test::Store(), alert);
    } catch (const host::Error &) {
        return; // as VKMonitorCall does: the commit of the pass will fail
    }
}

// Everything between two waits, but for the commit.
uint32_t Pass(TableOfOne *table, uint32_t last)
{
    uint32_t at = ReadResumePoint();
    const uint32_t end = std::min(at + kLinesOfAPass, last);
    for (; at < end; ++at) {
        Report(at);
        table->Hit();
        const uint32_t next = at + 1;
        RegWrite(HKEY_LOCAL_MACHINE, kKey, kValue, REG_DWORD, &next, sizeof next);
    }
    return at;
}

void Live(const host::Layout &layout, uint32_t last, const std::function<void()> &pass_stored)
{
    test::StartHost(layout, host::Role::kDaemon);
    auto &store = test::Store();
    host::HitCounters counters(store);
    TableOfOne table;
    counters.Restore(table.Get());
    for (uint32_t at = 0; at < last;) {
        at = Pass(&table, last);
        counters.Save(table.Get());
        store.CommitPass();
        if (pass_stored)
            pass_stored();
    }
}

} // namespace

std::string CountLines(const host::Layout &layout, uint32_t last,
                       const std::function<void()> &pass_stored)
{
    std::string failure;
    try {
        Live(layout, last, pass_stored);
    } catch (const host::Error &error) {
        failure = error.what();
    }
    test::StopHost();
    return failure;
}

std::string CountedLines(const host::Layout &layout)
{
    std::string counted;
    test::StartHost(layout, host::Role::kCommand);
    auto &store = test::Store();
    store.CheckIntegrity();
    for (const auto &alert : alerts::ReadAlerts(store.database(), 0, 0, INT64_MAX))
        counted += (counted.empty() ? "" : " ") + std::to_string(alert.event_id);
    counted += "; at " + std::to_string(ReadResumePoint());
    const auto counters = host::HitCounters::Load(store);
    counted += "; " + std::to_string(counters.empty() ? 0 : counters[0].current_count) + " hits";
    test::StopHost();
    return counted;
}

std::string EachLineOnce(uint32_t at)
{
    std::string lines;
    for (uint32_t line = 0; line < at; ++line)
        lines += (line == 0 ? "" : " ") + std::to_string(line);
    return lines + "; at " + std::to_string(at) + "; " + std::to_string(at) + " hits";
}

} // namespace test
