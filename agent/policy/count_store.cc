#include "agent/policy/count_store.h"

#include <algorithm>
#include <array>

namespace policy {

namespace {

using Moment = ValueCount::Moment;
constexpr size_t kBytesOfNumber = 8;

void AppendNumber(int64_t number, std::string *bytes)
{
    for (size_t i = 0; i < kBytesOfNumber; ++i)
        *bytes += static_cast<char>(static_cast<uint64_t>(number) >> (8 * i) & 0xFFU);
}

int64_t NumberAt(std::string_view bytes, size_t at)
{
    uint64_t number = 0;
    for (size_t i = 0; i < kBytesOfNumber; ++i)
        number |= uint64_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
    return static_cast<int64_t>(number);
}

std::string Packed(const std::deque<Moment> &moments)
{
    std::string bytes;
    for (const Moment &moment : moments) {
        AppendNumber(moment.time_s, &bytes);
        AppendNumber(moment.hits, &bytes);
    }
    return bytes;
}

std::deque<Moment> Unpacked(std::string_view bytes)
{
    std::deque<Moment> moments;
    for (size_t at = 0; at + 2 * kBytesOfNumber <= bytes.size(); at += 2 * kBytesOfNumber)
        moments.push_back({NumberAt(bytes, at), NumberAt(bytes, at + kBytesOfNumber)});
    return moments;
}

void SaveValue(host::Database &database, const events::EventKey &key,
               const EventCount::Entry &entry)
{
    host::KeptStatement save(
        database, "INSERT OR REPLACE INTO policy_value (source, event_id, value, use, moments,"
                  " reported, held_reports, held_hits, held_first_time, held_first, held_last_time,"
                  " held_last) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    const std::string moments = Packed(entry.count.moments());
    const HeldBack &held = entry.count.held_back();
    save->Run(key.source, key.id, entry.value, entry.use, host::Blob{moments},
              entry.count.reported_s(), held.reports, held.hits, held.first_s, held.first,
              held.last_s, held.last);
}

} // namespace

std::string TermsOf(const events::EventRecord &event)
{
    return "count=" + std::to_string(event.report_count) +
           " within=" + std::to_string(event.policy.within_s) +
           " cooldown=" + std::to_string(event.policy.cooldown_s) + " per=" + event.policy.per +
           (event.policy.absent_s == 0 ? "" : " absent=" + std::to_string(event.policy.absent_s)) +
           (event.policy.regex.empty() ? "" : " regex=" + event.policy.regex);
}

bool LoadCount(host::Database &database, const events::EventRecord &event, EventCount *count)
{
    host::Statement terms(database, "SELECT terms, dropped_values, dropped_hits FROM policy_event"
                                    " WHERE source = ? AND event_id = ?");
    terms.Start(event.key.source, event.key.id);
    if (!terms.Next() || terms.Text(0) != TermsOf(event))
        return false;
    count->Restore(EventCount::Dropped{terms.Integer(1), terms.Integer(2)});
    host::Statement values(database,
                           "SELECT value, use, moments, reported, held_reports, held_hits,"
                           " held_first_time, held_first, held_last_time, held_last"
                           " FROM policy_value WHERE source = ? AND event_id = ? ORDER BY use");
    values.Start(event.key.source, event.key.id);
    while (values.Next()) {
        const HeldBack held = {values.Integer(4), values.Integer(5), values.Integer(6),
                               values.Integer(8), values.Text(7),    values.Text(9)};
        count->Restore({values.Text(0),
                        ValueCount::Restore(Unpacked(values.Bytes(2)), values.Integer(3), held),
                        values.Integer(1)});
    }
    return true;
}

// Its values go with the row of the event.
void BeginCount(host::Store &store, const events::EventRecord &event)
{
    store.Write([&](host::Database &database) {
        host::Statement(database, "DELETE FROM policy_event WHERE source = ? AND event_id = ?")
            .Run(event.key.source, event.key.id);
        host::Statement(database, "INSERT INTO policy_event (source, event_id, terms,"
                                  " dropped_values, dropped_hits) VALUES (?, ?, ?, 0, 0)")
            .Run(event.key.source, event.key.id, TermsOf(event));
    });
}

void SaveCount(host::Store &store, const events::EventKey &key, EventCount *count)
{
    // Nothing was hit: no write, so maybe no transaction.
    if (count->changes().used.empty())
        return;
    const EventCount::Changes changes = count->TakeChanges();
    store.Write([&](host::Database &database) {
        for (const std::string &value : changes.gone) {
            host::KeptStatement remove(
                database,
                "DELETE FROM policy_value WHERE source = ? AND event_id = ? AND value = ?");
            remove->Run(key.source, key.id, value);
        }
        for (const std::string &value : changes.used)
            SaveValue(database, key, *count->Find(value));
        host::KeptStatement dropped(database,
                                    "UPDATE policy_event SET dropped_values = ?1, dropped_hits = ?2"
                                    " WHERE source = ?3 AND event_id = ?4"
                                    " AND dropped_values <> ?1");
        dropped->Run(count->dropped().values, count->dropped().hits, key.source, key.id);
    });
}

void ForgetOthers(host::Store &store, const std::vector<events::EventKey> &kept)
{
    std::vector<events::EventKey> others;
    store.Read([&](host::Database &database) {
        host::Statement stored(database, "SELECT source, event_id FROM policy_event");
        stored.Start();
        while (stored.Next()) {
            const events::EventKey key = {stored.Text(0), static_cast<uint32_t>(stored.Integer(1))};
            if (std::find(kept.begin(), kept.end(), key) == kept.end())
                others.push_back(key);
        }
    });
    if (others.empty())
        return;
    store.Write([&](host::Database &database) {
        for (const events::EventKey &key : others)
            host::Statement(database, "DELETE FROM policy_event WHERE source = ? AND event_id = ?")
                .Run(key.source, key.id);
    });
}

} // namespace policy
