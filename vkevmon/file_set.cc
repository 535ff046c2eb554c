#include "vkevmon/file_set.h"

#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "platform/trace.h"
#include "vkevmon/pass_follower.h"
#include "vkevmon/settings.h"

char headline[MAX_MON_FILES][kLineBufferSize];
char content[MAX_MON_FILES][kLineBufferSize];
int64_t curpos[MAX_MON_FILES];
uint32_t logindex[MAX_MON_FILES];
BakFileList syslog_bakfilelist[MAX_MON_FILES];

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr const char *kInterface = "CheckSyslog";

constexpr int kCustomFileSlot = 1;

using ll = long long;

// ---- which file has a name ----

// Rotation moves names from file to file, between any two steps of a pass. What was found out about a file holds
// for that file, not for one that has its name later.
struct SeenFile {
    dev_t device;
    ino_t inode; // 0: there was no file, or none that could be looked at
    int64_t size;
};

SeenFile SeenAs(const struct stat &status)
{
    return {status.st_dev, status.st_ino, status.st_size};
}

SeenFile LookAtName(const char *path)
{
    struct stat status {};
    return stat(path, &status) == 0 ? SeenAs(status) : SeenFile{};
}

SeenFile LookAtOpenLog()
{
    struct stat status {};
    return fstat(fileno(gfp), &status) == 0 ? SeenAs(status) : SeenFile{};
}

bool AreTheSame(const SeenFile &one, const SeenFile &other)
{
    return one.device == other.device && one.inode == other.inode;
}

// Is the open log another file than the one seen? A file that was emptied is the same one: it is passed over like
// any empty file.
bool IsOtherThan(const SeenFile &seen)
{
    const SeenFile open = LookAtOpenLog();
    if (open.inode == 0)
        return false; // not known
    return !AreTheSame(open, seen) || (open.size < seen.size && open.size != 0);
}

// Beyond this many files a file is taken for the one that was looked at. Resume points lie a few rotations
// back.
constexpr uint32_t kMostFilesSeen = 64;

// By index, as the search for the head line met them.
SeenFile seen_files[MAX_MON_FILES][kMostFilesSeen];

// ---- the backups of a slot ----

void RebuildBackupList(int monindex)
{
    FreeBackupList(monindex);
    BakFileList &list = syslog_bakfilelist[monindex];
    list.ibakfilenum = GetSyslogBakFilelist(&list.lpbakfilelist, monindex);
    logindex[monindex] = 0;
}

// Makes the list anew when it is empty, for a first rotation makes the first backup. True when it names any.
bool EnsureBackupList(int monindex)
{
    if (syslog_bakfilelist[monindex].ibakfilenum == 0)
        RebuildBackupList(monindex);
    return syslog_bakfilelist[monindex].ibakfilenum > 0;
}

// ---- starting afresh ----

// What a search knows of the live file when it has not found the head line.
struct Search {
    SeenFile live; // before the backups were listed
    bool is_empty; // as its first line was looked for
};

// Has the live file, which is open now, changed so that the search may have missed the head line? Then the head
// line can be in a file by now that was not looked at: the file has moved, or an empty one, which ends a search,
// has got its first lines. A baseline behind them would pass over them, and over what is unread in the backups.
bool IsOutdated(const Search &search)
{
    return IsOtherThan(search.live) || (search.is_empty && filelen > 0);
}

enum class Baseline { kTaken, kFailed, kSearchAgain };

// Records the live file's first and last line: the slot goes on from here.
//   search  after which the baseline is taken; null when there was none, or when no other may follow
Baseline RecordEndOfLiveFile(int monindex, const Search *search)
{
    const char *path = syslogpath[monindex];
    if (InitFile(path) != 0) {
        TRACE_HELPER(TRACE_ERROR, "<InitFile %s failed.return -1.", path);
        return Baseline::kFailed;
    }
    if (search != nullptr && IsOutdated(*search) && EnsureBackupList(monindex)) {
        FinishFile();
        return Baseline::kSearchAgain;
    }
    if (GetFirstLine(headline[monindex], kLineBufferSize) != 0) {
        FinishFile();
        TRACE_HELPER(TRACE_ERROR, "<GetFirstLine failed.return -1.");
        return Baseline::kFailed;
    }
    if (GetLastLine(&curpos[monindex], content[monindex], kLineBufferSize) != 0) {
        FinishFile();
        TRACE_HELPER(TRACE_ERROR, "<GetLastLine failed.return -1.");
        return Baseline::kFailed;
    }
    TellStartAfresh(monindex, curpos[monindex]);
    FinishFile();
    return Baseline::kTaken;
}

Baseline Rebaseline(int monindex, const Search *search)
{
    FreeBackupList(monindex);
    const Baseline baseline = RecordEndOfLiveFile(monindex, search);
    if (baseline != Baseline::kTaken)
        return baseline;
    if (RegSetHeadLine(headline[monindex], monindex) != 0)
        TRACE_HELPER(TRACE_ERROR, "RegSetHeadLine error IGNORED: %s", headline[monindex]);
    if (RegSetOrientation(curpos[monindex], content[monindex], monindex) != 0)
        TRACE_HELPER(TRACE_ERROR, "RegSetOrientation error IGNORED: %lld, %s", ll{curpos[monindex]},
                     content[monindex]);
    TRACE_HELPER(TRACE_DETAIL, "<return 0.");
    return baseline;
}

