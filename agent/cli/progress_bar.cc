#include "agent/cli/progress_bar.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace cli {

namespace {

// Between two drawings.
constexpr std::chrono::milliseconds kRedraw{200};
constexpr int kBarWidth = 24; // characters

// The largest unit in which the number is at least 1.
struct Unit {
    const char *name;
    double bytes;
};
Unit UnitFor(double bytes)
{
    constexpr Unit kUnits[] = {{"GB", 1e9}, {"MB", 1e6}, {"kB", 1e3}};
    for (const Unit &unit : kUnits) {
        if (bytes >= unit.bytes)
            return unit;
    }
    return {"bytes", 1};
}

std::string TimeLeft(double seconds)
{
    const auto whole = static_cast<long long>(std::ceil(seconds));
    char text[48];
    if (whole < 100)
        snprintf(text, sizeof text, "%lld s left", whole);
    else if (whole < 6000)
        snprintf(text, sizeof text, "%lld:%02lld min left", whole / 60, whole % 60);
    else
        snprintf(text, sizeof text, "%lld:%02lld h left", whole / 3600, whole % 3600 / 60);
    return text;
}

} // namespace

ProgressBar::ProgressBar(int64_t bytes) : all_bytes_(bytes), visible_(isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar()
{
    // Only then: a trial that is over at once leaves the terminal alone.
    if (drawn_)
        // To the beginning of the line, and clear it.
        fprintf(stderr, "\r\033[K");
}

std::string ProgressBar::Bar(int64_t bytes, int64_t all_bytes, int64_t lines, double seconds)
{
    // Nothing to do is done.
    const double share =
        all_bytes > 0 ? std::min(1.0, static_cast<double>(bytes) / static_cast<double>(all_bytes))
                      : 1.0;
    const auto filled = static_cast<size_t>(share * kBarWidth);
    std::string bar = std::string(filled, '=') + (filled < kBarWidth ? ">" : "");
    bar.resize(kBarWidth, ' ');
    const Unit unit = UnitFor(static_cast<double>(all_bytes));
    const int digits = unit.bytes > 1 ? 1 : 0;
    char text[160];
    snprintf(text, sizeof text, "[%s] %3.0f %%  %.*f of %.*f %s", bar.c_str(),
             // Down, so that 100 % means the end.
             std::floor(100 * share), digits, static_cast<double>(bytes) / unit.bytes, digits,
             static_cast<double>(all_bytes) / unit.bytes, unit.name);
    std::string shown = text;
    // No guess before the first byte: it would divide by nothing.
    if (seconds > 0 && bytes > 0) {
        snprintf(text, sizeof text, "  %.0f lines/s  ", static_cast<double>(lines) / seconds);
        shown += text + TimeLeft(seconds * (1 - share) / share);
    }
    return shown;
}

void ProgressBar::Show(int64_t bytes, int64_t lines)
{
    if (!visible_)
        return;
    const auto now = Clock::now();
    if (now < next_)
        return;
    next_ = now + kRedraw;
    const double seconds = std::chrono::duration<double>(now - begin_).count();
    fprintf(stderr, "\r%s\033[K", Bar(bytes, all_bytes_, lines, seconds).c_str());
    fflush(stderr);
    drawn_ = true;
}

} // namespace cli
