// host_helper ROOT VERB [WORD...]: the other process of a test. It works on the install root ROOT,
// says on standard output how far it is, and goes on when it reads a line.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <grp.h>
#include <map>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

#include "agent/alerts/alert_store.h"
#include "agent/host/database.h"
#include "agent/host/error.h"
#include "agent/host/store_copy.h"
#include "agent/status/daemon_lock.h"
#include "agent/status/status_file.h"
#include "platform/contract.h"
#include "platform/registry.h"
#include "platform/sync.h"
#include "tests/agent/support/line_counter.h"
#include "tests/agent/support/the_host.h"

namespace {

namespace fs = std::filesystem;

using Words = std::vector<std::string>;

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kNotPermitted = 125;

struct Job {
    host::Layout layout;
    Words words; // behind the verb

    [[nodiscard]] const char *Word(size_t index) const { return words.at(index).c_str(); }
    [[nodiscard]] DWORD Number(size_t index) const
    {
        return static_cast<DWORD>(std::stoul(words.at(index)));
    }
    void Start(host::Role role = host::Role::kCommand) const { test::StartHost(layout, role); }
};

void Tell(const std::string &line)
{
    printf("%s\n", line.c_str());
    fflush(stdout);
}

// Until the test says something. The end of its input ends the helper, too.
void WaitForTest()
{
    char line[256];
    if (fgets(line, sizeof line, stdin) == nullptr)
        _exit(kFailed);
}

// ---- events and mutexes ----

int SetNamedEvent(const Job &job)
{
    job.Start();
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, job.Word(0));
    return SetEvent(event) != FALSE ? 0 : kFailed;
}

// Sets the event once it is told to, and lives on.
int HoldNamedEvent(const Job &job)
{
    job.Start();
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, job.Word(0));
    Tell("open");
    WaitForTest();
    SetEvent(event);
    Tell("set");
    WaitForTest();
    return 0;
}

// Opens the event, waits for it as long as it is told, and says what came of it.
int WaitForNamedEvent(const Job &job)
{
    job.Start();
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, job.Word(0));
    Tell("open");
    Tell(std::to_string(WaitForSingleObject(event, job.Number(1))));
    return 0;
}

// Owns the mutex so many times, releases it once for each line.
int OwnMutex(const Job &job)
{
    job.Start();
    HANDLE mutex = CreateMutex(nullptr, FALSE, job.Word(0));
    const DWORD times = job.Number(1);
    for (DWORD i = 0; i < times; ++i) {
        if (WaitForSingleObject(mutex, INFINITE) != WAIT_RESULT_FIRST)
            return kFailed;
    }
    Tell("owned");
    for (;;) {
        WaitForTest();
        Tell(ReleaseMutex(mutex) != FALSE ? "released" : "refused");
    }
}

int TryMutex(const Job &job)
{
    job.Start();
    HANDLE mutex = CreateMutex(nullptr, FALSE, job.Word(0));
    Tell(std::to_string(WaitForSingleObject(mutex, job.Number(1))));
    Tell(ReleaseMutex(mutex) != FALSE ? "released" : "refused");
    return 0;
}

// Raises the number in a file under the mutex. Without the mutex, raises would be lost.
int CountUnderMutex(const Job &job)
{
    job.Start();
    HANDLE mutex = CreateMutex(nullptr, FALSE, job.Word(0));
    WaitForTest();
    const DWORD times = job.Number(2);
    for (DWORD i = 0; i < times; ++i) {
        if (WaitForSingleObject(mutex, INFINITE) != WAIT_RESULT_FIRST)
            return kFailed;
        long count = 0;
        std::ifstream(job.Word(1)) >> count;
        std::ofstream(job.Word(1)) << count + 1;
        ReleaseMutex(mutex);
    }
    return 0;
}

// ---- the store ----

int OpenStore(const Job &job)
{
    WaitForTest();
    job.Start();
    Tell(test::Store().uuid());
    return 0;
}

// In a pass: a value, an alert, and no commit.
int BreakPass(const Job &job)
{
    job.Start(host::Role::kDaemon);
    RegWrite(HKEY_LOCAL_MACHINE, "Pass", "value", REG_SZ, "broken", sizeof "broken");
    alerts::Alert alert;
    alert.source = "BROKEN";
    alerts::AddAlert(test::Store(), alert);
    Tell("written");
    WaitForTest();
    return 0;
}

