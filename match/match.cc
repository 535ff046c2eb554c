#include "match/match.h"

#include <cstring>
#include <ctime>

#include "match/compiled.h"
#include "match/expression.h"
#include "match/hits.h"
#include "match/index.h"
#include "match/report.h"
#include "match/table_data.h"
#include "platform/contract.h"
#include "platform/trace.h"
#include "stamp/syslog_time.h"

int32_t line_outcome = LINE_COMPARED;

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr const char *kInterface = "CheckLine";
constexpr TraceSite kSite = {kUnit, kInterface};

void TracePattern(const Pattern &pattern)
{
    TRACE_HELPER(TRACE_DETAIL, "Regular Expression is:%s", pattern.text);
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

// A line under test: its text, how often it occurred, and now.
struct Occurrence {
    char *line = nullptr;
    int times = 0;
    time_t now = 0;
    LocalMoment *moment = nullptr;
    const FoundLiterals *found = nullptr; // by the index; null: it has not searched the line
    const LineMatches *matches = nullptr; // by the sieve; null: it has not looked at the line
    bool is_traced = DetailIsTraced();
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
    TRACE_HELPER(TRACE_NOTABLE, "Report %s", occurrence.line);
    SendReport(kSite, &report);
    return true;
}

// ---- the plain rule ----

// Tests entry `first` and those behind it. Count and slot are looked at before each entry: a report function may
// change them.
void MatchFrom(int first, const Occurrence &occurrence)
{
    for (int i = first; i < nCnt; ++i) {
        VKVMon *entry = lpVKVMon[i];
        if (entry == nullptr)
            return; // the monitor has shut down: its entries are gone, nCnt keeps its value
        const FindKeyword find = ServerIsFaultTolerant() ? FindPlainOrExpression : FindPlain;
        if (AllKeywordsFound(occurrence.line, *entry, find))
            HitEntry(occurrence, entry);
    }
}

// ---- with the index ----

// The plain rule's answer for one keyword, and its trace record, without a look at the line or at the
// compiler of expressions where the index knows better.
bool FindIndexedKeyword(const Occurrence &occurrence, int entry, int keyword)
{
    if (IsPlainlyFound(*occurrence.found, entry, keyword))
        return true;
    const bool can_match = CanMatchAsExpression(*occurrence.found, entry, keyword);
    if (!can_match && !occurrence.is_traced)
        return false;
    Pattern pattern;
    MakePattern(KeywordOf(*lpVKVMon[entry], keyword), &pattern);
    TracePattern(pattern);
    return can_match && MatchesCompiled(occurrence.line, pattern, entry, keyword);
}

bool AllIndexedKeywordsFound(const Occurrence &occurrence, int entry)
{
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        if (!FindIndexedKeyword(occurrence, entry, k))
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
    DropIndex();
    MatchFrom(entry + 1, occurrence);
    return false;
}

// On a fault-tolerant server every entry is gone through: the trace log shows each expression tried.
void MatchAllByIndex(const Occurrence &occurrence)
{
    for (int i = 0; i < IndexedEntries(); ++i) {
        if (AllIndexedKeywordsFound(occurrence, i) && !HitIndexedEntry(occurrence, i))
            return;
    }
}

void MatchByIndex(const Occurrence &occurrence)
{
    if (ServerIsFaultTolerant()) {
        MatchAllByIndex(occurrence);
        return;
    }
    Candidates candidates; // its entries are filled as far as it counts
    FindCandidates(*occurrence.found, &candidates);
    for (int i = 0; i < candidates.count; ++i) {
        const int entry = candidates.entries[i];
        if (AllKeywordsFound(occurrence.line, *lpVKVMon[entry], FindPlain) &&
            !HitIndexedEntry(occurrence, entry))
            return;
    }
}

void MatchBySieve(const Occurrence &occurrence)
{
    for (int i = 0; i < occurrence.matches->count; ++i) {
        if (!HitIndexedEntry(occurrence, occurrence.matches->entries[i]))
            return;
    }
}

// ---- a line ----

bool IsOwn(const Occurrence &occurrence)
{
    if (occurrence.matches != nullptr)
        return occurrence.matches->is_own;
    if (occurrence.found != nullptr)
        return LineIsOwn(*occurrence.found);
    return strstr(occurrence.line, kSyslogIdentifier) != nullptr;
}

// By the plain rule when nothing is known of what is in the line.
void Match(const Occurrence &occurrence)
{
    if (occurrence.matches != nullptr)
        MatchBySieve(occurrence);
    else if (occurrence.found != nullptr)
        MatchByIndex(occurrence);
    else
        MatchFrom(0, occurrence);
}

int CheckOccurrence(Occurrence occurrence)
{
    time_t stamp = 0;
    if (GetSyslogTimeAt(occurrence.moment, occurrence.line, &stamp, StampUse::kValidity) != TRUE) {
        line_outcome = LINE_WITHOUT_TIME;
        TRACE_HELPER(TRACE_ERROR, "<GetSyslogTime() return FALSE.return 0.");
        return 0;
    }
    if (IsOwn(occurrence)) {
        line_outcome = LINE_OF_AGENT;
        TRACE_HELPER(TRACE_DETAIL, "<TARSKvkvmain is found in line, ignore.return 0.");
        return 0;
    }
    occurrence.now = time(nullptr);
    if (occurrence.now == -1) {
        line_outcome = LINE_FAILED;
        TRACE_HELPER(TRACE_SYSTEM, "<time() return -1");
        return -1;
    }
    line_outcome = LINE_COMPARED;
    Match(occurrence);
    TRACE_HELPER(TRACE_DETAIL, "<return 0.");
    return 0;
}

void TraceLine(const char *line, int times)
{
    TRACE_HELPER(TRACE_DETAIL, "line \"%s\" is checked, it happend %d times\n", line, times);
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
    return CheckOccurrence({.line = line, .times = times, .moment = &moment});
}

int CheckLineOfPass(LocalMoment *moment, FoundLiterals *found, char *line, size_t length, int times)
{
    TRACE_HELPER(TRACE_DETAIL, ">line=%p,times=%d", static_cast<void *>(line), times);
    TraceLine(line, times);
    CountLineOfPass();
    Occurrence occurrence = {.line = line, .times = times, .moment = moment};
    if (IndexIsReady()) {
        SearchLine(line, length, found);
        occurrence.found = found;
    }
    return CheckOccurrence(occurrence);
}

int CheckSievedLine(LocalMoment *moment, const LineMatches &matches, char *line, int times)
{
    TRACE_HELPER(TRACE_DETAIL, ">line=%p,times=%d", static_cast<void *>(line), times);
    TraceLine(line, times);
    return CheckOccurrence({.line = line, .times = times, .moment = moment, .matches = &matches});
}
