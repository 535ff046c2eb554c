#include "tests/agent/inputs/log_world.h"

#include <archive.h>
#include <archive_entry.h>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "agent/inputs/line_origin.h"

// The linker names these: __wrap_x is called for x, __real_x is the library's.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" int __real_fdatasync(int fd);
extern "C" int __wrap_fdatasync(int fd);
extern "C" int __real_sync_file_range(int fd, off_t from, off_t size, unsigned how);
extern "C" int __wrap_sync_file_range(int fd, off_t from, off_t size, unsigned how);
extern "C" int __real_inotify_add_watch(int fd, const char *path, uint32_t mask);
extern "C" int __wrap_inotify_add_watch(int fd, const char *path, uint32_t mask);
extern "C" void *__real_memchr(const void *text, int byte, size_t size);
extern "C" void *__wrap_memchr(const void *text, int byte, size_t size);

namespace test {

namespace fs = std::filesystem;

namespace {

// By inode: the sizes of files when they were synced last.
std::map<ino_t, uintmax_t> &SyncedSizes()
{
    static std::map<ino_t, uintmax_t> sizes;
    return sizes;
}
std::mutex synced_mutex;
std::string syncs;
std::atomic<bool> watches_are_exhausted = false;
std::atomic<size_t> searches_for_bytes = 0;

void NoteSync(char what)
{
    const std::lock_guard lock(synced_mutex);
    syncs += what;
}

} // namespace

void ExhaustWatches(bool are_exhausted)
{
    watches_are_exhausted = are_exhausted;
}

std::string TakeSyncs()
{
    const std::lock_guard lock(synced_mutex);
    return std::exchange(syncs, {});
}

LogWorld::LogWorld() : wall_seconds(time(nullptr))
{
    std::string name = fs::exists("/dev/shm") ? "/dev/shm/inputs-XXXXXX" : "/tmp/inputs-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no folder can be made");
    folder_ = name;
    options.id = 7;
    options.name = "logs";
    options.rules.paths = {Path("*.log")};
    options.form.host = "here";
    options.log_charset = "UTF-8";
}

LogWorld::~LogWorld()
{
    follower_.reset();
    fs::remove_all(folder_);
}

void LogWorld::Append(const std::string &name, const std::string &bytes) const
{
    std::ofstream(Path(name), std::ios::app | std::ios::binary) << bytes;
}