// A monitor in small. Says why it ended, and then what is stored.
int CountLinesOnce(const Job &job)
{
    const std::string failure = test::CountLines(job.layout, job.Number(0), [] { Tell("stored"); });
    Tell(failure);
    if (fs::exists(job.layout.Store()))
        Tell(test::CountedLines(job.layout));
    else
        Tell("no store");
    return 0;
}

int HoldWriteLock(const Job &job)
{
    job.Start();
    host::Transaction transaction(test::Store());
    Tell("locked");
    WaitForTest();
    transaction.Commit();
    return 0;
}

// As a command does that prints something long.
int ReadStore(const Job &job)
{
    host::Database store(job.layout.Store(), host::Database::Mode::kReadWrite);
    host::Statement reading(store, "SELECT name FROM sqlite_master");
    reading.Start();
    (void)reading.Next();
    Tell("reads");
    WaitForTest();
    return 0;
}

// As the command, with a patience of the test's choice, in milliseconds.
int Restore(const Job &job)
{
    try {
        host::RestoreStore(job.words[0], job.layout.Store(), static_cast<int>(job.Number(1)));
        Tell("restored");
    } catch (const host::Error &error) {
        Tell(error.what());
    }
    return 0;
}

// Creates keys with these names, which others create at the same time.
int CreateKeys(const Job &job)
{
    job.Start();
    WaitForTest();
    int failures = 0;
    for (DWORD i = 0; i < job.Number(0); ++i) {
        HKEY key = nullptr;
        const std::string path = "Shared\\Key" + std::to_string(i);
        if (RegCreateKeyEx(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                           &key, nullptr) != ERROR_SUCCESS)
            ++failures;
    }
    Tell(std::to_string(failures));
    return 0;
}

int WriteValues(const Job &job)
{
    job.Start();
    int failures = 0;
    for (DWORD i = 0; i < job.Number(1); ++i) {
        const std::string name = "value" + std::to_string(i);
        if (RegWrite(HKEY_LOCAL_MACHINE, job.Word(0), name.c_str(), REG_DWORD, &i, sizeof i) == 0)
            ++failures;
    }
    Tell(std::to_string(failures));
    return 0;
}

// Adds and removes a key with two values, each time in one transaction, until it is killed.
int FlickerKey(const Job &job)
{
    job.Start();
    Tell("flickering");
    auto &registry = test::Registry();
    for (;;) {
        host::Transaction add(test::Store());
        const auto key = registry.Create(host::kRootKey, job.Word(0));
        for (size_t i = 1; i < job.words.size(); ++i)
            registry.Set(key, job.words[i], REG_SZ, std::string_view("x", 2));
        for (const char *number : {"ReportCount", "WatchTime"})
            registry.Set(key, number, REG_DWORD, std::string_view("\1\0\0\0", 4));
        add.Commit();
        host::Transaction remove(test::Store());
        const std::string path = job.Word(0);
        registry.DeleteKey(*registry.Find(host::kRootKey, path.substr(0, path.rfind('\\'))));
        remove.Commit();
    }
}

// Two passes, the second of which does not fit: says what became of each.
int FillStore(const Job &job)
{
    job.Start(host::Role::kDaemon);
    auto &store = test::Store();
    RegWrite(HKEY_LOCAL_MACHINE, "Pass", "first", REG_SZ, "stored", sizeof "stored");
    store.CommitPass();
    std::vector<char> bytes(size_t{512} * 1024, 'x');
    for (int i = 0; i < 8; ++i) {
        const std::string name = "big" + std::to_string(i);
        RegWrite(HKEY_LOCAL_MACHINE, "Pass", name.c_str(), REG_BINARY, bytes.data(),
                 static_cast<DWORD>(bytes.size()));
    }
    RegWrite(HKEY_LOCAL_MACHINE, "Pass", "last", REG_SZ, "lost", sizeof "lost");
    try {
        store.CommitPass();
        Tell("stored");
    } catch (const host::StoreError &error) {
        Tell(error.what());
    }
    for (const char *name : {"first", "big0", "last"}) {
        const bool found =
            RegRead(HKEY_LOCAL_MACHINE, "Pass", name, nullptr, nullptr, nullptr) != 0;
        Tell(std::string(name) + (found ? " is there" : " is not there"));
    }
    return 0;
}

