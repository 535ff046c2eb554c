#include "agent/policy/silence_desk.h"

#include <algorithm>

#include "agent/alerts/own_alert.h"
#include "agent/host/here_and_now.h"
#include "agent/policy/silence_registry.h"

namespace policy {

namespace {

constexpr int64_t kMsOfASecond = 1000;
constexpr size_t kKeptOfALine = 512;

void Forget(host::Store &store, uint32_t number)
{
    store.Write([&](host::Database &database) {
        host::Statement(database, "DELETE FROM silence_held WHERE silence = ?").Run(number);
    });
}

} // namespace

std::map<uint32_t, SilenceHeld> ReadSilenceHeld(host::Database &database)
{
    host::Statement select(database, "SELECT silence, alerts, hits, first_ms, first, last_ms, last"
                                     " FROM silence_held");
    std::map<uint32_t, SilenceHeld> all;
    select.Start();
    while (select.Next()) {
        SilenceHeld &held = all[static_cast<uint32_t>(select.Integer(0))];
        held.alerts = select.Integer(1);
        held.lines = {select.Integer(1), select.Integer(2), select.Integer(3),
                      select.Integer(5), select.Text(4),    select.Text(6)};
    }
    return all;
}

// What the registry has at the first report of a pass holds for all of it.
void SilenceDesk::Take(alerts::Alert *alert, const std::function<int64_t()> &time_s)
{
    if (const int64_t pass = host_.store().PassNumber(); pass != pass_) {
        pass_ = pass;
        silences_ = ReadSilences(host_.registry());
    }
    if (silences_.empty())
        return;
    const int64_t line_s = time_s();
    const auto silence = std::find_if(silences_.begin(), silences_.end(), [&](const Silence &one) {
        return one.Matches(*alert) && one.Holds(line_s);
    });
    if (silence != silences_.end())
        Hold(*silence, alert, line_s);
}

void SilenceDesk::Hold(const Silence &silence, alerts::Alert *alert, int64_t time_s)
{
    alert->silence = silence.number;
    may_have_held_ = may_have_held_ || silence.wants_summary;
    const std::string line = alert->message.substr(0, kKeptOfALine);
    host_.store().Write([&](host::Database &database) {
        host::KeptStatement add(
            database, "INSERT INTO silence_held (silence, alerts, hits, first_ms, first, last_ms,"
                      " last) VALUES (?1, 1, ?2, ?3, ?4, ?3, ?4) ON CONFLICT (silence) DO UPDATE"
                      " SET alerts = alerts + 1, hits = hits + ?2, last_ms = ?3, last = ?4");
        add->Run(silence.number, alert->count + alert->held_back.hits, time_s * kMsOfASecond, line);
    });
}

void SilenceDesk::TellOf(const Silence &silence, const SilenceHeld &held)
{
    alerts::OwnAlert own;
    own.event = alerts::OwnEvent::kSilenceEnded;
    own.about = std::to_string(silence.number);
    own.message = "the silence " + own.about +
                  (silence.comment.empty() ? "" : " (" + silence.comment + ")") + " held back " +
                  std::to_string(held.alerts) + " alerts of " + std::to_string(held.lines.hits) +
                  " hits; syslogmon alerts --silenced shows them";
    own.held_back = held.lines;
    alerts::AddOwnAlert(host_.store(), own);
}

// A window that comes again is told of each time.
void SilenceDesk::Save()
{
    if (!may_have_held_)
        return;
    may_have_held_ = false;
    const auto all = host_.store().Read(ReadSilenceHeld);
    if (all.empty())
        return;
    const int64_t now_s = host::NowMs() / kMsOfASecond;
    for (const Silence &silence : ReadSilences(host_.registry())) {
        const auto held = all.find(silence.number);
        if (!silence.wants_summary || held == all.end())
            continue;
        if (silence.Holds(now_s)) {
            may_have_held_ = true;
            continue;
        }
        TellOf(silence, held->second);
        Forget(host_.store(), silence.number);
    }
}

} // namespace policy
