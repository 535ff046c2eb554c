#include "vkevmon/pass.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "fileacc/fileacc.h"
#include "match/compiled.h"
#include "match/hits.h"
#include "match/index.h"
#include "match/literal_set.h"
#include "match/loud_lines.h"
#include "match/match.h"
#include "platform/agent.h"
#include "platform/trace.h"
#include "regacc/last_end_time.h"
#include "regacc/regacc.h"
#include "stamp/syslog_time.h"
#include "vkevmon/file_set.h"
#include "vkevmon/pass_follower.h"
#include "vkevmon/pass_lines.h"
#include "vkevmon/settings.h"

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr const char *kInterface = "WatchSyslogMain";

constexpr char kRepeatFormat[] = "last message repeated %d times";

using ll = long long;

// Reading one file. `current` waits to be checked until the line behind it is known, because the repeats
// that follow belong to it.
struct Reading {
    int slot;
    PassLine lines[2];
    PassLine *current = &lines[0];
    PassLine *ahead = &lines[1]; // the line read last, also when it was a repeat
    PassLine previous;           // what the repeats at the head of the new part refer to
    int64_t repeats;             // lines that were read and are repeats
    int times;                   // occurrences that the line to be checked stands for
    bool current_pending;
    bool ahead_is_line; // a line that is no repeat was read ahead
    bool previous_pending;
    LocalMoment moment;
    FoundLiterals found; // in the line that is checked
};

// Is the line a repeat line with a readable number?
bool IsRepeat(const PassLine &line, int *times)
{
    if (line.matches.is_known && !line.matches.is_repeat)
        return false;
    const char *repeat = strstr(line.text, kRepeatText);
    return repeat != nullptr && sscanf(repeat, kRepeatFormat, times) == 1;
}

const char *TimeText(time_t moment, char *text)
{
    const char *shown = ctime_r(&moment, text);
    return shown != nullptr ? shown : "NULL";
}
constexpr size_t kTimeTextSize = 32; // ctime_r writes 26 bytes for years of four digits

// ---- one file, line by line ----

// Looks backwards for the line that the repeats at the head of the new part refer to. An earlier
// pass has checked it, so it is checked again for the new occurrences only. The numbers of the
// repeat lines on the way belong to that pass too and are not added.
void FindRepeatedLine(Reading *reading)
{
    SaveFileEnv();
    while (FBegin() == 0) {
        PassLine &previous = reading->previous;
        if (GetPreLine(&previous.pos, previous.text, kLineBufferSize) != 0)
            break;
        previous.length = strlen(previous.text);
        int counted_before = 0;
        if (!IsRepeat(previous, &counted_before)) {
            reading->previous_pending = true;
            break;
        }
    }
    RecoverFileEnv();
}

// Reads the first new line. False when it cannot be read.
bool Begin(Reading *reading)
{
    if (!ReadFirstPassLine(reading->current)) {
        TRACE_HELPER(TRACE_ERROR, "Get Next Line failed.");
        return false;
    }
    int times = 0;
    if (IsRepeat(*reading->current, &times)) {
        std::swap(reading->ahead, reading->current);
        reading->times = times;
        reading->repeats = 1;
        FindRepeatedLine(reading);
    } else {
        reading->times = 1;
        reading->current_pending = true;
    }
    return true;
}

// Reads ahead to the next line that is no repeat, folding the repeats into `times`.
void ReadAhead(Reading *reading)
{
    while (FEof() == 0) {
        if (!ReadPassLine(&reading->moment, reading->ahead)) {
            TRACE_HELPER(TRACE_ERROR, "Get Next line failed.");
            return;
        }
        int repeats = 0;
        if (!IsRepeat(*reading->ahead, &repeats)) {
            reading->ahead_is_line = true;
            return;
        }
        reading->times = AddSaturated(reading->times, repeats);
        ++reading->repeats;
    }
}

// The line becomes the last one that was checked.
void KeepAsLastChecked(int slot, const PassLine &line)
{
    memcpy(content[slot], line.text, line.length + 1);
    curpos[slot] = line.pos;
}

int Check(Reading *reading, PassLine *line)
{
    if (MatchesHold(*line))
        return line->is_quiet
                   ? CheckQuietLine()
                   : CheckSievedLine(&reading->moment, line->matches, line->text, reading->times);
    return CheckLineOfPass(&reading->moment, &reading->found, line->text, line->length,
                           reading->times);
}

