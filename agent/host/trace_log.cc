#include "agent/host/trace_log.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <pthread.h>

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include "agent/host/error.h"
#include "agent/host/private_file.h"
#include "platform/trace.h"

namespace host {

namespace {

// The file and four older ones: a week of a normal host at the default level, and never more disk.
constexpr size_t kFileBytes = size_t{10} * 1024 * 1024;
constexpr size_t kOlderFiles = 4;

// A record is cut here, in bytes: a whole log line and what is said about it.
constexpr size_t kTextSize = 4096;

// Records that one place in the program may write in a second. A log full of lines without a time
// stamp would otherwise fill the trace with millions of equal words. Detail is never held back.
constexpr int kBurst = 100;
constexpr size_t kPlaces =
    1024; // places that are told apart; two that share a slot share its burst

// The level from which records are written, kTraceOff while no log is open; and the one that was
// set last, which holds from the opening. Atomic, because a record that is not wanted must cost no
// lock: there is one for each line of the log.
std::atomic<int> threshold{kTraceOff};
std::atomic<int> wanted_level{1};

// Grows with each record of detail that is asked for, written or not.
std::atomic<uint64_t> signs_of_life{0};

std::mutex state; // guards what follows
std::shared_ptr<spdlog::logger> logger;
// Text of the last record of level error or system, written or not; empty: none since it was
// forgotten.
std::string last_error;

thread_local char thread_name[16] = "main"; // as long as the kernel keeps

// A place in the program that writes records, and what it wrote in the second that `second` names.
struct Place {
    time_t second = 0;
    int written = 0;
    int held_back = 0;
    // Of the first record that was held back. Copies: a library may be gone when they are told.
    int level = 0;
    int line = 0;
    std::string unit;
    std::string function;
};
std::array<Place, kPlaces> places;

constexpr const char *kLevelNames[] = {"detail", "error", "system", "notable", "off"};

// By the address of the unit's name, which each source file has once, and the line. The address is
// a number here, never read: the library may be gone.
Place &PlaceOf(const char *unit, int line)
{
    const auto key = (reinterpret_cast<uintptr_t>(unit) >> 3U) * 31U + static_cast<uintptr_t>(line);
    return places[key % kPlaces];
}

void Write(int level, const char *unit, const char *function, int line, const char *text)
{
    logger->info("[{}] {} {} {}:{} {}", thread_name, TraceLevelName(level), unit, function, line,
                 text);
    // Detail comes with each line of the log and stays in the buffer until the monitor rests. All
    // else is in the file when the call returns: it may be what the process says last.
    if (level != TRACE_DETAIL)
        logger->flush();
}

// Under the name of the place, so that a search for it finds both.
void TellHeldBack(Place *place)
{
    if (place->held_back == 0)
        return;
    const std::string told =
        "(" + std::to_string(place->held_back) + " more records from here were left out)";
    place->held_back = 0;
    Write(place->level, place->unit.c_str(), place->function.c_str(), place->line, told.c_str());
}

// May this place write now? Says how much was held back when it may again.
bool MayWrite(int level, const char *unit, const char *function, int line)
{
    // Somebody has switched it on to see all of it.
    if (level == TRACE_DETAIL)
        return true;
    Place &place = PlaceOf(unit, line);
    const time_t now = time(nullptr);
    // The clock of the wall; one that jumps begins a new second.
    if (place.second != now) {
        TellHeldBack(&place);
        place.second = now;
        place.written = 0;
    }
    if (place.written < kBurst) {
        ++place.written;
        return true;
    }
    // Whatever shares the slot, it is told under the name of the first.
    if (place.held_back++ == 0) {
        place.level = level;
        place.line = line;
        place.unit = unit;
        place.function = function;
    }
    return false;
}

// The monitor's last words may be why it ended, whatever is written.
bool SaysWhyItEnded(int level)
{
    return level == TRACE_ERROR || level == TRACE_SYSTEM;
}

// One record is one line: what a log line holds must not look like a record of its own.
void MakeOneLine(char *text)
{
    size_t length = strlen(text);
    while (length > 0 && text[length - 1] == '\n')
        text[--length] = '\0';
    for (size_t i = 0; i < length; ++i) {
        if (static_cast<unsigned char>(text[i]) < ' ' && text[i] != '\t')
            text[i] = ' ';
    }
}

// Each file is made before it is opened, since the one who opens it would leave its mode to the umask.
// A reason why it cannot be made is told by the one who opens it.
spdlog::file_event_handlers PrivateFiles()
{
    spdlog::file_event_handlers handlers;
    handlers.before_open = [](const spdlog::filename_t &name) {
        const Fd made = OpenReadableFile(name, O_WRONLY | O_CREAT);
    };
    return handlers;
}

// Those of an earlier version, which others may read, and those of before the folder had readers. Rotation renames
// files and leaves their modes alone.
void SetModesOfOlderFiles(const std::filesystem::path &path)
{
    for (size_t i = 1; i <= kOlderFiles; ++i) {
        const auto older = spdlog::sinks::rotating_file_sink_mt::calc_filename(path.string(), i);
        if (!MakeReadable(older))
            MakePrivate(older);
    }
}

// Only the thread of the monitor traces detail, with each line that it reads. Not an atomic addition,
// which would cost more than the rest of a record that is not written: a lost one does not matter.
void ShowLife()
{
    signs_of_life.store(signs_of_life.load(std::memory_order_relaxed) + 1,
                        std::memory_order_relaxed);
}

} // namespace

void OpenTraceLog(const std::filesystem::path &path)
{
    std::shared_ptr<spdlog::logger> opened;
    try {
        SetModesOfOlderFiles(path);
        auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
            // Not rotated at the start: a daemon that is started again and again would rotate the
            // first cause away.
            path.string(), kFileBytes, kOlderFiles, false, PrivateFiles());
        opened = std::make_shared<spdlog::logger>("trace", std::move(sink));
    } catch (const spdlog::spdlog_ex &error) {
        throw StoreError("cannot write the trace log " + path.string(), error.what(),
                         "make its folder writable, or run as root");
    }
    opened->set_pattern("%Y-%m-%d %H:%M:%S.%f %v");
    const std::lock_guard lock(state);
    logger = std::move(opened);
    threshold = wanted_level.load();
}

