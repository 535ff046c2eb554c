// The thread that reads all inputs, from their registration on.
#include "agent/inputs/input_thread.h"

#include <condition_variable>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#include "agent/inputs/input_store.h"
#include "tests/agent/inputs/log_world.h"

namespace {

namespace fs = std::filesystem;

using namespace std::chrono_literals;
using test::LogLine;

class InputThreadTest : public testing::Test {
  protected:
    InputThreadTest()
    {
        std::string name = fs::exists("/dev/shm") ? "/dev/shm/thread-XXXXXX" : "/tmp/thread-XXXXXX";
        folder_ = mkdtemp(name.data());
        store_.emplace(folder_ / "agent.db");
        registry_.emplace(*store_);
    }
    ~InputThreadTest() override
    {
        thread_.reset();
        registry_.reset();
        store_.reset();
        fs::remove_all(folder_);
    }

    void Add(const std::string &name = "app", const std::string &files = "*.log")
    {
        inputs::InputRegistry(*store_, *registry_)
            .Add({0, name, inputs::kFilesKind, {{"path", {folder_ / files}}}}, "UTF-8");
    }
    // As the command does it; the thread is told with Reload.
    void Change(const std::string &option, const std::string &value)
    {
        inputs::InputRegistry all(*store_, *registry_);
        auto input = all.Find("app");
        input.options[option] = {value};
        all.Change(input);
    }
    void ExpectNext(const std::string &message)
    {
        EXPECT_EQ(LogLine(message), Read(LogLine(message)));
    }
    void Write(const std::string &name, const std::string &text)
    {
        std::ofstream(folder_ / name, std::ios::binary | std::ios::app) << text;
    }
    void Start(const std::vector<inputs::InputStatus> &before = {})
    {
        thread_.emplace(inputs::InputThreadOptions{folder_ / "agent.db", before, "", written_,
                                                   [this] {
                                                       const std::lock_guard lock(mutex_);
                                                       is_ready_ = true;
                                                       ready_.notify_all();
                                                   },
                                                   [] {}});
        thread_->SetInterval(0ms);
    }
    // What it hands over next; nothing: not within a minute. The places are stored.
    std::optional<std::string> ReadBatch()
    {
        std::unique_lock lock(mutex_);
        if (!ready_.wait_for(lock, 60s, [this] { return is_ready_; }))
            return std::nullopt;
        is_ready_ = false;
        lock.unlock();
        const inputs::Batch *batch = thread_->Ready();
        std::string text = batch->text;
        inputs::WritePlaces(*store_, *batch);
        thread_->Stored();
        return text;
    }
    // That one waits for being stored, and goes on doing so.
    bool BatchWaits()
    {
        std::unique_lock lock(mutex_);
        return ready_.wait_for(lock, 60s, [this] { return is_ready_; });
    }
    // Does the status of the only input come to this, within a minute?
    bool StatusBecomes(const std::function<bool(const inputs::InputStatus &)> &wanted)
    {
        for (int i = 0; i < 6000; ++i) {
            const auto status = thread_->Status();
            if (status.size() == 1 && wanted(status[0]))
                return true;
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }
    // What it hands over until the text is as long as this one.
    std::string Read(const std::string &wanted)
    {
        std::string text;
        while (text.size() < wanted.size()) {
            const auto batch = ReadBatch();
            if (!batch)
                return text + "and no more";
            text += *batch;
        }
        return text;
    }

    fs::path folder_;
    std::vector<fs::path> written_; // folders in which the monitor writes
    std::optional<host::Store> store_;
    std::optional<host::RegistryTree> registry_;
    std::mutex mutex_;
    std::condition_variable ready_;
    bool is_ready_ = false;
    std::optional<inputs::InputThread> thread_;
};

TEST_F(InputThreadTest, AFileThatComesBetweenItsRegistrationAndTheFirstReadingCounts)
{
    Add();
    Write("a.log", LogLine("one"));
    Start();
    EXPECT_EQ(LogLine("one"), Read(LogLine("one")));
}

TEST_F(InputThreadTest, WhatWasThereWhenItWasAddedDoesNotCountAndWhatCameSinceDoes)
{
    Write("a.log", LogLine("old"));
    Add();
    Write("a.log", LogLine("new"));
    Start();
    EXPECT_EQ(LogLine("new"), Read(LogLine("new")));
}

TEST_F(InputThreadTest, WhatIsUnderAChangedPathIsPassedOverAndWhatComesSinceCounts)
{
    for (const char *name : {"a.log", "b.txt", "b.txt.1"})
        Write(name, LogLine("old"));
    Add();
    Change("path", folder_ / "*.txt");
    Write("a.log", LogLine("of a log that it no longer wants"));
    Write("b.txt", LogLine("one"));
    Start();
    ExpectNext("one");
    Write("c.txt", LogLine("two"));
    ExpectNext("two");
}

TEST_F(InputThreadTest, ARotatedFileThatIsALogOfItsOwnByAChangedPathIsPassedOver)
{
    Write("a.log", LogLine("old"));
    Write("a.log.1", LogLine("older"));
    Add("app", "a.log");
    Change("path", folder_ / "a.log.1");
    Write("a.log.1", LogLine("one"));
    Start();
    ExpectNext("one");
}

TEST_F(InputThreadTest, WhatThePathBeforeAndAfterItsChangeWantGoesOnWhereItWas)
{
    Write("a.log", LogLine("old"));
    Write("b.txt", LogLine("old"));
    Add();
    Write("a.log", LogLine("one"));
    Write("new.log", LogLine("two"));
    Change("path", folder_ / "*.[lt]?[gt]");
    Start();
    EXPECT_EQ(LogLine("one") + LogLine("two"), Read(LogLine("one") + LogLine("two")));
}

// As between a command and the daemon that it tells of it.
TEST_F(InputThreadTest,
       WhatIsFollowedByThePathBeforeItsChangeIsOverWithItAndTakesNoPlaceFromTheOthers)
{
    Write("a.log", LogLine("old"));
    Write("b.txt", LogLine("old"));
    Add();
    Start();
    Write("a.log", LogLine("one"));
    ExpectNext("one");
    Change("path", folder_ / "*.txt");
    for (const char *name : {"a.log", "c.log"}) {
        Write(name, LogLine("before it is told"));
        ExpectNext("before it is told");
    }
    thread_->Reload();
    Write("a.log", LogLine("of a log that it no longer wants"));
    Write("b.txt", LogLine("two"));
    ExpectNext("two");
}

TEST_F(InputThreadTest, WhatIsUnderAChangedPathCountsWhenTheInputBeginsAtTheStart)
{
    Write("b.txt", LogLine("old"));
    Add();
    Change("begin", "start");
    Change("path", folder_ / "*.txt");
    Start();
    ExpectNext("old");
}

TEST_F(InputThreadTest, AnotherJournalIsReadFromAPlaceOfItsOwn)
{
    inputs::InputRegistry all(*store_, *registry_);
    const auto before =
        all.Add({0, "app", inputs::kJournalKind, {{"directory", {folder_}}}}, "UTF-8");
    inputs::Batch late;
    late.places[{before.key, 0}] = "s=1;i=1";
    inputs::WritePlaces(*store_, late);
    fs::create_directory(folder_ / "other");
    Change("priority", "err");
    const auto stored = [&] {
        return store_->Read([&](host::Database &database) {
            return inputs::ReadPlaces(database, all.Find("app").key);
        });
    };
    EXPECT_EQ("s=1;i=1", stored().at(0).text) << "it is the same journal";
    Change("directory", folder_ / "other");
    inputs::WritePlaces(*store_, late); // by who was not told yet
    EXPECT_EQ("", stored().at(0).text);
    EXPECT_EQ("err", all.Find("app").Value("priority"));
}

// The kernel tells of what is written from the moment on at which the file is watched; what comes just before that is
// read with it.
TEST_F(InputThreadTest, WhatIsWrittenWhileAFileIsOpenedIsNotLeftForTheNextSweep)
{
    Add();
    Start();
    for (int i = 0; i < 30; ++i) {
        const std::string name = std::to_string(i) + ".log";
        Write(name, LogLine("one"));
        Write(name, LogLine("two"));
        EXPECT_EQ(LogLine("one") + LogLine("two"), Read(LogLine("one") + LogLine("two")));
    }
}

TEST_F(InputThreadTest, IsCaughtUpWhenWhatWasThereIsStoredWhateverTheInterval)
{
    Add();
    Start();
    Write("a.log", LogLine("one"));
    EXPECT_EQ(LogLine("one"), Read(LogLine("one")));
    thread_->SetInterval(3600s); // from the next batch on
    for (const char *message : {"two", "three", "four"}) {
        Write("a.log", LogLine(message));
        const int64_t asked = status::BootTimeNs();
        EXPECT_LT(thread_->CaughtUpTo(), asked);
        thread_->CatchUp();
        EXPECT_EQ(LogLine(message), Read(LogLine(message)));
        while (thread_->CaughtUpTo() < asked) // to the end of the test's time
            std::this_thread::sleep_for(1ms);
    }
}

TEST_F(InputThreadTest, IsNotCaughtUpWhileABatchWaitsToBeStored)
{
    Add();
    Start();
    Write("a.log", LogLine("one"));
    thread_->CatchUp();
    {
        std::unique_lock lock(mutex_);
        ASSERT_TRUE(ready_.wait_for(lock, 60s, [this] { return is_ready_; }));
    }
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(0, thread_->CaughtUpTo());
    EXPECT_EQ(LogLine("one"), Read(LogLine("one")));
    while (thread_->CaughtUpTo() == 0)
        std::this_thread::sleep_for(1ms);
}

// One that has more to read than fits into a batch is first each second time at most.
TEST_F(InputThreadTest, WhileABatchWaitsTheInputIsBehindWithItAndWithWhatComesMeanwhile)
{
    Add();
    Start();
    Write("a.log", LogLine("one"));
    ASSERT_TRUE(BatchWaits());
    EXPECT_TRUE(StatusBecomes([](const auto &input) { return input.behind_since_ms > 0; }));
    Write("a.log", LogLine("two"));
    const auto size = static_cast<int64_t>(LogLine("two").size());
    EXPECT_TRUE(StatusBecomes([&](const auto &input) { return input.behind_bytes == size; }));
    EXPECT_EQ(LogLine("one") + LogLine("two"), Read(LogLine("one") + LogLine("two")));
    EXPECT_TRUE(StatusBecomes(
        [](const auto &input) { return input.behind_bytes == 0 && input.behind_since_ms == 0; }));
}

TEST_F(InputThreadTest, WhatTheDaemonBeforeItWasBehindWithKeepsItsMoment)
{
    constexpr int64_t kSince = 1'700'000'000'000;
    Add();
    std::string much;
    for (int i = 0; i < 10000; ++i)
        much += LogLine(std::string(1000, 'x'));
    Write("a.log", much);
    Start({{"app", inputs::kFilesKind, 0, 1, kSince, kSince, {}}});
    ASSERT_TRUE(BatchWaits());
    EXPECT_TRUE(StatusBecomes([&](const auto &input) { return input.open_files == 1; }));
    EXPECT_EQ(kSince, thread_->Status()[0].behind_since_ms);
    EXPECT_EQ(much.size(), Read(much).size());
    EXPECT_TRUE(StatusBecomes([](const auto &input) { return input.behind_since_ms == 0; }));
}

TEST_F(InputThreadTest, AnInputThatFillsEachBatchKeepsNoOtherOneWaiting)
{
    Add("loud", "*.loud");
    Add("quiet", "*.quiet");
    const std::string line = LogLine(std::string(2000, 'x'));
    for (int file = 0; file < 4; ++file) { // four batches of at least 8 MiB
        std::string text;
        while (text.size() < size_t{9} * 1024 * 1024)
            text += line;
        Write(std::to_string(file) + ".loud", text);
    }
    Write("a.quiet", LogLine("quiet"));
    Start();
    const auto first = ReadBatch();
    const auto second = ReadBatch();
    ASSERT_TRUE(first && second);
    EXPECT_NE(std::string::npos, (*first + *second).find("quiet"));
    EXPECT_LE(size_t{8} * 1024 * 1024, first->size()) << "or the batches were not full";
}

TEST_F(InputThreadTest, WhatTheMonitorWritesItselfIsNoFileOfAnInput)
{
    fs::create_directory(folder_ / "own");
    written_ = {folder_ / "own"};
    Write("own/trace.log", LogLine("before"));
    Add("app", "*/*.log");
    fs::create_directory(folder_ / "app");
    Start();
    Write("own/trace.log", LogLine("of the monitor"));
    Write("own/spool.log", LogLine("of the monitor, too"));
    Write("app/app.log", LogLine("of a program"));
    ExpectNext("of a program");
    Write("app/app.log", LogLine("once more"));
    ExpectNext("once more");
}

TEST_F(InputThreadTest, ANewThreadGoesOnBehindWhatWasStored)
{
    Add();
    Write("a.log", LogLine("one"));
    Start();
    EXPECT_EQ(LogLine("one"), Read(LogLine("one")));
    thread_.reset();
    Write("a.log", LogLine("two"));
    Start();
    EXPECT_EQ(LogLine("two"), Read(LogLine("two")));
}

} // namespace
