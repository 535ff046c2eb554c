// The lines that the agent has written itself.
#ifndef MATCH_OWN_LINES_H
#define MATCH_OWN_LINES_H

// The agent writes its own messages under this identifier. Skipping the lines that hold it keeps a report
// from being matched, and reported, again.
constexpr char kOwnLines[] = "TARSKvkvmain";

#endif // MATCH_OWN_LINES_H
