// What the daemon tells about itself.
#include "agent/status/status_file.h"

#include "tests/agent/support/host_test.h"

namespace {

using status::MonitorState;
using status::PassKind;
using status::PassStatus;
using status::ReadStatus;
using status::Status;
using status::WriteStatus;

class StatusFile : public test::RootTest {
  protected:
    void WriteAs(const std::string &content) const
    {
        test::WriteFile(File("status.json"), content);
    }
};

PassStatus Pass(PassKind kind)
{
    return {INT64_MAX, kind, 1795300000123, 98765432109876, 1234};
}

void ExpectEqual(const PassStatus &expected, const PassStatus &pass)
{
    EXPECT_EQ(expected.number, pass.number);
    EXPECT_EQ(expected.kind, pass.kind);
    EXPECT_EQ(expected.began_ms, pass.began_ms);
    EXPECT_EQ(expected.began_boot_ns, pass.began_boot_ns);
    EXPECT_EQ(expected.took_us, pass.took_us);
}

TEST_F(StatusFile, ComesBackAsItWasWritten)
{
    for (const MonitorState state : {MonitorState::kStarting, MonitorState::kRunning,
                                     MonitorState::kPausing, MonitorState::kStopping}) {
        const Status written = {4711,
                                "1.2.3",
                                17,
                                state,
                                3,
                                18,
                                "the \"last\" error\n",
                                2048,
                                Pass(PassKind::kCustomerFile),
                                Pass(PassKind::kScan),
                                "the limit of watches is reached",
                                20,
                                21,
                                "a store in a file",
                                19,
                                {{"app", "files", 2, 30, 31, 32, {"one \"problem\"", "other"}},
                                 {"journal", "journal", 1, -1, 0, 0, {}}},
                                "too much is unread"};
        WriteStatus(Root(), written);
        const auto read = ReadStatus(Root());
        ASSERT_TRUE(read);
        EXPECT_EQ(4711, read->pid);
        EXPECT_EQ("1.2.3", read->version);
        EXPECT_EQ("the limit of watches is reached", read->watch_problem);
        EXPECT_EQ("a store in a file", read->store);
        EXPECT_EQ(19, read->waiting_since_ms);
        EXPECT_TRUE(written.inputs == read->inputs);
        EXPECT_EQ("too much is unread", read->inputs_wait);
        EXPECT_EQ(20, read->alive_ns);
        EXPECT_EQ(21, read->still_ms);
        EXPECT_EQ(17, read->started_ms);
        EXPECT_EQ(state, read->state);
        EXPECT_EQ(3, read->restarts);
        EXPECT_EQ(18, read->next_start_ms);
        EXPECT_EQ("the \"last\" error\n", read->last_error);
        EXPECT_EQ(2048, read->table_size);
        ExpectEqual(written.last_pass, read->last_pass);
        ExpectEqual(written.last_full_pass, read->last_full_pass);
    }
}

TEST_F(StatusFile, KnowsEveryKindOfPass)
{
    constexpr const char *kNames[] = {"start",         "cycle",        "scan",
                                      "customer-file", "file-monitor", "other"};
    for (int i = 0; i < 6; ++i) {
        const auto kind = static_cast<PassKind>(i);
        EXPECT_STREQ(kNames[i], status::PassKindName(kind));
        EXPECT_EQ(i < 3, status::ReadsAllFiles(kind)) << kNames[i];
        Status status;
        status.last_pass = Pass(kind);
        WriteStatus(Root(), status);
        EXPECT_EQ(kind, ReadStatus(Root())->last_pass.kind);
    }
}

TEST_F(StatusFile, AnErrorThatIsNoUtf8DoesNotKeepItFromBeingWritten)
{
    Status status;
    status.last_error = "a\xFF"
                        "b";
    WriteStatus(Root(), status);
    const auto read = ReadStatus(Root());
    ASSERT_TRUE(read);
    EXPECT_EQ("a\uFFFDb", read->last_error);
}

TEST_F(StatusFile, ThatIsNotThereOrNotReadableIsNoStatus)
{
    EXPECT_FALSE(ReadStatus(Root()));
    WriteStatus(Root(), {});
    const std::string whole = test::ReadFile(File("status.json"));
    for (size_t length = 0; length + 2 < whole.size(); ++length) {
        WriteAs(whole.substr(0, length));
        EXPECT_FALSE(ReadStatus(Root())) << length;
    }
    for (const char *content : {"{}", "[]", "null", "7", "{\"pid\":\"one\"}"}) {
        WriteAs(content);
        EXPECT_FALSE(ReadStatus(Root())) << content;
    }
}

TEST_F(StatusFile, IsReplacedAsAWhole)
{
    WriteStatus(Root(), {});
    std::filesystem::create_hard_link(File("status.json"), File("before.json"));
    const std::string before = test::ReadFile(File("before.json"));
    Status status;
    status.pid = 99;
    WriteStatus(Root(), status);
    EXPECT_EQ(before, test::ReadFile(File("before.json")));
    EXPECT_EQ(99, ReadStatus(Root())->pid);
    EXPECT_FALSE(std::filesystem::exists(File("status.json.new")));
}

TEST_F(StatusFile, ThatCannotBeWrittenIsAnError)
{
    const std::string error = test::ErrorOf([&] { WriteStatus(File("none"), {}); });
    EXPECT_EQ(0U, error.find("cannot write " + File("none/status.json.new").string() + ": "))
        << error;
}

TEST_F(StatusFile, WhatIsBehindAtAllIsBehindByASecond)
{
    status::InputStatus input;
    EXPECT_EQ(0, SecondsBehind(input, 10'000));
    input.behind_since_ms = 10'000;
    for (const auto &[now_ms, seconds] :
         {std::pair(10'000, 1), {9'000, 1}, {10'001, 1}, {11'000, 1}, {11'001, 2}, {70'000, 60}})
        EXPECT_EQ(seconds, SecondsBehind(input, now_ms)) << now_ms;
}

TEST_F(StatusFile, TheClockOfRequestsOnlyRises)
{
    const int64_t first = status::BootTimeNs();
    EXPECT_GT(first, 0);
    EXPECT_LE(first, status::BootTimeNs());
    EXPECT_GT(status::WallTimeMs(), 1700000000000);
}

} // namespace
