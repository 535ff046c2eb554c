// The administrator's customer file while there are inputs: it goes over with its place, and comes back with it.
#include "agent/inputs/customer_file.h"

#include <ctime>
#include <fstream>

#include "agent/alerts/alert_store.h"
#include "agent/host/agent_values.h"
#include "agent/inputs/input_store.h"
#include "agent/inputs/spool_keeper.h"
#include "platform/contract.h"
#include "platform/registry.h"
#include "platform/split64.h"
#include "tests/agent/inputs/log_world.h"

namespace {

namespace fs = std::filesystem;

using inputs::SteadyTime;
using test::LogLine;
using namespace std::chrono_literals;

constexpr const SlotValues &kSlot = kSlotValues[1];

class CustomerFileTest : public testing::Test {
  protected:
    CustomerFileTest()
    {
        std::string name =
            fs::exists("/dev/shm") ? "/dev/shm/customer-XXXXXX" : "/tmp/customer-XXXXXX";
        folder_ = mkdtemp(name.data());
        store_.emplace(folder_ / "agent.db");
        store_->StartPasses();
        registry_.emplace(*store_);
        keeper_.emplace(*store_, *registry_, folder_ / "spool");
    }
    ~CustomerFileTest() override
    {
        keeper_.reset();
        registry_.reset();
        store_.reset();
        fs::remove_all(folder_);
    }

    [[nodiscard]] std::string Path() const { return folder_ / name_; }
    void Write(const std::string &text) const
    {
        std::ofstream(Path(), std::ios::binary | std::ios::app) << text;
    }
    host::KeyId Key() { return registry_->Create(host::kRootKey, kMonitorKey); }
    void SetText(const char *name, const std::string &text)
    {
        registry_->Set(Key(), name, REG_SZ, std::string_view(text.c_str(), text.size() + 1));
    }
    std::string Text(const char *name)
    {
        const auto value = registry_->Get(Key(), name);
        return value ? TextOf(*value) : "none";
    }
    // What the module stores behind a line that it has checked.
    void ModuleStandsAt(const std::string &head, int64_t position, const std::string &content)
    {
        SetText(kFileNameValue, Path());
        SetText(kSlot.headline, head);
        SetText(kSlot.content, content);
        for (const auto &[name, half] : {std::pair(kSlot.pos_low, LowHalf(position)),
                                         std::pair(kSlot.pos_high, HighHalf(position))}) {
            const uint32_t number = half;
            registry_->Set(
                Key(), name, REG_DWORD,
                std::string_view(reinterpret_cast<const char *>(&number), sizeof number));
        }
    }
    int64_t Position()
    {
        uint32_t halves[2] = {};
        memcpy(&halves[0], registry_->Get(Key(), kSlot.pos_low)->data.data(), sizeof halves[0]);
        memcpy(&halves[1], registry_->Get(Key(), kSlot.pos_high)->data.data(), sizeof halves[1]);
        return JoinHalves(halves[0], halves[1]);
    }

    void InputsBegin() { keeper_->Prepare(true, time(nullptr)); }
    void InputsEnd()
    {
        keeper_->Prepare(false, time(nullptr));
        EXPECT_FALSE(keeper_->IsInForce());
    }
    std::optional<inputs::InputConfig> Input()
    {
        const auto all = inputs::InputRegistry(*store_, *registry_).ReadAll();
        return all.empty() ? std::nullopt : std::optional(all.front());
    }
    // What the input reads from its stored places on, which are stored again.
    std::string Read()
    {
        const auto input = Input();
        if (!input)
            return "no input";
        const auto places = store_->Read(
            [&](host::Database &database) { return inputs::ReadPlaces(database, input->key); });
        inputs::FileFollower follower(inputs::FollowOptionsOf(*input, "UTF-8"), places);
        if (places.empty())
            follower.Begin();
        inputs::Batch batch;
        for (int second = 0; second < 60; ++second) {
            now_ += 1s;
            follower.Look(now_);
            while (follower.Read(time(nullptr), now_, &batch)) {
            }
        }
        inputs::WritePlaces(*store_, batch);
        store_->CommitPass();
        return batch.text;
    }
    // That the file is not the one in which the module has read "two" behind "one".
    void ExpectNoPlaceBehindTwo(size_t position)
    {
        ModuleStandsAt(Bare(one_), static_cast<int64_t>(position), Bare(two_));
        InputsBegin();
        EXPECT_EQ("", Read());
        EXPECT_NE(std::string::npos, Told().find("where the monitor stood")) << Told();
    }
    std::string Told()
    {
        const auto alerts = store_->Read(
            [](host::Database &database) { return alerts::ReadAlerts(database, 0, 0, 100); });
        return alerts.empty() ? "" : alerts.front().source + " " + alerts.front().message;
    }

