// The spool: what is committed counts, and nothing else, whatever a kill leaves behind.
#include "agent/inputs/spool_keeper.h"

#include <ctime>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

#include "agent/alerts/alert_store.h"
#include "agent/host/agent_values.h"
#include "platform/contract.h"
#include "platform/registry.h"
#include "platform/split64.h"
#include "tests/agent/inputs/log_world.h"

namespace {

namespace fs = std::filesystem;

using inputs::Batch;
using inputs::SpoolFile;
using inputs::SpoolKeeper;
using inputs::SpoolState;
using test::LogLine;

class SpoolTest : public testing::Test {
  protected:
    SpoolTest()
    {
        std::string name = fs::exists("/dev/shm") ? "/dev/shm/spool-XXXXXX" : "/tmp/spool-XXXXXX";
        folder_ = mkdtemp(name.data());
        Start();
    }
    ~SpoolTest() override
    {
        keeper_.reset();
        registry_.reset();
        store_.reset();
        fs::remove_all(folder_);
    }

    void Start()
    {
        keeper_.reset();
        registry_.reset();
        store_.emplace(folder_ / "agent.db");
        store_->StartPasses();
        registry_.emplace(*store_);
        keeper_.emplace(*store_, *registry_, Path());
        keeper_->Prepare(true, time(nullptr));
    }
    // Of the process: what was not committed is gone, the file is as it is.
    void Kill()
    {
        store_->AbandonPass();
        Start();
    }

