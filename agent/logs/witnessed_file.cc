#include "agent/logs/witnessed_file.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "agent/host/absent.h"

namespace logs {

namespace fs = std::filesystem;

namespace {

// Bytes by which a file is known again. A stamp and a host are shared by many lines.
constexpr int64_t kHead = 256;
constexpr int64_t kTail = 256;

constexpr int64_t kBlock = int64_t{64} * 1024;
// More is not looked through for a number: the monitor waits meanwhile.
constexpr int64_t kMostCounted = int64_t{256} * 1024 * 1024;

int64_t Milliseconds(const timespec &time)
{
    return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

bool IsText(char c)
{
    return c != '\n' && c != '\0';
}

// How many lines end in a block. A zero byte ends a line, too, as those do that a power cut has left; more of them are
// nothing.
int64_t LineEnds(const std::string &block, char before)
{
    if (block.find('\0') == std::string::npos)
        return std::count(block.begin(), block.end(), '\n');
    int64_t ends = 0;
    for (const char c : block) {
        if (c == '\n' || (c == '\0' && IsText(before)))
            ++ends;
        before = c;
    }
    return ends;
}

// How many bytes two heads have in common.
size_t SameBytes(const std::string &known, const std::string &head)
{
    const size_t most = std::min(known.size(), head.size());
    return static_cast<size_t>(
        std::mismatch(known.begin(), known.begin() + static_cast<ptrdiff_t>(most), head.begin())
            .first -
        known.begin());
}

// Is this the head of the log that had the known one? It may be longer by now, or shorter; and where a power cut has left
// zero bytes, it goes on in another way.
bool IsHeadOfTheSame(const std::string &known, const std::string &head)
{
    const size_t same = SameBytes(known, head);
    return !head.empty() &&
           (same == std::min(known.size(), head.size()) || (same > 0 && head[same] == '\0'));
}

} // namespace

WitnessedFile::WitnessedFile(const fs::path &path)
{
    Open(path);
    record.path = path;
    if (!IsOpen())
        return;
    struct stat status {};
    if (fstat(*file_, &status) != 0) {
        is_unreadable_ = true;
        file_.reset();
        return;
    }
    record.device = status.st_dev;
    record.inode = status.st_ino;
    Look();
}

WitnessedFile::WitnessedFile(FileRecord known) : record(std::move(known))
{
    if (record.inode == 0)
        return;
    Open(record.path);
    if (IsTheOneRecorded())
        return;
    std::error_code failed;
    for (const auto &entry : fs::directory_iterator(fs::path(record.path).parent_path(), failed)) {
        struct stat status {};
        const bool is_there = lstat(entry.path().c_str(), &status) == 0;
        is_unreadable_ = is_unreadable_ || (!is_there && !host::IsAbsent(errno));
        if (!is_there || status.st_ino != record.inode)
            continue;
        Open(entry.path());
        if (IsTheOneRecorded()) {
            record.path = entry.path();
            return;
        }
    }
    is_unreadable_ = is_unreadable_ || (failed && !host::IsAbsent(failed.value()));
    file_.reset();
}

void WitnessedFile::Open(const fs::path &path)
{
    file_.reset();
    // A pipe is not waited for, and a terminal does not become the daemon's own.
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        is_unreadable_ = is_unreadable_ || !host::IsAbsent(errno);
        return;
    }
    file_ = {new int(fd), [](const int *opened) {
                 close(*opened);
                 delete opened;
             }};
    struct stat status {};
    const bool is_known = fstat(fd, &status) == 0;
    is_unreadable_ = is_unreadable_ || !is_known;
    if (!is_known || !S_ISREG(status.st_mode))
        file_.reset();
}

// The number of a removed file is given again, so the bytes count, too. Of a log that has lost its end, when the power was
// cut for example, those at the head are left.
bool WitnessedFile::IsTheOneRecorded()
{
    struct stat status {};
    if (!IsOpen())
        return false;
    if (fstat(*file_, &status) != 0) {
        is_unreadable_ = true;
        return false;
    }
    if (!Is(status.st_dev, status.st_ino))
        return false;
    const auto head = Bytes(0, static_cast<int64_t>(record.head.size()));
    const bool is_it = !head || GoesOnLike(record) || IsHeadOfTheSame(record.head, *head);
    is_unreadable_ = is_unreadable_ && !is_it;
    return is_it;
}

bool WitnessedFile::IsRemoved() const
{
    struct stat status {};
    return !IsOpen() || fstat(*file_, &status) != 0 || status.st_nlink == 0;
}

std::optional<std::string> WitnessedFile::Bytes(int64_t begin, int64_t end) const
{
    if (!IsOpen() && is_unreadable_)
        return std::nullopt;
    std::string bytes(static_cast<size_t>(std::max<int64_t>(end - begin, 0)), '\0');
    size_t have = 0;
    while (IsOpen() && have < bytes.size()) {
        const ssize_t got = pread(*file_, bytes.data() + have, bytes.size() - have,
                                  begin + static_cast<off_t>(have));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::nullopt;
        if (got == 0)
            break;
        have += static_cast<size_t>(got);
    }
    bytes.resize(have);
    return bytes;
}

WitnessedFile::Change WitnessedFile::Look()
{
    if (is_unreadable_)
        *this = WitnessedFile(std::move(record));
    if (!IsOpen())
        return is_unreadable_ ? Change::kUnknown : Change::kNone;
    struct stat status {};
    const auto head = fstat(*file_, &status) == 0
                          ? Bytes(0, std::min<int64_t>(kHead, status.st_size))
                          : std::nullopt;
    if (!head)
        return Change::kUnknown;
    const int64_t before = std::exchange(record.size, status.st_size);
    record.written_ms = Milliseconds(status.st_mtim);
    const bool is_same_log = before == 0 || IsHeadOfTheSame(record.head, *head);
    if (is_same_log) {
        same_head_ = static_cast<int64_t>(SameBytes(record.head, *head));
        record.head = *head;
    }
    if (!is_same_log || (record.size == 0 && before > 0)) {
        record.size = before;
        return Change::kEmptied;
    }
    const bool is_as_it_was = record.size >= before && GoesOnLike(record);
    return is_as_it_was ? Change::kNone : Change::kCut;
}

std::optional<int64_t> WitnessedFile::EndOfLine(int64_t offset) const
{
    if (offset < 0)
        return 0;
    for (int64_t at = offset;;) {
        const auto block = Bytes(at, at + kBlock);
        if (!block)
            return std::nullopt;
        // The monitor can stand behind the end of a file that was cut off.
        if (block->empty() && at == offset)
            return std::min(offset, record.size);
        const size_t end = block->find('\n');
        if (end != std::string::npos)
            return at + static_cast<int64_t>(end) + 1;
        at += static_cast<int64_t>(block->size());
        if (std::cmp_less(block->size(), kBlock))
            return at;
    }
}

int64_t WitnessedFile::Lines(int64_t begin, int64_t end) const
{
    if (!IsOpen() || end - begin > kMostCounted)
        return -1;
    int64_t lines = 0;
    char last = '\n';
    for (int64_t at = begin; at < end;) {
        const auto block = Bytes(at, std::min(end, at + kBlock));
        if (!block || block->empty())
            return -1;
        lines += LineEnds(*block, last);
        last = block->back();
        at += static_cast<int64_t>(block->size());
    }
    return lines + (IsText(last) ? 1 : 0);
}

void WitnessedFile::ReadTo(int64_t offset)
{
    record.read_to = offset;
    is_uncertain_ = false;
    // Without a tail every file goes on like this one.
    record.tail = Bytes(std::max<int64_t>(offset - kTail, 0), offset).value_or("");
}

void WitnessedFile::LosePlace()
{
    certain_head_ = is_uncertain_ ? std::min(certain_head_, same_head_) : same_head_;
    ReadTo(std::min(record.read_to, record.size));
    is_uncertain_ = true;
}

bool WitnessedFile::GoesOnLike(const FileRecord &other) const
{
    const auto bytes =
        Bytes(other.read_to - static_cast<int64_t>(other.tail.size()), other.read_to);
    return !bytes || *bytes == other.tail;
}

bool WitnessedFile::IsCopyOf(const FileRecord &other) const
{
    return !other.head.empty() && GoesOnLike(other) &&
           record.head.compare(0, other.head.size(), other.head) == 0;
}

std::optional<int64_t> WitnessedFile::FindTail() const
{
    if (record.tail.empty() || record.size > kMostCounted)
        return -1;
    const auto all = Bytes(0, record.size);
    if (!all)
        return std::nullopt;
    const size_t at = all->rfind(record.tail);
    return at == std::string::npos ? -1 : static_cast<int64_t>(at + record.tail.size());
}

WitnessedFile WitnessedFile::Split()
{
    WitnessedFile content;
    content.record = record;
    content.record.inode = 0;
    record.read_to = 0;
    record.checked_to = 0;
    record.size = 0;
    record.head.clear();
    record.tail.clear();
    Look();
    return content;
}

} // namespace logs
