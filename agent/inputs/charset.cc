#include "agent/inputs/charset.h"

#include <cerrno>
#include <strings.h>

#include "agent/host/error.h"

namespace inputs {

namespace {

constexpr size_t kFailed = static_cast<size_t>(-1);

iconv_t None()
{
    return reinterpret_cast<iconv_t>(-1);
}

// Sets that need more bytes than one for a line end. Without "LE" or "BE" the order is that of this host,
// as for iconv, which takes a byte order mark into account at the beginning only.
std::string LineEndOf(const std::string &charset)
{
    struct Wide {
        const char *name;
        std::string_view line_end;
    };
    using namespace std::string_view_literals;
    constexpr Wide kWide[] = {
        {"UTF-16LE", "\n\0"sv},   {"UTF-16BE", "\0\n"sv},     {"UTF-16", "\n\0"sv},
        {"UCS-2", "\n\0"sv},      {"UTF-32LE", "\n\0\0\0"sv}, {"UTF-32BE", "\0\0\0\n"sv},
        {"UTF-32", "\n\0\0\0"sv},
    };
    for (const Wide &row : kWide) {
        if (strcasecmp(charset.c_str(), row.name) == 0)
            return std::string(row.line_end);
    }
    return "\n";
}

// The same order as LineEndOf takes it for; without a byte order mark in each line.
std::string WithOrder(const std::string &charset)
{
    if (strcasecmp(charset.c_str(), "UTF-16") == 0 || strcasecmp(charset.c_str(), "UCS-2") == 0)
        return "UTF-16LE";
    return strcasecmp(charset.c_str(), "UTF-32") == 0 ? "UTF-32LE" : charset;
}

} // namespace

Charset::Charset(const std::string &written, const std::string &read) : descriptor_(None())
{
    if (written.empty() || strcasecmp(written.c_str(), read.c_str()) == 0)
        return;
    line_end_ = LineEndOf(written);
    descriptor_ = iconv_open(read.c_str(), WithOrder(written).c_str());
    if (descriptor_ == None())
        throw host::Error("cannot read the encoding \"" + written + "\"",
                          "no conversion from it to " + read + " is known",
                          "use a name that iconv -l shows");
}

Charset::~Charset()
{
    if (descriptor_ != None())
        iconv_close(descriptor_);
}

std::string_view Charset::Convert(std::string_view text)
{
    if (descriptor_ == None())
        return text;
    converted_.resize(text.size() * 4 + 16); // no set needs more for what another one says
    char *in = const_cast<char *>(text.data());
    size_t in_left = text.size();
    char *out = converted_.data();
    size_t out_left = converted_.size();
    iconv(descriptor_, nullptr, nullptr, nullptr, nullptr);
    while (in_left > 0 && iconv(descriptor_, &in, &in_left, &out, &out_left) == kFailed) {
        if (errno == E2BIG || out_left == 0)
            break;
        *out++ = '?';
        --out_left;
        const size_t skip = line_end_.size() < in_left ? line_end_.size() : in_left;
        in += skip;
        in_left -= skip;
    }
    converted_.resize(converted_.size() - out_left);
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    std::string_view result = converted_;
    if (result.starts_with(kByteOrderMark))
        result.remove_prefix(kByteOrderMark.size());
    return result;
}

} // namespace inputs
