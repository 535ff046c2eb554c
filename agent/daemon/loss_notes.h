// Tells what the monitor passes over in the files that it follows by its own rules: a witness for each, what they know in
// the table `log_file` of the store, and what they notice as alerts; all of it is part of the pass.
//
// Of the monitor thread.
#ifndef AGENT_DAEMON_LOSS_NOTES_H
#define AGENT_DAEMON_LOSS_NOTES_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/logs/log_witness.h"
#include "platform/agent.h"

namespace syslogmond {

class LossNotes {
  public:
    LossNotes(host::Store &store, host::RegistryTree &registry) : store_(store), registry_(registry)
    {
    }

    // Before the module starts. Throws host::StoreError.
    void Begin();
    // The pass under way has read this.
    void Add(const LogPart &part);
    // Before the pass is committed: writes what is known, and an alert for each loss. Throws host::StoreError.
    void BeforeCommit();
    // The pass was given up, and will be made again.
    void Abandoned() { read_ = {}; }

  private:
    struct Slot {
        std::optional<logs::LogWitness> witness; // none: the slot follows no such log
        bool is_looked_up = false;               // that is known of the slot
        std::vector<logs::FileRecord> written;   // as the table has it
    };
    // What the pass under way has read of a slot.
    struct Read {
        std::string log; // the path that programs write to
        std::vector<LogPart> parts;
    };
    using Slots =
        std::array<Slot, 3>; // the system log, the customer file, and the target beside them

    [[nodiscard]] std::string NameOf(size_t slot);
    void Follow(size_t slot, const std::string &log);
    void ForgetOthers(size_t slot, const std::string &log);
    void Write(size_t slot);
    void Tell(const std::string &log, const logs::LogLoss &loss);

    host::Store &store_;
    host::RegistryTree &registry_;
    Slots slots_;
    std::array<Read, std::tuple_size_v<Slots>> read_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_LOSS_NOTES_H
