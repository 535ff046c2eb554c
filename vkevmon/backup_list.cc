#include "vkevmon/backup_list.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "platform/contract.h"
#include "platform/trace.h"
#include "regacc/regacc.h"
#include "vkevmon/settings.h"

int gMonIndex = -1;

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr const char *kInterface = "GetSyslogBakFilelist";

constexpr int kSystemLogSlot = 0;
constexpr int kCustomFileSlot = 1;

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
        TRACE_HELPER(TRACE_ERROR, "Dir %s is not exist.", kLogDir);
    else
        TRACE_HELPER(TRACE_SYSTEM, "scandir %s failed.", kLogDir);
    return listing;
}

void FreeListing(Listing *listing)
{
    for (int i = 0; i < listing->count; ++i)
        free(listing->names[i]);
    free(static_cast<void *>(listing->names));
    *listing = Listing{};
}

bool ModifiedAt(const char *name, time_t *modified)
{
    char path[kBackupPathSize];
    BackupPath(name, path);
    struct stat status {};
    if (stat(path, &status) != 0) {
        TRACE_HELPER(TRACE_ERROR, "stat file %s failed.", path);
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
        TRACE_HELPER(TRACE_ERROR, "malloc failed, *lpbakfilelist is NULL");
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
        TRACE_HELPER(TRACE_DETAIL, "syslog backup file: %s", name);
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
            TRACE_HELPER(TRACE_ERROR,
                         "discontinuous syslog file: %s, skip it and others behind it.", name);
            return i;
        }
        CopyName(name, &(*names)[i]);
        TRACE_HELPER(TRACE_DETAIL, "backup syslog file: %s", name);
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
        TRACE_HELPER(TRACE_DETAIL, "There is no messages.i or messages-YYYYMMDD backup file.");
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

} // namespace

int check_message_i(const struct dirent *d)
{
    TRACE(TRACE_DETAIL, ">d_name=%s", d->d_name);
    const bool kept = (gMonIndex == kSystemLogSlot && IsNumberedSystemLog(d->d_name)) ||
                      (gMonIndex == kCustomFileSlot && IsNumberedVmkernel(d->d_name));
    TRACE(TRACE_DETAIL, "<return %d.", kept ? 1 : 0);
    return kept ? 1 : 0;
}

int check_message_time(const struct dirent *d)
{
    TRACE(TRACE_DETAIL, ">d_name=%s", d->d_name);
    const bool kept = gMonIndex == kSystemLogSlot && IsDatedSystemLog(d->d_name);
    TRACE(TRACE_DETAIL, "<return %d.", kept ? 1 : 0);
    return kept ? 1 : 0;
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
    // The messages speak of -1, the result is 0: both are fixed by the interface.
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

int ListBackupsOfSlot(char (**names)[kBackupNameSize], int slot)
{
    const int slot_of_pass = gMonIndex;
    gMonIndex = slot;
    const int count = GetSyslogBakFilelist(names, slot);
    gMonIndex = slot_of_pass;
    return count;
}

void BackupPath(const char *name, char *path)
{
    snprintf(path, kBackupPathSize, "%s/%s", kLogDir, name);
}
