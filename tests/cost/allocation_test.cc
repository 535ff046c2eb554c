// On an ordinary server nothing is taken from the heap for a line: not by the matchers, not by the readers,
// not by the index.
#include <cstdio>
#include <cstring>
#include <string>

#include "fileacc/fileacc.h"
#include "filemonitor/filemonitor.h"
#include "match/index.h"
#include "match/literal_set.h"
#include "match/match.h"
#include "match/report.h"
#include "match/table_data.h"
#include "platform/agent.h"
#include "tests/cost/allocations.h"
#include "tests/support/campaign.h"
#include "tests/support/random_log.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace test {
namespace {

// What an action takes from the heap when everything that is done once has been done.
template <typename Action>
long AllocationsOf(Action action)
{
    action();
    const long before = Allocations();
    action();
    return Allocations() - before;
}

class CostOfALine : public ModuleTest {
  protected:
    CostOfALine()
    {
        ZoneGuard::Use("CET-1CEST,M3.5.0,M10.5.0/3");
        SetClock(2024, 3, 10, 12, 0, 0);
        Host().record_trace = false; // the host's own records would be counted
    }

    static void FillTable(int32_t report_count)
    {
        Random random(7);
        TableShape shape;
        shape.entries = 500;
        const RandomTable table(random, shape);
        for (int i = 0; i < nCnt; ++i) {
            lpVKVMon[i]->ReportCount = report_count;
            lpVKVMon[i]->CurrentCount = 0;
        }
        AddEntry({.keywords = {"disk", "error", ""}});
        lpVKVMon[nCnt - 1]->ReportCount = report_count;
    }

    // A log of several blocks.
    static std::string Log()
    {
        std::string log;
        for (int i = 0; log.size() < 100000; ++i)
            log += Line("disk error number " + std::to_string(i), i / 10) + "\n";
        return log;
    }

  private:
    ZoneGuard zone_;
};

constexpr int32_t kNeverReported = 1000000;

TEST_F(CostOfALine, CountingIsNotBlind)
{
    const long before = Allocations();
    free(malloc(10));
    delete new std::string(100, 'x');
    EXPECT_EQ(before + 3, Allocations());
    EXPECT_LT(0, AllocationsOf([] { fclose(fopen("/dev/null", "r")); }));
}

TEST_F(CostOfALine, IsNoHeapForTheMatchers)
{
    FillTable(kNeverReported);
    std::string line = Line("a disk error and more");
    std::string miss = Line("nothing of interest");
    std::string no_stamp = "nothing of a stamp";
    for (std::string *text : {&line, &miss, &no_stamp}) {
        EXPECT_EQ(0, AllocationsOf([&] { CheckLine(text->data(), 1); })) << *text;
        EXPECT_EQ(0, AllocationsOf([&] { CheckFileLine(text->c_str()); })) << *text;
    }
    EXPECT_LT(0, lpVKVMon[nCnt - 1]->CurrentCount);
}

TEST_F(CostOfALine, IsNoHeapForTheIndex)
{
    FillTable(kNeverReported);
    char line[4096] = {};
    snprintf(line, sizeof line, "%s", Line("a disk error and more").c_str());
    LocalMoment moment;
    FoundLiterals found{};
    EXPECT_EQ(0, AllocationsOf([] { BuildIndex(); }));
    EXPECT_EQ(0, AllocationsOf([&] { CheckLineOfPass(&moment, &found, line, strlen(line), 1); }));
    EXPECT_LT(0, lpVKVMon[nCnt - 1]->CurrentCount);
}

// The host takes what it likes to convert a line and to record a report; the module adds nothing to that.
TEST_F(CostOfALine, IsNoHeapForAReport)
{
    AddEntry({.keywords = {"disk", "", ""}});
    std::string line = Line("a disk error");
    ReportRequest request{};
    const char *strings[] = {line.c_str()};
    request.logName = "Application";
    request.source = "SRC";
    request.strings = strings;
    char message[3329];
    const auto forget = [] {
        Host().ForgetRecords();
        Host().calls.reserve(16);
        Host().reports.reserve(16);
    };
    const long of_host = AllocationsOf([&] {
        forget();
        TarskCodeConvert(line.c_str(), -1, message, sizeof message, 1, 0);
        pVKMonitorCall(&request);
    });
    const long of_both = AllocationsOf([&] {
        forget();
        CheckLine(line.data(), 1);
    });
    EXPECT_EQ(1U, Host().reports.size());
    EXPECT_EQ(of_host, of_both);
}

TEST_F(CostOfALine, IsNoHeapForTheReader)
{
    const std::string log = Log();
    WriteLog("messages", log);
    ASSERT_EQ(0, InitFile("/var/log/messages"));
    char text[kLineBufferSize];
    int64_t pos = 0;
    EXPECT_EQ(0, AllocationsOf([&] {
                  GetBlockAt(0, kBlockSize, &curblock);
                  TrimBlockRight(&curblock);
                  while (FEof() == 0)
                      GetNextLine(&pos, text, sizeof text);
                  SaveFileEnv();
                  RecoverFileEnv();
                  while (FBegin() == 0)
                      GetPreLine(&pos, text, sizeof text);
                  GetFirstLine(text, sizeof text);
                  GetLastLine(&pos, text, sizeof text);
                  GetLineHead(50000);
              }));
    const std::string gone = Line("gone", 500);
    EXPECT_EQ(0, AllocationsOf([&] {
                  snprintf(text, sizeof text, "%s", gone.c_str());
                  pos = 20000;
                  EXPECT_EQ(0, GotoPos(&pos, text, sizeof text)); // walks through the file
              }));
}

TEST_F(CostOfALine, IsNoHeapForTheFileMonitorsSplitter)
{
    const std::string log = Log() + std::string(20000, 'x') + "\nthe last\n";
    WriteLog("watched", log);
    strcpy(filedata.filemonpath, "/var/log/watched");
    ASSERT_EQ(TRUE, InitFileMonObj());
    char line[kFileLineBufferSize];
    EXPECT_EQ(0, AllocationsOf([&] {
                  filedata.length = 0;
                  filedata.offset = 0;
                  do {
                      ASSERT_LT(0, GetFileNextLine(line, sizeof line));
                  } while (strcmp(line, "the last") != 0);
              }));
}

} // namespace
} // namespace test
