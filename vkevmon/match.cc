#include "vkevmon/match.h"

#include <cstring>
#include <ctime>

#include "platform/trace.h"
#include "vkevmon/entry.h"
#include "vkevmon/expression.h"
#include "vkevmon/hits.h"
#include "vkevmon/syslog_time.h"
#include "vkevmon/table.h"
#include "vkevmon/table_index.h"

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr char kCheckLine[] = "CheckLine";
constexpr TraceSite kSite = {kUnit, kCheckLine};

void TracePattern(const Pattern &pattern)
{
    TRACE_FOR(kCheckLine, TRACE_DETAIL, "Regular Expression is:%s", pattern.text);
}

bool FindPlainOrExpression(const char *line, const char *keyword)
{
    if (FindPlain(line, keyword))
        return true;
    Pattern pattern;
    MakePattern(keyword, &pattern);
    TracePattern(pattern);
    return MatchesPattern(line, pattern);
}

bool IsFaultTolerant()
{
    return IsFTServer >= 1;
}

// A line under test: its text, how often it occurred, and now.
struct Occurrence {
    char *line;
    int times;
    time_t now;
    LocalMoment *moment;
};

// Counts the line for an entry whose keywords it holds. Returns true when a report was sent.
bool HitEntry(const Occurrence &occurrence, VKVMon *entry)
{
    if (!IsWatched(*entry, occurrence.now, occurrence.moment))
        return false;
    if (!CountHits(kSite, entry, occurrence.times))
        return false; // kept for later lines
    Report report;
    BuildReport(occurrence.line, entry, &report);
    if (IsWithheld(*entry))
        return false;
    TRACE_FOR(kCheckLine, TRACE_NOTABLE, "Report %s", occurrence.line);
    SendReport(kSite, &report);
    return true;
}

// ---- the plain rule ----

bool IsOwnByText(const char *line)
{
    return strstr(line, kOwnLines) != nullptr;
}

// Entry `first` and those behind it. Count and slot are looked at before each entry: a report function may
// change them.
void MatchFrom(int first, const Occurrence &occurrence)
{
    for (int i = first; i < nCnt; ++i) {
        VKVMon *entry = lpVKVMon[i];
        if (entry == nullptr)
            return; // the monitor has shut down: its entries are gone, nCnt keeps its value
        const FindKeyword find = IsFaultTolerant() ? FindPlainOrExpression : FindPlain;
        if (AllKeywordsFound(occurrence.line, *entry, find))
            HitEntry(occurrence, entry);
    }
}

void MatchByText(const Occurrence &occurrence)
{
    MatchFrom(0, occurrence);
}

// ---- with the index ----

bool IsOwnByIndex(const char * /*line*/)
{
    return LineIsOwn();
}

// The plain rule's answer for one keyword, and its trace record, without a look at the line or at the
// compiler of expressions where the index knows better.
bool FindIndexedKeyword(const char *line, int entry, int keyword)
{
    if (IsPlainlyFound(entry, keyword))
        return true;
    const Pattern &pattern = PatternOf(entry, keyword);
    TracePattern(pattern);
    return CanMatchAsExpression(entry, keyword) && MatchesPattern(line, pattern);
}

bool AllIndexedKeywordsFound(const char *line, int entry)
{
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        if (!FindIndexedKeyword(line, entry, k))
            return false;
    }
    return true;
}

// Hits an entry that the index has let through. False when the rest of the table is to be tested by the
// plain rule, which has been done then.
bool HitIndexedEntry(const Occurrence &occurrence, int entry)
{
    if (!HitEntry(occurrence, lpVKVMon[entry]) || IndexHolds())
        return true;
    MatchFrom(entry + 1, occurrence);
    return false;
}

// On a fault-tolerant server every entry is gone through: the trace log shows each expression tried.
void MatchByIndexFaultTolerant(const Occurrence &occurrence)
{
    for (int i = 0; i < IndexedEntries(); ++i) {
        if (AllIndexedKeywordsFound(occurrence.line, i) && !HitIndexedEntry(occurrence, i))
            return;
    }
}

void MatchByIndex(const Occurrence &occurrence)
{
    if (IsFaultTolerant()) {
        MatchByIndexFaultTolerant(occurrence);
        return;
    }
    const Candidates &candidates = FindCandidates();
    for (int i = 0; i < candidates.count; ++i) {
        const int entry = candidates.entries[i];
        if (AllKeywordsFound(occurrence.line, *lpVKVMon[entry], FindPlain) &&
            !HitIndexedEntry(occurrence, entry))
            return;
    }
}

// How a line is tested: by its text, or by an index that has searched it.
struct Matcher {
    bool (*is_own)(const char *line);
    void (*match)(const Occurrence &occurrence);
};
constexpr Matcher kByText = {IsOwnByText, MatchByText};
constexpr Matcher kByIndex = {IsOwnByIndex, MatchByIndex};

int CheckLineAt(LocalMoment *moment, char *line, int times, const Matcher &matcher)
{
    time_t stamp = 0;
    if (GetSyslogTimeAt(moment, line, &stamp, StampUse::kValidity) != TRUE) {
        TRACE_FOR(kCheckLine, TRACE_ERROR, "<GetSyslogTime() return FALSE.return 0.");
        return 0;
    }
    if (matcher.is_own(line)) {
        TRACE_FOR(kCheckLine, TRACE_DETAIL, "<TARSKvkvmain is found in line, ignore.return 0.");
        return 0;
    }
    const time_t now = time(nullptr);
    if (now == -1) {
        TRACE_FOR(kCheckLine, TRACE_SYSTEM, "<time() return -1");
        return -1;
    }
    matcher.match({line, times, now, moment});
    TRACE_FOR(kCheckLine, TRACE_DETAIL, "<return 0.");
    return 0;
}

void TraceLine(const char *line, int times)
{
    TRACE_FOR(kCheckLine, TRACE_DETAIL, "line \"%s\" is checked, it happend %d times\n", line,
              times);
}

} // namespace

int CheckLine(char *line, int times)
{
    TRACE(TRACE_DETAIL, ">line=%p,times=%d", static_cast<void *>(line), times);
    if (line == nullptr) {
        TRACE(TRACE_ERROR, "<line==NULL.return -1.");
        return -1;
    }
    TraceLine(line, times);
    LocalMoment moment;
    return CheckLineAt(&moment, line, times, kByText);
}

int CheckLineOfPass(LocalMoment *moment, char *line, size_t length, int times)
{
    TRACE_FOR(kCheckLine, TRACE_DETAIL, ">line=%p,times=%d", static_cast<void *>(line), times);
    TraceLine(line, times);
    if (!IndexIsReady())
        return CheckLineAt(moment, line, times, kByText);
    SearchLine(line, length);
    return CheckLineAt(moment, line, times, kByIndex);
}
