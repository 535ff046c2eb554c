// What the page is answered, and what is kept of answers.
#include "agent/web/answers.h"

#include <nlohmann/json.hpp>

#include "agent/alerts/alert_store.h"
#include "agent/history/history_writer.h"
#include "agent/host/here_and_now.h"
#include "tests/agent/support/host_test.h"

namespace {

using history::Kind;
using nlohmann::json;
using web::Query;

constexpr size_t kMostKeptBytes = size_t{4} << 20;

class WebAnswers : public test::HostTest {
  protected:
    WebAnswers() { answers_.emplace(Layout(), "1"); }

    // Alerts of a source, a second apart, with lines of this length.
    static void AddAlerts(const std::string &source, int count, size_t length = 10)
    {
        host::Transaction transaction(test::Store());
        alerts::Alert alert;
        alert.source = source;
        alert.event_id = 1;
        alert.count = 1;
        alert.message = std::string(length, 'x');
        for (int i = 0; i < count; ++i) {
            alert.time_ms = 1000 * (i + 1);
            alerts::AddAlert(test::Store(), alert);
        }
        transaction.Commit();
    }
    json Get(const std::string &path, const Query &query)
    {
        const web::Answer answer = answers_->Get(path, query);
        EXPECT_EQ(200U, answer.status) << *answer.body;
        return json::parse(*answer.body);
    }
    std::vector<int64_t> Ids(const Query &query)
    {
        std::vector<int64_t> ids;
        const json found = Get("/api/v1/alerts", query);
        for (const json &alert : found["alerts"])
            ids.push_back(alert["id"]);
        return ids;
    }

    std::optional<web::Answers> answers_;
};

TEST_F(WebAnswers, AlertsAreThoseBetweenTwoIdsAndTwoMoments)
{
    AddAlerts("DISK", 6);
    EXPECT_EQ((std::vector<int64_t>{5, 4, 3}), Ids({{"after", "2"}, {"before", "6"}}));
    EXPECT_EQ((std::vector<int64_t>{4, 3}), Ids({{"since_ms", "3000"}, {"until_ms", "5000"}}));
}

TEST_F(WebAnswers, OfASearchThatFindsNothingIsToldHowFarItHasLooked)
{
    AddAlerts("DISK", 6);
    EXPECT_EQ(6, Get("/api/v1/alerts", {{"source", "NET"}})["newest"]);
    AddAlerts("NET", 1);
    answers_->NewsCame();
    EXPECT_EQ((std::vector<int64_t>{7}), Ids({{"source", "NET"}, {"after", "6"}}));
    EXPECT_EQ((std::vector<int64_t>{}), Ids({{"source", "DISK"}, {"after", "6"}}));
}

TEST_F(WebAnswers, AQuestionWithTheWordsOfTwoIsNotAnsweredLikeThem)
{
    AddAlerts("DISK", 1);
    EXPECT_EQ(1U, Ids({{"source", "DISK"}, {"text", "x"}}).size());
    EXPECT_EQ(0U, Ids({{"source", "DISK\ntext=x"}}).size());
}

TEST_F(WebAnswers, WhatIsKeptOfAnswersAndOfWhatTheyWereAskedByIsBounded)
{
    EXPECT_EQ(0U, answers_->KeptBytes());
    const std::string much(500'000, 'y');
    for (int i = 0; i < 20; ++i) {
        Ids({{"text", much + std::to_string(i)}});
        EXPECT_GE(kMostKeptBytes, answers_->KeptBytes());
    }
    EXPECT_LT(much.size(), answers_->KeptBytes());
    answers_->NewsCame();
    Ids({{"source", "NET"}});
    EXPECT_GT(1000U, answers_->KeptBytes());
}

TEST_F(WebAnswers, OfEventsThatAreKeptTogetherOnlyTheirSumIsTold)
{
    const int64_t now = host::NowMs() / 1000;
    history::News news;
    for (uint32_t i = 0; i < 300; ++i)
        news.Add({Kind::kHits, "EVENT", i}, 1000 + i);
    history::HistoryWriter writer(test::Store());
    writer.Save(news, now - 600);
    news.Clear();
    news.Add({Kind::kLines, "/var/log/messages", 0}, 1);
    writer.Save(news, now);
    // 255 are kept apart.
    const json least = Get("/api/v1/history", {{"source", "EVENT"}, {"event_id", "0"}});
    EXPECT_EQ(0U, least["series"].size());
    EXPECT_EQ((45 * 1000) + (44 * 45 / 2), least["not_kept_apart"]);
    EXPECT_EQ(0, Get("/api/v1/history", {{"kind", "lines"}})["not_kept_apart"]);
}

} // namespace