    const std::string one_ = LogLine("one");
    const std::string two_ = LogLine("two");
    const std::string three_ = LogLine("three");
    fs::path folder_;
    std::string name_ = "x [1].log";
    SteadyTime now_{1h};
    std::optional<host::Store> store_;
    std::optional<host::RegistryTree> registry_;
    std::optional<inputs::SpoolKeeper> keeper_;

    static std::string Bare(const std::string &line) { return line.substr(0, line.size() - 1); }
};

TEST_F(CustomerFileTest, BecomesAnInputThatGoesOnWhereTheModuleStood)
{
    Write(one_ + two_ + three_);
    ModuleStandsAt(Bare(one_), static_cast<int64_t>(one_.size()), Bare(two_));
    InputsBegin();
    EXPECT_EQ(three_, Read());
    EXPECT_EQ(folder_ / "spool", Text(kFileNameValue));
    EXPECT_EQ("", Told());
}

TEST_F(CustomerFileTest, GoesOnInTheRotatedFileWhereTheModuleStood)
{
    Write(one_ + two_);
    ModuleStandsAt(Bare(one_), 0, Bare(one_));
    fs::rename(Path(), Path() + ".1");
    Write(three_);
    InputsBegin();
    EXPECT_EQ(two_ + three_, Read());
}

TEST_F(CustomerFileTest, ALineThatTheModuleTookBeforeItsEndIsNotReadAgain)
{
    Write(one_ + Bare(two_));
    ModuleStandsAt(Bare(one_), static_cast<int64_t>(one_.size()), Bare(two_));
    InputsBegin();
    Write(" and more\n" + three_);
    EXPECT_EQ(three_, Read());
}

// What an option holds is a pattern, and of one line.
TEST_F(CustomerFileTest, OfAnyPathBecomesAnInput)
{
    for (const std::string path : {"a]b/x.log", "a\\b/x.log", "[a]*/?.log", "a\nb/x\ny.log"}) {
        name_ = path;
        fs::create_directory(fs::path(Path()).parent_path());
        Write(one_ + two_);
        ModuleStandsAt(Bare(one_), 0, Bare(one_));
        InputsBegin();
        EXPECT_EQ(two_, Read()) << path;
        InputsEnd();
        EXPECT_EQ(Path(), Text(kFileNameValue));
        EXPECT_EQ(Bare(two_), Text(kSlot.content));
    }
    EXPECT_EQ("", Told());
}

TEST_F(CustomerFileTest, OfWhichTheModuleHasCheckedNothingIsReadFromItsBeginning)
{
    Write(one_);
    ModuleStandsAt(Bare(one_), -1, "");
    InputsBegin();
    EXPECT_EQ(one_, Read());
}

TEST_F(CustomerFileTest, ThatTheModuleHasNotSeenBeginsAtItsEnd)
{
    Write(one_);
    SetText(kFileNameValue, Path());
    InputsBegin();
    Write(two_);
    EXPECT_EQ(two_, Read());
    EXPECT_EQ("", Told());
}

TEST_F(CustomerFileTest, InWhichThePlaceIsNotFoundIsToldOf)
{
    Write(one_);
    ModuleStandsAt("another file", 0, "another file");
    InputsBegin();
    Write(two_);
    EXPECT_EQ(two_, Read());
    EXPECT_NE(std::string::npos,
              Told().find("SYSLOGMON input customer-file: where the monitor stood"))
        << Told();
}

TEST_F(CustomerFileTest, OfAnotherFirstLineIsAnotherFile)
{
    Write(LogLine("onx") + two_ + three_);
    ExpectNoPlaceBehindTwo(one_.size());
}

TEST_F(CustomerFileTest, ThatHasAnotherLineAtThePlaceIsAnotherFile)
{
    Write(one_ + LogLine("twx") + three_);
    ExpectNoPlaceBehindTwo(one_.size());
}

TEST_F(CustomerFileTest, IsNotGoneOnWithInTheMiddleOfALine)
{
    Write(one_ + "x" + two_ + three_);
    ExpectNoPlaceBehindTwo(one_.size() + 1);
}

TEST_F(CustomerFileTest, StaysAnInputWhileARotatedFileOfItIsUnreadFromItsBeginning)
{
    Write(one_ + two_);
    ModuleStandsAt(Bare(one_), -1, "");
    InputsBegin();
    fs::rename(Path(), Path() + ".1");
    Write(three_);
    keeper_->Prepare(false, time(nullptr));
    EXPECT_TRUE(keeper_->IsInForce());
    EXPECT_EQ(one_ + two_ + three_, Read());
    InputsEnd();
}

TEST_F(CustomerFileTest, StaysAnInputUntilItIsKnownThatItWasEmptied)
{
    Write(one_ + two_);
    ModuleStandsAt(Bare(one_), 0, Bare(one_));
    InputsBegin();
    EXPECT_EQ(two_, Read());
    fs::resize_file(Path(), 0);
    Write(three_ + three_ + one_);
    keeper_->Prepare(false, time(nullptr));
    EXPECT_TRUE(keeper_->IsInForce());
    EXPECT_EQ(three_ + three_ + one_, Read());
    InputsEnd();
}

TEST_F(CustomerFileTest, ComesBackWithItsPlaceWhenTheInputsAreGone)
{
    Write(one_ + two_);
    ModuleStandsAt(Bare(one_), 0, Bare(one_));
    InputsBegin();
    EXPECT_EQ(two_, Read());
    Write(three_);
    InputsEnd();
    EXPECT_EQ(Path(), Text(kFileNameValue));
    EXPECT_EQ(Bare(one_), Text(kSlot.headline));
    EXPECT_EQ(Bare(two_), Text(kSlot.content));
    EXPECT_EQ(static_cast<int64_t>(one_.size()), Position());
    EXPECT_FALSE(Input());
    EXPECT_EQ("", Told());
}

TEST_F(CustomerFileTest, GoesThereAndBackManyTimes)
{
    Write(one_);
    ModuleStandsAt(Bare(one_), 0, Bare(one_));
    for (int i = 0; i < 5; ++i) {
        const std::string line = LogLine(std::to_string(i));
        Write(line);
        InputsBegin();
        EXPECT_EQ(line, Read());
        InputsEnd();
    }
    EXPECT_EQ("", Told());
}

TEST_F(CustomerFileTest, StaysAnInputWhileARotatedFileOfItIsUnread)
{
    Write(one_ + two_);
    ModuleStandsAt(Bare(one_), 0, Bare(one_));
    InputsBegin();
    fs::rename(Path(), Path() + ".1");
    Write(three_);
    keeper_->Prepare(false, time(nullptr));
    EXPECT_TRUE(keeper_->IsInForce());
    EXPECT_EQ(two_ + three_, Read());
    InputsEnd();
    EXPECT_EQ(Bare(three_), Text(kSlot.content));
}

TEST_F(CustomerFileTest, ThatIsNotThereComesBackToBeReadFromItsBeginning)
{
    ModuleStandsAt(Bare(one_), 0, Bare(one_));
    InputsBegin();
    InputsEnd();
    EXPECT_EQ(Path(), Text(kFileNameValue));
    EXPECT_EQ(-1, Position());
}

TEST_F(CustomerFileTest, ThatWasGivenOptionsStaysAnInput)
{
    Write(one_);
    ModuleStandsAt(Bare(one_), 0, Bare(one_));
    InputsBegin();
    auto input = *Input();
    input.options["format"] = {"rfc3339"};
    inputs::InputRegistry(*store_, *registry_).Change(input);
    EXPECT_TRUE(inputs::CustomerFile(*store_, *registry_).HasOthers());
}

TEST_F(CustomerFileTest, ThatIsSetWhileThereAreInputsTakesThePlaceOfTheOneBefore)
{
    Write(one_);
    InputsBegin();
    SetText(kFileNameValue, Path());
    store_->CommitPass();
    InputsBegin();
    Write(two_);
    EXPECT_EQ(two_, Read());
    EXPECT_EQ(folder_ / "spool", Text(kFileNameValue));
    SetText(kFileNameValue, (folder_ / "other").string());
    InputsBegin();
    EXPECT_EQ((folder_ / "other").string(), Input()->Value("path"));
    SetText(kFileNameValue, "");
    InputsBegin();
    EXPECT_FALSE(Input());
    EXPECT_EQ("", Told());
}

} // namespace
