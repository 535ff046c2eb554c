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

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr char kCheckLine[] = "CheckLine";
constexpr TraceSite kSite = {kUnit, kCheckLine};

// The agent writes its own messages under this identifier. Skipping them keeps a report from being
// matched, and reported, again.
constexpr char kOwnLines[] = "TARSKvkvmain";

// A keyword with optional white space on both sides. Both sides match the empty text, so the
// keyword matches anywhere.
constexpr char kPatternFormat[] = "([[:space:]]*)%s([[:space:]]*)";
constexpr size_t kPatternSize = 512;
static_assert(sizeof kPatternFormat + kKeywordSize <= kPatternSize);

constexpr size_t kSubMatches = 20; // room for them is given, but they are not used

bool FindExpression(const char *line, const char *keyword)
{
    char pattern[kPatternSize] = {};
    snprintf(pattern, sizeof pattern, kPatternFormat, keyword);
    TRACE_FOR(kCheckLine, TRACE_DETAIL, "Regular Expression is:%s", pattern);
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
    return FindPlain(line, keyword) || FindExpression(line, keyword);
}

void HitEntry(char *line, int times, VKVMon *entry)
{
    if (!CountHits(kSite, entry, times))
        return; // kept for later lines
    Report report;
    BuildReport(line, entry, &report);
    if (IsWithheld(*entry))
        return;
    TRACE_FOR(kCheckLine, TRACE_NOTABLE, "Report %s", line);
    SendReport(kSite, &report);
}

void MatchTable(char *line, int times, time_t now)
{
    const FindKeyword find = IsFTServer < 1 ? FindPlain : FindPlainOrExpression;
    for (int i = 0; i < nCnt; ++i) {
        VKVMon *entry = lpVKVMon[i];
        if (entry == nullptr)
            return; // the monitor has shut down: its entries are gone, nCnt keeps its value
        if (AllKeywordsFound(line, *entry, find) && IsWatched(*entry, now))
            HitEntry(line, times, entry);
    }
}

} // namespace

int CheckLine(char *line, int times)
{
    TRACE(TRACE_DETAIL, ">line=%p,times=%d", static_cast<void *>(line), times);
    if (line == nullptr) {
        TRACE(TRACE_ERROR, "<line==NULL.return -1.");
        return -1;
    }
    TRACE(TRACE_DETAIL, "line \"%s\" is checked, it happend %d times\n", line, times);
    time_t stamp = 0;
    if (GetSyslogTime(line, &stamp) != TRUE) {
        TRACE(TRACE_ERROR, "<GetSyslogTime() return FALSE.return 0.");
        return 0;
    }
    if (strstr(line, kOwnLines) != nullptr) {
        TRACE(TRACE_DETAIL, "<TARSKvkvmain is found in line, ignore.return 0.");
        return 0;
    }
    const time_t now = time(nullptr);
    if (now == -1) {
        TRACE(TRACE_SYSTEM, "<time() return -1");
        return -1;
    }
    MatchTable(line, times, now);
    TRACE(TRACE_DETAIL, "<return 0.");
    return 0;
}
