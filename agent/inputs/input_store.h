// What the store knows of the inputs beside their configuration: places, the spool, and which of its lines are of
// which log.
#ifndef AGENT_INPUTS_INPUT_STORE_H
#define AGENT_INPUTS_INPUT_STORE_H

#include <optional>
#include <string>
#include <vector>

#include "agent/host/store.h"
#include "agent/inputs/batch.h"
#include "agent/inputs/file_follower.h"
#include "agent/inputs/spool.h"

namespace inputs {

// The places of an input.
std::vector<StoredPlace> ReadPlaces(host::Database &database, InputId input);

// Writes the places of a batch. Those of an input that was removed meanwhile are left out.
void WritePlaces(host::Store &store, const Batch &batch);

// The state of the spool; a generation of 0 when there is none.
SpoolState ReadSpoolState(host::Database &database);
void WriteSpoolState(host::Store &store, const SpoolState &state);

// Notes of which logs the lines of a batch are that begins at an offset of the spool.
void WriteOrigins(host::Store &store, const Batch &batch, int64_t at);
// Of a new generation nothing is noted.
void ForgetOrigins(host::Store &store);

struct SpoolOrigin {
    std::string input;
    std::string log;       // the file; empty: a journal
    std::string own_stamp; // of an entry whose stamp was replaced
};
// Of the line that begins at this offset of the spool.
std::optional<SpoolOrigin> ReadOrigin(host::Database &database, int64_t at);

} // namespace inputs

#endif // AGENT_INPUTS_INPUT_STORE_H
