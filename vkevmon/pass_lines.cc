#include "vkevmon/pass_lines.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "fileacc/stretch.h"
#include "match/block_search.h"
#include "match/index.h"
#include "match/loud_lines.h"
#include "match/report.h"
#include "platform/trace.h"

// Making the sieve for a full table takes about 3 ms, as long as 15,000 lines one by one.
int64_t least_news_for_stretches = int64_t{4} << 20;
uint64_t stretches_searched = 0;
int64_t lines_read = 0;

namespace {

static_assert(kStretchPadding >= kGramPadding);

constexpr size_t kMostOfLine = kLineBufferSize - 1;

// The stretch being read. Written on the monitor thread.
Stretch stretch;
bool is_in_stretch = false;
bool is_behind_stretches = false; // the block is not yet that of a pass by blocks
StretchLine last;                 // the line delivered last
bool last_was_quiet;              // nothing that is still to be checked comes before the next one
bool next_is_loud;                // known already of the line behind it
LineMatches matches;              // of the line looked at last
constexpr LineMatches kNoMatches{.is_known = true};
KnownStamp known_stamp;

// What the pass knows.
bool may_use_stretches = false; // of this pass: the table has not changed
bool file_has_stretches = false;
unsigned sieve_of_index = kNoIndex; // the index together with which the sieve was made

// ---- beginning and ending a stretch ----

bool SieveHolds()
{
    return sieve_of_index != kNoIndex && IndexNumber() == sieve_of_index;
}

// The sieve is made for the table of which an index is there: the index tells when the table is another one.
bool MakeSieve()
{
    if (IndexNumber() == kNoIndex)
        BuildIndex();
    RelyOnAllKeywords();
    const bool is_made = PrepareSieve(stretch.text, stretch.length) && !SieveIsTooCoarse();
    sieve_of_index = is_made ? IndexNumber() : kNoIndex;
    return sieve_of_index != kNoIndex;
}

void SearchStretch()
{
    SieveBlock(stretch.text, stretch.length);
    ++stretches_searched;
}

bool BeginStretch(LocalMoment *moment)
{
    const bool is_first = !SieveHolds();
    const int64_t least = is_first ? least_news_for_stretches : 1;
    if (!is_behind_stretches)
        BeginStretches();
    if (BytesForStretches() < std::max<int64_t>(least, 1) || !ReadStretch(&stretch))
        return false;
    if ((is_first || SieveHasAged()) && !MakeSieve())
        return false;
    RecallMoment(&known_stamp, moment);
    SearchStretch();
    is_in_stretch = true;
    last = {};
    next_is_loud = false;
    return true;
}

void EndStretch()
{
    LeaveStretch(stretch, last);
    is_in_stretch = false;
    is_behind_stretches = true;
}

// ---- lines of a stretch ----

bool StampIsValid(LocalMoment *moment, const StretchLine &line)
{
    char *const text = stretch.text + line.head;
    if (IsKnownStamp(known_stamp, text))
        return true;
    char &behind = stretch.text[std::min(line.end, line.head + kMostOfLine)];
    const char line_end = behind;
    behind = '\0';
    const bool is_valid = LearnStamp(&known_stamp, moment, text);
    behind = line_end;
    return is_valid;
}

// A piece of a longer line, but the first, is taken for loud: a search goes by line ends and does not know pieces.
bool IsPiece(const StretchLine &line)
{
    return line.head > 0 && stretch.text[line.head - 1] != '\n';
}

// What is found in it is in `matches` then.
bool IsQuiet(LocalMoment *moment, const StretchLine &line)
{
    matches = {};
    if (IsPiece(line))
        return false;
    matches.is_known = true;
    if (next_loud_look < line.next && LineIsLoud(line.head, line.end, kMostOfLine, &matches))
        return false;
    return StampIsValid(moment, line);
}

// The last line of the run of quiet lines that begins at `head`. Returns how many they are: 0 when already the first is
// loud.
int FindQuietRun(LocalMoment *moment, size_t head, bool may_be_long, StretchLine *found)
{
    int lines = 0;
    while (head < stretch.length) {
        const StretchLine line = NextLineOfStretch(stretch, head);
        next_is_loud = !IsQuiet(moment, line);
        if (next_is_loud)
            break;
        *found = line;
        ++lines;
        head = line.next;
        if (!may_be_long)
            break;
    }
    return lines;
}

void Deliver(const StretchLine &found, bool is_quiet, PassLine *line)
{
    last = found;
    last_was_quiet = is_quiet;
    line->number = lines_read;
    line->pos = stretch.start + static_cast<int64_t>(found.head);
    line->length = std::min(found.end - found.head, kMostOfLine);
    line->is_quiet = is_quiet;
    if (is_quiet)
        line->matches = kNoMatches;
    else
        line->matches = matches;
    memcpy(line->text, stretch.text + found.head, line->length);
    line->text[line->length] = '\0';
    if (found.next == stretch.length)
        EndStretch();
}

void ReadFromStretch(LocalMoment *moment, PassLine *line)
{
    StretchLine found{};
    const int quiet = next_is_loud ? 0 : FindQuietRun(moment, last.next, last_was_quiet, &found);
    if (quiet == 0) {
        found = NextLineOfStretch(stretch, last.next);
        next_is_loud = false;
    }
    lines_read += std::max(quiet, 1);
    Deliver(found, quiet > 0, line);
}

// Is the next line one of a stretch? Begins one when it is time.
bool IsInStretch(LocalMoment *moment)
{
    if (!file_has_stretches)
        return false;
    if (sieve_of_index != kNoIndex && !SieveHolds()) {
        may_use_stretches = file_has_stretches = false;
        if (is_in_stretch)
            EndStretch();
        return false;
    }
    if (!is_in_stretch && !BlockEndsInsideALine())
        file_has_stretches = BeginStretch(moment);
    return is_in_stretch;
}

bool ReadByBlock(PassLine *line)
{
    if (std::exchange(is_behind_stretches, false))
        ReturnToBlocks();
    line->is_quiet = last_was_quiet = false;
    line->matches.is_known = false;
    if (ReadNextLine(&line->pos, line->text, kLineBufferSize, &line->length) != 0)
        return false;
    line->number = ++lines_read;
    return true;
}

} // namespace

void BeginPassLines()
{
    sieve_of_index = kNoIndex;
    ForgetSieve();
    may_use_stretches = !ServerIsFaultTolerant() && !DetailIsTraced();
}

bool ReadFirstPassLine(PassLine *line)
{
    is_in_stretch = is_behind_stretches = false;
    lines_read = 0;
    file_has_stretches = may_use_stretches;
    return ReadByBlock(line);
}

bool ReadPassLine(LocalMoment *moment, PassLine *line)
{
    if (!IsInStretch(moment))
        return ReadByBlock(line);
    ReadFromStretch(moment, line);
    return true;
}

bool MatchesHold(const PassLine &line)
{
    return line.matches.is_known && SieveHolds();
}
