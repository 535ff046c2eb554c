#include "agent/logs/log_witness.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <sys/stat.h>
#include <utility>

#include "agent/host/absent.h"

namespace logs {

namespace fs = std::filesystem;

namespace {

// So many files that were left are known. Nobody rotates so often that an older one is still written.
constexpr ptrdiff_t kMostLeft = 8;

constexpr char kAfresh[] = "the monitor did not find its place and went on from the end of the log";
constexpr char kLeft[] = "the monitor has gone on to a newer file";
constexpr char kLate[] = "written after the monitor had gone on to the next file";
constexpr char kGap[] = "the monitor went on behind them";
constexpr char kAgain[] = "the monitor did not know the line that it had read last";
constexpr char kCut[] = "cut off before they were read";

LogLoss Unread(const WitnessedFile &file, const char *why)
{
    const FileRecord &record = file.record;
    const int64_t begin = file.ReadUpTo();
    return {record.path, begin, record.size, file.Lines(begin, record.size), false, why};
}

} // namespace

std::string TextOf(const LogLoss &loss)
{
    const std::string lines = loss.lines < 0    ? "what was written"
                              : loss.lines == 1 ? "1 line"
                                                : std::to_string(loss.lines) + " lines";
    return loss.file + ": " + lines + " (bytes " + std::to_string(loss.begin) + " to " +
           std::to_string(loss.end) + ") " +
           (loss.lines == 1 || loss.lines < 0 ? "was " : "were ") +
           (loss.is_twice ? "read again: " : "passed over: ") + loss.why;
}

LogWitness::LogWitness(fs::path log, std::vector<FileRecord> files)
    : log_(std::move(log)), is_followed_(!files.empty())
{
    for (FileRecord &record : files)
        (record.is_left ? left_ : files_).emplace_back(record);
    if (!files_.empty())
        FindFilesOfTheTimeBetween();
    Look();
}

// Those of the log's names that were written since, and were not known then. Only when the monitor starts afresh they
// count: else it has read them, or knows better. The live one comes by itself.
void LogWitness::FindFilesOfTheTimeBetween()
{
    const int64_t since_ms = files_.back().record.written_ms;
    const std::string prefix = log_.filename();
    Files found;
    std::error_code failed;
    for (const auto &entry : fs::directory_iterator(log_.parent_path(), failed)) {
        const std::string name = entry.path().filename();
        if (name == prefix || name.compare(0, prefix.size(), prefix) != 0)
            continue;
        WitnessedFile file(entry.path());
        const auto is_it = [&](const WitnessedFile &known) {
            return known.Is(file.record.device, file.record.inode) || file.GoesOnLike(known.record);
        };
        // One that was left can be newer all the same, by a clock that was set back.
        const bool is_known =
            std::ranges::any_of(files_, is_it) || std::ranges::any_of(left_, is_it);
        if (file.IsOpen() && !is_known && file.record.written_ms > since_ms)
            found.push_back(std::move(file));
    }
    std::sort(found.begin(), found.end(), [](const auto &a, const auto &b) {
        return a.record.written_ms < b.record.written_ms;
    });
    between_ = std::move(found);
}

void LogWitness::TakeFilesOfTheTimeBetween(const LogPart &first)
{
    const Files files = std::exchange(between_, {});
    if (first.is_afresh == 0)
        return;
    auto at = files_.begin();
    while (at != files_.end() && !at->Is(first.device, first.inode))
        ++at;
    files_.insert(at, files.begin(), files.end());
}

void LogWitness::LookAtContents()
{
    for (size_t i = 0; i < files_.size(); ++i) {
        const int64_t before = files_[i].record.size;
        const WitnessedFile::Change change = files_[i].Look();
        if (change == WitnessedFile::Change::kEmptied) {
            files_.insert(files_.begin() + static_cast<ptrdiff_t>(i), files_[i].Split());
            ++i;
        } else if (change == WitnessedFile::Change::kCut) {
            NoteCut(before, &files_[i]);
        } else if (change == WitnessedFile::Change::kUnknown) {
            could_read_ = false;
        }
    }
}

// Of a file that had this size when it was looked at before.
void LogWitness::NoteCut(int64_t before, WitnessedFile *file)
{
    FileRecord &record = file->record;
    const std::optional<int64_t> at = file->FindTail();
    if (!at) {
        could_read_ = false;
        record.size = before;
        return;
    }
    if (record.size < before && before > record.read_to && *at < 0)
        noticed_.push_back(
            {record.path, std::max(record.read_to, record.size), before, -1, false, kCut});
    if (*at >= 0)
        file->ReadTo(*at);
    else
        file->LosePlace();
}

void LogWitness::Look()
{
    LookAtContents();
    struct stat status {};
    if (stat(log_.c_str(), &status) != 0) {
        could_read_ = could_read_ && host::IsAbsent(errno);
        return;
    }
    if (!S_ISREG(status.st_mode))
        return;
    if (!files_.empty() && files_.back().Is(status.st_dev, status.st_ino))
        return;
    WitnessedFile live(log_);
    if (live.IsOpen())
        files_.push_back(std::move(live));
    else if (live.IsUnreadable())
        could_read_ = false;
}

// The file of a part. One that nobody has seen is a copy of what a file held that was emptied since, or of the one in
// which the monitor stands; or it has come and gone between two looks. One that was left is read again.
size_t LogWitness::FileOf(const LogPart &part)
{
    for (size_t i = files_.size(); i-- > 0;) {
        if (files_[i].Is(part.device, part.inode))
            return i;
    }
    for (auto known = left_.begin(); known != left_.end(); ++known) {
        if (known->Is(part.device, part.inode)) {
            known->record.is_left = false;
            files_.insert(files_.begin(), std::move(*known));
            left_.erase(known);
            return 0;
        }
    }
    FileRecord wanted;
    wanted.path = log_;
    wanted.device = part.device;
    wanted.inode = part.inode;
    WitnessedFile file(std::move(wanted));
    if (file.Look() == WitnessedFile::Change::kUnknown)
        could_read_ = false;
    for (size_t i = 0; i < files_.size(); ++i) {
        const FileRecord &original = files_[i].record;
        const bool is_gone = original.inode == 0;
        if ((is_gone || i == 0) && file.IsCopyOf(original)) {
            file.ReadTo(original.read_to);
            file.record.checked_to = original.checked_to;
            if (is_gone)
                files_.erase(files_.begin() + static_cast<ptrdiff_t>(i));
            files_.insert(files_.begin() + static_cast<ptrdiff_t>(i), std::move(file));
            return i;
        }
    }
    files_.insert(files_.begin(), std::move(file));
    return 0;
}

void LogWitness::LeaveFilesBefore(size_t at, const std::string &why, std::vector<LogLoss> *losses)
{
    for (size_t i = 0; i < at; ++i) {
        if (is_followed_ && files_[i].HasUnread())
            losses->push_back(Unread(files_[i], why.c_str()));
    }
    for (size_t i = 0; i < at; ++i) {
        if (files_[i].record.inode == 0)
            continue;
        files_[i].record.is_left = true;
        files_[i].ReadTo(files_[i].record.size);
        left_.push_back(std::move(files_[i]));
    }
    files_.erase(files_.begin(), files_.begin() + static_cast<ptrdiff_t>(at));
    if (std::cmp_greater(left_.size(), kMostLeft))
        left_.erase(left_.begin(), left_.end() - kMostLeft);
}

void LogWitness::Account(const LogPart &part, WitnessedFile *file, std::vector<LogLoss> *losses)
{
    const FileRecord &record = file->record;
    const auto end_read = part.end >= 0 ? part.end : file->EndOfLine(part.last);
    const auto end_checked = file->EndOfLine(part.last_read);
    if (!end_read || !end_checked) {
        could_read_ = false;
        return;
    }
    const int64_t end = *end_read;
    const int64_t begin = part.first >= 0 ? part.first : end;
    if (is_followed_ && begin > record.read_to)
        losses->push_back({record.path, record.read_to, begin, file->Lines(record.read_to, begin),
                           false, part.is_afresh != 0 ? kAfresh : kGap});
    // Of an uncertain file, what stands behind its head may be new.
    const bool is_old = !file->IsUncertain() || begin < file->CertainHead();
    if (is_followed_ && part.first >= 0 && begin < record.read_to && is_old)
        losses->push_back({record.path, begin, record.read_to,
                           file->IsUncertain() ? -1 : file->Lines(begin, record.read_to), true,
                           kAgain});
    std::erase_if(*losses, [](const LogLoss &loss) { return loss.lines == 0; });
    // A pass without news costs no look at the tail.
    if (end != record.read_to || file->IsUncertain())
        file->ReadTo(end);
    // Repeats at the head are read again with each pass, and count for nothing.
    file->record.checked_to = std::max(end, *end_checked);
    is_followed_ = true;
}

// Those without a name hold no disk space that nobody can see.
void LogWitness::LookAtThoseThatWereLeft(std::vector<LogLoss> *losses)
{
    for (WitnessedFile &file : left_) {
        if (file.Look() == WitnessedFile::Change::kNone && file.HasUnread())
            losses->push_back(Unread(file, kLate));
        file.ReadTo(file.record.size);
    }
    std::erase_if(left_, [](const WitnessedFile &file) { return file.IsRemoved(); });
}

void LogWitness::Forget()
{
    files_.clear();
    between_.clear();
    left_.clear();
    noticed_.clear();
    is_followed_ = false;
}

std::vector<LogLoss> LogWitness::Take(const std::vector<LogPart> &parts)
{
    could_read_ = true;
    Look();
    std::vector<LogLoss> losses = std::exchange(noticed_, {});
    LookAtThoseThatWereLeft(&losses);
    if (!parts.empty())
        TakeFilesOfTheTimeBetween(parts.front());
    for (const LogPart &part : parts) {
        if (part.inode == 0)
            continue;
        const size_t at = FileOf(part);
        LeaveFilesBefore(at, part.is_afresh != 0 ? kAfresh : kLeft, &losses);
        Account(part, &files_.front(), &losses);
    }
    could_read_ = could_read_ || parts.empty();
    if (!could_read_) {
        Forget();
        losses.clear();
    }
    return losses;
}

std::vector<FileRecord> LogWitness::Records() const
{
    std::vector<FileRecord> records;
    for (const Files *files : {&left_, &files_}) {
        for (const WitnessedFile &file : *files)
            records.push_back(file.record);
    }
    if (!is_followed_)
        records.clear();
    return records;
}

} // namespace logs