// ---- the room of the store ----

void SetBytes(const char *name, size_t size)
{
    const std::vector<char> bytes(size, 'x');
    RegWrite(HKEY_LOCAL_MACHINE, "Pass", name, REG_BINARY, bytes.data(), static_cast<DWORD>(size));
}

// A pass that writes 6 MB and is abandoned: says what it takes of the disk before and behind.
int TakeRoomAndAbandon(const Job &job)
{
    job.Start(host::Role::kDaemon);
    auto &store = test::Store();
    constexpr int64_t kMegabyte = 1024 * 1024;
    const int64_t before = host::FreeSpace(job.layout.Store());
    store.database().Execute("PRAGMA cache_size = 10"); // pages that are kept in memory
    for (int i = 0; i < 6; ++i)
        SetBytes(("big" + std::to_string(i)).c_str(), kMegabyte);
    const int64_t taken = before - host::FreeSpace(job.layout.Store());
    Tell(std::to_string(taken / kMegabyte) + " megabytes taken");
    store.AbandonPass();
    const int64_t left = before - host::FreeSpace(job.layout.Store());
    Tell(left <= 0 ? "nothing taken" : std::to_string(left) + " bytes taken");
    return 0;
}

std::string ReserveText(const Job &job)
{
    return fs::exists(job.layout.state / "reserve") ? "a reserve" : "no reserve";
}

int KeepReserve(const Job &job)
{
    job.Start(host::Role::kDaemon);
    test::Store().KeepReserve();
    Tell(ReserveText(job));
    return 0;
}

// Fills the disk with a file of somebody else, to its last byte.
void FillDisk(const fs::path &file)
{
    std::ofstream ballast(file);
    const std::string page(4096, 'b');
    while (ballast.write(page.data(), static_cast<std::streamsize>(page.size())).flush())
        continue;
}

// A pass that does not fit, the same pass again, and one when there is room again.
int LeaveFullDisk(const Job &job)
{
    KeepReserve(job);
    auto &store = test::Store();
    FillDisk(job.layout.state / "ballast");
    SetBytes("value", 500 * 1000);
    try {
        store.CommitPass();
        Tell("it fitted");
    } catch (const host::StoreError &) {
        Tell("the disk is full: " + ReserveText(job));
    }
    SetBytes("value", 500 * 1000);
    store.CommitPass();
    Tell("stored");
    fs::remove(job.layout.state / "ballast");
    SetBytes("small", 10);
    store.CommitPass();
    Tell("room again: " + ReserveText(job));
    return 0;
}

// ---- a daemon, as far as the command can see ----

int HoldDaemonLock(const Job &job)
{
    job.layout.CreateFolders();
    const status::DaemonLock lock(job.layout.run);
    Tell("held");
    WaitForTest();
    return 0;
}

// Answers each request to scan with a finished pass.
int AnswerScans(const Job &job)
{
    job.Start();
    const status::DaemonLock lock(job.layout.run);
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, kScanEvent);
    status::Status status;
    status.pid = getpid();
    status.state = status::MonitorState::kRunning;
    status.store = status::StoreName(test::Store());
    status::WriteStatus(job.layout.run, status);
    Tell("running");
    for (int64_t number = 1;; ++number) {
        if (WaitForSingleObject(event, INFINITE) != WAIT_RESULT_FIRST)
            return kFailed;
        status.last_full_pass = {number, status::PassKind::kScan, status::WallTimeMs(),
                                 status::BootTimeNs(), 1};
        status::WriteStatus(job.layout.run, status);
    }
}

// ---- places in which a program can be run ----

int NotPermitted(const char *what)
{
    fprintf(stderr, "needs root or a user namespace: %s: %s\n", what, strerror(errno));
    return kNotPermitted;
}

bool WriteProc(const char *name, const std::string &text)
{
    std::ofstream file(std::string("/proc/self/") + name);
    file << text;
    return static_cast<bool>(file.flush());
}

// A user namespace in which this user is who it was, and may mount.
bool EnterUserNamespace()
{
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    return unshare(CLONE_NEWUSER) == 0 && WriteProc("setgroups", "deny") &&
           WriteProc("uid_map", user + " " + user + " 1") &&
           WriteProc("gid_map", group + " " + group + " 1");
}

