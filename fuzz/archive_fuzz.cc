// The reading of a rotated log that may be compressed. Input: the bytes of the file.
//
// What it holds can be read from the beginning and again from the middle, and is the same; or it is refused with a text
// that names the file.
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/inputs/log_content.h"
#include "fuzz/fuzz.h"

namespace {

// More is not unpacked of one input: a few bytes can stand for gigabytes.
constexpr size_t kMost = size_t{1} << 20;

std::string ReadFrom(inputs::LogContent *content, uint64_t offset)
{
    std::string text;
    char piece[4096];
    while (text.size() < kMost) {
        const size_t got = content->Read(offset + text.size(), piece, sizeof piece);
        if (got == 0)
            break;
        fuzz::Expect(got <= sizeof piece, "more was read than there is room for");
        text.append(piece, got);
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int file = memfd_create("fuzzed", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    fuzz::Expect(ftruncate(file, 0) == 0 &&
                     pwrite(file, data, size, 0) == static_cast<ssize_t>(size),
                 "no file");
    try {
        inputs::LogContent content(path);
        const std::string whole = ReadFrom(&content, 0);
        if (!content.IsPacked())
            fuzz::Expect(whole == std::string(data, data + size),
                         "a plain file is read as something else");
        const uint64_t middle = whole.size() / 2;
        const std::string again = ReadFrom(&content, middle);
        fuzz::Expect(again.compare(0, whole.size() - middle, whole, middle, std::string::npos) ==
                             0 ||
                         whole.size() >= kMost,
                     "read again from the middle, it is something else");
    } catch (const host::Error &error) {
        fuzz::Expect(std::string(error.what()).find(path) != std::string::npos,
                     "the file is not named");
    }
    return 0;
}
