// Brings batches into the spool, and the module to the spool. On the monitor thread.
//
// What is stored of a batch is part of the pass that is about to be committed: the length of the spool, the places
// in the inputs, alerts about losses. The bytes are on the disk before that.
#ifndef AGENT_INPUTS_SPOOL_KEEPER_H
#define AGENT_INPUTS_SPOOL_KEEPER_H

#include <filesystem>
#include <optional>
#include <string>
#include <unordered_map>

#include "agent/host/registry_tree.h"
#include "agent/host/store.h"
#include "agent/inputs/batch.h"
#include "agent/inputs/customer_file.h"
#include "agent/inputs/input_store.h"
#include "agent/inputs/spool.h"

namespace inputs {

class SpoolKeeper {
  public:
    SpoolKeeper(host::Store &store, host::RegistryTree &registry,
                const std::filesystem::path &spool)
        : store_(store), registry_(registry), customer_(store, registry), file_(spool)
    {
    }

    // Before the module starts: with inputs, makes the spool what the store says, and the module's customer file; the
    // one that is set becomes an input. Without, gives the module its customer file back, as soon as all of the spool
    // was read. Commits. Throws host::Error.
    void Prepare(bool has_inputs, int64_t wall_seconds);

    // Does the module follow the spool?
    [[nodiscard]] bool IsInForce() const { return is_in_force_; }

    // For who waits for the end of the inputs: can the module have its customer file back, once all of the spool was
    // read? And was it?
    [[nodiscard]] bool CanEnd() { return customer_.CanReturn(); }
    [[nodiscard]] bool AllIsRead() { return ReadTo() == state_.length; }

    // While the module rests, before its pass is committed: is the spool there still? One that was removed is put back;
    // what is missing of one that was cut is told. Throws host::StoreError; the pass is then broken.
    void LookAfterSpool();
    // Likewise: brings a batch into the spool. False: it has to wait,
    // for the reason that problem() gives. Throws host::StoreError; the pass is then broken.
    bool Store(const Batch &batch);
    // The pass was committed; or was not.
    void Committed();
    void Abandoned() { next_.reset(); }

    [[nodiscard]] const std::filesystem::path &path() const { return file_.path(); }

    // Why a batch waits; empty: none does.
    [[nodiscard]] const std::string &problem() const { return problem_; }

    // The log of a line that the module reports in the pass under way, when the spool holds it.
    std::optional<SpoolOrigin> OriginOf(const std::string &line);

  private:
    bool TakesCustomerFileBack();
    void TakeCustomerFile(bool stands_in_spool);
    void LookAtSpool(bool stands_in_spool, int64_t wall_seconds);
    void BeginGeneration(int64_t generation);
    [[nodiscard]] std::optional<ModulePlace> ReadModulePlace();
    void WriteModulePlace(const std::string &path, const ModulePlace &place);
    [[nodiscard]] int64_t ReadTo();
    [[nodiscard]] bool StandsInSpool();
    std::string Text(const char *name);
    std::optional<uint32_t> Number(const char *name);
    [[nodiscard]] int64_t Limit();
    void Tell(const Loss &loss);
    void TellMissing(int64_t read_to);
    void IndexUnread();

    host::Store &store_;
    host::RegistryTree &registry_;
    CustomerFile customer_;
    SpoolFile file_;
    bool is_in_force_ = false;
    SpoolState state_;               // committed
    std::optional<SpoolState> next_; // stored in the pass under way
    std::string problem_;

    // Where the lines are that the pass reads, by their hashes; made with the first report of a pass.
    std::unordered_multimap<size_t, int64_t> unread_;
    bool has_index_ = false;
};

} // namespace inputs

#endif // AGENT_INPUTS_SPOOL_KEEPER_H
