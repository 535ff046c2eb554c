#include "vkevmon/file_set.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "platform/trace.h"
#include "vkevmon/settings.h"

char headline[MAX_MON_FILES][kLineBufferSize];
char content[MAX_MON_FILES][kLineBufferSize];
int64_t curpos[MAX_MON_FILES];
uint32_t logindex[MAX_MON_FILES];
BakFileList syslog_bakfilelist[MAX_MON_FILES];
int gMonIndex = -1;

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr char kList[] = "GetSyslogBakFilelist";
constexpr char kCheck[] = "CheckSyslog";

constexpr char kLogDir[] = "/var/log";

constexpr int kSystemLogSlot = 0;
constexpr int kCustomFileSlot = 1;

// The one customer file that has backups.
constexpr char kVmkernelLog[] = "/var/log/vmkernel";

constexpr char kNumberedSystemLog[] = "messages.";
constexpr char kNumberedVmkernel[] = "vmkernel.";
constexpr char kDatedSystemLog[] = "messages-";
constexpr size_t kPrefixLength = 9; // of each of the three
static_assert(sizeof kNumberedSystemLog == kPrefixLength + 1);
static_assert(sizeof kNumberedVmkernel == kPrefixLength + 1);
static_assert(sizeof kDatedSystemLog == kPrefixLength + 1);

constexpr size_t kMaxNumberedVmkernel = 10; // bytes of "vmkernel.4"
constexpr size_t kMaxNumberedSystemLog = kBackupNameSize - 1;
constexpr size_t kDatedLength = 17; // bytes of "messages-YYYYMMDD"

using ll = long long;

// ---- which names are backups ----

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool AllDigits(const char *text)
{
    while (IsDigit(*text))
        ++text;
    return *text == '\0';
}

int TwoDigits(const char *text)
{
    return ((text[0] - '0') * 10) + (text[1] - '0');
}

bool HasPrefix(const char *name, const char *prefix)
{
    return strncmp(name, prefix, kPrefixLength) == 0;
}

// Both tests let the bare names "vmkernel." and "messages." pass, because their zero byte is
// neither '0' nor above '4'. That is intended to stay: such a name is where the numbered sequence
// breaks off.

bool IsNumberedVmkernel(const char *name)
{
    return strlen(name) <= kMaxNumberedVmkernel && HasPrefix(name, kNumberedVmkernel) &&
           AllDigits(name + kPrefixLength) && name[kPrefixLength] != '0' &&
           name[kPrefixLength] <= '4';
}

bool IsNumberedSystemLog(const char *name)
{
    return strlen(name) <= kMaxNumberedSystemLog && HasPrefix(name, kNumberedSystemLog) &&
           AllDigits(name + kPrefixLength) && name[kPrefixLength] != '0';
}

bool IsDatedSystemLog(const char *name)
{
    if (strlen(name) != kDatedLength || !HasPrefix(name, kDatedSystemLog) ||
        !AllDigits(name + kPrefixLength))
        return false;
    const int month = TwoDigits(name + 13);
    const int day = TwoDigits(name + 15);
    return month >= 1 && month <= 12 && day >= 1 && day <= 31;
}

// ---- listing of /var/log ----

// The sorted names that one filter keeps. Owns what scandir returned.
struct Listing {
    struct dirent **names;
    int count; // -1: the directory could not be read
};

using DirFilter = int (*)(const struct dirent *);
using DirOrder = int (*)(const struct dirent **, const struct dirent **);

Listing ListLogDir(DirFilter filter, DirOrder order)
{
    Listing listing{};
    listing.count = scandir(kLogDir, &listing.names, filter, order);
    if (listing.count >= 0)
        return listing;
    if (errno == ENOENT)
        TRACE_FOR(kList, TRACE_ERROR, "Dir %s is not exist.", kLogDir);
    else
        TRACE_FOR(kList, TRACE_SYSTEM, "scandir %s failed.", kLogDir);
    return listing;
}

void FreeListing(Listing *listing)
{
    for (int i = 0; i < listing->count; ++i)
        free(listing->names[i]);
    free(static_cast<void *>(listing->names));
    *listing = Listing{};
}

void BackupPath(const char *name, char *path)
{
    snprintf(path, kBackupPathSize, "%s/%s", kLogDir, name);
}

