// A progress bar on standard error, when that is a terminal; nothing otherwise. Standard output
// stays as it is, whether it is a terminal or not.
#ifndef AGENT_CLI_PROGRESS_BAR_H
#define AGENT_CLI_PROGRESS_BAR_H

#include <chrono>
#include <cstdint>
#include <string>

namespace cli {

class ProgressBar {
  public:
    // Of so many bytes in all.
    explicit ProgressBar(int64_t bytes);
    ~ProgressBar(); // takes the bar away
    ProgressBar(const ProgressBar &) = delete;
    ProgressBar &operator=(const ProgressBar &) = delete;

    // So much is done. Cheap: the bar is drawn a few times a second.
    void Show(int64_t bytes, int64_t lines);

    // "[=====>    ]  45 %  1.2 of 2.6 GB  850000 lines/s  12 s left". For a test.
    static std::string Bar(int64_t bytes, int64_t all_bytes, int64_t lines, double seconds);

  private:
    using Clock = std::chrono::steady_clock;

    // Of all files; a log that grows meanwhile makes more of them, and the bar stops at its end.
    int64_t all_bytes_;
    bool visible_;
    bool drawn_ = false;
    Clock::time_point begin_ = Clock::now();
    Clock::time_point next_ = begin_;
};

} // namespace cli

#endif // AGENT_CLI_PROGRESS_BAR_H