    [[nodiscard]] fs::path Path() const { return folder_ / "spool"; }
    [[nodiscard]] std::string Content() const
    {
        std::ifstream file(Path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static Batch BatchOf(const std::string &text)
    {
        Batch batch;
        batch.BeginOrigin("logs", "/var/log/a.log");
        batch.text = text;
        return batch;
    }
    void Store(const std::string &text)
    {
        ASSERT_TRUE(keeper_->Store(BatchOf(text)));
        store_->CommitPass();
        keeper_->Committed();
    }
    // What a pass of the module does: it reads on from the stored place to the end, and stores that.
    std::string Pass()
    {
        const std::string content = Content();
        const auto key = registry_->Find(host::kRootKey, kMonitorKey);
        const auto low = registry_->Get(*key, kSlotValues[1].pos_low);
        uint32_t at = 0;
        memcpy(&at, low->data.data(), sizeof at);
        const size_t begin = content.find('\n', at) + 1;
        if (begin == content.size())
            return {};
        EXPECT_EQ(content.substr(0, content.find('\n')),
                  TextOf(*registry_->Get(*key, kSlotValues[1].headline)));
        const auto last = static_cast<uint32_t>(content.rfind('\n', content.size() - 2) + 1);
        registry_->Set(*key, kSlotValues[1].pos_low, REG_DWORD,
                       std::string_view(reinterpret_cast<const char *>(&last), sizeof last));
        const std::string line = content.substr(last, content.size() - last - 1);
        registry_->Set(*key, kSlotValues[1].content, REG_SZ,
                       std::string_view(line.c_str(), line.size() + 1));
        return content.substr(begin);
    }
    // The messages of the alerts about losses.
    std::vector<std::string> Losses()
    {
        std::vector<std::string> messages;
        const auto alerts = store_->Read(
            [](host::Database &database) { return alerts::ReadAlerts(database, 0, 0, 100); });
        for (const alerts::Alert &alert : alerts) {
            EXPECT_EQ("SYSLOGMON", alert.source);
            EXPECT_EQ("spool", alert.log_name);
            messages.push_back(alert.message);
        }
        return messages;
    }
    std::string CustomerFile()
    {
        const auto key = registry_->Find(host::kRootKey, kMonitorKey);
        const auto value = registry_->Get(*key, kFileNameValue);
        return value ? TextOf(*value) : "";
    }

    fs::path folder_;
    std::optional<host::Store> store_;
    std::optional<host::RegistryTree> registry_;
    std::optional<SpoolKeeper> keeper_;
};

TEST_F(SpoolTest, BecomesTheCustomerFileWithItsFirstLineRead)
{
    EXPECT_EQ(Path(), CustomerFile());
    EXPECT_EQ(inputs::SpoolHeadLine(1) + "\n", Content());
    EXPECT_EQ("", Pass());
}

TEST_F(SpoolTest, WhatIsStoredIsReadOnce)
{
    Store("one\ntwo\n");
    EXPECT_EQ("one\ntwo\n", Pass());
    Store("three\n");
    EXPECT_EQ("three\n", Pass());
    EXPECT_EQ("", Pass());
}

TEST_F(SpoolTest, ABatchThatWasNotCommittedIsCutOffAtTheStart)
{
    Store("one\n");
    ASSERT_TRUE(keeper_->Store(BatchOf("two\n")));
    EXPECT_NE(std::string::npos, Content().find("two"));
    Kill();
    EXPECT_EQ("one\n", Pass());
    Store("two\n");
    EXPECT_EQ("two\n", Pass());
}

// Of the file, what nobody has seen to be on the disk is gone then; of the store, nothing that was committed.
TEST_F(SpoolTest, APowerCutTakesNothingOfWhatWasCommitted)
{
    for (const char *lines : {"one\ntwo\n", "three\n", "four\n"}) {
        Store(lines);
        fs::resize_file(Path(), std::min(fs::file_size(Path()), test::SyncedSizeOf(Path())));
        Kill();
        EXPECT_EQ(lines, Pass());
    }
    EXPECT_EQ(std::vector<std::string>{}, Losses());
}

TEST_F(SpoolTest, APassThatWasRolledBackLeavesThePlacesAlone)
{
    Store("one\n");
    ASSERT_TRUE(keeper_->Store(BatchOf("two and more\n")));
    store_->AbandonPass();
    keeper_->Abandoned();
    Store("two\n");
    EXPECT_EQ("one\ntwo\n", Pass());
}

TEST_F(SpoolTest, ANewGenerationBeginsWhenTheOldOneWasRead)
{
    const std::string much(5 * 1024 * 1024, 'x');
    Store(much + "\n");
    Store("unread\n");
    EXPECT_EQ(much + "\nunread\n", Pass()) << "nothing is taken away before it was read";
    Store("two\n");
    EXPECT_EQ(inputs::SpoolHeadLine(2) + "\ntwo\n", Content());
    EXPECT_EQ("two\n", Pass());
}

// The steps of a rotation: the store says so; the file is cut; its first line is written.
TEST_F(SpoolTest, AKillBetweenTheStepsOfARotationIsSurvived)
{
    Store("one\n");
    Pass();
    store_->CommitPass();
    const std::string before = Content();
    const SpoolState next = inputs::BeginOfGeneration(2);
    const std::string head = inputs::SpoolHeadLine(2);
    for (const std::string &left : {before, std::string{}, head.substr(0, 10), head, head + "\n"}) {
        inputs::WriteSpoolState(*store_, next);
        const auto key = *registry_->Find(host::kRootKey, kMonitorKey);
        for (const char *name : {kSlotValues[1].headline, kSlotValues[1].content})
            registry_->Set(key, name, REG_SZ, std::string_view(head.c_str(), head.size() + 1));
        const uint32_t zero = 0;
        registry_->Set(key, kSlotValues[1].pos_low, REG_DWORD,
                       std::string_view(reinterpret_cast<const char *>(&zero), sizeof zero));
        store_->CommitPass();
        std::ofstream(Path(), std::ios::binary) << left;
        Start();
        EXPECT_EQ(head + "\n", Content()) << left;
        Store("two\n");
        EXPECT_EQ("two\n", Pass()) << left;
        store_->CommitPass();
    }
}

TEST_F(SpoolTest, ABatchWaitsWhenTooMuchIsUnread)
{
    const host::KeyId key = registry_->Create(host::kRootKey, host::kAgentKey);
    const uint32_t one = 1;
    registry_->Set(key, host::kSpoolMegabytes, REG_DWORD,
                   std::string_view(reinterpret_cast<const char *>(&one), sizeof one));
    const std::string much(900 * 1024, 'x');
    Store(much + "\n");
    EXPECT_FALSE(keeper_->Store(BatchOf(much + "\n")));
    EXPECT_NE(std::string::npos, keeper_->problem().find("the inputs wait"));
    Pass();
    Store(much + "\n");
    EXPECT_EQ("", keeper_->problem());
    Pass();
    Store(much + much + "\n"); // alone it may be longer, or it would wait for ever
    EXPECT_EQ("", keeper_->problem());
}

TEST_F(SpoolTest, LinesThatWaitedForMonthsGetAStampThatIsRead)
{
    const int64_t now = time(nullptr);
    Store(LogLine("one") + LogLine("two"));
    keeper_->Prepare(true, now + int64_t{100} * 24 * 3600);
    const std::string text = Pass();
    EXPECT_EQ(LogLine("one").substr(16) + text.substr(0, 0),
              text.substr(16, LogLine("one").size() - 16));
    EXPECT_NE(LogLine("one").substr(0, 3), text.substr(0, 3)) << "of another month";
}

TEST_F(SpoolTest, WhatIsUnreadOfItIsReadAlsoWhenAnotherCustomerFileWasSet)
{
    Store("one\n");
    const auto key = *registry_->Find(host::kRootKey, kMonitorKey);
    registry_->Set(key, kFileNameValue, REG_SZ, std::string_view("/var/log/x", 11));
    store_->CommitPass();
    Start();
    EXPECT_EQ(Path(), CustomerFile());
    Store("two\n");
    EXPECT_EQ("one\ntwo\n", Pass());
}

TEST_F(SpoolTest, IsReadToItsEndBeforeItIsTakenAway)
{
    Store("one\n");
    keeper_->Prepare(false, time(nullptr));
    EXPECT_TRUE(keeper_->IsInForce());
    EXPECT_EQ("one\n", Pass());
    keeper_->Prepare(false, time(nullptr));
    EXPECT_FALSE(keeper_->IsInForce());
    EXPECT_FALSE(fs::exists(Path()));
}

TEST_F(SpoolTest, WithoutInputsTheModuleHasNoCustomerFileLeft)
{
    keeper_->Prepare(false, time(nullptr));
    EXPECT_EQ("", CustomerFile());
    keeper_->Prepare(true, time(nullptr));
    EXPECT_EQ(Path(), CustomerFile());
}

TEST_F(SpoolTest, ASpoolThatWasRemovedIsBegunAnew)
{
    Store("one\n");
    fs::remove(Path());
    Start();
    Store("two\n");
    EXPECT_EQ("two\n", Pass());
}

// ---- what is lost is told ----

TEST_F(SpoolTest, ThatWasRemovedUnreadIsToldWithWhatIsMissing)
{
    Store("one\n");
    EXPECT_EQ("one\n", Pass());
    store_->CommitPass();
    Store("two\nthree\n");
    fs::remove(Path());
    Start();
    EXPECT_EQ(std::vector<std::string>{"input spool: 10 bytes of " + Path().string() +
                                       " are missing that were not checked: the file was removed "
                                       "or changed"},
              Losses());
    Start();
    EXPECT_EQ(1U, Losses().size()) << "once";
}

TEST_F(SpoolTest, ThatIsRemovedWhileItIsFollowedIsPutBackWhole)
{
    Store("one\n");
    EXPECT_EQ("one\n", Pass());
    store_->CommitPass();
    Store("two\n");
    const std::string before = Content();
    fs::remove(Path());
    keeper_->LookAfterSpool();
    EXPECT_EQ(before, Content());
    EXPECT_EQ(before.size(), test::SyncedSizeOf(Path())) << "or a power cut would take what counts";
    Store("three\n");
    EXPECT_EQ("two\nthree\n", Pass());
    EXPECT_TRUE(Losses().empty());
}

TEST_F(SpoolTest, ThatIsInItsPlaceStaysTheSameFile)
{
    Store("one\n");
    const fs::path same = Path().string() + ".same";
    fs::create_hard_link(Path(), same);
    keeper_->LookAfterSpool();
    EXPECT_TRUE(fs::equivalent(Path(), same));
}

TEST_F(SpoolTest, ThatIsReplacedWhileItIsFollowedIsPutBack)
{
    Store("one\n");
    const std::string before = Content();
    fs::remove(Path());
    std::ofstream(Path(), std::ios::binary) << "of somebody else";
    fs::create_hard_link(Path(), folder_ / "other");
    keeper_->LookAfterSpool();
    EXPECT_EQ(before, Content());
    EXPECT_EQ(std::string("of somebody else").size(), fs::file_size(folder_ / "other"));
}

TEST_F(SpoolTest, ThatIsCutWhileItIsFollowedIsToldAtOnce)
{
    Store("one\n");
    fs::resize_file(Path(), 0);
    keeper_->LookAfterSpool();
    EXPECT_EQ(std::vector<std::string>{"input spool: 4 bytes of " + Path().string() +
                                       " are missing that were not checked: the file was removed "
                                       "or changed"},
              Losses());
    keeper_->LookAfterSpool();
    EXPECT_EQ(1U, Losses().size()) << "once";
    Store("two\n");
    EXPECT_EQ("two\n", Pass());
}

TEST_F(SpoolTest, ThatWasCutOrOverwrittenIsTold)
{
    Store("one\n");
    fs::resize_file(Path(), fs::file_size(Path()) - 1);
    Start();
    EXPECT_EQ(1U, Losses().size());
    Store("two\n");
    std::fstream(Path(), std::ios::in | std::ios::out | std::ios::binary) << "another first line";
    Start();
    EXPECT_EQ(2U, Losses().size());
    Store("three\n");
    EXPECT_EQ("three\n", Pass());
}

TEST_F(SpoolTest, ThatWasReadMayGoWithoutAWord)
{
    Store("one\n");
    EXPECT_EQ("one\n", Pass());
    store_->CommitPass();
    fs::remove(Path());
    Start();
    EXPECT_EQ(std::vector<std::string>{}, Losses());
    Store("two\n");
    EXPECT_EQ("two\n", Pass());
}

TEST_F(SpoolTest, InWhichThePlaceOfTheMonitorWasOverwrittenIsTold)
{
    Store("one\n");
    const auto key = registry_->Find(host::kRootKey, kMonitorKey);
    registry_->Set(*key, kSlotValues[1].headline, REG_SZ, std::string_view("other\0", 6));
    store_->CommitPass();
    Start();
    ASSERT_EQ(1U, Losses().size());
    EXPECT_EQ(0U, Losses()[0].find("input spool: the place of the monitor in " + Path().string() +
                                   " was overwritten"))
        << Losses()[0];
    Store("two\n");
    EXPECT_EQ("two\n", Pass());
}

TEST_F(SpoolTest, WhatAnInputHasLostIsTold)
{
    Batch batch = BatchOf("");
    batch.losses.push_back({"spool", "the numbers 2 to 5 are missing"});
    ASSERT_TRUE(keeper_->Store(batch));
    EXPECT_EQ(std::vector<std::string>{"input spool: the numbers 2 to 5 are missing"}, Losses());
    Kill();
    EXPECT_EQ(std::vector<std::string>{}, Losses()) << "it is a part of the pass";
}

TEST_F(SpoolTest, ALineIsKnownByItsLog)
{
    Batch batch = BatchOf("one\n");
    batch.BeginOrigin("journal", "");
    batch.own_stamps.push_back({batch.text.size(), "Jan  1 10:00:00"});
    batch.text += "two\n";
    ASSERT_TRUE(keeper_->Store(batch));
    store_->CommitPass();
    keeper_->Committed();
    ASSERT_TRUE(keeper_->OriginOf("one"));
    EXPECT_EQ("/var/log/a.log", keeper_->OriginOf("one")->log);
    EXPECT_EQ("logs", keeper_->OriginOf("one")->input);
    EXPECT_EQ("journal", keeper_->OriginOf("two")->input);
    EXPECT_EQ("Jan  1 10:00:00", keeper_->OriginOf("two")->own_stamp);
    EXPECT_FALSE(keeper_->OriginOf("three"));
}

TEST_F(SpoolTest, ALineIsOfNoLogThatWroteInItsPlaceBefore)
{
    Store("x\n");
    Batch journal;
    journal.BeginOrigin("journal", "");
    journal.text = std::string(5 * 1024 * 1024, 'y') + "\nz\n";
    ASSERT_TRUE(keeper_->Store(journal));
    store_->CommitPass();
    keeper_->Committed();
    Pass();
    Store("a line of some bytes\nlast\n");
    ASSERT_TRUE(Content().starts_with(inputs::SpoolHeadLine(2)));
    ASSERT_TRUE(keeper_->OriginOf("last"));
    EXPECT_EQ("logs", keeper_->OriginOf("last")->input);
}

// What is unread is looked through a MiB at a time.
TEST_F(SpoolTest, ALineFarBehindInWhatIsUnreadIsKnownByItsLog)
{
    std::string text;
    for (int i = 0; text.size() < size_t{5} * 512 * 1024; ++i)
        text += "line " + std::to_string(i) + " " + std::string(200, 'x') + "\n";
    Store(text + "the last one\n");
    ASSERT_TRUE(keeper_->OriginOf("the last one"));
    EXPECT_EQ("/var/log/a.log", keeper_->OriginOf("the last one")->log);
}

} // namespace
