// The thread that reads all inputs, from their registration on.
#include "agent/inputs/input_thread.h"

#include <condition_variable>
#include <fstream>
#include <mutex>

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
    void Write(const std::string &name, const std::string &text)
    {
        std::ofstream(folder_ / name, std::ios::binary | std::ios::app) << text;
    }
    void Start()
    {
        thread_.emplace(inputs::InputThreadOptions{folder_ / "agent.db", "",
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
