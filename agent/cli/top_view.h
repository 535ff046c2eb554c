// What `top` shows: the lines of a screen, made of what there is to be seen and of what was chosen. Nothing here knows
// the terminal.
#ifndef AGENT_CLI_TOP_VIEW_H
#define AGENT_CLI_TOP_VIEW_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/cli/top_reason.h"
#include "agent/events/events.h"
#include "agent/history/history_reader.h"
#include "agent/metrics/overview.h"
#include "agent/status/sign_of_life.h"

namespace cli {

enum class TopOrder { kRate, kHits, kName };

// What the keys have chosen.
struct TopChoice {
    TopOrder order = TopOrder::kRate;
    std::string filter;        // in source, ID or keywords, in small or capital letters
    bool types_filter = false; // it is being typed
    size_t selected = 0;       // among the events that are shown
    bool explains = false;     // the selected one is explained
    // The event that is explained, as the screen was made; nothing: none is.
    std::optional<events::EventKey> explained;
};

struct TopSight {
    metrics::Overview view;
    history::Course course;          // hits of the last minutes
    std::vector<std::string> newest; // alerts as lines, newest first
    std::optional<TopReason> reason; // of the event that is explained; nothing: not looked for yet
    std::string host;
    std::string clock;
};

// How a line stands out.
enum class TopStyle { kPlain, kHead, kBad, kSelected, kQuiet };

struct TopLine {
    std::string text; // as wide as the screen at most, in columns
    TopStyle style = TopStyle::kPlain;

    bool operator==(const TopLine &) const = default;
};

// The screen, a line for each row. `is_utf8`: the terminal shows more than ASCII. Brings the selection into the range of
// what is shown, and says which event is explained.
std::vector<TopLine> TopScreen(const TopSight &sight, int rows, int columns, bool is_utf8,
                               TopChoice *choice);

// Minutes of hits that the spark lines show.
constexpr int kTopMinutes = 30;

} // namespace cli

#endif // AGENT_CLI_TOP_VIEW_H
