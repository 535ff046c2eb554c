#include "vkevmon/match.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <regex.h>

#include "platform/trace.h"
#include "vkevmon/entry.h"
#include "vkevmon/hits.h"
#include "vkevmon/syslog_time.h"
#include "vkevmon/table.h"
#include "vkevmon/table_index.h"

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr char kCheckLine[] = "CheckLine";
constexpr TraceSite kSite = {kUnit, kCheckLine};

// A keyword with optional white space on both sides. Both sides match the empty text, so the
// keyword matches anywhere.
constexpr char kPatternFormat[] = "([[:space:]]*)%s([[:space:]]*)";
constexpr size_t kPatternSize = 512;
static_assert(sizeof kPatternFormat + kKeywordSize <= kPatternSize);

constexpr size_t kSubMatches = 20; // room for them is given, but they are not used

void TracePattern(const char *keyword)
{
    TRACE_FOR(kCheckLine, TRACE_DETAIL, "Regular Expression is:([[:space:]]*)%s([[:space:]]*)",
              keyword);
}

bool MatchesAsExpression(const char *line, const char *keyword)
{
    char pattern[kPatternSize];
    snprintf(pattern, sizeof pattern, kPatternFormat, keyword);
    regex_t expression;
    if (regcomp(&expression, pattern, REG_EXTENDED) != 0)
        return false; // counts as not found
    regmatch_t matches[kSubMatches];
    const bool found = regexec(&expression, line, kSubMatches, matches, 0) == 0;
    regfree(&expression);
    return found;
}

bool FindPlainOrExpression(const char *line, const char *keyword)
{
    if (FindPlain(line, keyword))
        return true;
    TracePattern(keyword);
    return MatchesAsExpression(line, keyword);
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

void HitEntry(const Occurrence &occurrence, VKVMon *entry)
{
    if (!IsWatched(*entry, occurrence.now, occurrence.moment))
        return;
    if (!CountHits(kSite, entry, occurrence.times))
        return; // kept for later lines
    Report report;
    BuildReport(occurrence.line, entry, &report);
    if (IsWithheld(*entry))
        return;
    TRACE_FOR(kCheckLine, TRACE_NOTABLE, "Report %s", occurrence.line);
    SendReport(kSite, &report);
}

// ---- the plain rule ----

bool IsOwnByText(const char *line)
{
    return strstr(line, kOwnLines) != nullptr;
}

void MatchByText(const Occurrence &occurrence)
{
    const FindKeyword find = IsFaultTolerant() ? FindPlainOrExpression : FindPlain;
    for (int i = 0; i < nCnt; ++i) {
        VKVMon *entry = lpVKVMon[i];
        if (entry == nullptr)
            return; // the monitor has shut down: its entries are gone, nCnt keeps its value
        if (AllKeywordsFound(occurrence.line, *entry, find))
            HitEntry(occurrence, entry);
    }
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
    const char *text = KeywordOf(*lpVKVMon[entry], keyword);
    TracePattern(text);
    return CanMatchAsExpression(entry, keyword) && MatchesAsExpression(line, text);
}

bool AllIndexedKeywordsFound(const char *line, int entry)
{
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        if (!FindIndexedKeyword(line, entry, k))
            return false;
    }
    return true;
}

// On a fault-tolerant server every entry is gone through: the trace log shows each expression tried.
void MatchByIndexFaultTolerant(const Occurrence &occurrence)
{
    for (int i = 0; i < IndexedEntries(); ++i) {
        if (AllIndexedKeywordsFound(occurrence.line, i))
            HitEntry(occurrence, lpVKVMon[i]);
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
        VKVMon *entry = lpVKVMon[candidates.entries[i]];
        if (AllKeywordsFound(occurrence.line, *entry, FindPlain))
            HitEntry(occurrence, entry);
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
