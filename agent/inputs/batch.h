// What was read of the inputs and is not stored yet: lines for the spool, and what is to be stored together
// with them.
#ifndef AGENT_INPUTS_BATCH_H
#define AGENT_INPUTS_BATCH_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace inputs {

// An input is the registry key that configures it.
using InputId = int64_t;

// Entries were gone before they could be read.
struct Loss {
    std::string input; // its name
    std::string what;  // the file or journal, what is missing, and why
};

struct Batch {
    std::string text; // whole lines

    // The lines from an offset of the text on, up to the next one's, are of this log.
    struct Origin {
        size_t at = 0;
        std::string input; // its name
        std::string log;   // the file; of a journal, empty
    };
    std::vector<Origin> origins;

    // The entry whose line begins at an offset has a stamp of its own that the module would not take.
    struct OwnStamp {
        size_t at = 0;
        std::string stamp;
    };
    std::vector<OwnStamp> own_stamps;

    // The new places, by input and number; nothing: it is forgotten.
    std::map<std::pair<InputId, int64_t>, std::optional<std::string>> places;

    std::vector<Loss> losses;

    [[nodiscard]] bool IsEmpty() const { return text.empty() && places.empty() && losses.empty(); }

    // The text that follows is of this log.
    void BeginOrigin(const std::string &input, const std::string &log)
    {
        if (!origins.empty() && origins.back().at == text.size())
            origins.pop_back();
        if (origins.empty() || origins.back().input != input || origins.back().log != log)
            origins.push_back({text.size(), input, log});
    }
};

} // namespace inputs

#endif // AGENT_INPUTS_BATCH_H