bool EnterNamespace()
{
    return (geteuid() == 0 || EnterUserNamespace()) && unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// The program behind so many words of the job.
int Become(const Job &job, size_t skip)
{
    std::vector<char *> arguments;
    for (size_t i = skip; i < job.words.size(); ++i)
        arguments.push_back(const_cast<char *>(job.Word(i)));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    fprintf(stderr, "cannot run %s: %s\n", arguments[0], strerror(errno));
    return kFailed;
}

// with-folder FOLDER PLACE PROGRAM...: FOLDER stands at PLACE, for this program alone.
int WithFolder(const Job &job)
{
    if (!EnterNamespace() || mount(job.Word(0), job.Word(1), nullptr, MS_BIND, nullptr) != 0)
        return NotPermitted("cannot mount a folder");
    return Become(job, 2);
}

// with-folders FOLDER PLACE... -- PROGRAM...: the same, of several.
int WithFolders(const Job &job)
{
    if (!EnterNamespace())
        return NotPermitted("cannot mount a folder");
    size_t at = 0;
    for (; job.words.at(at) != "--"; at += 2) {
        if (mount(job.Word(at), job.Word(at + 1), nullptr, MS_BIND, nullptr) != 0)
            return NotPermitted("cannot mount a folder");
    }
    return Become(job, at + 1);
}

// with-small-disk PLACE SIZE PROGRAM...
int WithSmallDisk(const Job &job)
{
    const std::string size = "size=" + job.words.at(1);
    if (!EnterNamespace() || mount("tmpfs", job.Word(0), "tmpfs", 0, size.c_str()) != 0)
        return NotPermitted("cannot mount a tmpfs");
    return Become(job, 2);
}

// with-read-only PLACE PROGRAM...
int WithReadOnly(const Job &job)
{
    const char *place = job.Word(0);
    if (!EnterNamespace() || mount(place, place, nullptr, MS_BIND, nullptr) != 0 ||
        mount(place, place, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV,
              nullptr) != 0)
        return NotPermitted("cannot mount a folder read-only");
    return Become(job, 1);
}

// start ROLE: starts the host and says how that went.
int StartHostOnly(const Job &job)
{
    job.Start(job.words.at(0) == "daemon" ? host::Role::kDaemon : host::Role::kCommand);
    Tell("started");
    return 0;
}

const std::map<std::string, std::function<int(const Job &)>> kVerbs = {
    {"set-event", SetNamedEvent},
    {"hold-event", HoldNamedEvent},
    {"wait-event", WaitForNamedEvent},
    {"own-mutex", OwnMutex},
    {"try-mutex", TryMutex},
    {"count", CountUnderMutex},
    {"open-store", OpenStore},
    {"break-pass", BreakPass},
    {"count-lines", CountLinesOnce},
    {"hold-write-lock", HoldWriteLock},
    {"read-store", ReadStore},
    {"restore", Restore},
    {"create-keys", CreateKeys},
    {"write-values", WriteValues},
    {"flicker-key", FlickerKey},
    {"fill-store", FillStore},
    {"take-room-and-abandon", TakeRoomAndAbandon},
    {"keep-reserve", KeepReserve},
    {"leave-full-disk", LeaveFullDisk},
    {"hold-daemon-lock", HoldDaemonLock},
    {"answer-scans", AnswerScans},
    {"with-folder", WithFolder},
    {"with-folders", WithFolders},
    {"with-small-disk", WithSmallDisk},
    {"with-read-only", WithReadOnly},
    {"start", StartHostOnly},
};

// as-user ID VERB...: a verb of this program, without the rights of root.
int AsUser(const Job &job)
{
    const auto id = static_cast<uid_t>(job.Number(0));
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(id) != 0 || setuid(id) != 0))
        return NotPermitted("cannot become another user");
    return kVerbs.at(job.words.at(1))({job.layout, {job.words.begin() + 2, job.words.end()}});
}

int Run(int argc, char **argv)
{
    const Words words(argv + 1, argv + argc);
    if (words.size() < 2)
        return kUsage;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const Job job = {host::Layout::Below(words[0]), {words.begin() + 2, words.end()}};
    const int status = words[1] == "as-user" ? AsUser(job) : kVerbs.at(words[1])(job);
    test::StopHost();
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return Run(argc, argv);
    } catch (const std::exception &error) {
        fprintf(stderr, "host_helper: %s\n", error.what());
        return kFailed;
    }
}
