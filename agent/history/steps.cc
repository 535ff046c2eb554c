#include "agent/history/steps.h"

#include <charconv>

namespace history {

std::string ToText(const Values &values)
{
    std::string text;
    for (const auto &[series, value] : values) {
        if (!text.empty())
            text += ' ';
        text += std::to_string(series) + '=' + std::to_string(value);
    }
    return text;
}

Values FromText(std::string_view text)
{
    Values values;
    const char *at = text.data();
    const char *const end = at + text.size();
    while (at != end) {
        int64_t series = 0;
        int64_t value = 0;
        const auto [equals, bad_series] = std::from_chars(at, end, series);
        if (bad_series != std::errc() || equals == end || *equals != '=')
            break;
        const auto [behind, bad_value] = std::from_chars(equals + 1, end, value);
        if (bad_value != std::errc())
            break;
        values[series] = value;
        at = behind == end ? end : behind + 1;
    }
    return values;
}

void MergeInto(Values *values, const Values &more, const Kinds &kinds)
{
    for (const auto &[series, value] : more) {
        const auto kind = kinds.find(series);
        if (kind == kinds.end())
            continue;
        const auto [place, is_new] = values->try_emplace(series, value);
        if (!is_new)
            Merge(kind->second, value, &place->second);
    }
}

std::vector<Step> ReadSteps(host::Database &database, int64_t length, int64_t from, int64_t until)
{
    std::vector<Step> steps;
    host::Statement select(database, "SELECT begin, \"values\" FROM history"
                                     " WHERE length = ? AND begin >= ? AND begin < ?"
                                     " ORDER BY begin");
    select.Start(length, from, until);
    while (select.Next())
        steps.push_back({select.Integer(0), FromText(select.Bytes(1))});
    return steps;
}

} // namespace history
