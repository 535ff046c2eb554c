#include "agent/cli/event_json.h"

#include <nlohmann/json.hpp>

namespace cli {

using nlohmann::json;

json KeyToJson(const events::EventKey &key)
{
    return {{"source", key.source}, {"id", events::FormatEventId(key.id)}};
}

json ValuesToJson(const events::EventRecord &event)
{
    json keywords = json::array();
    size_t count = event.keywords.size();
    while (count > 0 && event.keywords[count - 1].empty())
        --count;
    for (size_t k = 0; k < count; ++k)
        keywords.push_back(event.keywords[k]);
    return {{"keywords", keywords},
            {"report_count", event.report_count},
            {"hours", events::FormatHours(event.hours)}};
}

} // namespace cli