// Checks the line that waits, for all its occurrences. False: the pass is given up.
bool CheckWaiting(Reading *reading)
{
    const PassLine *checked = nullptr;
    if (reading->current_pending) {
        checked = reading->current;
        KeepAsLastChecked(reading->slot, *reading->current);
        // The message shows the line of slot 0 also while slot 1 is read: the interface has it so.
        if (Check(reading, reading->current) == -1)
            TRACE_HELPER(TRACE_ERROR, "CheckLine: %s --failed", content[0]);
    } else if (reading->previous_pending) {
        reading->previous_pending = false;
        checked = &reading->previous;
        if (Check(reading, &reading->previous) == -1)
            TRACE_HELPER(TRACE_ERROR, "CheckLine: %s --failed", reading->previous.text);
    }
    return TellFollower(reading->slot, checked, reading->times, reading->repeats);
}

// The line read ahead becomes the one that waits. False when there is none.
bool Advance(Reading *reading)
{
    if (!reading->ahead_is_line)
        return false;
    std::swap(reading->current, reading->ahead);
    reading->ahead->text[0] = '\0';
    reading->times = 1;
    reading->current_pending = true;
    reading->ahead_is_line = false;
    return true;
}

void StorePosition(int slot)
{
    if (RegSetOrientation(curpos[slot], content[slot], slot) != 0)
        TRACE_HELPER(TRACE_ERROR, "RegSetOrientation error IGNORED: %lld %s", ll{curpos[slot]},
                     content[slot]);
}

// Reads and checks the new lines of the positioned file.
void ReadNewLines(int slot)
{
    Reading reading{};
    reading.slot = slot;
    if (!Begin(&reading))
        return;
    const int64_t first = reading.current_pending ? reading.current->pos : reading.ahead->pos;
    do {
        ReadAhead(&reading);
        if (!CheckWaiting(&reading))
            return;
    } while (Advance(&reading));

    // Repeats at the end of the file were folded: the place behind them is stored, or the next pass
    // would count them again.
    if (reading.ahead->text[0] != '\0' && reading.ahead->pos >= 1)
        KeepAsLastChecked(slot, *reading.ahead);
    StorePosition(slot);
    const bool ends_in_repeats = reading.ahead->text[0] != '\0';
    TellPart(slot, first, ends_in_repeats ? reading.ahead->pos : curpos[slot], curpos[slot]);
}

// Positions the open file on the first unchecked line and reads on from there. False when it cannot be
// positioned.
bool ReadOpenFile(int slot)
{
    if (GotoPos(&curpos[slot], content[slot], kLineBufferSize) != 0) {
        TRACE_HELPER(TRACE_ERROR, "Set syslog pos failed.");
        return false;
    }
    if (FEof() == 0) {
        ReadNewLines(slot);
        return true;
    }
    TellPart(slot, -1, -1, curpos[slot]);
    if (RegSetOrientation(curpos[slot], content[slot], slot) != 0)
        TRACE_HELPER(TRACE_ERROR, "Set orientation to reg error IGNORED: %lld %s", ll{curpos[slot]},
                     content[slot]);
    TRACE_HELPER(TRACE_DETAIL, "Get end of file after GotoPos");
    return true;
}

// ---- across the files of a slot ----

// The scan of one slot in one pass.
struct SlotScan {
    int slot;
    int looks_again = 0;   // so far
    bool has_read = false; // a file was read, or found read to its end
};

// What a step over the files of a slot came to.
enum class Step {
    kDone,      // go on
    kNothing,   // there was no such file to do it with
    kLookAgain, // a rotation has come: the slot's place has to be looked for anew
};

// Opens the file at logindex. After too many rotations in one pass whatever has the name is taken for it.
Step OpenFileOfSet(const SlotScan &scan, const char *path)
{
    if (InitFile(path) != 0) {
        TRACE_HELPER(TRACE_ERROR, "Init Syslog file %s failed.", path);
        return Step::kNothing;
    }
    if (scan.looks_again < kMostLooksAgain && DetectRotation(scan.slot, logindex[scan.slot])) {
        FinishFile();
        return Step::kLookAgain;
    }
    return Step::kDone;
}

// Reads the file at logindex from the place where the last pass stopped, or passes over it.
Step ReadFile(SlotScan *scan)
{
    char buffer[kBackupPathSize];
    const char *path = LogPath(scan->slot, logindex[scan->slot], buffer);
    const Step opened = OpenFileOfSet(*scan, path);
    if (opened != Step::kDone)
        return opened;
    if (LogIsRead != nullptr)
        LogIsRead(syslogpath[scan->slot]);
    if (ReadOpenFile(scan->slot))
        scan->has_read = true;
    FinishFile();
    TRACE_HELPER(TRACE_DETAIL, "Get end of file %s", path);
    return Step::kDone;
}

