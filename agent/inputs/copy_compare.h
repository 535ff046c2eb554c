// Is a file the copy of another one, or the beginning of a copy that is being made?
#ifndef AGENT_INPUTS_COPY_COMPARE_H
#define AGENT_INPUTS_COPY_COMPARE_H

#include "agent/inputs/followed_file.h"
#include "agent/inputs/log_content.h"

namespace inputs {

// How the content of a file compares with that of one that it may be a copy of.
enum class Likeness {
    kNone,      // they differ, or there is nothing to compare
    kBeginning, // it is the beginning of that one
    kCutOff,    // the same, and its compressed form is not complete
    kWhole,     // it is all of that one
    kUnknown,   // that one has just gone, or changed
};

// Compares a file with one that is followed, both from their beginnings. Throws host::Error when the copy cannot be read.
Likeness Compare(LogContent *copy, FollowedFile *original);

} // namespace inputs

#endif // AGENT_INPUTS_COPY_COMPARE_H
