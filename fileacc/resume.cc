// Resume positioning: where was the last line that was checked?
//
// The remembered offset is tried first. When another line stands there, the log was rotated,
// truncated or edited, and the remembered line is looked for by the time stamps around that offset:
//
//   line at the offset      search                        answer when the text is not met
//   same second             backwards, within that second  go on with the search downwards
//   newer                   backwards                      the newest line not newer
//   older, or no stamp      forwards                       the last line before the first newer one
//
// The exact text always wins, wherever a walk meets it. A line without a readable stamp never ends
// a walk.
#include <algorithm>
#include <cassert>
#include <cstring>
#include <ctime>

#include "fileacc/fileacc.h"
#include "fileacc/line_text.h"
#include "platform/trace.h"
#include "regacc/last_end_time.h"
#include "stamp/syslog_time.h"

namespace {

constexpr char kUnit[] = "fileacc";
constexpr const char *kInterface = "GotoPos";
constexpr size_t kTimeTextSize = 32; // ctime_r writes 26 bytes for years of four digits

using ll = long long;

// How a search ended.
enum class Walk {
    kPlaced, // the cursor and the caller's values are final
    kMissed, // not found here, go on with the search downwards
    kFailed,
};

// One positioning, and what its searches share.
struct Resume {
    int64_t *pos; // the caller's values
    char *pcontent;
    int size;
    time_t remembered;          // time of the remembered line
    int64_t tmppos;             // offset of the line in `candidate`
    char base[kLineBufferSize]; // the line at the remembered offset; then the one a search saved
    char candidate[kLineBufferSize]; // the line a search stands on
    LocalMoment now;                 // in which all stamps are read
};

bool TimeOf(Resume *resume, const char *line, time_t *moment)
{
    return GetSyslogTimeAt(&resume->now, line, moment, StampUse::kTime) == TRUE;
}

bool IsRememberedLine(const char *line, const char *remembered)
{
    return strncmp(line, remembered, strlen(remembered)) == 0;
}

// A moment in ctime_r form, for the trace log. `text` holds kTimeTextSize bytes.
const char *TimeText(time_t moment, char *text)
{
    const char *shown = ctime_r(&moment, text);
    return shown != nullptr ? shown : "NULL";
}

// The time of the remembered text; the end of the last pass stands in for one that has none.
time_t RememberedTime(Resume *resume)
{
    const char *pcontent = resume->pcontent;
    time_t moment = 0;
    if (!TimeOf(resume, pcontent, &moment)) {
        TRACE_HELPER(TRACE_ERROR, "get pcontent \"%s\"'s time error", pcontent);
        moment = lastendtime;
        char text[kTimeTextSize];
        TRACE_HELPER(TRACE_DETAIL, "set pcontent's time to %s(%ld)", TimeText(moment, text),
                     static_cast<long>(moment));
    }
    return moment;
}

// The time of the line at the offset. One without a stamp counts as a second older than the
// remembered line, which leads to the search downwards.
time_t BaseTime(Resume *resume)
{
    time_t moment = 0;
    if (!TimeOf(resume, resume->base, &moment)) {
        TRACE_HELPER(TRACE_ERROR, "get \"%s\"'s time error", resume->base);
        moment = resume->remembered - 1;
        char text[kTimeTextSize];
        TRACE_HELPER(TRACE_DETAIL, "set time to %s(%ld)", TimeText(moment, text),
                     static_cast<long>(moment));
    }
    return moment;
}

int StepBack(Resume *resume)
{
    return GetPreLine(&resume->tmppos, resume->candidate, kLineBufferSize);
}

// Lines may have been inserted before the remembered one: looks back among the lines of its second.
Walk SearchBefore(Resume *resume)
{
    TRACE_HELPER(TRACE_DETAIL, "Search before ...");
    SaveFileEnv();
    while (FBegin() == 0) {
        if (StepBack(resume) != 0) {
            TRACE_HELPER(TRACE_ERROR, "<GetPreLine error. tmppos=%lld.retrun -1.",
                         ll{resume->tmppos});
            return Walk::kFailed;
        }
        if (IsRememberedLine(resume->candidate, resume->pcontent)) {
            *resume->pos = resume->tmppos;
            TRACE_HELPER(TRACE_ERROR, "<found.return 0.");
            return Walk::kPlaced;
        }
        time_t moment = 0;
        if (!TimeOf(resume, resume->candidate, &moment)) {
            TRACE_HELPER(TRACE_ERROR, "get \"%s\"'s time error", resume->candidate);
            continue;
        }
        if (moment != resume->remembered)
            break;
    }
    RecoverFileEnv(); // back on the line at the offset
    return Walk::kMissed;
}

// The answer of the search upwards when the text was not met.
Walk PlaceOnSaved(Resume *resume, bool saved, int64_t saved_pos)
{
    if (saved) {
        RecoverFileEnv();
        *resume->pos = saved_pos;
        // Whole, whatever size was given: the buffer holds a line.
        CopyCut(resume->base, resume->pcontent, kLineBufferSize);
    } else {
        // The cursor is on the first line, not before it, so the caller goes on with the second.
        // That is fixed by the interface, also when the walk began on the first line.
        *resume->pos = -1;
        resume->pcontent[0] = '\0';
    }
    TRACE_HELPER(TRACE_DETAIL, "<return 0");
    return Walk::kPlaced;
}

// The line at the offset is newer, so the remembered one lies before it. The first line met that is
// not newer is kept as the answer, and the walk goes on through its second for the exact text.
Walk SearchUp(Resume *resume)
{
    TRACE_HELPER(TRACE_DETAIL, "Search up...");
    bool saved = false;
    int64_t saved_pos = -1;
    while (FBegin() == 0) {
        if (StepBack(resume) != 0) {
            TRACE_HELPER(TRACE_ERROR, "<GetPreLine error. tmppos=%lld.return -1.",
                         ll{resume->tmppos});
            return Walk::kFailed;
        }
        if (IsRememberedLine(resume->candidate, resume->pcontent)) {
            *resume->pos = resume->tmppos;
            TRACE_HELPER(TRACE_DETAIL, "<found.return 0.");
            return Walk::kPlaced;
        }
        time_t moment = 0;
        if (!TimeOf(resume, resume->candidate, &moment)) {
            TRACE_HELPER(TRACE_ERROR, "get \"%s\"'s time error", resume->candidate);
            continue;
        }
        if (moment > resume->remembered)
            continue;
        if (!saved) {
            SaveFileEnv();
            saved_pos = resume->tmppos;
            memcpy(resume->base, resume->candidate, sizeof resume->base);
            saved = true;
        }
        if (moment < resume->remembered)
            break;
    }
    return PlaceOnSaved(resume, saved, saved_pos);
}

// Looks forwards from the line at the offset, up to the first line newer than the remembered one.
Walk SearchDown(Resume *resume, int64_t base_pos)
{
    TRACE_HELPER(TRACE_DETAIL, "Search down ...");
    resume->tmppos = base_pos;
    memcpy(resume->candidate, resume->base, sizeof resume->candidate);
    while (FEof() == 0) {
        if (GetNextLine(&resume->tmppos, resume->candidate, kLineBufferSize) != 0) {
            TRACE_HELPER(TRACE_ERROR, "<GetNextLine error. tmppos=%lld.return -1.",
                         ll{resume->tmppos});
            return Walk::kFailed;
        }
        TRACE_HELPER(TRACE_DETAIL, "%-5lld:\"%s\"\n", ll{resume->tmppos}, resume->candidate);
        if (IsRememberedLine(resume->candidate, resume->pcontent)) {
            *resume->pos = resume->tmppos;
            TRACE_HELPER(TRACE_DETAIL, "<found.return 0.");
            return Walk::kPlaced;
        }
        time_t moment = 0;
        if (!TimeOf(resume, resume->candidate, &moment)) {
            TRACE_HELPER(TRACE_ERROR, "get \"%s\"'s time error.", resume->candidate);
            continue;
        }
        if (moment <= resume->remembered)
            continue;
        if (StepBack(resume) != 0) {
            TRACE_HELPER(TRACE_ERROR, "<GetPreLine error. tmppos=%lld.return -1.",
                         ll{resume->tmppos});
            return Walk::kFailed;
        }
        break;
    }
    *resume->pos = resume->tmppos;
    const auto size = static_cast<size_t>(resume->size);
    memset(resume->pcontent, 0, size);
    CopyCut(resume->candidate, resume->pcontent, size);
    TRACE_HELPER(TRACE_DETAIL, "<return 0.");
    return Walk::kPlaced;
}

// Another line than the remembered one stands at the offset.
Walk SearchByTime(Resume *resume, int64_t base_pos)
{
    resume->remembered = RememberedTime(resume);
    const time_t base_time = BaseTime(resume);
    if (base_time > resume->remembered)
        return SearchUp(resume);
    if (base_time == resume->remembered) {
        const Walk before = SearchBefore(resume);
        if (before != Walk::kMissed)
            return before;
    }
    return SearchDown(resume, base_pos);
}

// Loads the block that begins with the line at the remembered offset. Returns the offset of its
// head, or -1 after tracing why.
int64_t LoadLineAt(int64_t pos)
{
    // A file that has shrunk is looked at from its last line.
    const int64_t inside = std::clamp<int64_t>(pos, 0, filelen - 1);
    const int64_t head = GetLineHead(inside);
    if (head < 0) {
        TRACE_HELPER(TRACE_ERROR, "<GetLineHead() error.return -1.");
        return -1;
    }
    if (GetBlockAt(head, kBlockSize, &curblock) < 0) {
        TRACE_HELPER(TRACE_ERROR, "<GetBlockAt() error. pos=%lld, length=%d.return -1.", ll{head},
                     static_cast<int>(kBlockSize));
        return -1;
    }
    TrimBlockRight(&curblock);
    assert(BlockIsSound(curblock, Loaded::kForward, head));
    return head;
}

} // namespace

