#include "agent/inputs/log_content.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/inputs/file_identity.h"

namespace inputs {

namespace {

constexpr size_t kBlock = size_t{64} * 1024;

// With these bytes files begin that are compressed.
using namespace std::string_view_literals;
constexpr std::string_view kMagics[] = {"\x1f\x8b"sv, "\xfd\x37zXZ\0"sv, "\x28\xb5\x2f\xfd"sv,
                                        "BZh"sv};
constexpr size_t kLongestMagic = 6;

host::Fd Open(const std::string &path)
{
    host::Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (file.get() < 0)
        throw host::Error("cannot read " + path, strerror(errno),
                          "make it readable for the monitor, or exclude it");
    const auto look = LookAt(file.get());
    if (!look || !look->is_regular)
        throw host::Error("cannot read " + path, "it is not a regular file", "exclude it");
    return file;
}

// A file is read at a place of its own, not at the descriptor's.
size_t ReadAt(int fd, uint64_t offset, char *buffer, size_t size, const std::string &path)
{
    ssize_t count = 0;
    do
        count = pread(fd, buffer, size, static_cast<off_t>(offset));
    while (count < 0 && errno == EINTR);
    if (count < 0)
        throw host::Error("cannot read " + path, strerror(errno), "check its disk");
    return static_cast<size_t>(count);
}

} // namespace

void LogContent::CloseArchive::operator()(archive *archive) const
{
    archive_read_free(archive);
}

LogContent::LogContent(const std::string &path, bool may_be_packed)
    : path_(path), may_be_packed_(may_be_packed), file_(Open(path))
{
}

LogContent::~LogContent() = default;

bool LogContent::IsPacked()
{
    if (!may_be_packed_)
        return false;
    if (packing_ == Packing::kNotKnown) {
        char head[kLongestMagic] = {};
        const size_t count = ReadAt(file_.get(), 0, head, sizeof head, path_);
        if (count == 0)
            return false; // nothing is known of an empty file
        const std::string_view begin(head, count);
        const bool packed = std::any_of(std::begin(kMagics), std::end(kMagics),
                                        [&](auto magic) { return begin.starts_with(magic); });
        packing_ = packed ? Packing::kPacked : Packing::kPlain;
    }
    return packing_ == Packing::kPacked;
}

void LogContent::BeginSync() const
{
    sync_file_range(file_.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
}

// Where that cannot be done, as in a file system that is only read, nothing is written either.
void LogContent::Sync() const
{
    fdatasync(file_.get());
}

void LogContent::Refuse(const std::string &damage)
{
    const host::Error error("cannot read " + path_, "it is damaged: " + damage,
                            "restore the file, or exclude it");
    archive_.reset(); // another try begins anew
    throw error;
}

namespace {

// What is wrong by what the library knows. Of some damage it says nothing.
std::string DamageOf(archive *reader)
{
    const char *known = archive_error_string(reader);
    return known != nullptr ? known : "what is compressed in it does not fit together";
}

} // namespace

void LogContent::Unpack()
{
    archive_.reset(archive_read_new());
    archive_at_ = 0;
    archive *reader = archive_.get();
    archive_read_support_filter_gzip(reader);
    archive_read_support_filter_xz(reader);
    archive_read_support_filter_zstd(reader);
    archive_read_support_filter_bzip2(reader);
    archive_read_support_format_raw(reader);
    archive_read_support_format_empty(reader); // compressed nothing
    archive_entry *entry = nullptr;
    if (lseek(file_.get(), 0, SEEK_SET) != 0 ||
        archive_read_open_fd(reader, file_.get(), kBlock) != ARCHIVE_OK)
        throw host::Error("cannot read " + path_, DamageOf(reader),
                          "restore the file, or exclude it");
    const int header = archive_read_next_header(reader, &entry);
    if (header != ARCHIVE_OK && header != ARCHIVE_EOF)
        Refuse(DamageOf(reader));
    // What has the first bytes of a compressed file, and is none, would be taken as it is.
    if (archive_filter_code(reader, 0) == ARCHIVE_FILTER_NONE)
        Refuse("its header cannot be read");
    is_empty_ = header == ARCHIVE_EOF;
}

// Fills the buffer as far as there is content.
size_t LogContent::ReadOn(char *buffer, size_t size)
{
    size_t filled = 0;
    while (filled < size && !is_empty_) {
        const la_ssize_t count = archive_read_data(archive_.get(), buffer + filled, size - filled);
        if (count == 0)
            break;
        if (count < 0) {
            if (filled > 0)
                break; // the next call meets it again
            Refuse(DamageOf(archive_.get()));
        }
        filled += static_cast<size_t>(count);
    }
    archive_at_ += filled;
    return filled;
}

size_t LogContent::ReadPacked(uint64_t offset, char *buffer, size_t size)
{
    if (!archive_ || archive_at_ > offset)
        Unpack();
    char passed_over[kBlock];
    while (archive_at_ < offset) {
        const auto rest = static_cast<size_t>(std::min<uint64_t>(kBlock, offset - archive_at_));
        if (ReadOn(passed_over, rest) == 0)
            return 0;
    }
    return ReadOn(buffer, size);
}

size_t LogContent::ReadPlain(uint64_t offset, char *buffer, size_t size)
{
    size_t filled = 0;
    while (filled < size) {
        const size_t count =
            ReadAt(file_.get(), offset + filled, buffer + filled, size - filled, path_);
        if (count == 0)
            break;
        filled += count;
    }
    return filled;
}

size_t LogContent::Read(uint64_t offset, char *buffer, size_t size)
{
    return IsPacked() ? ReadPacked(offset, buffer, size) : ReadPlain(offset, buffer, size);
}

} // namespace inputs
