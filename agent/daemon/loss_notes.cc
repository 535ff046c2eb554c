#include "agent/daemon/loss_notes.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <utility>

#include "agent/alerts/own_alert.h"
#include "agent/daemon/trace_unit.h"
#include "agent/host/agent_values.h"
#include "agent/logs/log_files.h"
#include "platform/contract.h"

namespace syslogmond {

namespace fs = std::filesystem;

namespace {

constexpr size_t kCustomerSlot = 1;

std::vector<logs::FileRecord> ReadRecords(host::Database &database, int64_t slot,
                                          const std::string &log)
{
    host::Statement select(
        database, "SELECT path, device, inode, read_to, checked_to, size, written_ms, head,"
                  " tail, is_left FROM log_file WHERE slot = ? AND log = ? ORDER BY age");
    std::vector<logs::FileRecord> records;
    select.Start(slot, log);
    while (select.Next())
        records.push_back({std::string(select.Text(0)), static_cast<uint64_t>(select.Integer(1)),
                           static_cast<uint64_t>(select.Integer(2)), select.Integer(3),
                           select.Integer(4), select.Integer(5), select.Integer(6),
                           std::string(select.Text(7)), std::string(select.Text(8)),
                           select.Integer(9) != 0});
    return records;
}

std::optional<uint64_t> MountOf(const fs::path &folder)
{
    struct statx status {};
    if (statx(AT_FDCWD, folder.c_str(), 0, STATX_MNT_ID, &status) != 0 ||
        (status.stx_mask & STATX_MNT_ID) == 0)
        return std::nullopt;
    return status.stx_mnt_id;
}

// A file that is held open keeps its file system from being unmounted. By its folder, as the file may be away.
bool IsOnMountOfSystemLog(const fs::path &file)
{
    const auto mount = MountOf(file.parent_path());
    return mount && mount == MountOf(fs::path(kSystemLog).parent_path());
}

} // namespace

// The log that the pass has read; when it has read none, the one that is set. The module hears of another name only behind
// its pass.
std::string LossNotes::NameOf(size_t slot)
{
    if (slot != kCustomerSlot && slot != kTargetSlot)
        return kSystemLog;
    std::string name = read_[slot].log;
    if (name.empty())
        name = logs::NameOfFile(registry_, slot == kTargetSlot ? kFileMonitorKey : kMonitorKey);
    if (slot == kTargetSlot)
        return IsOnMountOfSystemLog(name) ? name : "";
    // The spool is the daemon's own file, of which it knows better what was read.
    return name == host::AgentText(registry_, host::kInputSpool) ? "" : name;
}

void LossNotes::Add(const LogPart &part)
{
    Read &read = read_.at(static_cast<size_t>(part.slot));
    read.log = part.log;
    read.parts.push_back(part);
    read.parts.back().log = nullptr; // it dies with the call
}

void LossNotes::Begin()
{
    read_ = {};
    for (size_t slot = 0; slot < slots_.size(); ++slot) {
        slots_[slot] = {};
        Follow(slot, NameOf(slot));
    }
}

void LossNotes::Follow(size_t slot, const std::string &log)
{
    Slot &own = slots_[slot];
    if (own.is_looked_up && (own.witness ? own.witness->log() == log : log.empty()))
        return;
    own = {};
    own.is_looked_up = true;
    ForgetOthers(slot, log);
    if (log.empty())
        return;
    own.written = store_.Read([&](host::Database &database) {
        return ReadRecords(database, static_cast<int64_t>(slot), log);
    });
    own.witness.emplace(log, own.written);
}

// Of a log that is followed no longer, or is an input meanwhile, nobody notes any more how far it was read.
void LossNotes::ForgetOthers(size_t slot, const std::string &log)
{
    const auto number = static_cast<int64_t>(slot);
    const bool has_others = store_.Read([&](host::Database &database) {
        host::Statement select(database,
                               "SELECT 1 FROM log_file WHERE slot = ? AND log <> ? LIMIT 1");
        select.Start(number, log);
        return select.Next();
    });
    if (!has_others)
        return;
    store_.Write([&](host::Database &database) {
        host::Statement(database, "DELETE FROM log_file WHERE slot = ? AND log <> ?")
            .Run(number, log);
    });
}

void LossNotes::BeforeCommit()
{
    for (size_t slot = 0; slot < slots_.size(); ++slot) {
        Follow(slot, NameOf(slot));
        const std::vector<LogPart> own = std::exchange(read_[slot], {}).parts;
        if (!slots_[slot].witness)
            continue;
        logs::LogWitness &witness = *slots_[slot].witness;
        const std::vector<logs::LogLoss> losses = witness.Take(own);
        for (const logs::LogLoss &loss : losses)
            Tell(witness.log(), loss);
        if (!witness.CouldRead())
            TRACE(TRACE_SYSTEM,
                  "%s could not be looked at: whether this pass left lines out is not known.",
                  witness.log().c_str());
        if (!own.empty() || !losses.empty()) // what was told is not told again after a restart
            Write(slot);
    }
}

void LossNotes::Tell(const std::string &log, const logs::LogLoss &loss)
{
    alerts::OwnAlert own{alerts::OwnEvent::kLoss, alerts::OwnState::kOnce, loss.file, TextOf(loss),
                         log};
    if (!loss.is_twice)
        own.lines_passed_over = std::max<int64_t>(loss.lines, 0);
    alerts::AddOwnAlert(store_, own);
}

void LossNotes::Write(size_t slot)
{
    Slot &own = slots_[slot];
    std::vector<logs::FileRecord> records = own.witness->Records();
    if (records == own.written)
        return;
    store_.Write([&](host::Database &database) {
        host::KeptStatement forget(database, "DELETE FROM log_file WHERE slot = ?");
        forget->Run(static_cast<int64_t>(slot));
        host::KeptStatement insert(
            database, "INSERT INTO log_file VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
        int64_t age = 0;
        for (const logs::FileRecord &record : records)
            insert->Run(static_cast<int64_t>(slot), age++, own.witness->log().string(), record.path,
                        static_cast<int64_t>(record.device), static_cast<int64_t>(record.inode),
                        record.read_to, record.checked_to, record.size, record.written_ms,
                        host::Blob{record.head}, host::Blob{record.tail}, record.is_left ? 1 : 0);
    });
    own.written = std::move(records);
}

} // namespace syslogmond
