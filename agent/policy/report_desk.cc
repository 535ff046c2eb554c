#include "agent/policy/report_desk.h"

#include <algorithm>

#include "agent/alerts/report_alert.h"
#include "agent/host/here_and_now.h"
#include "agent/policy/count_store.h"
#include "agent/text/duration.h"
#include "agent/text/times.h"
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

// "no such line has come for 1 hour, for web1: the last one was of 2026-11-22 10:00:00: ..."
std::string AbsenceOf(const events::EventPolicy &policy, const std::string &value,
                      const ValueCount &count)
{
    return "no such line has come for " + text::DurationInWords(policy.absent_s) +
           (value.empty() ? "" : ", for " + policy.per + " " + value) +
           (count.newest().empty()
                ? ", since " + text::LocalTime(count.newest_s() * kMsOfSecond)
                : ": the last one was of " + text::LocalTime(count.newest_s() * kMsOfSecond) +
                      ": " + count.newest());
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
        AwaitFirstLine(policy.get());
    }
    ForgetOthers(host_.store(), counting);
}

// Stored with the event's count: a daemon that ends before it rests again waits for it all the same. Of which hosts there
// are none is not known before a line of each has come.
void ReportDesk::AwaitFirstLine(Policy *policy)
{
    const events::EventPolicy &terms = policy->event().policy;
    if (terms.absent_s == 0 || !terms.per.empty() || !policy->count()->entries().empty())
        return;
    policy->count()->Await("", host::NowMs() / kMsOfSecond);
    SaveCount(host_.store(), policy->event().key, policy->count());
}

void ReportDesk::Save()
{
    for (const auto &policy : policies_.all()) {
        if (policy->count() != nullptr)
            SaveCount(host_.store(), policy->event().key, policy->count());
    }
    silences_.Save();
}

void ReportDesk::NoteTime(int64_t now_s)
{
    for (const auto &policy : policies_.all()) {
        if (policy->event().policy.absent_s > 0)
            policy->count()->SetBack(now_s);
    }
}

bool ReportDesk::HasOverdue(int64_t now_s) const
{
    return std::any_of(policies_.all().begin(), policies_.all().end(), [&](const auto &policy) {
        return policy->event().policy.absent_s > 0 && policy->count()->HasOverdue(now_s);
    });
}

void ReportDesk::TellOfAbsent(int64_t now_s)
{
    for (const auto &policy : policies_.all()) {
        if (policy->event().policy.absent_s == 0)
            continue;
        for (const std::string &value : policy->count()->TakeOverdue(now_s))
            TellOfAbsent(policy.get(), value, now_s);
    }
}

void ReportDesk::TellOfAbsent(Policy *policy, const std::string &value, int64_t now_s)
{
    const events::EventRecord &event = policy->event();
    const ValueCount &count = policy->count()->Find(value)->count;
    alerts::Alert alert;
    alert.time_ms = now_s * kMsOfSecond;
    alert.host = host::HostName();
    alert.log_name = "Application";
    alert.source = event.key.source;
    alert.event_id = event.key.id;
    alert.count = 0; // of no line
    alert.message = AbsenceOf(event.policy, value, count);
    // There is no line: who is silent is the one that would have written it.
    alert.line_host = event.policy.per == "host" ? value : "";
    alert.program = event.policy.per == "program" ? value : "";
    alert.summary = policy->SummaryOf({alert.message, alert.HostOfLine(), alert.program, now_s, 1});
    alert.severity = event.policy.severity;
    alert.labels = event.policy.labels;
    alert.runbook_url = event.policy.runbook_url;
    alert.value = value;
    Store(&alert);
    if (!tell_)
        return;
    ReportRequest request{};
    request.source = event.key.source.c_str();
    request.eventId = event.key.id;
    tell_(request, Outcome::Kind::kReported, 0);
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
    MatchedLine line =
        LineOf(*alert, count != nullptr ? find_time_(alert->message).value_or(now_s) : now_s);
    // A clock that was ahead for a moment must not keep an absence from being noticed.
    const bool waits = policy->event().policy.absent_s > 0;
    if (waits && line.time_s > now_s)
        line.time_s = now_s;
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
    alert->terms = policies_.TermsOf({alert->source, alert->event_id});
    silences_.Take(
        alert, [&] { return find_time_(alert->message).value_or(alert->time_ms / kMsOfSecond); });
    folder_.Add(host_.store(), *alert);
}

} // namespace policy
