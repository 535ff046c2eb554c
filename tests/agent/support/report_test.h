// The fixture of tests that report as the module does: through lib/vkmncall.dll.
#ifndef TESTS_AGENT_SUPPORT_REPORT_TEST_H
#define TESTS_AGENT_SUPPORT_REPORT_TEST_H

#include "agent/alerts/alert_store.h"
#include "platform/contract.h"
#include "platform/loader.h"
#include "platform/siblings.h"
#include "tests/agent/support/host_test.h"

namespace test {

template <typename Function>
Function FindIn(HMODULE library, const char *name)
{
    return reinterpret_cast<Function>(GetProcAddress(library, name));
}

class ReportTest : public HostTest {
  protected:
    ~ReportTest() override { FreeLibrary(library_); }

    void SetUp() override { ASSERT_NE(nullptr, call_); }

    int Report(const char *source, uint32_t id, const char *line) const
    {
        const char *strings[] = {line};
        ReportRequest request{};
        request.logName = "Application";
        request.source = source;
        request.eventId = id;
        request.strings = strings;
        return call_(&request);
    }
    static std::vector<alerts::Alert> Stored()
    {
        return alerts::ReadAlerts(Store().database(), 0, 0, 100000);
    }

    HMODULE library_ = LoadLibrary(AGENT_LIBRARIES "/vkmncall.dll");
    VKMonitorCallFn call_ = FindIn<VKMonitorCallFn>(library_, "VKMonitorCall");
};

} // namespace test

#endif // TESTS_AGENT_SUPPORT_REPORT_TEST_H
