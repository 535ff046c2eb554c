// The trace log: which records are written, and how.
#include <ctime>
#include <map>
#include <pthread.h>
#include <re2/re2.h>
#include <set>
#include <thread>

#include "agent/host/trace_log.h"
#include "platform/trace.h"
#include "tests/agent/support/host_test.h"

namespace {

using test::ErrorOf;
using test::ReadLines;
using Strings = std::vector<std::string>;

constexpr char kUnit[] = "unit";

class Trace : public test::RootTest {
  protected:
    Trace() : RootTest(std::filesystem::temp_directory_path()) // it fills many megabytes
    {
        TraceLogSetThrName("main");
        host::SetTraceLevel(TRACE_DETAIL);
        host::OpenTraceLog(File("trace.log"));
    }
    ~Trace() override
    {
        host::CloseTraceLog();
        host::SetTraceLevel(TRACE_ERROR);
        host::ForgetTracedError();
    }

    // The records so far, without time, thread, level, unit, function and line.
    [[nodiscard]] std::vector<std::string> Texts() const
    {
        host::FlushTraceLog();
        const RE2 head(R"(^\S+ \S+ \[[^\]]*\] \w+ \w+ \S+:\d+ )");
        std::vector<std::string> texts;
        for (std::string &line : ReadLines(File("trace.log"))) {
            RE2::Replace(&line, head, "");
            texts.push_back(std::move(line));
        }
        return texts;
    }
    [[nodiscard]] std::string LastLine() const
    {
        host::FlushTraceLog();
        const auto lines = ReadLines(File("trace.log"));
        return lines.empty() ? "" : lines.back();
    }
    // One record of each level, named by it.
    static void TraceEachLevel()
    {
        TRACE(TRACE_DETAIL, "detail");
        TRACE(TRACE_ERROR, "error");
        TRACE(TRACE_SYSTEM, "system");
        TRACE(TRACE_NOTABLE, "notable");
    }
    // The moment at which a second begins.
    static void WaitForNextSecond()
    {
        const time_t now = time(nullptr);
        while (time(nullptr) == now)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
};

TEST_F(Trace, ARecordHasTimeThreadLevelUnitFunctionLineAndText)
{
    TraceLog(TRACE_NOTABLE, "vkevmon", "WatchSyslog", 120, "%s %d", "text", 42);
    EXPECT_TRUE(RE2::FullMatch(LastLine(), R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} )"
                                           R"(\[main\] notable vkevmon WatchSyslog:120 text 42)"))
        << LastLine();
}

TEST_F(Trace, TheMacroGivesFunctionAndLine)
{
    TRACE_FOR("OtherName", TRACE_ERROR, "text");
    EXPECT_NE(std::string::npos,
              LastLine().find(" error unit OtherName:" + std::to_string(__LINE__ - 2) + " text"));
}

TEST_F(Trace, EachLevelHasItsName)
{
    TraceEachLevel();
    const auto lines = ReadLines(File("trace.log"));
    ASSERT_EQ(4U, lines.size());
    for (size_t level = 0; level < 4; ++level)
        EXPECT_NE(std::string::npos,
                  lines[level].find(std::string("] ") +
                                    host::TraceLevelName(static_cast<int>(level)) + " unit "))
            << lines[level];
    EXPECT_STREQ("off", host::TraceLevelName(host::kTraceOff));
    EXPECT_STREQ("unknown", host::TraceLevelName(-1));
    EXPECT_STREQ("unknown", host::TraceLevelName(5));
}

// ---- levels ----

TEST_F(Trace, WhatIsBelowTheLevelIsNotWritten)
{
    const std::vector<Strings> expected = {{"detail", "error", "system", "notable"},
                                           {"error", "system", "notable"},
                                           {"system", "notable"},
                                           {"notable"},
                                           {}};
    for (size_t level = 0; level < expected.size(); ++level) {
        host::CloseTraceLog();
        std::filesystem::remove(File("trace.log"));
        host::OpenTraceLog(File("trace.log"));
        host::SetTraceLevel(static_cast<int>(level));
        EXPECT_EQ(static_cast<int>(level), host::TraceLevel());
        TraceEachLevel();
        EXPECT_EQ(expected[level], Texts()) << level;
    }
}

TEST_F(Trace, ALevelThatIsChangedHoldsForTheNextRecord)
{
    TRACE(TRACE_DETAIL, "one");
    host::SetTraceLevel(TRACE_NOTABLE);
    TRACE(TRACE_DETAIL, "two");
    host::SetTraceLevel(TRACE_DETAIL);
    TRACE(TRACE_DETAIL, "three");
    EXPECT_EQ((Strings{"one", "three"}), Texts());
}

