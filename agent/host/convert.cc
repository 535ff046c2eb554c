#include "agent/host/convert.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iconv.h>
#include <mutex>
#include <string_view>
#include <strings.h>

#include "agent/host/agent_values.h"
#include "agent/host/host.h"
#include "platform/agent.h"

namespace host {

namespace {

constexpr char kRegistryCharset[] = "UTF-8";

// Bytes of the longest character of any set that can be chosen. A bound for how far one is looked
// for that may be none.
constexpr size_t kLongestCharacter = 4;

// A conversion descriptor that closes itself.
class Converter {
  public:
    Converter(const char *from, const char *to) : descriptor_(iconv_open(to, from)) {}
    ~Converter()
    {
        if (IsOpen())
            iconv_close(descriptor_);
    }
    // To be taken over by the conversions that all threads use, once both directions are known to
    // work.
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

// The log's set, and the conversions to it and back. All of it changes together.
struct Charsets {
    std::mutex mutex;
    std::string log = kDefaultLogCharset;
    Converter to_registry{kDefaultLogCharset, kRegistryCharset};
    Converter to_log{kRegistryCharset, kDefaultLogCharset};
};

Charsets charsets; // guarded by its mutex

// A line is converted for a report, maybe: see ReportedHits.
void NoteReached()
{
    if (Host *host = CurrentIfAny())
        host->reported_hits().NoteReached(host->table());
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

// Bytes of what stands at the head of a UTF-8 text and cannot be converted: a whole character, so
// that it is not cut, or else one byte.
size_t UnknownUtf8Length(const char *text, size_t length)
{
    size_t bytes = 1;
    if ((static_cast<unsigned char>(text[0]) & 0xC0U) == 0xC0U) {
        while (bytes < kLongestCharacter && bytes < length && IsContinuation(text[bytes]))
            ++bytes;
    }
    return bytes;
}

// Bytes of the character at the head of a text in the log's set, known or not. iconv asks for more
// bytes until it has as many as the character's form needs.
size_t LogCharacterLength(iconv_t converter, const char *text, size_t length)
{
    size_t bytes = 0;
    bool unfinished = true;
    bool known = false;
    while (unfinished && bytes < std::min(length, kLongestCharacter)) {
        ++bytes;
        char converted[16];
        char *in = const_cast<char *>(text); // iconv does not write to it
        char *out = converted;
        size_t in_left = bytes;
        size_t out_left = sizeof converted;
        // Forgets what an earlier text has left in the descriptor: a shift, or half a character.
        iconv(converter, nullptr, nullptr, nullptr, nullptr);
        known = iconv(converter, &in, &in_left, &out, &out_left) != static_cast<size_t>(-1);
        unfinished = !known && errno == EINVAL;
    }
    // An ASCII byte that ends what is no character stands for itself.
    if (!known && bytes > 1 && static_cast<unsigned char>(text[bytes - 1]) < 0x80U)
        --bytes;
    return bytes;
}

// A text of the log's set cut to `room` bytes, not in the middle of a character.
// From the beginning, character by character: in most sets, a byte by itself does not say whether
// it begins one.
size_t CutLogText(iconv_t converter, const char *text, size_t length, size_t room)
{
    if (length <= room)
        return length;
    size_t cut = 0;
    for (;;) {
        const size_t next = LogCharacterLength(converter, text + cut, length - cut);
        if (cut + next > room)
            return cut;
        cut += next;
    }
}

// Converts as far as the destination goes. What cannot be converted is taken over as it is.
size_t ConvertBy(iconv_t converter, const char *source, size_t length, char *destination,
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
        if (errno == E2BIG)
            break;
        const size_t unknown =
            from_utf8 ? UnknownUtf8Length(in, in_left) : LogCharacterLength(converter, in, in_left);
        // What does not fit whole is left out, as a character that is known would be.
        if (unknown > out_left)
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

// Is a plain text itself in this set? If not, a keyword would be found in no line.
bool KeepsPlainText(iconv_t converter)
{
    // What stands in nearly every line of a log. Left out are \ ^ ` and ~, in whose places some
    // national sets have other characters: such a set can be used all the same.
    constexpr std::string_view kPlain =
        " !\"#$%&'()*+,-./"
        "0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[]_abcdefghijklmnopqrstuvwxyz{|}";
    char converted[4 * kPlain.size()];
    const size_t written =
        ConvertBy(converter, kPlain.data(), kPlain.size(), converted, sizeof converted, true);
    return std::string_view(converted, written) == kPlain;
}

} // namespace

bool CharsetIsKnown(const std::string &name)
{
    // iconv takes an empty name for the set of its locale, and what follows a slash for a wish how
    // to treat what cannot be converted. That is done here.
    if (name.empty() || name.find('/') != std::string::npos)
        return false;
    const Converter to_registry(name.c_str(), kRegistryCharset);
    const Converter to_log(kRegistryCharset, name.c_str());
    return to_registry.IsOpen() && to_log.IsOpen() && KeepsPlainText(to_registry.get()) &&
           KeepsPlainText(to_log.get());
}

bool SetLogCharset(const std::string &name)
{
    if (!CharsetIsKnown(name))
        return false;
    // Made before the lock is taken: opening a set can load files, and the monitor may be
    // converting.
    Converter to_registry(name.c_str(), kRegistryCharset);
    Converter to_log(kRegistryCharset, name.c_str());
    const std::lock_guard lock(charsets.mutex);
    charsets.log = name;
    charsets.to_registry = std::move(to_registry);
    charsets.to_log = std::move(to_log);
    return true;
}

int ConvertText(const char *source, int source_length, char *destination, int destination_size,
                int source_code, int destination_code)
{
    if (destination == nullptr || destination_size <= 0)
        return -1;
    // First of all, so that a caller who does not look at the result has an empty text.
    destination[0] = '\0';
    if (source == nullptr)
        return -1;
    // Never behind the given length: the source need not end in a zero byte there.
    const size_t length =
        source_length < 0 ? strlen(source) : strnlen(source, static_cast<size_t>(source_length));
    const auto room = static_cast<size_t>(destination_size) - 1;

    const std::lock_guard lock(charsets.mutex);
    const bool log_is_utf8 = IsUtf8(charsets.log);
    size_t written = 0;
    // Nothing to convert, and most hosts are so: a copy, cut between characters. What is no UTF-8
    // stays as it is.
    if (source_code == destination_code || log_is_utf8) {
        written = log_is_utf8 || source_code == CODE_REGISTRY
                      ? CutUtf8(source, length, room)
                      : CutLogText(charsets.to_registry.get(), source, length, room);
        memcpy(destination, source, written);
    } else {
        const Converter &converter =
            destination_code == CODE_REGISTRY ? charsets.to_registry : charsets.to_log;
        written = ConvertBy(converter.get(), source, length, destination, room,
                            source_code == CODE_REGISTRY);
    }
    destination[written] = '\0';
    return static_cast<int>(written);
}

} // namespace host

using namespace host;

extern "C" int TarskCodeConvert(const char *source, int sourceLength, char *destination,
                                int destinationSize, int sourceCode, int destinationCode)
{
    const bool is_conversion = destination != nullptr && destinationSize > 0 && source != nullptr;
    // Before the lock: it looks at the table, and needs no set.
    if (is_conversion && sourceCode == CODE_LOG && destinationCode == CODE_REGISTRY)
        NoteReached();
    return ConvertText(source, sourceLength, destination, destinationSize, sourceCode,
                       destinationCode);
}
