// A folder with logs, a follower of them, and a store of its places that survives the follower.
#ifndef TESTS_AGENT_INPUTS_LOG_WORLD_H
#define TESTS_AGENT_INPUTS_LOG_WORLD_H

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/inputs/file_follower.h"

namespace test {

// Bytes of a file that somebody has seen to be on the disk.
uintmax_t SyncedSizeOf(const std::filesystem::path &path);

class LogWorld {
  public:
    LogWorld();
    ~LogWorld();
    LogWorld(const LogWorld &) = delete;
    LogWorld &operator=(const LogWorld &) = delete;

    // ---- the logs; names are relative to the folder ----
    [[nodiscard]] std::string Path(const std::string &name) const { return folder_ / name; }
    void Append(const std::string &name, const std::string &bytes) const;
    [[nodiscard]] std::string Content(const std::string &name) const;
    void Write(const std::string &name, const std::string &bytes) const;
    void Rename(const std::string &from, const std::string &to) const;
    void Remove(const std::string &name) const;
    void Copy(const std::string &from, const std::string &to) const;
    // As if its content had been written last so much later.
    void Age(const std::string &name, std::chrono::seconds time) const
    {
        std::filesystem::last_write_time(Path(name),
                                         std::filesystem::last_write_time(Path(name)) + time);
    }
    void Empty(const std::string &name) const { std::filesystem::resize_file(Path(name), 0); }
    [[nodiscard]] uintmax_t SyncedSize(const std::string &name) const
    {
        return SyncedSizeOf(Path(name));
    }
    // Writes a compressed copy: "gzip", "xz", "zstd" or "bzip2".
    void Pack(const std::string &from, const std::string &to, const std::string &how) const;
    [[nodiscard]] bool Exists(const std::string &name) const;

    // ---- the follower ----
    inputs::FollowOptions options; // as the next Start takes them; by default of all "*.log"
    void Start();                  // the first time, it begins at the end of what is there
    void Stop() { follower_.reset(); }
    [[nodiscard]] bool IsRunning() const { return follower_ != nullptr; }
    inputs::FileFollower &follower() { return *follower_; }

    // As places were stored by who knew files by their numbers alone, where there are no births.
    void ForgetGenerations();

    // Looks and reads once, and commits or not. Without a commit the follower is to be stopped.
    void Step(bool commit = true);
    // Does so until nothing is left to do at this time.
    void Settle();
    void Wait(std::chrono::milliseconds time) { now_ += time; }
    // Does the follower want to do nothing for a second to come?
    [[nodiscard]] bool IsResting() const
    {
        return follower_->Next() > now_ + std::chrono::seconds(1);
    }
    [[nodiscard]] bool IsCaughtUp() { return follower_->IsCaughtUp(now_); }

    // The messages that were committed since the last call, in order.
    std::vector<std::string> Take();
    std::vector<std::string> TakeLosses();

    int64_t wall_seconds;

  private:
    void Commit(inputs::Batch &&batch);

    std::filesystem::path folder_;
    std::unique_ptr<inputs::FileFollower> follower_;
    bool has_begun_ = false;
    std::map<int64_t, std::string> places_;
    std::vector<std::string> messages_;
    std::vector<std::string> losses_;
    inputs::SteadyTime now_ = inputs::SteadyTime(std::chrono::hours(1000));
};

// From here on the kernel has no more watches of files and folders; or has them again.
void ExhaustWatches(bool are_exhausted);

// How files were brought to the disk since the last call: "b" for each that was begun, "s" for each that was waited for.
std::string TakeSyncs();

// How often the C library was asked so far where a byte is in a text, as the standard library does for most searches.
size_t CountSearchesForBytes();

// "Nov 21 10:00:01 host app: MESSAGE" of today, with its line end.
std::string LogLine(const std::string &message);

} // namespace test

#endif // TESTS_AGENT_INPUTS_LOG_WORLD_H