TEST_F(Trace, ALevelThatIsSetBeforeTheLogIsOpenedHoldsFromItsBeginning)
{
    host::CloseTraceLog();
    host::SetTraceLevel(TRACE_NOTABLE);
    host::OpenTraceLog(File("trace.log"));
    TraceEachLevel();
    EXPECT_EQ(Strings{"notable"}, Texts());
}

TEST_F(Trace, WithoutALogRecordsAreDropped)
{
    host::CloseTraceLog();
    EXPECT_EQ(0, TRACE(TRACE_NOTABLE, "dropped"));
    host::SetTraceLevel(TRACE_DETAIL);
    EXPECT_EQ(0, TRACE(TRACE_NOTABLE, "dropped"));
    host::FlushTraceLog();
    EXPECT_TRUE(ReadLines(File("trace.log")).empty());
}

TEST_F(Trace, ALogThatCannotBeWrittenIsAnError)
{
    test::WriteFile(File("file"), "");
    const std::string path = File("file").string() + "/trace.log";
    const std::string error = ErrorOf([&] { host::OpenTraceLog(path); });
    EXPECT_EQ(0U, error.find("cannot write the trace log " + path + ": ")) << error;
    EXPECT_NE(std::string::npos, error.find("; make its folder writable, or run as root"));
}

TEST_F(Trace, ALogIsContinuedWhenItIsOpenedAgain)
{
    TRACE(TRACE_NOTABLE, "one");
    host::CloseTraceLog();
    host::OpenTraceLog(File("trace.log"));
    TRACE(TRACE_NOTABLE, "two");
    EXPECT_EQ((Strings{"one", "two"}), Texts());
}

TEST_F(Trace, AnythingButDetailIsInTheFileAtOnce)
{
    TRACE(TRACE_ERROR, "at once");
    EXPECT_EQ(1U, ReadLines(File("trace.log")).size());
}

// ---- one record, one line ----

TEST_F(Trace, LineEndsAtTheEndAreDropped)
{
    TRACE(TRACE_NOTABLE, "text\n\n");
    EXPECT_EQ(Strings{"text"}, Texts());
}

TEST_F(Trace, ControlCharactersInsideBecomeSpacesAndTabsStay)
{
    TRACE(TRACE_NOTABLE, "a\nb\rc\x1b[1md\te\x01");
    EXPECT_EQ(Strings{"a b c [1md\te "}, Texts());
}

TEST_F(Trace, AnEmptyTextIsARecord)
{
    TRACE(TRACE_NOTABLE, "%s", "");
    EXPECT_EQ(Strings{""}, Texts());
}

TEST_F(Trace, TextIsNotTakenForAFormatOfTheLog)
{
    TRACE(TRACE_NOTABLE, "%s", "{} {0} %s %v %n \\0");
    EXPECT_EQ(Strings{"{} {0} %s %v %n \\0"}, Texts());
}

TEST_F(Trace, AVeryLongTextIsCutAndStaysOneLine)
{
    TRACE(TRACE_NOTABLE, "%s", std::string(100000, 'x').c_str());
    EXPECT_EQ(Strings{std::string(4095, 'x')}, Texts());
}

// ---- threads ----

TEST_F(Trace, AThreadCarriesItsNameIntoItsRecordsAndToTheKernel)
{
    std::thread([] {
        TraceLogSetThrName("SyslogMonitor");
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        EXPECT_STREQ("SyslogMonitor", name);
        TRACE(TRACE_NOTABLE, "named");
    }).join();
    EXPECT_NE(std::string::npos, LastLine().find(" [SyslogMonitor] notable "));
    TRACE(TRACE_NOTABLE, "here");
    EXPECT_NE(std::string::npos, LastLine().find(" [main] notable "));
}

TEST_F(Trace, ALongThreadNameIsCutTo15Characters)
{
    std::thread([] {
        TraceLogSetThrName("ANameOfMoreThan15Characters");
        TRACE(TRACE_NOTABLE, "named");
    }).join();
    EXPECT_NE(std::string::npos, LastLine().find(" [ANameOfMoreThan] notable "));
}

