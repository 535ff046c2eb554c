// The room that the store has on its disk.
//
// A pass may store so much that afterwards its journal can still be written into the store: both
// need room at the same moment. What a program could store without a bound could fill the disk for
// good, because a full disk keeps the journal from being emptied.
#ifndef AGENT_HOST_ROOM_H
#define AGENT_HOST_ROOM_H

#include <cstdint>
#include <filesystem>

namespace host {

// The most that the alerts of one pass may take, in bytes, however much is free. Some 200,000
// alerts of short lines.
constexpr int64_t kMostOfAPass = int64_t{32} * 1024 * 1024;

// Bytes that a program of this user can still write to the disk of this file; 0 when nobody knows.
int64_t FreeSpace(const std::filesystem::path &file);

// Bytes of that disk as a whole; 0 when nobody knows.
int64_t SizeOfDisk(const std::filesystem::path &file);

// Bytes of a file, 0 when there is none.
int64_t SizeOf(const std::filesystem::path &file);

// Bytes of a store, its journal included.
int64_t SizeOfStore(const std::filesystem::path &store);

// What one pass may store: at most a quarter of what is free, and so much that the journal of
// `journal` bytes, grown by it, still fits beside it when a reserve of `reserve` bytes is let go.
int64_t RoomOfAPass(int64_t free, int64_t reserve, int64_t journal);

// A file that holds some of the disk, to be let go when nothing else is left of it. Of the daemon;
// nothing is ever read from it.
class Reserve {
  public:
    // Beside this store. Nothing is made yet.
    explicit Reserve(const std::filesystem::path &store);

    // Makes it, or makes it larger when it is less than half of what it should be: twice a usual
    // journal, or a quarter of what would be free without it. On a disk that has not even that, and
    // when it fails, there is none.
    void Keep();
    // Removes it. Returns whether there was one.
    bool LetGo();
    [[nodiscard]] int64_t Size() const { return SizeOf(path_); }

  private:
    std::filesystem::path path_;
};

} // namespace host

#endif // AGENT_HOST_ROOM_H