bool ModifiedAt(const char *name, time_t *modified)
{
    char path[kBackupPathSize];
    BackupPath(name, path);
    struct stat status {};
    if (stat(path, &status) != 0) {
        TRACE_FOR(kList, TRACE_ERROR, "stat file %s failed.", path);
        return false;
    }
    *modified = status.st_mtime;
    return true;
}

// ---- choice of the scheme, and the list ----

BackupName *AllocateNames(int count)
{
    auto *names = static_cast<BackupName *>(calloc(static_cast<size_t>(count), sizeof(BackupName)));
    if (names == nullptr)
        TRACE_FOR(kList, TRACE_ERROR, "malloc failed, *lpbakfilelist is NULL");
    return names;
}

void CopyName(const char *name, BackupName *stored)
{
    snprintf(*stored, sizeof *stored, "%.*s", kBackupNameSize - 1, name);
}

// The list ascends by date, so the newest name comes last.
int TakeDated(const Listing &dated, BackupName **names)
{
    *names = AllocateNames(dated.count);
    if (*names == nullptr)
        return 0;
    for (int i = 0; i < dated.count; ++i) {
        const char *name = dated.names[dated.count - 1 - i]->d_name;
        CopyName(name, &(*names)[i]);
        TRACE_FOR(kList, TRACE_DETAIL, "syslog backup file: %s", name);
    }
    return dated.count;
}

// Numbered backups count without a gap from 1: behind a gap it cannot be known what is missing.
int TakeNumbered(const Listing &numbered, int monindex, BackupName **names)
{
    *names = AllocateNames(numbered.count);
    if (*names == nullptr)
        return 0;
    const char *prefix = monindex == kSystemLogSlot ? kNumberedSystemLog : kNumberedVmkernel;
    for (int i = 0; i < numbered.count; ++i) {
        const char *name = numbered.names[i]->d_name;
        char expected[kBackupNameSize];
        snprintf(expected, sizeof expected, "%s%d", prefix, i + 1);
        if (strcmp(name, expected) != 0) {
            TRACE_FOR(kList, TRACE_ERROR,
                      "discontinuous syslog file: %s, skip it and others behind it.", name);
            return i;
        }
        CopyName(name, &(*names)[i]);
        TRACE_FOR(kList, TRACE_DETAIL, "backup syslog file: %s", name);
    }
    return numbered.count;
}

// The two schemes are never mixed. When both are there, the one that was rotated last is in use.
int TakeNewerScheme(const Listing &dated, const Listing &numbered, int monindex, BackupName **names)
{
    time_t dated_time = 0;
    time_t numbered_time = 0;
    if (!ModifiedAt(dated.names[dated.count - 1]->d_name, &dated_time) ||
        !ModifiedAt(numbered.names[0]->d_name, &numbered_time))
        return 0;
    return dated_time > numbered_time ? TakeDated(dated, names)
                                      : TakeNumbered(numbered, monindex, names);
}

int TakeBackups(const Listing &dated, const Listing &numbered, int monindex, BackupName **names)
{
    if (dated.count == 0 && numbered.count == 0) {
        TRACE_FOR(kList, TRACE_DETAIL, "There is no messages.i or messages-YYYYMMDD backup file.");
        return 0;
    }
    if (numbered.count == 0)
        return TakeDated(dated, names);
    if (dated.count == 0)
        return TakeNumbered(numbered, monindex, names);
    return TakeNewerScheme(dated, numbered, monindex, names);
}

int ListBackups(int monindex, BackupName **names)
{
    Listing dated = ListLogDir(check_message_time, alphasort);
    if (dated.count < 0)
        return 0;
    Listing numbered = ListLogDir(check_message_i, versionsort);
    const int count = numbered.count < 0 ? 0 : TakeBackups(dated, numbered, monindex, names);
    FreeListing(&numbered);
    FreeListing(&dated);
    return count;
}

// ---- which files a pass looks at ----

// A rotation can come between any two steps of a pass. What was found out about a file holds for that file,
// not for one that has its name later.
struct SeenFile {
    FileIdentity identity;
    int64_t size; // -1: it could not be opened
};

// Beyond this many files a file is taken for the one that was looked at. Resume points lie a few rotations
// back.
constexpr uint32_t kMostFilesSeen = 64;