bool HasFile(int slot)
{
    return static_cast<int32_t>(logindex[slot]) >= 0;
}

// Reads the head line of the file at logindex.
Step ReadHeadLine(const SlotScan &scan)
{
    const int slot = scan.slot;
    char buffer[kBackupPathSize];
    const Step opened = OpenFileOfSet(scan, LogPath(slot, logindex[slot], buffer));
    if (opened != Step::kDone)
        return opened;
    const bool done = GetFirstLine(headline[slot], kLineBufferSize) == 0;
    if (!done)
        headline[slot][0] = '\0';
    FinishFile();
    return done ? Step::kDone : Step::kNothing;
}

// Records the file at logindex as the followed one, nothing of it checked yet.
void FollowFile(int slot)
{
    curpos[slot] = -1;
    content[slot][0] = '\0';
    if (RegSetHeadLine(headline[slot], slot) != 0)
        TRACE_HELPER(TRACE_ERROR, "RegSetHeadLine error IGNORED: %s", headline[slot]);
    if (RegSetOrientation(-1, content[slot], slot) != 0)
        TRACE_HELPER(TRACE_ERROR, "RegSetOrientation error IGNORED: -1, \"\\0\"");
}

// Moves to the next newer file that can be read. kNothing: the live file is done.
Step MoveToNewerFile(const SlotScan &scan)
{
    for (--logindex[scan.slot]; HasFile(scan.slot); --logindex[scan.slot]) {
        const Step read = ReadHeadLine(scan);
        if (read == Step::kLookAgain)
            return read;
        if (read == Step::kDone) {
            FollowFile(scan.slot);
            return read;
        }
    }
    return Step::kNothing;
}

// Reads the file that CheckSyslog found and every newer one. False when a rotation makes it ask again.
bool ReadFiles(SlotScan *scan)
{
    Step step = Step::kDone;
    while (step == Step::kDone) {
        step = ReadFile(scan);
        if (step != Step::kLookAgain)
            step = MoveToNewerFile(*scan);
    }
    return step != Step::kLookAgain;
}

void RecallEndTime()
{
    if (RecallLastEndTime())
        return;
    char text[kTimeTextSize];
    TRACE_HELPER(TRACE_ERROR, "Can't get last end time, use current time %s",
                 TimeText(lastendtime, text));
}

void RecordEndTime()
{
    if (RecordLastEndTime())
        return;
    char text[kTimeTextSize];
    TRACE_HELPER(TRACE_ERROR, "Can't set last end time to registry: %s",
                 TimeText(lastendtime, text));
}

// Finds the file in which the last pass stopped. False, after tracing why, when there is nothing to read.
bool FindFile(int slot)
{
    switch (CheckSyslog(slot)) {
    case -1:
        TRACE_HELPER(TRACE_ERROR, "< CheckSyslog(%d) failed.", slot);
        return false;
    case 0:
        TRACE_HELPER(TRACE_DETAIL, "<Syslog is needn't to change.");
        return false;
    default:
        RecallEndTime();
        return true;
    }
}

void ScanSlot(int slot)
{
    gMonIndex = slot; // the directory filters take no argument of their own
    if (syslogpath[slot][0] == '\0') {
        TRACE_HELPER(TRACE_DETAIL, "<monitoring index:[%d]: filename is empty, ignore.", slot);
        return;
    }
    SlotScan scan{slot};
    bool is_found = FindFile(slot);
    while (is_found && !ReadFiles(&scan)) {
        ++scan.looks_again;
        FreeBackupList(slot);
        is_found = FindFile(slot);
    }
    // A scan that a rotation ended before it came to read anything was none.
    if (is_found || scan.has_read)
        RecordEndTime();
    if (!is_found)
        return;
    FreeBackupList(slot);
    TRACE_HELPER(TRACE_DETAIL, "<return %d", 0);
}

} // namespace

int WatchSyslogMain(void)
{
    TRACE(TRACE_DETAIL, ">");
    DropIndex();
    BeginPassLines();
    AskWhoFollows();
    for (int slot = 0; slot < MAX_MON_FILES; ++slot)
        ScanSlot(slot);
    ForgetCompiled(); // between passes nothing of them is held
    return 0;
}
