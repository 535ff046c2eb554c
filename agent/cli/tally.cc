#include "agent/cli/tally.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

#include "agent/cli/matched_line.h"
#include "agent/events/events.h"
#include "agent/host/error.h"
#include "platform/contract.h"

namespace cli {

namespace {

// The module calls without a context. Null: none is under way.
Tally *under_way = nullptr;

// What the module calls when no tally is under way: nothing was sent, and nothing is said to have
// failed.
int IgnoreReport(ReportRequest * /*request*/)
{
    return 1;
}

int64_t Sum(const std::vector<FileTally> &files, int64_t FileTally::*number)
{
    return std::accumulate(files.begin(), files.end(), int64_t{0},
                           [&](int64_t sum, const FileTally &file) { return sum + file.*number; });
}

} // namespace

Tally::Tally(monitor::Module &module, host::Host &host, HourOf hour)
    : module_(module), host_(host), hour_of_(hour),
      policies_(events::EventRegistry(host.registry()).ReadAll())
{
    const host::ModuleTable &table = module_.table();
    for (int i = 0; i < table.Size(); ++i) {
        VKVMon *entry = table.entries[i];
        // By address: a report points to the source in its entry, and two entries may have sources
        // of one name.
        index_[entry->Source] = entries_.size();
        entries_.push_back({entry, entry->WatchTime, entry->ReportCount});
    }
    events_.resize(entries_.size());
    SetUpTable();
    under_way = this;
    *module_.pVKMonitorCall = TakeReport;
    // Reports that are withheld are wanted, too, to be told of.
    *module_.report_ft = 1;
    host_.SetPassFollower(FollowPass);
}

Tally::~Tally()
{
    // In the order of the constructor, backwards; the module ends with the table that it has
    // loaded.
    host_.SetPassFollower(nullptr);
    *module_.report_ft = 0;
    *module_.pVKMonitorCall = IgnoreReport;
    under_way = nullptr;
    for (const Entry &entry : entries_) {
        entry.entry->WatchTime = entry.hours;
        entry.entry->ReportCount = entry.report_count;
    }
}

// So that the module tells of each match. An event that it would never report stays so.
void Tally::SetUpTable()
{
    for (const Entry &entry : entries_) {
        entry.entry->ReportCount = std::min(entry.report_count, 1);
        // The module asks for the hour of now; that of a line is asked for here.
        if (hour_of_ == HourOf::kLine)
            entry.entry->WatchTime = events::kAllHours;
    }
}

// ---- one line ----

int Tally::TakeReport(ReportRequest *request)
{
    const auto found = under_way->index_.find(request->source);
    if (found != under_way->index_.end())
        under_way->reported_.push_back(found->second);
    return 1;
}

// Of slot 0 no line is read.
int Tally::FollowPass(const PassPlace *place)
{
    FileTally &file = under_way->files_.back();
    file.lines = place->lines;
    file.repeats = place->repeats;
    if (place->text != nullptr) {
        // About: a line that was cut is longer in the file.
        file.bytes = place->pos + static_cast<int64_t>(strlen(place->text)) + 1;
        under_way->Note(*place);
    }
    return (*under_way->step_)(file.bytes, file.lines) ? 0 : 1;
}

Sighting Tally::SightingOf(const PassPlace &place) const
{
    return {files_.size() - 1, place.number, place.text};
}

void Tally::Note(const PassPlace &place)
{
    if (place.outcome == LINE_WITHOUT_TIME)
        NoteUnseen(place);
    if (place.outcome == LINE_OF_AGENT)
        ++own_lines_;
    if (!reported_.empty() && hour_of_ == HourOf::kLine) {
        const int hour = HourFor(module_, hour_of_, place.text);
        std::erase_if(reported_, [&](size_t i) { return !WatchesHour(entries_[i].hours, hour); });
    }
    for (const size_t index : reported_)
        NoteMatch(index, place);
    reported_.clear();
}

void Tally::NoteUnseen(const PassPlace &place)
{
    UnseenTally &unseen = unseen_[static_cast<size_t>(logs::StampProblemOf(place.text))];
    if (unseen.lines++ == 0)
        unseen.first = SightingOf(place);
}

void Tally::NoteMatch(size_t index, const PassPlace &place)
{
    const policy::Outcome outcome = Judge(index, place);
    if (outcome.kind == policy::Outcome::Kind::kNoHit)
        return;
    if (follow_)
        follow_(*entries_[index].entry, place, outcome.kind);
    EventTally &event = events_[index];
    ++event.lines;
    event.hits += place.times;
    if (!event.first)
        event.first = SightingOf(place);
    event.last = SightingOf(place);
    if (outcome.kind == policy::Outcome::Kind::kHeldBack)
        ++event.held_back;
    if (outcome.kind != policy::Outcome::Kind::kReported)
        return;
    const bool is_withheld = strcmp(entries_[index].entry->Source, kWithheldSource) == 0;
    ++(is_withheld ? event.withheld : event.reports);
}

// By the policy of the event, as in the daemon; without one as the monitor itself counts.
policy::Outcome Tally::Judge(size_t index, const PassPlace &place)
{
    using Kind = policy::Outcome::Kind;
    Entry &entry = entries_[index];
    policy::Policy *policy = policies_.Find({entry.entry->Source, entry.entry->EventID});
    if (policy != nullptr && policy->count() != nullptr)
        return policy->Take(MatchedLineOf(module_, place.text, place.times));
    entry.count += place.times;
    if (entry.count < entry.report_count)
        return {Kind::kCounted, entry.count, {}};
    // However many there are, a line is reported once.
    return {Kind::kReported, std::exchange(entry.count, 0), {}};
}

// ---- a file ----

void Tally::ReadLog(const TrialLog &log, const std::function<bool(int64_t, int64_t)> &step)
{
    FileTally file;
    file.name = log.name;
    files_.push_back(std::move(file));
    // An empty file has nothing to be read.
    if (log.bytes == 0)
        return;
    step_ = &step;
    PassOver(host_, module_, log);
    if (files_.back().lines == 0)
        throw host::Error("cannot read " + log.name, "the monitor does not come to its first line",
                          "name a log that is not being changed");
}

int64_t Tally::lines() const
{
    return Sum(files_, &FileTally::lines);
}

int64_t Tally::repeats() const
{
    return Sum(files_, &FileTally::repeats);
}

} // namespace cli
