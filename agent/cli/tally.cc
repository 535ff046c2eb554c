#include "agent/cli/tally.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "agent/host/error.h"
#include "platform/contract.h"

namespace cli {

namespace {

// How a syslog daemon writes that the line before came so many times more. The module's pass looks
// for the same.
constexpr char kRepeat[] = "last message repeated";
constexpr char kRepeatFormat[] = "last message repeated %d times";

// The module calls without a context. Null: none is under way.
Tally *under_way = nullptr;

// What the module calls when no tally is under way: nothing was sent, and nothing is said to have
// failed.
int IgnoreReport(ReportRequest * /*request*/)
{
    return 1;
}

bool IsRepeat(const char *line, int *times)
{
    const char *repeat = strstr(line, kRepeat);
    return repeat != nullptr && sscanf(repeat, kRepeatFormat, times) == 1;
}

// The sum of what several lines say may be larger than an int.
int AddSaturated(int a, int b)
{
    return static_cast<int>(std::clamp<int64_t>(int64_t{a} + b, INT_MIN, INT_MAX));
}

} // namespace

Tally::Tally(monitor::Module &module, HourOf hour)
    : module_(module), hour_of_(hour),
      table_(module.table().entries, module.table().entries + *module.table().count),
      count_before_(table_.size()), events_(table_.size())
{
    for (size_t i = 0; i < table_.size(); ++i) {
        hours_.push_back(table_[i]->WatchTime);
        // By address: a report points to the source in its entry, and two entries may have sources
        // of one name.
        index_[table_[i]->Source] = i;
        if (table_[i]->ReportCount > 1)
            counting_.push_back(i);
    }
    under_way = this;
    *module_.pVKMonitorCall = TakeReport;
    // Reports that are withheld are wanted, too, to be told of.
    *module_.report_ft = 1;
}

Tally::~Tally()
{
    // In the order of the constructor, backwards; the module ends with the table that it has
    // loaded.
    WatchHour(-1);
    *module_.report_ft = 0;
    *module_.pVKMonitorCall = IgnoreReport;
    under_way = nullptr;
}

int Tally::TakeReport(ReportRequest *request)
{
    const auto found = under_way->index_.find(request->source);
    // Not in the table: the probe of FindsKeyword.
    under_way->reported_.push_back(found != under_way->index_.end() ? found->second : SIZE_MAX);
    return 1;
}

// ---- time ----

std::optional<logs::StampProblem> Tally::StampProblem(const std::string &line)
{
    time_t stamp = 0;
    if (module_.GetSyslogTime(line.c_str(), &stamp) != 0)
        return std::nullopt;
    return logs::StampProblemOf(line);
}

int Tally::HourFor(const std::string &line)
{
    time_t moment = time(nullptr);
    if (hour_of_ == HourOf::kLine)
        module_.GetSyslogTime(line.c_str(), &moment);
    struct tm local {};
    localtime_r(&moment, &local);
    return local.tm_hour;
}

bool Tally::IsWatched(size_t index, int hour)
{
    return (hours_[index] >> static_cast<unsigned>(hour) & 1U) != 0;
}

// Sets the table so that the events that watch this hour count now, whatever the time is, and the
// others do not. -1: as it was loaded.
void Tally::WatchHour(int hour)
{
    if (hour == watched_hour_)
        return;
    watched_hour_ = hour;
    // The module asks for the hour of now. All hours, or none, is the answer that does not depend
    // on it.
    for (size_t i = 0; i < table_.size(); ++i) {
        if (hour < 0)
            table_[i]->WatchTime = hours_[i];
        else
            table_[i]->WatchTime = IsWatched(i, hour) ? events::kAllHours : 0;
    }
}

// ---- one line ----

void Tally::Check(Sighting &line, int times)
{
    matched_.clear();
    // The module would pass it over as well, and trace it; asked here, it is known why.
    if (const auto problem = StampProblem(line.text)) {
        UnseenTally &unseen = unseen_[static_cast<size_t>(*problem)];
        if (unseen.lines++ == 0)
            unseen.first = line;
        return;
    }
    if (hour_of_ == HourOf::kLine)
        WatchHour(HourFor(line.text));
    if (line.text.find(kSyslogIdentifier) != std::string::npos)
        // It is checked all the same: the module leaves it out by itself.
        ++own_lines_;
    for (const size_t i : counting_)
        // Only of those that count, since this is done for each line.
        count_before_[i] = table_[i]->CurrentCount;
    reported_.clear();
    module_.CheckLine(line.text.data(), times);
    NoteMatches(line, times);
}

// An event that needs one hit reports each match; one that needs several shows a match by its
// count.
void Tally::NoteMatches(const Sighting &line, int times)
{
    matched_ = reported_;
    for (const size_t i : reported_) {
        const bool withheld = strcmp(table_[i]->Source, kWithheldSource) == 0;
        ++(withheld ? events_[i].withheld : events_[i].reports);
    }
    // One that has reported is there already.
    for (const size_t i : counting_) {
        if (table_[i]->CurrentCount != count_before_[i] &&
            std::find(reported_.begin(), reported_.end(), i) == reported_.end())
            matched_.push_back(i);
    }
    std::sort(matched_.begin(), matched_.end());
    for (const size_t i : matched_) {
        EventTally &event = events_[i];
        ++event.lines;
        event.hits += times;
        if (!event.first)
            event.first = line;
        event.last = line;
    }
}

bool Tally::FindsKeyword(const std::string &line, const std::string &keyword)
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
    // A copy: the module takes it as writable.
    std::string text = line;
    module_.CheckLine(text.data(), 1);
    *module_.table().count = count;
    std::swap_ranges(slots.begin(), slots.end(), module_.table().entries);
    return !reported_.empty();
}