int GotoPos(int64_t *pos, char *pcontent, int size)
{
    TRACE(TRACE_DETAIL, ">pos=%p,pcontent=%p,size=%d", static_cast<void *>(pos),
          static_cast<void *>(pcontent), size);
    if (gfp == nullptr || filelen < 1 || pos == nullptr || pcontent == nullptr || size < 1) {
        TRACE(TRACE_ERROR, "<parameter error.return -1.");
        return -1;
    }
    const int64_t base_pos = LoadLineAt(*pos);
    if (base_pos < 0)
        return -1;
    if (*pos < 0) {
        pcontent[0] = '\0';
        // Reported as an error although it is the normal start of a new file: the interface fixes the level.
        TRACE(TRACE_ERROR, "<*pos<0,return 0.");
        return 0;
    }
    Resume resume; // its buffers are filled by the steps
    resume.pos = pos;
    resume.pcontent = pcontent;
    resume.size = size;
    resume.tmppos = base_pos;
    curblock.linepos = -1;
    if (GetNextLine(&resume.tmppos, resume.base, kLineBufferSize) != 0) {
        TRACE(TRACE_ERROR, "<GetNextLine() error. tmppos=%lld.return -1.", ll{resume.tmppos});
        return -1;
    }
    if (IsRememberedLine(resume.base, pcontent)) {
        TRACE(TRACE_DETAIL, "<found.return 0.");
        return 0;
    }
    return SearchByTime(&resume, base_pos) == Walk::kFailed ? -1 : 0;
}
