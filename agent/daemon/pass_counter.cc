#include "agent/daemon/pass_counter.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <map>
#include <tuple>

namespace syslogmond {

namespace {

using history::Kind;

// The module has no place for an argument of whoever follows it. Of the monitor thread.
PassCounter *counting = nullptr;

} // namespace

PassCounter::PassCounter(host::Host &host, policy::FindLineTime find_time)
    : host_(host), find_time_(std::move(find_time)), writer_(host.store())
{
    counting = this;
    host_.SetPassFollower(FollowPass);
}

PassCounter::~PassCounter()
{
    host_.SetPassFollower(nullptr);
    counting = nullptr;
}

// ---- hits ----

void PassCounter::BeginTable()
{
    table_.clear();
    const host::ModuleTable &table = host_.table();
    const int size = table.Size();
    for (int i = 0; i < size; ++i) {
        const VKVMon &entry = *table.entries[i];
        table_.push_back({entry.Source, entry.EventID, entry.ReportCount, entry.CurrentCount});
    }
}

// The usual pass: only numbers are compared.
void PassCounter::CountHits()
{
    const host::ModuleTable &table = host_.table();
    for (size_t i = 0; i < table_.size(); ++i) {
        Entry &before = table_[i];
        const int32_t hits = table.entries[i]->CurrentCount;
        if (hits == before.hits)
            continue;
        news_.Add({Kind::kHits, before.source, before.id}, int64_t{hits} - before.hits);
        before.hits = hits;
    }
}

// An entry of the same source, ID and report count has kept its hits; any other begins with none.
void PassCounter::CountHitsOfNewTable()
{
    std::map<std::tuple<std::string, uint32_t, int32_t>, int32_t> before;
    for (const Entry &entry : table_)
        before.try_emplace({entry.source, entry.id, entry.report_count}, entry.hits);
    BeginTable();
    for (const Entry &entry : table_) {
        const auto found = before.find({entry.source, entry.id, entry.report_count});
        const int64_t hits = entry.hits - (found != before.end() ? found->second : 0);
        if (hits != 0)
            news_.Add({Kind::kHits, entry.source, entry.id}, hits);
    }
}

// The counter of the entry goes back to 0 with its report, which CountHits sees as hits less than before.
void PassCounter::Reported(const ReportRequest &request, policy::Outcome::Kind outcome,
                           int64_t hits)
{
    using Outcome = policy::Outcome::Kind;
    if (outcome == Outcome::kNoHit)
        return;
    news_.Add({Kind::kHits, request.source, request.eventId}, hits);
    if (outcome == Outcome::kReported)
        news_.Add({Kind::kAlerts, request.source, request.eventId}, 1);
    if (outcome == Outcome::kHeldBack)
        news_.Add({Kind::kHeldBack, request.source, request.eventId}, 1);
}

// ---- lines ----

int PassCounter::FollowPass(const PassPlace *place)
{
    if (counting != nullptr)
        counting->Follow(*place);
    return 0;
}

// Of a file, each call tells of more lines and of a later place than the one before.
void PassCounter::Follow(const PassPlace &place)
{
    if (place.slot != file_.slot || place.lines < file_.lines ||
        (place.text != nullptr && place.pos < file_.end))
        BeginFile(place);
    file_.lines = place.lines;
    if (place.text == nullptr)
        return;
    // A line that was cut is longer in the file: what is missing is counted with the next one.
    const int64_t end = place.pos + static_cast<int64_t>(strlen(place.text)) + 1;
    if (place.number > 0)
        file_.bytes += end - file_.end;
    file_.end = end;
    if (place.outcome == LINE_WITHOUT_TIME)
        ++file_.without_time;
}

// Its first line has waited for longest.
void PassCounter::BeginFile(const PassPlace &place)
{
    EndFile();
    file_.log = host_.log_in_pass();
    file_.slot = place.slot;
    file_.end = place.pos;
    if (place.text == nullptr)
        return;
    if (const auto time_s = find_time_(place.text))
        news_.Add({Kind::kBehind, file_.log, 0}, std::max<int64_t>(time(nullptr) - *time_s, 0));
}

void PassCounter::EndFile()
{
    for (const auto &[kind, value] :
         {std::pair(Kind::kLines, file_.lines), std::pair(Kind::kBytes, file_.bytes),
          std::pair(Kind::kWithoutTime, file_.without_time)}) {
        if (value > 0)
            news_.Add({kind, file_.log, 0}, value);
    }
    file_ = {};
}

void PassCounter::TargetLinesAreRead(const std::string &path, int64_t lines, int64_t bytes)
{
    news_.Add({Kind::kLines, path, 0}, lines);
    news_.Add({Kind::kBytes, path, 0}, bytes);
}

void PassCounter::Stored(const inputs::Batch &batch)
{
    for (size_t i = 0; i < batch.origins.size(); ++i) {
        const auto &origin = batch.origins[i];
        const size_t end =
            i + 1 < batch.origins.size() ? batch.origins[i + 1].at : batch.text.size();
        const auto *begin = batch.text.data() + origin.at;
        const int64_t lines = std::count(begin, batch.text.data() + end, '\n');
        news_.Add({Kind::kInputLines, origin.input, 0}, lines);
        news_.Add({Kind::kInputBytes, origin.input, 0}, static_cast<int64_t>(end - origin.at));
    }
}

// ---- the end of a pass ----

void PassCounter::AddPasses()
{
    for (size_t i = 0; i < passes_.size(); ++i) {
        if (passes_[i] > 0)
            news_.Add({Kind::kPasses, "passes", static_cast<uint32_t>(i)}, passes_[i]);
    }
    if (pass_time_us_ > 0)
        news_.Add({Kind::kPassTime, "passes", 0}, pass_time_us_);
}

void PassCounter::Save(bool table_is_reloaded)
{
    EndFile();
    if (table_is_reloaded || static_cast<size_t>(host_.table().Size()) != table_.size())
        CountHitsOfNewTable();
    else
        CountHits();
    if (news_.IsEmpty())
        return;
    AddPasses();
    writer_.Save(news_, time(nullptr));
}

void PassCounter::Committed(int64_t took_us)
{
    if (!news_.IsEmpty()) {
        news_.Clear();
        passes_.fill(0);
        pass_time_us_ = 0;
    }
    const auto *const bound = std::ranges::lower_bound(history::kPassBounds, took_us);
    ++passes_[static_cast<size_t>(bound - std::begin(history::kPassBounds))];
    pass_time_us_ += took_us;
}

} // namespace syslogmond
