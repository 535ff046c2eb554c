// The file monitor's matcher.
#include <cerrno>
#include <cstring>
#include <ctime>

#include "filemonitor/filemonitor.h"
#include "match/hits.h"
#include "match/index.h"
#include "match/table_data.h"
#include "platform/contract.h"
#include "platform/trace.h"

namespace {

constexpr char kUnit[] = "filemonitor";
constexpr const char *kInterface = "CheckFileLine";
constexpr TraceSite kSite = {kUnit, kInterface};

using ll = long long;

// A line under test, and now.
struct Occurrence {
    const char *line;
    time_t now;
    LocalMoment *moment;
};

// Returns true when a report was sent.
bool TestEntry(const Occurrence &occurrence, VKVMon *entry)
{
    const char *line = occurrence.line;
    if (!AllKeywordsFound(line, *entry, FindPlain) ||
        !IsWatched(*entry, occurrence.now, occurrence.moment) || !CountHits(kSite, entry, 1))
        return false;
    Report report;
    BuildReport(line, entry, &report);
    if (IsWithheld(*entry))
        return false;
    TRACE_HELPER(TRACE_NOTABLE, "Report %s, the next line's offset is %lld", line,
                 ll{filedata.start + filedata.linepos});
    SendReport(kSite, &report);
    return true;
}

// Entry `first` and those behind it. Count and slot are looked at before each entry: a report function may
// change them.
void TestEntriesFrom(int first, const Occurrence &occurrence)
{
    for (int i = first; i < nCnt && lpVKVMon[i] != nullptr; ++i)
        TestEntry(occurrence, lpVKVMon[i]);
}

// Only those that the index lets through: the others cannot match.
void TestCandidates(const Occurrence &occurrence, const FoundLiterals &found)
{
    Candidates candidates; // its entries are filled as far as it counts
    FindCandidates(found, &candidates);
    for (int i = 0; i < candidates.count; ++i) {
        const int entry = candidates.entries[i];
        if (TestEntry(occurrence, lpVKVMon[entry]) && !IndexHolds()) {
            DropIndex();
            TestEntriesFrom(entry + 1, occurrence);
            return;
        }
    }
}

// By the plain rule when nothing is known of what is in the line (`found` is null).
int CheckFileLineAt(LocalMoment *moment, const FoundLiterals *found, const char *line)
{
    TRACE_HELPER(TRACE_DETAIL, ">line=%p", static_cast<const void *>(line));
    TRACE_HELPER(TRACE_DETAIL, "line \"%s\" is being checked\n", line);
    const time_t now = time(nullptr);
    if (now == -1) {
        TRACE_HELPER(TRACE_SYSTEM, "<time() return -1, the error code is %d.", errno);
        return FALSE;
    }
    if (found != nullptr)
        TestCandidates({line, now, moment}, *found);
    else
        TestEntriesFrom(0, {line, now, moment});
    TRACE_HELPER(TRACE_DETAIL, "<return 0.");
    return TRUE;
}

} // namespace

// By the plain rule: the caller may have filled the table by hand just now.
int CheckFileLine(const char *line)
{
    LocalMoment moment;
    return CheckFileLineAt(&moment, nullptr, line);
}

int CheckFileLineOfPass(LocalMoment *moment, FoundLiterals *found, const char *line)
{
    CountLineOfPass();
    if (!IndexIsReady())
        return CheckFileLineAt(moment, nullptr, line);
    SearchLine(line, strlen(line), found);
    return CheckFileLineAt(moment, found, line);
}
