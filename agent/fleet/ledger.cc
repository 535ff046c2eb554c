#include "agent/fleet/ledger.h"

#include <algorithm>

#include "agent/alerts/own_alert.h"
#include "agent/fleet/trace_unit.h"
#include "agent/fleet/wire_alert.h"
#include "agent/host/error.h"
#include "agent/host/here_and_now.h"
#include "agent/text/plural.h"

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
        TellNow(host, text::Plural(host->came, "alert") + " of " + NameOf(host->row) +
                          " that had been missing came after all");
    if (host->holes) {
        for (const Hole &hole : host->holes->TakeGivenUp())
            TellOfHole(host, hole);
        host->holes->Write(store_.database(), host->row.uuid);
    }
    WriteHost(store_.database(), host->row);
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

// Nothing: it is none. The first such message of each host is told: one of another version has nothing else to say.
std::optional<alerts::Alert> Ledger::AlertIn(const Arrived &message, Host *host)
{
    try {
        const alerts::Alert alert = ParseAlert(message.body);
        if (message.id != 0 && message.id != alert.id)
            throw host::Error("its key is not the one of its message");
        return alert;
    } catch (const host::StoreError &) {
        throw;
    } catch (const host::Error &error) {
        if (host->row.refused++ == 0)
            TellNow(host,
                    NameOf(host->row) + " sends messages that are not taken: " + error.what());
        return std::nullopt;
    }
}

// Returns whether it is new.
bool Ledger::TakeOne(const Arrived &message, Host *host)
{
    HostRow &row = host->row;
    row.heard_ms = host::NowMs();
    const std::optional<alerts::Alert> alert = AlertIn(message, host);
    // What is none has come all the same, and is not missing.
    const int64_t id = alert ? alert->id : message.id;
    const bool is_late = id <= row.last_id;
    if (is_late && !FillHole(message, id, host))
        return false;
    if (!is_late)
        MoveOn(message, id, host);
    if (!alert)
        return false;
    alerts::AddCollectedAlert(store_, *alert);
    row.name = alert->host;
    row.alerts += 1;
    row.late += is_late ? 1 : 0;
    return true;
}

// With an alert that has a greater number than all before it.
void Ledger::MoveOn(const Arrived &message, int64_t id, Host *host)
{
    HostRow &row = host->row;
    // What was sent before it has a smaller number, whatever the message says.
    const int64_t after = std::min(message.after, id - 1);
    if (after > row.last_id) {
        // Of a host that was never heard of, the first message is the beginning.
        const auto kind = row.last_id > 0 ? Hole::Kind::kNoticed : Hole::Kind::kBeginning;
        const Hole hole{row.last_id + 1, after, row.stored_ms, message.stored_ms, 0, 0, 0, kind};
        HolesOf(host).Add(hole, host::NowMs());
    }
    CountDropped(message, id, id - 1 - row.last_id, host);
    row.last_id = id;
    row.stored_ms = message.stored_ms;
}

// Returns whether the number was missing.
bool Ledger::FillHole(const Arrived &message, int64_t id, Host *host)
{
    const Holes::Filled filled = HolesOf(host).Fill(id, message.after);
    if (filled.numbers == 0)
        return false;
    CountDropped(message, id, filled.numbers - 1, host);
    if (filled.were_told) {
        host->row.missing -= filled.numbers;
        ++host->came;
    }
    return true;
}

// What the host says that it has dropped before this alert: of `most` numbers.
void Ledger::CountDropped(const Arrived &message, int64_t id, int64_t most, Host *host)
{
    const int64_t dropped = std::min(message.dropped, most);
    if (dropped <= 0)
        return;
    host->row.dropped += dropped;
    TellNow(host, "up to " + std::to_string(dropped) + " alerts of " + NameOf(host->row) +
                      " before its alert " + std::to_string(id) +
                      " are dropped: its store was full of those that the servers did not take");
}

std::optional<Missing> Ledger::NextMissing(int64_t now_ms)
{
    return store_.Read(
        [&](host::Database &database) { return fleet::NextMissing(database, now_ms); });
}

// Most of what a look brings is known, and is not looked into.
size_t Ledger::TakeLate(const std::string &uuid, std::span<const Arrived> messages)
{
    const Holes holes =
        store_.Read([&](host::Database &database) { return Holes(database, uuid); });
    const auto is_wanted = [&](const Arrived &message) {
        return message.uuid == uuid && holes.Has(message.id);
    };
    if (std::ranges::none_of(messages, is_wanted))
        return 0;
    size_t taken = 0;
    host::Transaction transaction(store_);
    Host host = HostOf(uuid);
    for (const Arrived &message : messages) {
        if (is_wanted(message) && TakeOne(message, &host))
            ++taken;
    }
    WriteBack(&host);
    transaction.Commit();
    KeepFloods(host);
    return taken;
}

void Ledger::EndLook(const std::string &uuid, Look look, int64_t now_ms)
{
    host::Transaction transaction(store_);
    Host host = HostOf(uuid);
    if (look == Look::kNotOurs) {
        HolesOf(&host).Postpone(now_ms);
    } else {
        for (const Hole &hole : HolesOf(&host).Asked(now_ms, look == Look::kDone))
            TellOfHole(&host, hole);
    }
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
