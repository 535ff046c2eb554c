// Reads all inputs, on a thread of its own. What it has read it holds until it was committed, so there is one batch
// at a time: when the monitor is slower than the inputs, they wait.
#ifndef AGENT_INPUTS_INPUT_THREAD_H
#define AGENT_INPUTS_INPUT_THREAD_H

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "agent/host/waitable.h"
#include "agent/inputs/batch.h"
#include "agent/inputs/input_registry.h"
#include "agent/status/status_file.h"

namespace inputs {

using status::InputStatus;

struct InputThreadOptions {
    std::filesystem::path store;
    std::vector<InputStatus> before = {}; // of the daemon before this one, as far as known
    std::string own_folder;               // where the programs of the monitor are
    // In which the monitor writes. No input reads their files: each entry of the spool would become another one.
    std::vector<std::filesystem::path> written_folders = {};
    std::function<void()> batch_is_ready; // on this thread
    // On this thread, when an input has other problems or other files than before.
    std::function<void()> status_changed;
};

class InputThread {
  public:
    explicit InputThread(InputThreadOptions options);
    ~InputThread();
    InputThread(const InputThread &) = delete;
    InputThread &operator=(const InputThread &) = delete;

    // The configuration has changed.
    void Reload();
    // The shortest time between two batches, but for the first after a rest.
    void SetInterval(std::chrono::milliseconds interval) { interval_ms_ = interval.count(); }

    // What is there now is to be read soon, whatever the interval; CaughtUpTo tells when all of it was.
    void CatchUp();
    // All that was there at this moment, in nanoseconds of CLOCK_BOOTTIME, was read and stored, but for what cannot be
    // read and what is no whole entry yet. 0: not known.
    [[nodiscard]] int64_t CaughtUpTo() const { return caught_up_to_ns_; }

    // The batch that waits for being stored; null: none. It stays as it is until Stored.
    [[nodiscard]] const Batch *Ready() const { return is_ready_ ? &batch_ : nullptr; }
    // It was committed.
    void Stored();

    [[nodiscard]] std::vector<InputStatus> Status() const;

  private:
    class Reader;
    class FilesReader;
    class JournalsReader;

    void Run();
    [[nodiscard]] FollowOptions WithoutWhatIsWritten(FollowOptions follow) const;
    void Load();
    void Work();
    void Wait();
    void Ring() const;
    void PublishStatus();
    void MeasureWhileBatchWaits();
    void NoteBatchWaits(int64_t since_ms);
    void BeginCatchUp();
    void LookWhetherCaughtUp(SteadyTime now);

    InputThreadOptions options_;
    host::Fd bell_;
    std::atomic<bool> stops_ = false;
    std::atomic<bool> reload_ = true;
    std::atomic<bool> is_ready_ = false;
    std::atomic<bool> catch_up_ = false; // is asked for, and not begun
    std::atomic<int64_t> caught_up_to_ns_ = 0;
    std::atomic<int64_t> interval_ms_ = 1000;

    Batch batch_; // of this thread, but while it is ready
    std::vector<std::unique_ptr<Reader>> readers_;
    std::chrono::steady_clock::time_point next_batch_{};
    std::chrono::steady_clock::time_point measure_at_{}; // while a batch waits
    std::optional<std::chrono::steady_clock::time_point> load_again_;
    bool has_more_ = false;
    bool is_loaded_ = false;             // the readers are those that are configured
    std::optional<int64_t> catching_up_; // since this moment

    mutable std::mutex status_mutex_;
    std::vector<InputStatus> status_;
    // Inputs with entries in the batch that waits for being stored, and since when it does.
    std::set<std::string> waiting_;
    int64_t waiting_since_ms_ = 0;
    std::thread thread_;
};

} // namespace inputs

#endif // AGENT_INPUTS_INPUT_THREAD_H
