#include "agent/libtarsk/convert.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iconv.h>
#include <mutex>
#include <strings.h>

#include "agent/libtarsk/settings.h"
#include "platform/agent.h"

namespace tarsk {

namespace {

constexpr char kRegistryCharset[] = "UTF-8";

// A conversion descriptor that closes itself.
class Converter {
  public:
    Converter(const char *from, const char *to) : descriptor_(iconv_open(to, from)) {}
    ~Converter()
    {
        if (IsOpen())
            iconv_close(descriptor_);
    }
    Converter(Converter &&other) noexcept : descriptor_(other.descriptor_)
    {
        other.descriptor_ = Closed();
    }
    Converter &operator=(Converter &&other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    Converter(const Converter &) = delete;
    Converter &operator=(const Converter &) = delete;

    [[nodiscard]] bool IsOpen() const { return descriptor_ != Closed(); }
    [[nodiscard]] iconv_t get() const { return descriptor_; }

  private:
    static iconv_t Closed() { return reinterpret_cast<iconv_t>(-1); }
    iconv_t descriptor_;
};

struct Charsets {
    std::mutex mutex;
    std::string log = kDefaultLogCharset;
    Converter to_registry{kDefaultLogCharset, kRegistryCharset};
    Converter to_log{kRegistryCharset, kDefaultLogCharset};
};

Charsets &Current()
{
    static Charsets charsets;
    return charsets;
}

bool IsUtf8(const std::string &name)
{
    return strcasecmp(name.c_str(), "UTF-8") == 0 || strcasecmp(name.c_str(), "UTF8") == 0;
}

bool IsContinuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// The length of a UTF-8 text cut to `room` bytes, not in the middle of a character.
size_t CutUtf8(const char *text, size_t length, size_t room)
{
    if (length <= room)
        return length;
    size_t cut = room;
    // A character has at most four bytes; longer runs of continuation bytes are no UTF-8 anyway.
    for (int i = 0; i < 3 && cut > 0 && IsContinuation(text[cut]); ++i)
        --cut;
    return IsContinuation(text[cut]) ? room : cut;
}

// Without a conversion: copies, cut to the destination.
size_t CopyText(const char *source, size_t length, char *destination, size_t room, bool utf8)
{
    const size_t cut = utf8 ? CutUtf8(source, length, room) : std::min(length, room);
    memcpy(destination, source, cut);
    return cut;
}

// Bytes of what stands at the head of the text and cannot be converted: a whole character of UTF-8,
// so that it is not cut, or else one byte.
size_t UnknownLength(const char *text, size_t length, bool utf8)
{
    size_t bytes = 1;
    if (utf8 && (static_cast<unsigned char>(text[0]) & 0xC0U) == 0xC0U) {
        while (bytes < 4 && bytes < length && IsContinuation(text[bytes]))
            ++bytes;
    }
    return bytes;
}

// Converts as far as the destination goes. What cannot be converted is taken over as it is.
size_t ConvertText(iconv_t converter, const char *source, size_t length, char *destination,
                   size_t room, bool from_utf8)
{
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    char *in = const_cast<char *>(source); // iconv does not write to it
    char *out = destination;
    size_t in_left = length;
    size_t out_left = room;
    while (in_left > 0) {
        if (iconv(converter, &in, &in_left, &out, &out_left) != static_cast<size_t>(-1))
            break;
        const size_t unknown = UnknownLength(in, in_left, from_utf8);
        if (errno == E2BIG || unknown > out_left)
            break;
        memcpy(out, in, unknown);
        in += unknown;
        out += unknown;
        in_left -= unknown;
        out_left -= unknown;
        iconv(converter, nullptr, nullptr, nullptr, nullptr);
    }
    return room - out_left;
}

} // namespace

bool CharsetIsKnown(const std::string &name)
{
    return Converter(name.c_str(), kRegistryCharset).IsOpen() &&
           Converter(kRegistryCharset, name.c_str()).IsOpen();
}

bool SetLogCharset(const std::string &name)
{
    Converter to_registry(name.c_str(), kRegistryCharset);
    Converter to_log(kRegistryCharset, name.c_str());
    if (!to_registry.IsOpen() || !to_log.IsOpen())
        return false;
    Charsets &charsets = Current();
    const std::lock_guard lock(charsets.mutex);
    charsets.log = name;
    charsets.to_registry = std::move(to_registry);
    charsets.to_log = std::move(to_log);
    return true;
}

} // namespace tarsk

using namespace tarsk;

extern "C" int TarskCodeConvert(const char *source, int sourceLength, char *destination,
                                int destinationSize, int sourceCode, int destinationCode)
{
    if (source == nullptr || destination == nullptr || destinationSize <= 0)
        return -1;
    const size_t length =
        sourceLength < 0 ? strlen(source) : strnlen(source, static_cast<size_t>(sourceLength));
    const auto room = static_cast<size_t>(destinationSize) - 1;

    Charsets &charsets = Current();
    const std::lock_guard lock(charsets.mutex);
    const bool log_is_utf8 = IsUtf8(charsets.log);
    size_t written = 0;
    if (sourceCode == destinationCode || log_is_utf8) {
        const bool utf8 = log_is_utf8 || destinationCode == CODE_REGISTRY;
        written = CopyText(source, length, destination, room, utf8);
    } else {
        const Converter &converter =
            destinationCode == CODE_REGISTRY ? charsets.to_registry : charsets.to_log;
        written = ConvertText(converter.get(), source, length, destination, room,
                              sourceCode == CODE_REGISTRY);
    }
    destination[written] = '\0';
    return static_cast<int>(written);
}