TEST_F(Trace, RecordsOfManyThreadsAreWholeLines)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 500; ++i)
                TRACE(TRACE_DETAIL, "%d:%s", t,
                      std::string(200, static_cast<char>('a' + t)).c_str());
        });
    for (std::thread &thread : threads)
        thread.join();
    std::map<std::string, int> counts;
    for (const std::string &text : Texts())
        ++counts[text];
    ASSERT_EQ(4U, counts.size());
    for (int t = 0; t < 4; ++t) {
        const std::string text =
            std::to_string(t) + ":" + std::string(200, static_cast<char>('a' + t));
        EXPECT_EQ(500, counts[text]);
    }
}

// ---- bursts ----

TEST_F(Trace, APlaceMayWrite100RecordsASecondAndSaysHowManyWereLeftOut)
{
    const auto from_one_place = [](int number) { TRACE(TRACE_NOTABLE, "record %d", number); };
    WaitForNextSecond();
    for (int i = 0; i < 250; ++i)
        from_one_place(i);
    WaitForNextSecond();
    from_one_place(250);

    const auto texts = Texts();
    ASSERT_EQ(102U, texts.size());
    EXPECT_EQ("record 99", texts[99]);
    EXPECT_EQ("(150 more records from here were left out)", texts[100]);
    EXPECT_EQ("record 250", texts[101]);
}

TEST_F(Trace, ABurstOfOnePlaceLeavesTheOthersAlone)
{
    WaitForNextSecond();
    for (int i = 0; i < 250; ++i)
        TRACE(TRACE_NOTABLE, "burst");
    TRACE(TRACE_NOTABLE, "other");
    EXPECT_EQ("other", Texts().back());
}

TEST_F(Trace, WhatWasLeftOutLastIsToldWhenTheLogIsClosed)
{
    WaitForNextSecond();
    for (int i = 0; i < 130; ++i)
        TRACE(TRACE_NOTABLE, "burst");
    host::CloseTraceLog();
    EXPECT_EQ("(30 more records from here were left out)", Texts().back());
}

TEST_F(Trace, DetailIsNeverHeldBack)
{
    for (int i = 0; i < 500; ++i)
        TRACE(TRACE_DETAIL, "%d", i);
    EXPECT_EQ(500U, Texts().size());
}

// ---- rotation ----

TEST_F(Trace, AFullFileBecomesAnOlderOneAndNoRecordIsLost)
{
    const std::string text(4000, 'x');
    for (int i = 0; i < 3000; ++i)
        TRACE(TRACE_DETAIL, "%s", text.c_str());
    host::FlushTraceLog();
    EXPECT_EQ(3000U, ReadLines(File("trace.log")).size() + ReadLines(File("trace.1.log")).size());
    EXPECT_LE(std::filesystem::file_size(File("trace.1.log")), 10U * 1024 * 1024);
}

TEST_F(Trace, TheFileAndFourOlderOnesAreKept)
{
    const std::string text(4000, 'x');
    for (int i = 0; i < 16000; ++i)
        TRACE(TRACE_DETAIL, "%s", text.c_str());
    host::FlushTraceLog();
    std::set<std::string> files;
    for (const auto &entry : std::filesystem::directory_iterator(Root()))
        files.insert(entry.path().filename());
    EXPECT_EQ((std::set<std::string>{"trace.log", "trace.1.log", "trace.2.log", "trace.3.log",
                                     "trace.4.log"}),
              files);
}

// ---- why the monitor ended ----

TEST_F(Trace, TheLastErrorIsTheLastRecordOfLevelErrorOrSystem)
{
    EXPECT_EQ("", host::LastTracedError());
    TRACE(TRACE_ERROR, "an error");
    TRACE(TRACE_NOTABLE, "notable");
    TRACE(TRACE_DETAIL, "detail");
    EXPECT_EQ("an error", host::LastTracedError());
    TRACE(TRACE_SYSTEM, "a failed call\n");
    EXPECT_EQ("a failed call", host::LastTracedError());
    host::ForgetTracedError();
    EXPECT_EQ("", host::LastTracedError());
}

TEST_F(Trace, TheLastErrorIsKnownWhenItsRecordWasHeldBack)
{
    for (int i = 0; i <= 150; ++i)
        TRACE(TRACE_ERROR, "error %d", i);
    EXPECT_EQ("error 150", host::LastTracedError());
}

TEST_F(Trace, TheLastErrorIsKnownAtEveryLevelOfTheLog)
{
    for (const int level : {TRACE_SYSTEM, TRACE_NOTABLE, host::kTraceOff}) {
        host::ForgetTracedError();
        host::SetTraceLevel(level);
        TRACE(TRACE_ERROR, "why it ended");
        EXPECT_EQ("why it ended", host::LastTracedError()) << level;
    }
}

} // namespace
