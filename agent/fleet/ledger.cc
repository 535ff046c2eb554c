#include "agent/fleet/ledger.h"

#include <algorithm>

#include "agent/alerts/own_alert.h"
#include "agent/fleet/trace_unit.h"
#include "agent/fleet/wire_alert.h"
#include "agent/host/error.h"
#include "agent/host/here_and_now.h"

namespace fleet {

namespace {

constexpr char kHostColumns[] = "uuid, name, last_id, alerts, dropped, missing, refused,"
                                " heard_ms, stored_ms, late";

HostRow RowOf(const host::Statement &row)
{
    return {row.Text(0),    row.Text(1),    row.Integer(2), row.Integer(3), row.Integer(4),
            row.Integer(5), row.Integer(6), row.Integer(7), row.Integer(8), row.Integer(9)};
}

HostRow ReadHost(host::Database &database, const std::string &uuid)
{
    host::KeptStatement read(database, std::string("SELECT ") + kHostColumns +
                                           " FROM fleet_host WHERE uuid = ?");
    read->Start(uuid);
    HostRow host = read->Next() ? RowOf(*read) : HostRow{};
    host.uuid = uuid;
    return host;
}

void WriteHost(host::Database &database, const HostRow &host)
{
    host::KeptStatement write(database, std::string("INSERT OR REPLACE INTO fleet_host (") +
                                            kHostColumns +
                                            ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    write->Run(host.uuid, host.name, host.last_id, host.alerts, host.dropped, host.missing,
               host.refused, host.heard_ms, host.stored_ms, host.late);
}

void WritePlace(host::Database &database, const StreamPlace &place)
{
    host::KeptStatement write(
        database, "INSERT OR REPLACE INTO fleet_place (id, stream, created,"
                  " sequence, stored_ns, problem, problem_ms) VALUES (1, ?, ?, ?, ?, '', 0)");
    write->Run(place.stream, place.created, static_cast<int64_t>(place.sequence), place.stored_ns);
}

std::string NameOf(const HostRow &host)
{
    return host.name.empty() ? "the host of the store " + host.uuid : host.name;
}

void Tell(host::Store &store, const HostRow &host, const std::string &message)
{
    TRACE(TRACE_NOTABLE, "%s.", message.c_str());
    alerts::OwnAlert own;
    own.event = alerts::OwnEvent::kFleet;
    own.about = host.uuid;
    own.log = "fleet"; // it is counted under one name for all hosts
    own.message = message;
    alerts::AddOwnAlert(store, own);
}

} // namespace

StreamPlace Ledger::PlaceIn(const std::string &stream, int64_t created)
{
    StreamPlace place =
        store_.Read([](host::Database &database) { return ReadCollectState(database).place; });
    return place.stream == stream && place.created == created ? place
                                                              : StreamPlace{stream, created, 0, 0};
}

Ledger::Host Ledger::HostOf(const std::string &uuid)
{
    return {ReadHost(store_.database(), uuid),
            floods_ != nullptr ? floods_->Of(uuid) : FloodCount(), std::nullopt, 0};
}

// Most hosts have none: they are read when the numbers of a message ask for them.
Holes &Ledger::HolesOf(Host *host)
{
    if (!host->holes)
        host->holes.emplace(store_.database(), host->row.uuid);
    return *host->holes;
}

void Ledger::WriteBack(Host *host)
{
    if (host->came > 0)
        TellNow(host, std::to_string(host->came) + " alerts of " + NameOf(host->row) +
                          " that were missing have come");
    WriteHost(store_.database(), host->row);
    if (host->holes)
        host->holes->Write(store_.database(), host->row.uuid);
}

// Behind the commit: messages that were not stored come again, and are counted then.
void Ledger::KeepFloods(const Host &host)
{
    if (floods_ != nullptr)
        floods_->Keep(host.row.uuid, host.floods);
}

size_t Ledger::Take(std::span<const Arrived> messages, const StreamPlace &place)
{
    size_t taken = 0;
    std::map<std::string, Host> hosts; // of these messages, read once and written once
    host::Transaction transaction(store_);
    for (const Arrived &message : messages) {
        // What this store has reported itself is in it.
        if (message.uuid == store_.uuid())
            continue;
        auto known = hosts.find(message.uuid);
        if (known == hosts.end())
            known = hosts.emplace(message.uuid, HostOf(message.uuid)).first;
        TellOfFlood(message, &known->second);
        if (TakeOne(message, &known->second))
            ++taken;
    }
    for (auto &[uuid, host] : hosts)
        WriteBack(&host);
    WritePlace(store_.database(), place);
    transaction.Commit();
    for (const auto &[uuid, host] : hosts)
        KeepFloods(host);
    if (floods_ != nullptr && !messages.empty())
        floods_->Forget(messages.back().stored_ms, nats::Pace::Clock::now());
    return taken;
}

// The first of each host is told: one that is of another version has nothing else to say.
void Ledger::Refuse(Host *host, const std::string &why)
{
    if (host->row.refused++ == 0)
        TellNow(host, NameOf(host->row) + " sends messages that are not taken: " + why);
}

// Returns whether it is new.
bool Ledger::TakeOne(const Arrived &message, Host *host)
{
    HostRow &row = host->row;
    row.heard_ms = host::NowMs();
    alerts::Alert alert;
    try {
        alert = ParseAlert(message.body);
    } catch (const host::StoreError &) {
        throw;
    } catch (const host::Error &error) {
        Refuse(host, error.what());
        return false;
    }
    if (alert.id <= row.last_id)
        return TakeIntoHole(message, alert, host);
    row.name = alert.host;
    // What was sent before it has a smaller number, whatever the message says.
    const int64_t after = std::min(message.after, alert.id - 1);
    if (after > row.last_id)
        NoticeHole(message, after, host);
    if (message.dropped > 0) {
        const int64_t dropped = std::min(message.dropped, alert.id - 1 - row.last_id);
        row.dropped += dropped;
        TellNow(host,
                "up to " + std::to_string(dropped) + " alerts of " + NameOf(row) +
                    " before its alert " + std::to_string(alert.id) +
                    " are dropped: its store was full of those that the servers did not take");
    }
    alerts::AddCollectedAlert(store_, alert);
    row.last_id = alert.id;
    row.stored_ms = message.stored_ms;
    ++row.alerts;
    return true;
}

bool Ledger::TakeIntoHole(const Arrived &message, const alerts::Alert &alert, Host *host)
{
    const Holes::Filled filled = HolesOf(host).Fill(alert.id, message.after);
    if (!filled.was_in_hole)
        return false;
    alerts::AddCollectedAlert(store_, alert);
    HostRow &row = host->row;
    row.missing -= filled.were_told;
    if (filled.were_told > 0)
        ++host->came;
    ++row.alerts;
    ++row.late;
    return true;
}

// Of a host that was never heard of, the first message is the beginning.
void Ledger::NoticeHole(const Arrived &message, int64_t after, Host *host)
{
    const HostRow &row = host->row;
    const int64_t now_ms = host::NowMs();
    const Hole hole{row.last_id + 1,
                    after,
                    row.stored_ms,
                    message.stored_ms,
                    now_ms,
                    now_ms,
                    row.last_id > 0 ? Hole::Kind::kNoticed : Hole::Kind::kBeginning};
    const std::optional<Hole> given_up = HolesOf(host).Add(hole);
    if (given_up && given_up->kind == Hole::Kind::kNoticed)
        TellOfHole(host, *given_up);
}

std::optional<LookBackSpan> Ledger::NextLookBack(int64_t now_ms)
{
    return store_.Read(
        [&](host::Database &database) { return fleet::NextLookBack(database, now_ms); });
}

size_t Ledger::TakeLate(const std::string &uuid, std::span<const Arrived> messages)
{
    size_t taken = 0;
    host::Transaction transaction(store_);
    Host host = HostOf(uuid);
    for (const Arrived &message : messages) {
        if (message.uuid != uuid)
            continue;
        try {
            const alerts::Alert alert = ParseAlert(message.body);
            if (TakeIntoHole(message, alert, &host))
                ++taken;
        } catch (const host::StoreError &) {
            throw;
        } catch (const host::Error &) {
            continue; // it was counted when it came
        }
    }
    if (taken == 0)
        return 0;
    WriteBack(&host);
    transaction.Commit();
    KeepFloods(host);
    return taken;
}

void Ledger::EndLookBack(const std::string &uuid, Look look, int64_t now_ms)
{
    host::Transaction transaction(store_);
    Host host = HostOf(uuid);
    // Of another collector's hosts nothing is known here.
    if (look == Look::kNotOurs)
        HolesOf(&host).Postpone(now_ms);
    else
        for (const Hole &hole : HolesOf(&host).Looked(now_ms, look == Look::kDone))
            TellOfHole(&host, hole);
    WriteBack(&host);
    transaction.Commit();
    KeepFloods(host);
}

// Unless there was too much to tell of this host already: it says itself what there is to tell.
void Ledger::TellNow(Host *host, const std::string &message)
{
    if (floods_ == nullptr || host->floods.MayTell(nats::Pace::Clock::now()))
        Tell(store_, host->row, message);
}

void Ledger::TellOfHole(Host *host, const Hole &hole)
{
    host->row.missing += hole.size();
    TellNow(host,
            "up to " + std::to_string(hole.size()) + " alerts of " + NameOf(host->row) +
                " behind its alert " + std::to_string(hole.first_id - 1) +
                " are missing: the servers have lost them, or keep them for too short a time");
}

// What it sends is taken all the same: the others wait for it no longer than the stream keeps of one host.
void Ledger::TellOfFlood(const Arrived &message, Host *host)
{
    if (floods_ == nullptr || !host->floods.Add(message.stored_ms))
        return;
    Tell(store_, host->row,
         NameOf(host->row) + " floods the fleet: more than " +
             std::to_string(FloodCount::kTooMany) + " messages in " +
             std::to_string(FloodCount::kSpanMs / 1000) + " seconds under its UUID " +
             host->row.uuid +
             ". See what it reports, and the pace= of its sink; the servers keep it out when its "
             "account is taken away");
}

// One text at a time: what comes again and again is written once.
void Ledger::SetProblem(const std::string &problem)
{
    store_.Write([&](host::Database &database) {
        host::Statement(database,
                        "INSERT OR IGNORE INTO fleet_place (id, stream, created, sequence,"
                        " problem, problem_ms) VALUES (1, '', 0, 0, '', 0)")
            .Run();
        host::Statement(database,
                        "UPDATE fleet_place SET problem = ?1, problem_ms = ?2 WHERE problem <> ?1")
            .Run(problem, problem.empty() ? 0 : host::NowMs());
    });
}

std::vector<HostRow> ReadHosts(host::Database &database)
{
    host::Statement read(database, (std::string("SELECT ") + kHostColumns +
                                    " FROM fleet_host ORDER BY heard_ms DESC, uuid")
                                       .c_str());
    read.Start();
    std::vector<HostRow> hosts;
    while (read.Next())
        hosts.push_back(RowOf(read));
    return hosts;
}

CollectState ReadCollectState(host::Database &database)
{
    host::Statement read(
        database,
        "SELECT stream, created, sequence, stored_ns, problem, problem_ms FROM fleet_place");
    read.Start();
    if (!read.Next())
        return {};
    return {
        {read.Text(0), read.Integer(1), static_cast<uint64_t>(read.Integer(2)), read.Integer(3)},
        read.Text(4),
        read.Integer(5)};
}

} // namespace fleet
