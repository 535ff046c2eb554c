#include "agent/cli/line_trial.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "agent/events/events.h"
#include "platform/contract.h"

namespace cli {

namespace {

// The module calls without a context. Null: none is under way.
LineTrial *under_way = nullptr;

// What the module calls when no trial is under way: nothing was sent, and nothing is said to have
// failed.
int IgnoreReport(ReportRequest * /*request*/)
{
    return 1;
}

} // namespace

LineTrial::LineTrial(monitor::Module &module, HourOf hour)
    : module_(module), hour_of_(hour),
      table_(module.table().entries, module.table().entries + module.table().Size())
{
    for (const VKVMon *entry : table_)
        hours_.push_back(entry->WatchTime);
    under_way = this;
    *module_.pVKMonitorCall = TakeReport;
    // Reports that are withheld are wanted, too, to be told of.
    *module_.report_ft = 1;
}

LineTrial::~LineTrial()
{
    // In the order of the constructor, backwards; the module ends with the table that it has
    // loaded.
    WatchHour(-1);
    *module_.report_ft = 0;
    *module_.pVKMonitorCall = IgnoreReport;
    under_way = nullptr;
}

// By the address of the source: two entries may have sources of one name.
int LineTrial::TakeReport(ReportRequest *request)
{
    const auto &table = under_way->table_;
    const auto found = std::find_if(table.begin(), table.end(), [&](const VKVMon *entry) {
        return entry->Source == request->source;
    });
    // Not in the table: the probe of FindsKeyword.
    under_way->reported_.push_back(static_cast<size_t>(found - table.begin()));
    return 1;
}

// ---- time ----

std::optional<logs::StampProblem> LineTrial::StampProblem(const std::string &line) const
{
    time_t stamp = 0;
    if (module_.GetSyslogTime(line.c_str(), &stamp) != 0)
        return std::nullopt;
    return logs::StampProblemOf(line);
}

int LineTrial::HourOfLine(const std::string &line) const
{
    return HourFor(module_, hour_of_, line.c_str());
}

bool LineTrial::IsWatched(size_t index, int hour) const
{
    return WatchesHour(hours_[index], hour);
}

// Sets the table so that the events that watch this hour count now, whatever the time is, and the
// others do not. -1: as it was loaded.
void LineTrial::WatchHour(int hour)
{
    // The module asks for the hour of now. All hours, or none, is the answer that does not depend
    // on it.
    for (size_t i = 0; i < table_.size(); ++i) {
        if (hour < 0)
            table_[i]->WatchTime = hours_[i];
        else
            table_[i]->WatchTime = IsWatched(i, hour) ? events::kAllHours : 0;
    }
}

// ---- the line ----

// An event that needs one hit reports each match; one that needs several shows a match by its
// count.
std::vector<size_t> LineTrial::Check(const std::string &line, int times)
{
    if (hour_of_ == HourOf::kLine)
        WatchHour(HourOfLine(line));
    std::vector<int32_t> before;
    for (const VKVMon *entry : table_)
        before.push_back(entry->CurrentCount);
    reported_.clear();
    // A copy: the module takes it as writable.
    std::string text = line;
    module_.CheckLine(text.data(), times);
    std::vector<size_t> matched;
    for (size_t i = 0; i < table_.size(); ++i) {
        const bool has_reported =
            std::find(reported_.begin(), reported_.end(), i) != reported_.end();
        if (has_reported || table_[i]->CurrentCount != before[i])
            matched.push_back(i);
    }
    return matched;
}

bool LineTrial::FindsKeyword(const std::string &line, const std::string &keyword)
{
    // A table of one event with this keyword.
    VKVMon probe{};
    memcpy(probe.Keyword1, keyword.c_str(), std::min(keyword.size(), kKeywordSize - 1));
    probe.WatchTime = events::kAllHours;
    probe.ReportCount = 1;
    std::vector<VKVMon *> slots(kMaxEntries, nullptr);
    // Exchanged and put back: the module looks at no other table than its own.
    slots[0] = &probe;
    std::swap_ranges(slots.begin(), slots.end(), module_.table().entries);
    const int count = std::exchange(*module_.table().count, 1);
    reported_.clear();
    std::string text = line;
    module_.CheckLine(text.data(), 1);
    *module_.table().count = count;
    std::swap_ranges(slots.begin(), slots.end(), module_.table().entries);
    return !reported_.empty();
}

} // namespace cli
