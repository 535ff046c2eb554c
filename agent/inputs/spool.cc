#include "agent/inputs/spool.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/inputs/rendering.h"
#include "platform/contract.h"

namespace inputs {

namespace fs = std::filesystem;

std::string SpoolHeadLine(int64_t generation)
{
    // Its stamp is never looked at: the place of the module begins behind it.
    return std::string("Jan  1 00:00:00 - ") + kSyslogIdentifier + ": spool " +
           std::to_string(generation);
}

SpoolState BeginOfGeneration(int64_t generation)
{
    return {generation, static_cast<int64_t>(SpoolHeadLine(generation).size()) + 1, 0};
}

void SpoolFile::Fail(const std::string &doing) const
{
    throw host::Error("cannot " + doing + " " + path_.string(), strerror(errno),
                      "check the disk of the folder; the inputs wait until then");
}

void SpoolFile::Open()
{
    if (file_.get() >= 0)
        return;
    file_ = host::Fd(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (file_.get() < 0)
        Fail("open");
}

void SpoolFile::WriteAt(int64_t offset, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = pwrite(file_.get(), bytes.data(), bytes.size(), offset);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            Fail("write");
        offset += count;
        bytes.remove_prefix(static_cast<size_t>(count));
    }
}

std::string SpoolFile::ReadAt(int64_t offset, size_t size)
{
    std::string bytes(size, '\0');
    size_t filled = 0;
    while (filled < size) {
        const ssize_t count = pread(file_.get(), bytes.data() + filled, size - filled,
                                    offset + static_cast<off_t>(filled));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            Fail("read");
        if (count == 0)
            break;
        filled += static_cast<size_t>(count);
    }
    bytes.resize(filled);
    return bytes;
}

void SpoolFile::Cut(int64_t length)
{
    if (ftruncate(file_.get(), length) != 0)
        Fail("cut");
}

void SpoolFile::Sync()
{
    if (fdatasync(file_.get()) != 0)
        Fail("write");
}

void SpoolFile::Begin(int64_t generation)
{
    Open();
    Cut(0);
    WriteAt(0, SpoolHeadLine(generation) + "\n");
    Sync();
}

void SpoolFile::Remove()
{
    file_ = host::Fd();
    unlink(path_.c_str()); // one that is left does no harm
}

// A start can come long after the lines were written.
void SpoolFile::RenewStamps(int64_t from, int64_t to, int64_t wall_seconds)
{
    LocalClock clock;
    const ReadingTime reading(clock, wall_seconds);
    const std::string stamp = StampText(reading.local());
    constexpr size_t kBlock = size_t{1024} * 1024;
    int64_t at = from;
    while (at < to) {
        const std::string block =
            ReadAt(at, static_cast<size_t>(std::min<int64_t>(kBlock, to - at)));
        size_t begin = 0;
        for (size_t end = block.find('\n'); end != std::string::npos;
             end = block.find('\n', begin)) {
            const std::string_view line = std::string_view(block).substr(begin, end - begin);
            const FoundStamp found = FindStamp(line, StampFormat::kTraditional);
            if (found.calendar.month != 0 && !reading.Takes(found.calendar))
                WriteAt(at + static_cast<int64_t>(begin), stamp);
            begin = end + 1;
        }
        if (begin == 0)
            break; // no line is as long as that
        at += static_cast<int64_t>(begin);
    }
}

bool SpoolFile::Repair(const SpoolState &state, int64_t read_to, int64_t wall_seconds)
{
    Open();
    const std::string head = SpoolHeadLine(state.generation) + "\n";
    const bool has_head = ReadAt(0, head.size()) == head;
    struct stat status {};
    if (fstat(file_.get(), &status) != 0)
        Fail("look at");
    if (!has_head && state.length == static_cast<int64_t>(head.size())) {
        Begin(state.generation); // S3: it was under way
        return true;
    }
    if (!has_head || status.st_size < state.length)
        return false;
    if (status.st_size > state.length)
        Cut(state.length); // S1
    RenewStamps(std::max<int64_t>(read_to, static_cast<int64_t>(head.size())), state.length,
                wall_seconds);
    Sync();
    return true;
}

SpoolFile::Presence SpoolFile::Look(const SpoolState &state)
{
    struct stat open {};
    struct stat named {};
    if (file_.get() < 0)
        return Presence::kThere; // nothing was written yet
    if (fstat(file_.get(), &open) != 0 || open.st_size < state.length)
        return Presence::kCut;
    const bool has_name = stat(path_.c_str(), &named) == 0 && named.st_dev == open.st_dev &&
                          named.st_ino == open.st_ino;
    return has_name ? Presence::kThere : Presence::kRemoved;
}

// Under another name first: the module never meets a part of it.
void SpoolFile::PutBack(const SpoolState &state)
{
    constexpr int64_t kBlock = int64_t{1024} * 1024;
    SpoolFile copy(path_.string() + ".new");
    copy.Open();
    copy.Cut(0);
    for (int64_t at = 0; at < state.length; at += kBlock)
        copy.WriteAt(at, ReadAt(at, static_cast<size_t>(std::min(kBlock, state.length - at))));
    copy.Sync();
    if (rename(copy.path_.c_str(), path_.c_str()) != 0)
        Fail("write");
    file_ = std::move(copy.file_);
}

std::optional<int64_t> SpoolFile::EndOfLine(int64_t offset)
{
    Open();
    const std::string line = ReadAt(offset, kLineBufferSize);
    const size_t end = line.find('\n');
    if (end == std::string::npos)
        return std::nullopt;
    return offset + static_cast<int64_t>(end) + 1;
}

SpoolState SpoolFile::Append(const SpoolState &state, std::string_view lines)
{
    Open();
    WriteAt(state.length, lines);
    Cut(state.length + static_cast<int64_t>(lines.size()));
    Sync();
    SpoolState after = state;
    after.length += static_cast<int64_t>(lines.size());
    const size_t last =
        lines.size() < 2 ? std::string_view::npos : lines.rfind('\n', lines.size() - 2);
    after.last_line =
        state.length + (last == std::string_view::npos ? 0 : static_cast<int64_t>(last) + 1);
    return after;
}

} // namespace inputs
