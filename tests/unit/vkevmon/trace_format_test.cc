// A host may keep the format of a trace record and its arguments apart. So a format is the message itself, with
// what varies as its arguments; it never is "%s" alone.
#include <array>
#include <set>
#include <string>

#include "match/index.h"
#include "match/match.h"
#include "match/report.h"
#include "regacc/regacc.h"
#include "tests/support/trace_formats.h"
#include "tests/unit/vkevmon/frame_fixture.h"
#include "vkevmon/loop.h"

namespace test {
namespace {

class TraceFormat : public LifeTest {
  protected:
    TraceFormat() { TraceFormats().clear(); }

    static void ExpectFormat(const std::string &format)
    {
        EXPECT_TRUE(TraceFormats().contains(format)) << format;
        EXPECT_FALSE(TraceFormats().contains("%s"));
    }
};

TEST_F(TraceFormat, OfAnExpressionHasThePatternAsItsArgument)
{
    IsFTServer = 1;
    AddEntry({.keywords = {"l[i]ne", "", ""}});
    std::string line = Line("a line") + std::string(64, '\0');
    CheckLine(line.data(), 1);
    ExpectFormat("Regular Expression is:%s");

    TraceFormats().clear();
    BuildIndex();
    LocalMoment moment;
    FoundLiterals found{};
    CheckLineOfPass(&moment, &found, line.data(), strlen(line.data()), 1);
    ExpectFormat("Regular Expression is:%s");
    EXPECT_EQ(2, Host().Traced(0, "Regular Expression is:([[:space:]]*)l[i]ne([[:space:]]*)"));
}

TEST_F(TraceFormat, OfAKeyThatCannotBeCreatedIsThatOfTheCaller)
{
    Host().FailCall("RegCreateKeyEx", 1);
    EXPECT_EQ(-1, RegSetOrientation(1, "x", 0));
    ExpectFormat("<RegCreateKeyEx TARSK_REG_SYSLOG_SUB_KEY failed!return -1.");
    Host().FailCall("RegCreateKeyEx", 1);
    EXPECT_EQ(-1, RegSetHeadLine("x", 0));
    ExpectFormat("<RegCreateKeyEx %s failed!return -1.");
}

TEST_F(TraceFormat, OfAnEventThatCannotBeCreatedIsItsMessage)
{
    const std::array<std::string, 5> formats = {
        "CreateEvent EVENTLOG_MOD_EVENT failed.", "CreateEvent EVENTLOG_CYCLE_EVENT failed.",
        "CreateEvent DRIVING_SYSLOG_EVENT failed.", "CreateEvent EVENTLOG_CUSTOM_EVENT failed.",
        "CreateEvent EVENTLOG_FILE_EVENT failed."};
    for (int n = 1; n <= 5; ++n) {
        Host().FailCall("CreateEvent", n);
        WatchSyslog(record_.data());
        ExpectFormat(formats.at(static_cast<size_t>(n) - 1));
    }
}

TEST_F(TraceFormat, OfAFunctionThatIsNotFoundIsItsMessage)
{
    const std::array<std::string, 3> formats = {"<GetProcAddress(VKMonitorCall) failed.",
                                                "<GetProcAddress(ReadProductsRegisteried) failed.",
                                                "<GetProcAddress(TARSKPPLX_PPInfoClear) failed."};
    for (int n = 1; n <= 3; ++n) {
        Host().FailCall("GetProcAddress", n);
        Run();
        ExpectFormat(formats.at(static_cast<size_t>(n) - 1));
    }
}

} // namespace
} // namespace test
