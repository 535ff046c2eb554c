#include "agent/inputs/followed_file.h"

#include <algorithm>
#include <utility>

#include "agent/host/error.h"
#include "agent/inputs/folder_view.h"

namespace inputs {

namespace {

using std::chrono::milliseconds;

// Read at a time. More than two records, so that each reading gets on.
constexpr size_t kChunk = size_t{256} * 1024;
static_assert(kChunk > 2 * kLongestRecord + kLongestTail);

// A batch that has come to this size is handed over.
constexpr size_t kFullBatch = size_t{8} * 1024 * 1024;

// Lines of one record are written together, if not at once.
constexpr milliseconds kRecordIsWhole{2000};
// Of a file, one line that is too long is told of in this time.
constexpr std::chrono::hours kTellOfCutLines{1};
constexpr milliseconds kMarked{1000};
constexpr size_t kMostMarks = 300;
// A file that was rotated or removed, and has not grown for so long, gets no end of its last line any more.
constexpr milliseconds kRotatedIsWhole{10000};

} // namespace

FollowedFile::FollowedFile(int64_t number, Place place) : number_(number), place_(std::move(place))
{
    if (place_.earlier.offset != 0)
        marks_.push_back({SteadyTime{}, place_.earlier});
}

void FollowedFile::Locate(const std::string &path, bool is_live)
{
    is_present = true;
    is_live_ = is_live;
    if (place_.path == path)
        return;
    place_.path = path;
    is_changed = true;
    if (is_live)
        BecomeLogAgain();
}

// A rotated file, or a copy, that somebody has put into the place of the log: what comes now is read, as of any log. Of an
// archive it is not known where that begins.
void FollowedFile::BecomeLogAgain()
{
    place_.done = false;
    place_.kept = false;
    const bool is_empty = place_.offset == 0 && place_.size == 0;
    if (place_.all && !place_.told && (place_.offset > 0 || is_empty))
        place_.all = false;
}

// Of a file that was rotated. By the first line alone of an archive: to come to its place, all before it would have to be
// unpacked.
bool FollowedFile::IsAnother() const
{
    if (was_cut && !place_.identity.IsUnique())
        return true; // nobody writes a rotated file anew
    return MayBeAnother() && HoldsAnother();
}

bool FollowedFile::HoldsAnother() const
{
    if (place_.offset == 0)
        return false;
    try {
        LogContent content(place_.path);
        const auto look = LookAt(content.fd());
        if (!look || look->identity != place_.identity)
            return false;
        // What was never read may have been compressed since its place was taken.
        if (!place_.all && content.IsPacked() != place_.packed)
            return true;
        return !(content.IsPacked() ? HoldsHead(&content, place_) : HoldsPlace(&content, place_));
    } catch (const host::Error &) {
        return false;
    }
}

void FollowedFile::KnowBy(const FileIdentity &identity)
{
    place_.identity = identity;
    is_changed = true;
    if (!is_live_ && HoldsAnother())
        LoseIdentity();
}

void FollowedFile::LoseIdentity()
{
    Close();
    place_.identity = {};
    was_cut = false;
    is_present = false;
    wants_reading = false;
    is_changed = true;
}

void FollowedFile::Adopt(const std::string &path, const FileIdentity &identity)
{
    Close();
    window_.clear();
    marks_.clear();
    place_.earlier = {};
    place_.path = path;
    place_.identity = identity;
    place_.done = false;
    size_ = 0;
    is_live_ = false;
    is_present = true;
    was_cut = false;
    wants_reading = true;
    is_changed = true;
    problem.clear();
}

void FollowedFile::Measure()
{
    const auto look =
        content_ && !place_.packed && !was_cut ? LookAt(content_->fd()) : std::nullopt;
    measured_ = look ? look->size : 0;
}

void FollowedFile::BeginSync()
{
    if (is_unsynced_ && content_)
        content_->BeginSync();
}

void FollowedFile::Sync()
{
    if (is_unsynced_ && content_)
        content_->Sync();
    is_unsynced_ = false;
}

void FollowedFile::Close()
{
    Sync();
    content_.reset();
}

// False: there is another file under the path.
bool FollowedFile::Open()
{
    if (content_)
        return true;
    auto content = std::make_unique<LogContent>(place_.path);
    const auto look = LookAt(content->fd());
    if (!look || look->identity != place_.identity)
        return false;
    content_ = std::move(content);
    window_.clear();
    pending_.clear();
    return true;
}

// Does what is behind the place now begin with what was pending there? Where that was zero, something may have been
// written since: behind a power cut, a log can have such a part.
bool FollowedFile::HoldsPending(std::string_view behind) const
{
    return behind.size() >= pending_.size() &&
           std::equal(pending_.begin(), pending_.end(), behind.begin(),
                      [](char before, char now) { return before == now || before == '\0'; });
}

bool FollowedFile::HoldsPending(LogContent *content) const
{
    std::string behind(pending_.size(), '\0');
    behind.resize(content->Read(place_.offset, behind.data(), behind.size()));
    return HoldsPending(behind);
}

// Gets the bytes around the place, and behind it. False: those that are known are others than they were.
bool FollowedFile::FillWindow(const FileLook &look)
{
    if (!place_.packed && look.size < place_.offset)
        return false;
    const uint64_t begin = place_.offset - place_.tail.length;
    size_t kept = 0; // of a compressed file, which is read forwards only
    if (place_.packed && begin >= window_base_ && begin < window_base_ + window_.size()) {
        window_.erase(0, static_cast<size_t>(begin - window_base_));
        kept = window_.size();
    }
    window_base_ = begin;
    window_.resize(kept + kChunk);
    size_t count = 0;
    try {
        count = content_->Read(begin + kept, window_.data() + kept, kChunk);
    } catch (const host::Error &) {
        window_.clear();
        NoteDamage(look);
        throw;
    }
    window_.resize(kept + count);
    at_end_ = count < kChunk;
    if (place_.packed && at_end_)
        LookForDamage(look);
    return window_.size() >= place_.tail.length &&
           FingerprintOf(std::string_view(window_).substr(0, place_.tail.length)) == place_.tail &&
           HoldsPending(std::string_view(window_).substr(place_.tail.length));
}

// Of an archive, less than was asked for can be all that there is, or all that can be read.
void FollowedFile::LookForDamage(const FileLook &look)
{
    char byte = 0;
    try {
        content_->Read(window_base_ + window_.size(), &byte, 1);
    } catch (const host::Error &error) {
        damage_ = error.what();
        NoteDamage(look);
        at_end_ = false;
    }
}

void FollowedFile::NoteDamage(const FileLook &look)
{
    if (!IsDamaged(look))
        damaged_since_.reset();
    damaged_ = look;
}

bool FollowedFile::IsBrokenForGood(const FileLook &look, SteadyTime now)
{
    if (place_.told || place_.all || !IsDamaged(look))
        return false;
    if (!damaged_since_)
        damaged_since_ = now;
    return now - *damaged_since_ >= kBrokenForGood;
}

void FollowedFile::NoteTold()
{
    place_.told = true;
    is_changed = true;
}

void FollowedFile::NoteSize(uint64_t size)
{
    if (place_.offset == 0)
        place_.size = size;
}

bool FollowedFile::IsCut()
{
    if (was_cut || place_.packed || place_.all || place_.offset == 0)
        return was_cut;
    try {
        LogContent content(place_.path);
        const auto look = LookAt(content.fd());
        was_cut = look && look->identity == place_.identity &&
                  !(HoldsPlace(&content, place_) && HoldsPending(&content));
    } catch (const host::Error &) {
        return false;
    }
    return was_cut;
}

// A second apart, and no more than can be of use: a copy is on the disk within minutes, and the log is emptied then.
void FollowedFile::MarkPlace(SteadyTime now)
{
    if (!place_.IsTelling() || place_.packed ||
        (!marks_.empty() && now - marks_.back().at < kMarked))
        return;
    marks_.push_back({now, {place_.offset, place_.tail}});
    if (marks_.size() > kMostMarks)
        marks_.pop_front();
    place_.earlier = marks_.front().mark;
}

// To come to a mark in an archive, all before it has to be unpacked: there the oldest one does.
bool FollowedFile::HoldsEarlierPlace(LogContent *content) const
{
    const auto newest =
        content->IsPacked() && !marks_.empty() ? marks_.rend() - 1 : marks_.rbegin();
    Place earlier = place_;
    return std::any_of(newest, marks_.rend(), [&](const MarkInTime &then) {
        earlier.offset = then.mark.offset;
        earlier.tail = then.mark.tail;
        return HoldsPlace(content, earlier);
    });
}

Ending FollowedFile::EndingAt(const EntryReader &reader, SteadyTime now) const
{
    if (!at_end_)
        return Ending::kGrowing;
    if (place_.packed || (IsOutOfUse() && IsQuiet(now, kRotatedIsWhole)))
        return Ending::kComplete;
    return reader.joins_lines && IsQuiet(now, kRecordIsWhole) ? Ending::kQuiet : Ending::kGrowing;
}

// Not of each: who writes them could fill the alerts with that.
void FollowedFile::TellOfCutLine(const EntryReader &reader, uint64_t offset, SteadyTime now,
                                 Batch *batch)
{
    if (told_of_cut_line_ && now - *told_of_cut_line_ < kTellOfCutLines)
        return;
    told_of_cut_line_ = now;
    batch->losses.push_back(
        {reader.input, "the line of " + place_.path + " at byte " + std::to_string(offset) +
                           " has more than " + std::to_string(kLongestRecord) +
                           " bytes: what is behind those of it is left out, as of further lines of "
                           "that length within an hour"});
}

// Returns the bytes that are done with.
size_t FollowedFile::TakeRecords(std::string_view bytes, Ending ending, EntryReader *reader,
                                 const ReadingTime &reading, SteadyTime now, Batch *batch)
{
    LineForm form = reader->form;
    if (form.identifier.empty())
        form.identifier = IdentifierOf(place_.log);
    batch->BeginOrigin(reader->input, place_.log);
    size_t used = 0;
    while (batch->text.size() < kFullBatch) {
        const RecordSplitter::Cut cut =
            reader->splitter.Take(bytes.substr(used), ending, &place_.skipping);
        if (cut.is_cut_off)
            TellOfCutLine(*reader, place_.offset + used, now, batch);
        used += cut.used;
        if (cut.used == 0)
            break;
        if (!cut.has_record)
            continue;
        const size_t at = batch->text.size();
        Rendering rendering = RenderRecord(cut.record, form, reading, reader->clock, &batch->text);
        if (!rendering.own_stamp.empty() && batch->text.size() > at)
            batch->own_stamps.push_back({at, std::move(rendering.own_stamp)});
    }
    return used;
}

ReadStep FollowedFile::Read(EntryReader *reader, const ReadingTime &reading, SteadyTime now,
                            Batch *batch)
{
    problem.clear();
    if (!Open())
        return ReadStep::kRenamed;
    const auto look = LookAt(content_->fd());
    place_.packed = content_->IsPacked();
    if (!look || !FillWindow(*look))
        return ReadStep::kCut;
    if (grew_at_ == SteadyTime{} || look->size != size_)
        grew_at_ = now;
    size_ = place_.packed ? 0 : look->size;
    measured_ = 0;

    const auto before = static_cast<size_t>(place_.tail.length);
    const std::string_view bytes = std::string_view(window_).substr(before);
    const Ending ending = EndingAt(*reader, now);
    if (!at_end_) // much will come: so it is not copied each time that it has grown
        batch->text.reserve(kFullBatch + kChunk);
    const size_t used = TakeRecords(bytes, ending, reader, reading, now, batch);
    if (used > 0) {
        MarkPlace(now);
        place_.size = look->size;
        MovePlace(&place_, place_.offset + used, window_base_, window_);
        is_changed = true;
        is_unsynced_ = true;
    }
    if (!damage_.empty())
        throw host::Error(std::exchange(damage_, {}));
    const bool has_rest = used < bytes.size();
    pending_ = at_end_ && !place_.packed ? bytes.substr(used) : std::string_view{};
    waits_ = has_rest && ending == Ending::kGrowing;
    if (!at_end_ || (has_rest && batch->text.size() >= kFullBatch))
        return ReadStep::kMore;
    if (ending == Ending::kComplete && !has_rest) {
        place_.done = true;
        is_changed = true;
    }
    return ReadStep::kEnd;
}

// Of lines that are joined, the last entry ends when the next one begins, which may never come.
bool FollowedFile::IsCaughtUp(const EntryReader &reader, SteadyTime now)
{
    if (!waits_ || !reader.joins_lines)
        return true;
    if (!catch_up_to_)
        catch_up_to_ = size_;
    return place_.offset >= *catch_up_to_ || now >= Deadline(reader);
}

SteadyTime FollowedFile::Deadline(const EntryReader &reader) const
{
    if (!IsOpen() || place_.done || was_cut)
        return SteadyTime::max();
    if (IsOutOfUse())
        return grew_at_ + kRotatedIsWhole;
    return waits_ && reader.joins_lines ? grew_at_ + kRecordIsWhole : SteadyTime::max();
}

} // namespace inputs
