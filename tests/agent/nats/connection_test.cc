// What a client says of a server that does not do what it is asked for.
#include <gtest/gtest.h>

#include "tests/agent/nats/nats_server.h"
#include "tests/agent/support/host_test.h"

namespace {

using nats::Connection;
using test::Answer;
using test::Publication;

class ConnectionTest : public testing::Test {
  protected:
    // What is said of a request that has ended so, once the server has said what it says to it.
    std::string ErrorOf(natsStatus status, const char *subject)
    {
        EXPECT_EQ(NATS_OK, natsConnection_PublishString(connection_.raw(), subject, ""));
        EXPECT_EQ(NATS_OK, natsConnection_FlushTimeout(connection_.raw(), kTimeout.count()));
        return test::ErrorOf([&] { connection_.Check(status, "ask"); });
    }
    static bool TellsOfRefusal(const std::string &error)
    {
        return error.find("the servers do not allow it") != std::string::npos;
    }

    static constexpr std::chrono::milliseconds kTimeout{20000};
    test::NatsServer server_{[](const Publication &said) -> std::vector<Answer> {
        if (said.subject.starts_with("refused"))
            return {Answer::Refused(said.subject)};
        return {};
    }};
    Connection connection_{server_.Access(kTimeout)};
};

TEST_F(ConnectionTest, ARequestThatIsNotAllowedIsExplainedByTheServersWords)
{
    EXPECT_EQ("no error", ErrorOf(NATS_OK, "answered"));
    const std::string error = ErrorOf(NATS_TIMEOUT, "refused.one");
    EXPECT_TRUE(TellsOfRefusal(error)) << error;
    EXPECT_NE(std::string::npos, error.find("refused.one")) << error;
}

TEST_F(ConnectionTest, WhatWasPublishedAndIsNotAllowedIsToldByTheNextFlush)
{
    EXPECT_EQ(NATS_OK, natsConnection_PublishString(connection_.raw(), "refused.one", ""));
    const std::string error = test::ErrorOf([&] { connection_.Flush(); });
    EXPECT_TRUE(TellsOfRefusal(error)) << error;
}

TEST_F(ConnectionTest, AnOldRefusalDoesNotExplainALaterSilence)
{
    // What was published is not asked for.
    EXPECT_EQ("no error", ErrorOf(NATS_OK, "refused.one"));
    EXPECT_FALSE(connection_.IsRefused());
    const std::string error = ErrorOf(NATS_TIMEOUT, "silent");
    EXPECT_NE("no error", error);
    EXPECT_FALSE(TellsOfRefusal(error)) << error;
    // A new one explains what it is said to.
    EXPECT_TRUE(TellsOfRefusal(ErrorOf(NATS_TIMEOUT, "refused.two")));
}

} // namespace
