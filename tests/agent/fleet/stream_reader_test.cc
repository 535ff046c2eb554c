// A reader of the stream, over servers that do not answer as they should.
#include <algorithm>
#include <atomic>

#include <gtest/gtest.h>

#include "agent/fleet/collector.h"
#include "agent/fleet/stream_reader.h"
#include "tests/agent/nats/nats_server.h"
#include "tests/agent/nats/stream_answers.h"
#include "tests/agent/support/host_test.h"

namespace {

using fleet::StreamReader;
using test::Answer;
using test::Publication;
using Answers = std::vector<Answer>;

// Of the sixth message.
constexpr int64_t kStoredNs = 1795341600000000000;
constexpr char kSixth[] = R"({"message":{"seq":6,"time":"2026-11-22T10:00:00Z"}})";

// The stream "s", of which six messages were taken.
class StreamReaderTest : public testing::Test {
  protected:
    StreamReaderTest()
    {
        kind_ = fleet::CollectKind();
        config_.kind = &kind_;
        config_.options["stream"] = "s";
    }
    void Begin()
    {
        reader_.emplace(server_.Access(kTimeout), config_, "r");
        reader_->BeginBehind({"s", reader_->created(), 6, kStoredNs});
    }
    // The sequence of the message that comes next; 0: none does.
    uint64_t Next()
    {
        uint64_t sequence = 0;
        for (int tries = 0; tries < 20 && sequence == 0; ++tries)
            sequence = reader_->Read();
        return sequence;
    }
    Answers AnswerTo(const Publication &said)
    {
        if (said.subject.starts_with("$JS.API.STREAM.INFO."))
            return {{test::StreamInfo(7)}};
        if (said.subject.starts_with("$JS.API.CONSUMER.INFO."))
            return {{test::ReaderInfo(6)}};
        if (said.subject.starts_with("$JS.API.STREAM.MSG.GET."))
            return place_;
        if (said.subject.starts_with("$JS.ACK."))
            return to_confirmation_;
        if (said.subject.starts_with("$JS.API.CONSUMER.MSG.NEXT.")) {
            const size_t asked = asked_++;
            return asked < to_questions_.size() ? to_questions_[asked] : Answers{};
        }
        return {};
    }
    static Answer Message(int sequence, int number)
    {
        return {"body", "$JS.ACK.s.r.1." + std::to_string(sequence) + "." + std::to_string(number) +
                            ".1795341601000000000.0"};
    }

    static constexpr std::chrono::milliseconds kTimeout{2000};
    sinks::SinkKind kind_;
    sinks::SinkConfig config_;
    std::vector<Answers> to_questions_; // for messages, one after the other
    Answers place_ = {{kSixth}};        // to the question for the last message that was taken
    Answers to_confirmation_;
    std::atomic<size_t> asked_{0};
    test::NatsServer server_{[this](const Publication &said) { return AnswerTo(said); }};
    std::optional<StreamReader> reader_;
};

TEST_F(StreamReaderTest, WhileNobodyIsThereToAnswerItAsksAgainAndGoesOnWithItsConnection)
{
    to_questions_ = {{Answer::NobodyIsThere()}, {Answer::NobodyIsThere()}, {Message(7, 1)}};
    Begin();
    EXPECT_EQ(0U, reader_->Read());
    EXPECT_EQ(1U, asked_) << "it has not waited before it asks again";
    EXPECT_EQ(0U, reader_->Read());
    EXPECT_EQ(7U, Next());
    EXPECT_EQ(3U, asked_);
}

TEST_F(StreamReaderTest, AnAnswerOfAnotherFormSaysNothingOfThePlace)
{
    for (const char *body :
         {"", "no json", "[]", "7", R"({"message":7})", R"({"message":{"time":7}})",
          R"({"message":{"time":"soon"}})", R"({"error":"none"})", "{}"}) {
        SCOPED_TRACE(body);
        asked_ = 0;
        to_questions_ = {{Message(7, 1)}};
        place_ = {{body}};
        Begin();
        EXPECT_EQ(7U, Next());
        reader_.reset();
    }
}

TEST_F(StreamReaderTest, WithAnotherMessageAtThePlaceItDoesNotGoOn)
{
    to_questions_ = {{Message(7, 1)}};
    Begin();
    place_ = {{R"({"message":{"seq":6,"time":"2026-11-22T10:00:01Z"}})"}};
    const std::string error = test::ErrorOf([&] { reader_->Read(); });
    EXPECT_NE(std::string::npos, error.find("give its number anew")) << error;
}

// Otherwise it would take messages under numbers that were given anew, and never see those that came before them.
TEST_F(StreamReaderTest, WhileNobodySaysWhatIsAtThePlaceItTakesNothingAndThenGoesOn)
{
    to_questions_ = {{Message(7, 1)}};
    place_ = {Answer::NobodyIsThere()};
    Begin();
    for (int tries = 0; tries < 3; ++tries)
        EXPECT_EQ(0U, reader_->Read());
    place_ = {}; // silent
    EXPECT_EQ(0U, reader_->Read());
    EXPECT_EQ(0U, asked_) << "it has asked for messages";
    place_ = {{kSixth}};
    EXPECT_EQ(7U, Next());
}

TEST_F(StreamReaderTest, ThatItMayNotAskWhatIsAtThePlaceIsTold)
{
    Begin();
    place_ = {Answer::Refused("$JS.API.STREAM.MSG.GET.s")};
    const std::string error = test::ErrorOf([&] { reader_->Read(); });
    EXPECT_NE(std::string::npos, error.find("do not allow it")) << error;
    EXPECT_NE(std::string::npos, error.find("MSG.GET")) << error;
}

// Nobody answers to it, so it would be noticed only when the servers deliver no more.
TEST_F(StreamReaderTest, AConfirmationThatIsNotAllowedIsToldSoon)
{
    to_questions_ = {{Message(7, 1)}};
    to_confirmation_ = {Answer::Refused("$JS.ACK.s.r.1.7.1")};
    Begin();
    EXPECT_EQ(7U, Next());
    reader_->Confirm();
    const std::string error = test::ErrorOf([&] { Next(); });
    EXPECT_NE(std::string::npos, error.find("do not allow it")) << error;
    EXPECT_NE(std::string::npos, error.find("$JS.ACK")) << error;
}

TEST(Part, EachHostIsInExactlyOneOfAll)
{
    const std::vector<fleet::Part> parts{fleet::Part("1/3"), fleet::Part("2/3"),
                                         fleet::Part("3/3")};
    for (uint32_t number = 0; number < 300; ++number) {
        char uuid[48];
        snprintf(uuid, sizeof uuid, "%08x-1b2c-4d3e-8f90-0123456789ab", number * 2654435761U);
        EXPECT_EQ(1, std::ranges::count_if(parts, [&](auto &part) { return part.Has(uuid); }));
        EXPECT_TRUE(fleet::Part("").Has(uuid));
    }
    // A stranger's is one, too.
    EXPECT_EQ(1, std::ranges::count_if(parts, [](auto &part) { return part.Has("none"); }));
    EXPECT_EQ("s", fleet::Part("").PlaceIn("s"));
    EXPECT_EQ("s", fleet::Part("1/1").PlaceIn("s"));
    EXPECT_EQ("s 2/3", parts[1].PlaceIn("s"));
}

} // namespace
