#include "tests/history/folder.h"

#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace history {

namespace {

void Expect(bool done, const std::string &what)
{
    if (!done)
        throw std::runtime_error("the folder of the test: " + what);
}

void SetModified(int fd, time_t when)
{
    const timespec times[2] = {{when, 0}, {when, 0}};
    Expect(futimens(fd, times) == 0, "futimens");
}

// The calls of the "at" family are not among those that the test program replaces.
int OpenIn(int folder, const std::string &name, int flags)
{
    const int fd = openat(folder, name.c_str(), flags | O_CLOEXEC, 0644);
    Expect(fd >= 0, "open " + name);
    return fd;
}

uint64_t InodeIn(int folder, const std::string &name)
{
    struct stat status {};
    Expect(fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0, "stat " + name);
    return status.st_ino;
}

} // namespace

Disk::Disk(const std::string &path)
    : folder_(openat(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    Expect(folder_ >= 0, "open " + path);
}

Disk::~Disk()
{
    close(folder_);
}

uint64_t Disk::Append(const std::string &name, const std::string &bytes, time_t when) const
{
    const int fd = OpenIn(folder_, name, O_WRONLY | O_CREAT | O_APPEND);
    Expect(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "write");
    SetModified(fd, when);
    close(fd);
    return InodeIn(folder_, name);
}

void Disk::Overwrite(const std::string &name, size_t at, const std::string &bytes,
                     time_t when) const
{
    const int fd = OpenIn(folder_, name, O_WRONLY);
    Expect(pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at)) ==
               static_cast<ssize_t>(bytes.size()),
           "write");
    SetModified(fd, when);
    close(fd);
}

void Disk::Truncate(const std::string &name, size_t size, time_t when) const
{
    const int fd = OpenIn(folder_, name, O_WRONLY);
    Expect(ftruncate(fd, static_cast<off_t>(size)) == 0, "truncate " + name);
    SetModified(fd, when);
    close(fd);
}

uint64_t Disk::MakeFolder(const std::string &name, time_t when) const
{
    Expect(mkdirat(folder_, name.c_str(), 0755) == 0, "mkdir " + name);
    const timespec times[2] = {{when, 0}, {when, 0}};
    Expect(utimensat(folder_, name.c_str(), times, 0) == 0, "utimensat " + name);
    return InodeIn(folder_, name);
}

void Disk::MakeDeadLink(const std::string &name) const
{
    Expect(symlinkat("nowhere", folder_, name.c_str()) == 0, "symlink " + name);
}

void Disk::Rename(const std::string &from, const std::string &to) const
{
    Expect(renameat(folder_, from.c_str(), folder_, to.c_str()) == 0, "rename " + from);
}

void Disk::Remove(const std::string &name, Kind kind) const
{
    Expect(unlinkat(folder_, name.c_str(), kind == Kind::kFolder ? AT_REMOVEDIR : 0) == 0,
           "remove " + name);
}

const Entry *Folder::Find(const std::string &name) const
{
    const auto found = entries_.find(name);
    return found != entries_.end() ? &found->second : nullptr;
}

bool Folder::HasFile(const std::string &name) const
{
    const Entry *entry = Find(name);
    return entry != nullptr && entry->kind == Kind::kFile;
}

size_t Folder::Size(const std::string &name) const
{
    return HasFile(name) ? Find(name)->bytes.size() : 0;
}

void Folder::Append(const std::string &name, const std::string &bytes, time_t when)
{
    if (Has(name) && !HasFile(name))
        Remove(name);
    Entry &entry = entries_[name];
    entry.bytes += bytes;
    entry.modified = when;
    entry.inode = disk_->Append(name, bytes, when);
}

void Folder::Overwrite(const std::string &name, size_t at, const std::string &bytes, time_t when)
{
    Entry &entry = entries_.at(name);
    entry.bytes.replace(at, bytes.size(), bytes);
    entry.modified = when;
    disk_->Overwrite(name, at, bytes, when);
}

void Folder::Truncate(const std::string &name, size_t size, time_t when)
{
    Entry &entry = entries_.at(name);
    entry.bytes.resize(size);
    entry.modified = when;
    disk_->Truncate(name, size, when);
}

void Folder::MakeFolder(const std::string &name, time_t when)
{
    Remove(name);
    const uint64_t inode = disk_->MakeFolder(name, when);
    entries_[name] = {Kind::kFolder, "", inode, when};
}

void Folder::MakeDeadLink(const std::string &name)
{
    Remove(name);
    disk_->MakeDeadLink(name);
    entries_[name] = {Kind::kDeadLink, "", 0, 0};
}

void Folder::Rename(const std::string &from, const std::string &to)
{
    Remove(to);
    disk_->Rename(from, to);
    entries_[to] = entries_.at(from);
    entries_.erase(from);
}

void Folder::Remove(const std::string &name)
{
    const Entry *entry = Find(name);
    if (entry == nullptr)
        return;
    disk_->Remove(name, entry->kind);
    entries_.erase(name);
}

void Folder::Clear()
{
    while (!entries_.empty())
        Remove(entries_.begin()->first);
}

} // namespace history
