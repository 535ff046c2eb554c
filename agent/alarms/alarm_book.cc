#include "agent/alarms/alarm_book.h"

#include <algorithm>
#include <set>

#include "agent/text/duration.h"

namespace alarms {

namespace {

constexpr int64_t kSecond = 1000;
constexpr int64_t kCalmMs = int64_t{10} * 60 * kSecond;
constexpr int64_t kAgainMs = int64_t{24} * 3600 * kSecond;

std::string SpanOf(int64_t milliseconds)
{
    return text::FormatDuration(milliseconds / kSecond);
}

} // namespace

AlarmBook::AlarmBook(host::Store &store) : store_(store)
{
    Read();
}

void AlarmBook::Read()
{
    told_ = store_.Read([](host::Database &database) {
        Alarms found;
        host::Statement select(
            database, "SELECT event_id, about, message, since_ms, told_ms, over_ms FROM alarm");
        select.Start();
        while (select.Next())
            found[{static_cast<uint32_t>(select.Integer(0)), select.Text(1)}] = {
                select.Text(2), select.Integer(3), select.Integer(4), select.Integer(5)};
        return found;
    });
}

void AlarmBook::Write(const Alarms &told)
{
    store_.Write([&](host::Database &database) {
        host::Statement(database, "DELETE FROM alarm").Run();
        host::Statement insert(database, "INSERT INTO alarm VALUES (?, ?, ?, ?, ?, ?)");
        for (const auto &[key, alarm] : told)
            insert.Run(key.first, key.second, alarm.message, alarm.since_ms, alarm.told_ms,
                       alarm.over_ms);
    });
}

// A moment that is still to come is of a clock that was set back since.
void AlarmBook::KeepBehind(int64_t now_ms, Alarm *alarm)
{
    alarm->since_ms = std::min(alarm->since_ms, now_ms);
    alarm->told_ms = std::min(alarm->told_ms, now_ms);
    alarm->over_ms = std::min(alarm->over_ms, now_ms);
}

// The message stays the one that was told, however it changes meanwhile: nothing is written for that.
std::optional<AlarmBook::News> AlarmBook::IsThere(const Trouble &trouble, int64_t now_ms,
                                                  Alarm *alarm)
{
    alarm->over_ms = 0;
    const bool is_first = alarm->told_ms == 0;
    const int64_t waited = now_ms - (is_first ? alarm->since_ms : alarm->told_ms);
    if (waited < (is_first ? trouble.after_ms : kAgainMs))
        return std::nullopt;
    alarm->message = trouble.message;
    alarm->told_ms = now_ms;
    if (is_first)
        return News{alerts::OwnState::kBegins, trouble.message};
    return News{alerts::OwnState::kLasts,
                "for " + SpanOf(now_ms - alarm->since_ms) + " by now: " + trouble.message};
}

// News: it is over, and forgotten.
std::optional<AlarmBook::News> AlarmBook::IsGone(int64_t now_ms, Alarm *alarm)
{
    if (alarm->over_ms == 0)
        alarm->over_ms = now_ms;
    if (now_ms - alarm->over_ms < kCalmMs)
        return std::nullopt;
    return News{alerts::OwnState::kEnded, "it is over, after " +
                                              SpanOf(alarm->over_ms - alarm->since_ms) + ": " +
                                              alarm->message};
}

std::vector<std::string> AlarmBook::Take(const std::vector<Trouble> &troubles, int64_t now_ms)
{
    Alarms told = told_;
    std::map<Key, int64_t> waiting;
    std::vector<alerts::OwnAlert> due;
    std::set<Key> present;
    const auto tell = [&](const Key &key, const News &news) {
        due.push_back(
            {static_cast<alerts::OwnEvent>(key.first), news.state, key.second, news.message, {}});
    };
    for (const Trouble &trouble : troubles) {
        const Key key{static_cast<uint32_t>(trouble.event), trouble.about};
        present.insert(key);
        const auto known = told.find(key);
        const auto began = waiting_.find(key);
        Alarm alarm;
        alarm.since_ms = began == waiting_.end() ? now_ms : began->second;
        if (known != told.end())
            alarm = known->second;
        KeepBehind(now_ms, &alarm);
        if (const auto news = IsThere(trouble, now_ms, &alarm))
            tell(key, *news);
        if (alarm.told_ms != 0)
            told[key] = alarm;
        else
            waiting[key] = alarm.since_ms;
    }
    for (auto entry = told.begin(); entry != told.end();) {
        const auto at = entry++;
        if (present.contains(at->first))
            continue;
        KeepBehind(now_ms, &at->second);
        if (const auto news = IsGone(now_ms, &at->second)) {
            tell(at->first, *news);
            told.erase(at);
        }
    }
    Store(told, due);
    told_ = std::move(told);
    waiting_ = std::move(waiting);
    std::vector<std::string> messages;
    messages.reserve(due.size());
    for (const alerts::OwnAlert &own : due)
        messages.push_back(own.message);
    return messages;
}

void AlarmBook::Store(const Alarms &told, const std::vector<alerts::OwnAlert> &due)
{
    if (told == told_)
        return;
    host::Transaction transaction(store_);
    Write(told);
    for (const alerts::OwnAlert &own : due)
        AddOwnAlert(store_, own);
    transaction.Commit();
}

} // namespace alarms
