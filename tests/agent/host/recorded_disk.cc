#include "tests/agent/host/recorded_disk.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>

#include <sqlite3.h>

namespace test {

namespace fs = std::filesystem;

namespace {

constexpr size_t kSector = 512;
constexpr size_t kPage = 4096;

// What is recorded, and by whom: SQLite's functions have no argument for it.
struct Record {
    std::string folder;
    std::vector<DiskStep> steps;
};
Record *record = nullptr;

// Notes a step at a file of the folder.
void Note(const std::string &path, DiskStep::Kind kind, int64_t offset = 0, std::string bytes = "")
{
    const fs::path file(path);
    if (record != nullptr && file.parent_path() == record->folder)
        record->steps.push_back({kind, file.filename(), offset, std::move(bytes)});
}

// ---- a file system for SQLite that notes what it hands on to the usual one ----

struct RecordedFile {
    sqlite3_file base; // first, so that SQLite takes it for its own
    std::string *path;
    sqlite3_file *real; // behind it, in the same memory
};

RecordedFile *Own(sqlite3_file *file)
{
    return reinterpret_cast<RecordedFile *>(file);
}
sqlite3_file *Real(sqlite3_file *file)
{
    return Own(file)->real;
}

int Close(sqlite3_file *file)
{
    delete Own(file)->path;
    return Real(file)->pMethods->xClose(Real(file));
}
int Read(sqlite3_file *file, void *to, int size, sqlite3_int64 offset)
{
    return Real(file)->pMethods->xRead(Real(file), to, size, offset);
}
int Write(sqlite3_file *file, const void *from, int size, sqlite3_int64 offset)
{
    Note(*Own(file)->path, DiskStep::Kind::kWrite, offset,
         std::string(static_cast<const char *>(from), static_cast<size_t>(size)));
    return Real(file)->pMethods->xWrite(Real(file), from, size, offset);
}
int Truncate(sqlite3_file *file, sqlite3_int64 size)
{
    Note(*Own(file)->path, DiskStep::Kind::kTruncate, size);
    return Real(file)->pMethods->xTruncate(Real(file), size);
}
int Sync(sqlite3_file *file, int flags)
{
    Note(*Own(file)->path, DiskStep::Kind::kSync);
    return Real(file)->pMethods->xSync(Real(file), flags);
}
int FileSize(sqlite3_file *file, sqlite3_int64 *size)
{
    return Real(file)->pMethods->xFileSize(Real(file), size);
}
int Lock(sqlite3_file *file, int level)
{
    return Real(file)->pMethods->xLock(Real(file), level);
}
int Unlock(sqlite3_file *file, int level)
{
    return Real(file)->pMethods->xUnlock(Real(file), level);
}
int CheckReservedLock(sqlite3_file *file, int *result)
{
    return Real(file)->pMethods->xCheckReservedLock(Real(file), result);
}
int FileControl(sqlite3_file *file, int operation, void *argument)
{
    return Real(file)->pMethods->xFileControl(Real(file), operation, argument);
}
int SectorSize(sqlite3_file *file)
{
    return Real(file)->pMethods->xSectorSize(Real(file));
}
int Characteristics(sqlite3_file *file)
{
    return Real(file)->pMethods->xDeviceCharacteristics(Real(file));
}
int ShmMap(sqlite3_file *file, int page, int size, int extend, void volatile **memory)
{
    return Real(file)->pMethods->xShmMap(Real(file), page, size, extend, memory);
}
int ShmLock(sqlite3_file *file, int offset, int count, int flags)
{
    return Real(file)->pMethods->xShmLock(Real(file), offset, count, flags);
}
void ShmBarrier(sqlite3_file *file)
{
    Real(file)->pMethods->xShmBarrier(Real(file));
}
int ShmUnmap(sqlite3_file *file, int remove)
{
    return Real(file)->pMethods->xShmUnmap(Real(file), remove);
}

// Version 2: without mapped files, which could be written past this.
const sqlite3_io_methods kMethods = {2,
                                     Close,
                                     Read,
                                     Write,
                                     Truncate,
                                     Sync,
                                     FileSize,
                                     Lock,
                                     Unlock,
                                     CheckReservedLock,
                                     FileControl,
                                     SectorSize,
                                     Characteristics,
                                     ShmMap,
                                     ShmLock,
                                     ShmBarrier,
                                     ShmUnmap,
                                     nullptr,
                                     nullptr};

sqlite3_vfs *usual = nullptr;

int Open(sqlite3_vfs * /*vfs*/, const char *name, sqlite3_file *file, int flags, int *out_flags)
{
    RecordedFile *own = Own(file);
    own->real = reinterpret_cast<sqlite3_file *>(own + 1);
    own->base.pMethods = nullptr;
    const int result = usual->xOpen(usual, name, own->real, flags, out_flags);
    if (own->real->pMethods != nullptr) {
        own->path = new std::string(name != nullptr ? name : "");
        own->base.pMethods = &kMethods;
    }
    return result;
}

int Delete(sqlite3_vfs * /*vfs*/, const char *name, int sync_folder)
{
    Note(name, DiskStep::Kind::kRemove);
    return usual->xDelete(usual, name, sync_folder);
}

// The usual one but for these two. Never unregistered: a connection may outlive the recorder.
sqlite3_vfs *RecordedVfs()
{
    static sqlite3_vfs vfs = [] {
        usual = sqlite3_vfs_find(nullptr);
        sqlite3_vfs own = *usual;
        own.zName = "recorded";
        own.szOsFile = static_cast<int>(sizeof(RecordedFile)) + usual->szOsFile;
        own.xOpen = Open;
        own.xDelete = Delete;
        own.pNext = nullptr;
        return own;
    }();
    return &vfs;
}

size_t LengthReached(const DiskStep &step, Reached reached)
{
    switch (reached) {
    case Reached::kWhole:
        return step.bytes.size();
    case Reached::kNothing:
        return 0;
    case Reached::kHalf:
        return step.bytes.size() / 2;
    case Reached::kFirstSector:
        return std::min(step.bytes.size(), kSector);
    case Reached::kFirstPage:
        return std::min(step.bytes.size(), kPage);
    }
    return 0;
}

void Make(Files *files, const DiskStep &step, Reached reached)
{
    std::string &content = (*files)[step.file];
    const auto offset = static_cast<size_t>(step.offset);
    switch (step.kind) {
    case DiskStep::Kind::kWrite: {
        const size_t length = LengthReached(step, reached);
        if (length == 0)
            return;
        if (content.size() < offset + length)
            content.resize(offset + length);
        content.replace(offset, length, step.bytes, 0, length);
        return;
    }
    case DiskStep::Kind::kTruncate:
        if (reached == Reached::kWhole && content.size() > offset)
            content.resize(offset);
        return;
    case DiskStep::Kind::kRemove:
        files->erase(step.file);
        return;
    case DiskStep::Kind::kSync:
        return;
    }
}

} // namespace

DiskRecorder::DiskRecorder(fs::path folder)
{
    record = new Record{folder.string(), {}};
    sqlite3_vfs_register(RecordedVfs(), 1);
}

DiskRecorder::~DiskRecorder()
{
    sqlite3_vfs_register(usual, 1);
    delete record;
    record = nullptr;
}

const std::vector<DiskStep> &DiskRecorder::steps() const
{
    return record->steps;
}

Files FilesIn(const fs::path &folder)
{
    Files files;
    for (const auto &entry : fs::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        files[entry.path().filename()].assign(std::istreambuf_iterator<char>(file), {});
    }
    return files;
}

void WriteFiles(const fs::path &folder, const Files &files)
{
    fs::remove_all(folder);
    fs::create_directories(folder);
    for (const auto &[name, content] : files)
        std::ofstream(folder / name, std::ios::binary) << content;
}

Files After(Files files, const std::vector<DiskStep> &steps, size_t end,
            const std::map<size_t, Reached> &reached)
{
    for (size_t i = 0; i < end; ++i) {
        const auto found = reached.find(i);
        Make(&files, steps[i], found != reached.end() ? found->second : Reached::kWhole);
    }
    return files;
}

std::vector<size_t> NotSynced(const std::vector<DiskStep> &steps, size_t end)
{
    std::vector<size_t> found;
    std::set<std::string> synced; // behind the step that is looked at
    for (size_t i = end; i-- > 0;) {
        const DiskStep &step = steps[i];
        if (step.kind == DiskStep::Kind::kSync || step.kind == DiskStep::Kind::kRemove)
            synced.insert(step.file);
        else if (!synced.contains(step.file))
            found.push_back(i);
    }
    std::reverse(found.begin(), found.end());
    return found;
}

} // namespace test