std::string LogWorld::Content(const std::string &name) const
{
    std::ifstream file(Path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void LogWorld::Write(const std::string &name, const std::string &bytes) const
{
    std::ofstream(Path(name), std::ios::binary) << bytes;
}

void LogWorld::Rename(const std::string &from, const std::string &to) const
{
    fs::rename(Path(from), Path(to));
}

void LogWorld::Remove(const std::string &name) const
{
    fs::remove(Path(name));
}

void LogWorld::Copy(const std::string &from, const std::string &to) const
{
    fs::copy_file(Path(from), Path(to), fs::copy_options::overwrite_existing);
}

void LogWorld::Pack(const std::string &from, const std::string &to, const std::string &how) const
{
    const std::string bytes = Content(from);
    archive *writer = archive_write_new();
    archive_write_add_filter_by_name(writer, how.c_str());
    archive_write_set_format_raw(writer);
    archive_write_open_filename(writer, Path(to).c_str());
    archive_entry *entry = archive_entry_new();
    archive_entry_set_filetype(entry, AE_IFREG);
    archive_entry_set_pathname(entry, "log");
    archive_write_header(writer, entry);
    archive_write_data(writer, bytes.data(), bytes.size());
    archive_entry_free(entry);
    archive_write_close(writer);
    archive_write_free(writer);
}

uintmax_t SyncedSizeOf(const fs::path &path)
{
    struct stat status {};
    const std::lock_guard lock(synced_mutex);
    const auto found =
        stat(path.c_str(), &status) == 0 ? SyncedSizes().find(status.st_ino) : SyncedSizes().end();
    return found == SyncedSizes().end() ? 0 : found->second;
}

bool LogWorld::Exists(const std::string &name) const
{
    return fs::exists(Path(name));
}

void LogWorld::Start()
{
    std::vector<inputs::StoredPlace> places;
    for (const auto &[number, text] : places_)
        places.push_back({number, text});
    follower_ = std::make_unique<inputs::FileFollower>(options, places);
    if (has_begun_)
        return;
    has_begun_ = true;
    follower_->Begin();
    inputs::Batch batch;
    follower_->StorePlaces(&batch);
    Commit(std::move(batch));
}

void LogWorld::ForgetGenerations()
{
    for (auto &[number, text] : places_) {
        auto place = inputs::PlaceOf(text);
        if (!place || std::exchange(place->identity.generation, 0) == 0)
            continue;
        place->identity.device = inputs::LookAt(place->path)->device;
        text = inputs::TextOf(*place);
    }
}

void LogWorld::Step(bool commit)
{
    follower_->TakeChanges();
    inputs::Batch batch;
    if (follower_->WantsLook(now_))
        follower_->Look(now_);
    follower_->Read(wall_seconds, now_, &batch);
    if (commit)
        Commit(std::move(batch));
}

void LogWorld::Settle()
{
    constexpr int kMostSteps = 50;
    for (int i = 0; i < kMostSteps; ++i) {
        Step();
        if (follower_->Next() > now_ + std::chrono::milliseconds(100))
            return;
        Wait(std::chrono::milliseconds(20));
    }
}

void LogWorld::Commit(inputs::Batch &&batch)
{
    size_t begin = 0;
    while (begin < batch.text.size()) {
        const size_t end = batch.text.find('\n', begin);
        const std::string line = batch.text.substr(begin, end - begin);
        messages_.emplace_back(inputs::OriginOfLine(line).message);
        begin = end + 1;
    }
    for (const auto &[key, text] : batch.places) {
        if (text)
            places_[key.second] = *text;
        else
            places_.erase(key.second);
    }
    for (const inputs::Loss &loss : batch.losses)
        losses_.push_back(loss.what);
}

std::vector<std::string> LogWorld::Take()
{
    return std::exchange(messages_, {});
}

std::vector<std::string> LogWorld::TakeLosses()
{
    return std::exchange(losses_, {});
}

size_t CountSearchesForBytes()
{
    return searches_for_bytes;
}

std::string LogLine(const std::string &message)
{
    // One moment for all lines of the process: the same message is the same line, also when a second turns.
    static const time_t kMoment = time(nullptr);
    struct tm local {};
    localtime_r(&kMoment, &local);
    char stamp[32];
    strftime(stamp, sizeof stamp, "%b %e %H:%M:%S", &local);
    return std::string(stamp) + " web07 app[1]: " + message + "\n";
}

} // namespace test

int __wrap_fdatasync(int fd)
{
    struct stat status {};
    if (fstat(fd, &status) == 0) {
        const std::lock_guard lock(test::synced_mutex);
        test::SyncedSizes()[status.st_ino] = static_cast<uintmax_t>(status.st_size);
    }
    test::NoteSync('s');
    return __real_fdatasync(fd);
}

int __wrap_sync_file_range(int fd, off_t from, off_t size, unsigned how)
{
    test::NoteSync('b');
    return __real_sync_file_range(fd, from, size, how);
}

void *__wrap_memchr(const void *text, int byte, size_t size)
{
    test::searches_for_bytes.fetch_add(1, std::memory_order_relaxed);
    return __real_memchr(text, byte, size);
}

int __wrap_inotify_add_watch(int fd, const char *path, uint32_t mask)
{
    if (!test::watches_are_exhausted)
        return __real_inotify_add_watch(fd, path, mask);
    errno = ENOSPC;
    return -1;
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