SeenFile seen_live[MAX_MON_FILES]; // the live file before the backups were listed
SeenFile seen_files[MAX_MON_FILES]
                   [kMostFilesSeen]; // by index, as the search for the head line met them

bool IsOpenFile(const SeenFile &seen)
{
    if (seen.identity.inode == 0 || openfile.inode == 0)
        return true; // not known
    // A file that was emptied meanwhile is passed over like any empty one.
    return openfile.device == seen.identity.device && openfile.inode == seen.identity.inode &&
           (filelen >= seen.size || filelen == 0);
}

// ---- the resume point ----

// What a search has seen of the live file before it asks for a new baseline.
enum class LiveFile { kNotSearched, kNotEmpty, kEmpty };

// Records the live file's first and last line: the slot goes on from here. 0, or -1.
int RecordEndOfLiveFile(int monindex, LiveFile seen)
{
    const char *path = syslogpath[monindex];
    if (InitFile(path) != 0) {
        TRACE_FOR(kCheck, TRACE_ERROR, "<InitFile %s failed.return -1.", path);
        return -1;
    }
    // The head line was looked for before a rotation, so it may well be in a file by now that was not looked
    // at. The next pass looks again.
    if (seen != LiveFile::kNotSearched && !IsOpenFile(seen_live[monindex])) {
        FinishFile();
        TRACE_FOR(kCheck, TRACE_ERROR, "<InitFile %s failed.return -1.", path);
        return -1;
    }
    // Rotation has just made a file that was seen empty, and the first lines may be coming in now. It still
    // counts as empty: a baseline behind them would pass over them, and over what is unchecked in the
    // backups. The next pass finds them.
    if (seen == LiveFile::kEmpty)
        filelen = 0;
    if (GetFirstLine(headline[monindex], kLineBufferSize) != 0) {
        FinishFile();
        TRACE_FOR(kCheck, TRACE_ERROR, "<GetFirstLine failed.return -1.");
        return -1;
    }
    if (GetLastLine(&curpos[monindex], content[monindex], kLineBufferSize) != 0) {
        FinishFile();
        TRACE_FOR(kCheck, TRACE_ERROR, "<GetLastLine failed.return -1.");
        return -1;
    }
    FinishFile();
    return 0;
}

int Rebaseline(int monindex, LiveFile seen = LiveFile::kNotSearched)
{
    FreeBackupList(monindex);
    if (RecordEndOfLiveFile(monindex, seen) != 0)
        return -1;
    if (RegSetHeadLine(headline[monindex], monindex) != 0)
        TRACE_FOR(kCheck, TRACE_ERROR, "RegSetHeadLine error IGNORED: %s", headline[monindex]);
    if (RegSetOrientation(curpos[monindex], content[monindex], monindex) != 0)
        TRACE_FOR(kCheck, TRACE_ERROR, "RegSetOrientation error IGNORED: %lld, %s",
                  ll{curpos[monindex]}, content[monindex]);
    TRACE_FOR(kCheck, TRACE_DETAIL, "<return 0.");
    return 0;
}

bool ReadResumePoint(int monindex)
{
    if (RegGetHeadLine(headline[monindex], kLineBufferSize, monindex) != 0) {
        TRACE_FOR(kCheck, TRACE_ERROR, "RegGetHeadLine error");
        return false;
    }
    if (RegGetOrientation(&curpos[monindex], content[monindex], kLineBufferSize, monindex) != 0) {
        TRACE_FOR(kCheck, TRACE_ERROR, "RegGetOrientation error");
        return false;
    }
    return true;
}

void RebuildBackupList(int monindex)
{
    FreeBackupList(monindex);
    BakFileList &list = syslog_bakfilelist[monindex];
    list.ibakfilenum = GetSyslogBakFilelist(&list.lpbakfilelist, monindex);
    logindex[monindex] = 0;
}

bool ReadFirstLineOf(const char *path, char *line, SeenFile *seen)
{
    *seen = {{}, -1};
    if (InitFile(path) != 0) {
        TRACE_FOR(kCheck, TRACE_ERROR, "InitFile() failed.");
        return false;
    }
    *seen = {openfile, filelen};
    const bool done = GetFirstLine(line, kLineBufferSize) == 0;
    if (!done)
        TRACE_FOR(kCheck, TRACE_ERROR, "GetFirstLine() failed.");
    FinishFile();
    return done;
}

