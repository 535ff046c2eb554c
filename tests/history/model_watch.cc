// The oracle's file monitor.
#include <algorithm>

#include "tests/history/model.h"

namespace history {

namespace {

constexpr int64_t kBlock = 16384;   // bytes that it reads at once
constexpr int64_t kOverlong = 3329; // its threshold

} // namespace

bool Model::LoadTarget()
{
    memory_.target = world_->settings.target;
    if (memory_.target.empty())
        return false;
    if (!record_.inode)
        return false;
    memory_.inode = *record_.inode;
    if (!record_.offset)
        return false;
    memory_.offset = *record_.offset;
    memory_.last_size = memory_.offset;
    return true;
}

void Model::WatchPass()
{
    if (memory_.target.empty())
        return;
    const auto opened = Open(memory_.target, false);
    if (!opened)
        return;
    const Entry *file = Find(memory_.target);
    if (memory_.inode != file->inode) {
        record_.inode = file->inode;
        record_.offset = 0;
        if (!LoadTarget())
            return;
    }
    const auto size = static_cast<int64_t>(opened->size());
    if (memory_.last_size == size)
        return;
    const bool has_shrunk = memory_.last_size > size;
    memory_.last_size = size;
    if (has_shrunk) {
        memory_.offset = size;
        record_.offset = size;
        return;
    }
    ReadWatched(*opened, opened->size());
}

// Splits what lies behind the offset into lines, by blocks. A line of which more than the threshold has
// been seen is delivered by its first bytes. What has been seen of a line that goes on in the next block
// counts once in each, which is how it is meant to be.
void Model::ReadWatched(const std::string &bytes, uint64_t size)
{
    const auto end = static_cast<int64_t>(size);
    const int64_t begin = memory_.offset;
    int64_t start = begin;   // of the block
    int64_t pending = start; // head of the line, or of what is still looked at of it
    if (start < 0 || start > end || end < 1)
        return;
    int64_t block_end = std::min(start + kBlock, end);
    int64_t count = 0;
    bool is_overlong = false;
    std::string copy;
    for (int64_t at = pending;;) {
        if (at == block_end) {
            if (block_end == end)
                break; // an unfinished line stays
            start = is_overlong ? at : pending;
            pending = start;
            block_end = std::min(start + kBlock, end);
            at = start;
            continue;
        }
        if (count == kOverlong) {
            const auto most =
                std::min<int64_t>(static_cast<int64_t>(kHandled), block_end - pending);
            copy = bytes.substr(static_cast<size_t>(pending), static_cast<size_t>(most));
            // Lines of this block that were delivered end at a zero byte by now, but none lies behind the
            // head of a line that is pending.
            is_overlong = true;
        }
        ++count;
        if (bytes[static_cast<size_t>(at)] != '\n') {
            ++at;
            continue;
        }
        memory_.offset = at + 1;
        CheckWatchedLine(is_overlong
                             ? copy
                             : bytes.substr(static_cast<size_t>(pending),
                                            std::min(static_cast<size_t>(at - pending), kHandled)));
        ++at;
        pending = at;
        count = 0;
        is_overlong = false;
    }
    bytes_read_[kWatchedFile] += memory_.offset - begin;
    record_.offset = memory_.offset;
}

// A line is a text that a zero byte ends: what is behind one is not seen.
void Model::CheckWatchedLine(const std::string &whole)
{
    const std::string line = whole.c_str();
    for (Counted &entry : table_) {
        if (Matches(entry.event, line))
            Hit(&entry, line, 1);
    }
}

} // namespace history
