#include "agent/policy/report_desk.h"

#include "agent/alerts/report_alert.h"
#include "agent/policy/count_store.h"
#include "platform/trace.h"

namespace policy {

namespace {

constexpr char kUnit[] = "policy";
constexpr int64_t kMsOfSecond = 1000;

MatchedLine LineOf(const alerts::Alert &alert, int64_t time_s)
{
    MatchedLine line;
    line.text = alert.message;
    line.host = alert.HostOfLine();
    line.program = alert.program;
    line.time_s = time_s;
    line.times = alert.count;
    return line;
}

alerts::HeldBack ToAlert(const HeldBack &held)
{
    return {held.reports, held.hits, held.first_s * kMsOfSecond, held.last_s * kMsOfSecond,
            held.first,   held.last};
}

// Once for each event: there may be millions of values more.
void TellOfDroppedValues(const events::EventKey &key)
{
    TRACE(TRACE_NOTABLE,
          "Event %s %X is counted for more than %zu values, or too many moments of them: the least "
          "recent ones are forgotten. syslogmon event show tells how many.",
          key.source.c_str(), key.id, EventCount::kMaxValues);
}

} // namespace

ReportDesk::ReportDesk(host::Host &host, FindLineTime find_time, TellOutcome tell)
    : host_(host), find_time_(std::move(find_time)), tell_(std::move(tell)), silences_(host)
{
    host_.SetReportTaker([this](const ReportRequest &request) { Take(request); });
}

ReportDesk::~ReportDesk()
{
    host_.SetReportTaker(nullptr);
}

void ReportDesk::Load()
{
    policies_ = Policies(events::EventRegistry(host_.registry()).ReadAll());
    std::vector<events::EventKey> counting;
    for (const auto &policy : policies_.all()) {
        if (!policy->problem().empty())
            TRACE(TRACE_ERROR, "Event %s %X: %s; it is left out.",
                  policy->event().key.source.c_str(), policy->event().key.id,
                  policy->problem().c_str());
        if (policy->count() == nullptr)
            continue;
        counting.push_back(policy->event().key);
        const bool is_stored = host_.store().Read([&](host::Database &database) {
            return LoadCount(database, policy->event(), policy->count());
        });
        if (!is_stored)
            BeginCount(host_.store(), policy->event());
    }
    ForgetOthers(host_.store(), counting);
}

void ReportDesk::Save()
{
    for (const auto &policy : policies_.all()) {
        if (policy->count() != nullptr)
            SaveCount(host_.store(), policy->event().key, policy->count());
    }
    silences_.Save();
}

void ReportDesk::Take(const ReportRequest &request)
{
    alerts::Alert alert = alerts::AlertOf(host_, request);
    const int64_t hits = alert.count;
    Outcome::Kind outcome = Outcome::Kind::kReported;
    if (Policy *policy = policies_.Find({request.source, request.eventId}))
        outcome = TakeByPolicy(policy, &alert);
    else
        Store(&alert);
    if (tell_)
        tell_(request, outcome, hits);
}

Outcome::Kind ReportDesk::TakeByPolicy(Policy *policy, alerts::Alert *alert)
{
    const EventCount *count = policy->count();
    // Only what is counted needs the time.
    const int64_t now_s = alert->time_ms / kMsOfSecond;
    const MatchedLine line =
        LineOf(*alert, count != nullptr ? find_time_(alert->message).value_or(now_s) : now_s);
    const bool had_room = count == nullptr || count->dropped().values == 0;
    const Outcome outcome = policy->Take(line);
    if (had_room && count != nullptr && count->dropped().values > 0)
        TellOfDroppedValues(policy->event().key);
    if (outcome.kind != Outcome::Kind::kReported)
        return outcome.kind;
    const events::EventPolicy &terms = policy->event().policy;
    alert->summary = policy->SummaryOf(line);
    alert->severity = terms.severity;
    alert->labels = terms.labels;
    alert->runbook_url = terms.runbook_url;
    alert->value = policy->ValueOf(line);
    alert->count = outcome.hits;
    alert->held_back = ToAlert(outcome.held_back);
    Store(alert);
    return outcome.kind;
}

void ReportDesk::Store(alerts::Alert *alert)
{
    silences_.Take(
        alert, [&] { return find_time_(alert->message).value_or(alert->time_ms / kMsOfSecond); });
    folder_.Add(host_.store(), *alert);
}

} // namespace policy