void CloseTraceLog()
{
    const std::lock_guard lock(state);
    threshold = kTraceOff;
    if (!logger)
        return;
    for (Place &place : places)
        TellHeldBack(&place);
    logger.reset();
}

void SetTraceLevel(int level)
{
    const std::lock_guard lock(state);
    wanted_level = level;
    if (logger)
        threshold = level;
}

int TraceLevel()
{
    return wanted_level;
}

const char *TraceLevelName(int level)
{
    return level >= TRACE_DETAIL && level <= kTraceOff ? kLevelNames[level] : "unknown";
}

void FlushTraceLog()
{
    const std::lock_guard lock(state);
    if (logger)
        logger->flush();
}

uint64_t SignsOfLife()
{
    return signs_of_life.load(std::memory_order_relaxed);
}

std::string LastTracedError()
{
    const std::lock_guard lock(state);
    return last_error;
}

void ForgetTracedError()
{
    const std::lock_guard lock(state);
    last_error.clear();
}

} // namespace host

using namespace host;

extern "C" {

int TraceLog(int level, const char *unit, const char *function, int line, const char *format, ...)
{
    // Before anything else, whether it is written or not: the watchdog lives on it.
    if (level == TRACE_DETAIL)
        ShowLife();
    const bool is_wanted = level >= threshold.load(std::memory_order_relaxed);
    if (!is_wanted && !SaysWhyItEnded(level))
        return 0;
    const std::lock_guard lock(state);
    // None is open, or it was closed since the first look.
    if (!logger)
        return 0;
    try {
        // A record that is held back is not made, unless the monitor may end with it.
        const bool is_written = is_wanted && MayWrite(level, unit, function, line);
        if (!is_written && !SaysWhyItEnded(level))
            return 0;
        // On the stack: a record allocates nothing before it is known to be wanted.
        char text[kTextSize];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(text, sizeof text, format, // NOLINT(clang-analyzer-valist.Uninitialized)
                  arguments);
        va_end(arguments);
        MakeOneLine(text);
        if (SaysWhyItEnded(level))
            last_error = text;
        if (!is_written)
            return 0;
        Write(level, unit, function, line, text);
    } catch (const std::exception &) {
        return 0; // the trace log must not bring the monitor down
    }
    return 1;
}

// What may be said as the reason of an end is wanted at every level.
int TraceLogIsOn(int level)
{
    return SaysWhyItEnded(level) || level >= threshold.load(std::memory_order_relaxed) ? 1 : 0;
}

int TraceLogSetThrName(const char *name)
{
    snprintf(thread_name, sizeof thread_name, "%s", name);
    // So that top and a debugger show the same name as the records.
    pthread_setname_np(pthread_self(), thread_name);
    return 1;
}

} // extern "C"