int StartAfresh(int monindex)
{
    return Rebaseline(monindex, nullptr) == Baseline::kTaken ? 0 : -1;
}

// ---- the resume point ----

bool ReadResumePoint(int monindex)
{
    if (RegGetHeadLine(headline[monindex], kLineBufferSize, monindex) != 0) {
        TRACE_HELPER(TRACE_ERROR, "RegGetHeadLine error");
        return false;
    }
    if (RegGetOrientation(&curpos[monindex], content[monindex], kLineBufferSize, monindex) != 0) {
        TRACE_HELPER(TRACE_ERROR, "RegGetOrientation error");
        return false;
    }
    return true;
}

// Reads the first line of a file of the slot. False after tracing why it cannot be read.
bool ReadFirstLineOf(int monindex, uint32_t index, const char *path, char *line, Search *search)
{
    if (InitFile(path) != 0) {
        TRACE_HELPER(TRACE_ERROR, "InitFile() failed.");
        return false;
    }
    if (index < kMostFilesSeen)
        seen_files[monindex][index] = {openfile.device, openfile.inode, filelen};
    if (index == 0)
        search->is_empty = filelen == 0;
    const bool done = GetFirstLine(line, kLineBufferSize) == 0;
    if (!done)
        TRACE_HELPER(TRACE_ERROR, "GetFirstLine() failed.");
    FinishFile();
    return done;
}

// Looks for the file whose first line begins with the stored one, newest first. A file that cannot be read ends
// the search. True when it was found.
bool FindHeadLine(int monindex, Search *search)
{
    const auto files = static_cast<uint32_t>(syslog_bakfilelist[monindex].ibakfilenum);
    const char *stored = headline[monindex];
    for (uint32_t k = 0; k <= files; ++k) {
        char buffer[kBackupPathSize];
        const char *path = LogPath(monindex, k, buffer);
        TRACE_HELPER(TRACE_NOTABLE, "Check log file: [%s]", path);
        char line[kLineBufferSize];
        if (!ReadFirstLineOf(monindex, k, path, line, search))
            return false;
        if (strncmp(line, stored, strlen(stored)) == 0) {
            logindex[monindex] = k;
            TRACE_HELPER(k >= 1 ? TRACE_NOTABLE : TRACE_DETAIL,
                         "<Get syslog file last checked: %s.return 1.", path);
            return true;
        }
    }
    TRACE_HELPER(TRACE_NOTABLE, "Cannot find the headline. file headline = %s\\0", stored);
    return false;
}

// Was the head line found in a backup of a list that lacks what was the live file then? It has got a date since, and its
// lines would be passed over. Numbers would have moved on with it.
bool ListLacksAFile(int monindex, const Search &search)
{
    return logindex[monindex] > 0 && search.live.inode != 0 &&
           !AreTheSame(search.live, seen_files[monindex][0]);
}

// Lists the files and looks for the head line, again when a rotation comes in between.
int SearchFiles(int monindex)
{
    for (int again = 0;; ++again) {
        const bool may_look_again = again < kMostLooksAgain;
        Search search{LookAtName(syslogpath[monindex]), false};
        RebuildBackupList(monindex);
        if (FindHeadLine(monindex, &search)) {
            if (may_look_again && ListLacksAFile(monindex, search))
                continue;
            return 1;
        }
        const Baseline baseline = Rebaseline(monindex, may_look_again ? &search : nullptr);
        if (baseline != Baseline::kSearchAgain)
            return baseline == Baseline::kTaken ? 0 : -1;
    }
}

} // namespace

int CheckSyslog(int monindex)
{
    TRACE(TRACE_DETAIL, ">monindex=%d", monindex);
    if (!MonIndexIsValid(kUnit, __func__, monindex))
        return -1;
    logindex[monindex] = 0;
    struct stat status {};
    if (stat(syslogpath[monindex], &status) != 0) {
        TRACE(TRACE_ERROR, "<stat syslog file[%s] failed.return -1.", syslogpath[monindex]);
        return -1;
    }
    if (monindex == kCustomFileSlot && IsCustFileChanged == 1) {
        IsCustFileChanged = 0;
        TRACE(TRACE_DETAIL, "custom monitor file changed:[%s]", syslogpath[monindex]);
        return StartAfresh(monindex);
    }
    return ReadResumePoint(monindex) ? SearchFiles(monindex) : StartAfresh(monindex);
}

const char *LogPath(int monindex, uint32_t index, char *buffer)
{
    if (index == 0)
        return syslogpath[monindex];
    BackupPath(syslog_bakfilelist[monindex].lpbakfilelist[index - 1], buffer);
    return buffer;
}

bool DetectRotation(int monindex, uint32_t index)
{
    return index < kMostFilesSeen && IsOtherThan(seen_files[monindex][index]) &&
           EnsureBackupList(monindex);
}

void FreeBackupList(int monindex)
{
    BakFileList &list = syslog_bakfilelist[monindex];
    free(list.lpbakfilelist);
    list = BakFileList{};
}
