#include "agent/cli/event_json.h"

#include <nlohmann/json.hpp>

#include "agent/text/duration.h"

namespace cli {

using nlohmann::json;

json KeyToJson(const events::EventKey &key)
{
    return {{"source", key.source}, {"id", events::FormatEventId(key.id)}};
}

json PolicyToJson(const events::EventPolicy &policy)
{
    json values = json::object();
    for (const auto &[name, text] :
         {std::pair("severity", &policy.severity), std::pair("summary", &policy.summary),
          std::pair("runbook_url", &policy.runbook_url)}) {
        if (!text->empty())
            values[name] = *text;
    }
    if (!policy.labels.empty())
        values["labels"] = policy.labels;
    if (policy.within_s > 0)
        values["within"] = text::FormatDuration(policy.within_s);
    if (policy.cooldown_s > 0)
        values["cooldown"] = text::FormatDuration(policy.cooldown_s);
    if (policy.absent_s > 0)
        values["absent"] = text::FormatDuration(policy.absent_s);
    if (!policy.per.empty())
        values["per"] = policy.per;
    if (!policy.regex.empty())
        values["regex"] = policy.regex;
    json except = json::array();
    for (const events::ExcludedText &excluded : policy.except)
        except.push_back(excluded.is_expression ? json{{"regex", excluded.text}}
                                                : json(excluded.text));
    if (!except.empty())
        values["not"] = except;
    if (policy.ignore_case)
        values["ignore_case"] = true;
    return values;
}

json ValuesToJson(const events::EventRecord &event)
{
    json keywords = json::array();
    size_t count = event.keywords.size();
    while (count > 0 && event.keywords[count - 1].empty())
        --count;
    for (size_t k = 0; k < count; ++k)
        keywords.push_back(event.keywords[k]);
    json values = {{"keywords", keywords},
                   {"report_count", event.report_count},
                   {"hours", events::FormatHours(event.hours)}};
    values.update(PolicyToJson(event.policy));
    return values;
}

} // namespace cli