// ---- a file ----

void Tally::ReadLog(const TrialLog &log, const std::function<bool(int64_t)> &step)
{
    if (module_.InitFile(log.path.c_str()) != 0)
        throw host::Error("cannot read " + log.name, strerror(errno),
                          "name a log that can be read");
    FileTally file;
    file.name = log.name;
    files_.push_back(std::move(file));
    // An empty file cannot be positioned, and has nothing to be read.
    if (log.bytes > 0)
        ReadOpenFile(step);
    module_.FinishFile();
}

void Tally::ReadOpenFile(const std::function<bool(int64_t)> &step)
{
    FileTally &file = files_.back();
    // Before everything: the cursor stands before the first line.
    int64_t pos = -1;
    char text[kLineBufferSize] = {};
    if (module_.GotoPos(&pos, text, kLineBufferSize) != 0)
        throw host::Error("cannot read " + file.name, "it cannot be positioned",
                          "name a log that is not being changed");
    // A line waits until the one behind it is known, because the repeats that follow belong to it.
    Sighting waiting;
    bool is_waiting = false;
    int times = 0;
    bool go_on = true;
    while (go_on && module_.FEof() == 0 && module_.GetNextLine(&pos, text, kLineBufferSize) == 0) {
        ++file.lines;
        ++lines_;
        int repeated = 0;
        if (IsRepeat(text, &repeated)) {
            ++repeats_;
            // Repeats before the first line of a file belong to none, and are lost.
            times = AddSaturated(times, repeated);
        } else {
            if (is_waiting)
                Check(waiting, times);
            waiting.file = files_.size() - 1;
            waiting.number = file.lines;
            waiting.text = text;
            is_waiting = true;
            times = 1;
        }
        // About: a line that was cut or holds a zero byte is longer in the file.
        file.bytes = pos + static_cast<int64_t>(strlen(text)) + 1;
        go_on = step(file.bytes);
    }
    // The last one, which nothing follows. Also after an interruption, where nobody looks at it.
    if (is_waiting)
        Check(waiting, times);
}

} // namespace cli
