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

// A text of ASCII in that set, behind a byte order mark where the set has one. Empty: the set is not known.
std::string Written(std::string ascii, const std::string &charset)
{
    const iconv_t descriptor = iconv_open(charset.c_str(), "ASCII");
    if (descriptor == None())
        return {};
    char bytes[64];
    char *in = ascii.data();
    size_t in_left = ascii.size();
    char *out = bytes;
    size_t out_left = sizeof bytes;
    iconv(descriptor, &in, &in_left, &out, &out_left);
    iconv_close(descriptor);
    return {bytes, sizeof bytes - out_left};
}

// In some sets it has several bytes, in others one that means something else in ASCII. Sets have many names, so it is
// asked of who knows them; the order of bytes, where the name leaves it open, is the one in which iconv writes.
std::string LineEndOf(const std::string &charset)
{
    const std::string two = Written("\n\n", charset);
    const size_t size = two.size() - Written("\n", charset).size();
    return size == 0 ? "\n" : two.substr(two.size() - size);
}

// The same order as LineEndOf takes it for; without a byte order mark in each line.
std::string WithOrder(const std::string &charset)
{
    if (strcasecmp(charset.c_str(), "UTF-16") == 0 || strcasecmp(charset.c_str(), "UCS-2") == 0)
        return "UTF-16LE";
    return strcasecmp(charset.c_str(), "UTF-32") == 0 ? "UTF-32LE" : charset;
}

// That of UTF-8, as some editors begin a file with it.
std::string_view WithoutByteOrderMark(std::string_view text)
{
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(kByteOrderMark))
        text.remove_prefix(kByteOrderMark.size());
    return text;
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
        return WithoutByteOrderMark(text);
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
    return WithoutByteOrderMark(converted_);
}

} // namespace inputs