// Looks for the file whose first line begins with the stored one, newest first. Returns 1 when it
// was found, otherwise what the new baseline came to.
int SearchHeadLine(int monindex)
{
    const auto files = static_cast<uint32_t>(syslog_bakfilelist[monindex].ibakfilenum);
    for (uint32_t k = 0; k <= files; ++k) {
        char buffer[kBackupPathSize];
        const char *path = LogPath(monindex, k, buffer);
        TRACE_FOR(kCheck, TRACE_NOTABLE, "Check log file: [%s]", path);
        char line[kLineBufferSize];
        SeenFile beyond{};
        SeenFile *seen = k < kMostFilesSeen ? &seen_files[monindex][k] : &beyond;
        if (!ReadFirstLineOf(path, line, seen))
            return Rebaseline(monindex,
                              k == 0 && seen->size == 0 ? LiveFile::kEmpty : LiveFile::kNotEmpty);
        const char *stored = headline[monindex];
        if (strncmp(line, stored, strlen(stored)) == 0) {
            logindex[monindex] = k;
            TRACE_FOR(kCheck, k >= 1 ? TRACE_NOTABLE : TRACE_DETAIL,
                      "<Get syslog file last checked: %s.return 1.", path);
            return 1;
        }
    }
    TRACE_FOR(kCheck, TRACE_NOTABLE, "Cannot find the headline. file headline = %s\\0",
              headline[monindex]);
    return Rebaseline(monindex, LiveFile::kNotEmpty);
}

} // namespace

int check_message_i(const struct dirent *d)
{
    switch (gMonIndex) {
    case kSystemLogSlot:
        return IsNumberedSystemLog(d->d_name) ? 1 : 0;
    case kCustomFileSlot:
        return IsNumberedVmkernel(d->d_name) ? 1 : 0;
    default:
        return 0;
    }
}

int check_message_time(const struct dirent *d)
{
    return gMonIndex == kSystemLogSlot && IsDatedSystemLog(d->d_name) ? 1 : 0;
}

int GetSyslogBakFilelist(char (**lpbakfilelist)[kBackupNameSize], int monindex)
{
    TRACE(TRACE_DETAIL, ">lpbakfilelist=%p,monindex=%d", static_cast<void *>(lpbakfilelist),
          monindex);
    if (lpbakfilelist == nullptr) {
        TRACE(TRACE_ERROR, "<error parameter.");
        return 0;
    }
    *lpbakfilelist = nullptr;
    // The messages speak of -1, the result is 0: both are kept as their readers know them.
    if (!MonIndexIsValid(kUnit, __func__, monindex))
        return 0;
    if (monindex == kCustomFileSlot && strcmp(syslogpath[monindex], kVmkernelLog) != 0) {
        TRACE(TRACE_DETAIL, "custom file is not /var/log/vmkernel, ignore");
        return 0;
    }
    const int ibakfilenum = ListBackups(monindex, lpbakfilelist);
    if (ibakfilenum == 0) {
        free(*lpbakfilelist);
        *lpbakfilelist = nullptr;
    }
    TRACE(TRACE_DETAIL, "< ibakfilenum=%d", ibakfilenum);
    return ibakfilenum;
}

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
        return Rebaseline(monindex);
    }
    if (!ReadResumePoint(monindex))
        return Rebaseline(monindex);
    seen_live[monindex] = {{status.st_dev, status.st_ino}, status.st_size};
    RebuildBackupList(monindex);
    return SearchHeadLine(monindex);
}

bool IsFileLookedAt(int monindex, uint32_t index)
{
    return index >= kMostFilesSeen || IsOpenFile(seen_files[monindex][index]);
}

const char *LogPath(int monindex, uint32_t index, char *buffer)
{
    if (index == 0)
        return syslogpath[monindex];
    BackupPath(syslog_bakfilelist[monindex].lpbakfilelist[index - 1], buffer);
    return buffer;
}

void FreeBackupList(int monindex)
{
    BakFileList &list = syslog_bakfilelist[monindex];
    free(list.lpbakfilelist);
    list = BakFileList{};
}
