#include "agent/inputs/records.h"

#include <algorithm>
#include <cstring>
#include <re2/re2.h>

#include "agent/host/error.h"

namespace inputs {

namespace {

constexpr size_t kNone = std::string_view::npos;

// More than any text or binary entry has, and less than a block of a file system (C4).
constexpr size_t kManyZeros = 32;

// Where so many zero bytes begin. Wherever that is, one of each so many bytes is among them.
size_t FindZeros(std::string_view bytes)
{
    static constexpr char kZeros[kManyZeros] = {};
    for (size_t at = kManyZeros - 1; at < bytes.size(); at += kManyZeros) {
        if (bytes[at] == '\0')
            return bytes.find(std::string_view(kZeros, sizeof kZeros));
    }
    return kNone;
}

std::unique_ptr<re2::RE2> Compile(const std::string &expression)
{
    if (expression.empty())
        return nullptr;
    re2::RE2::Options options;
    options.set_log_errors(false);
    options.set_encoding(
        re2::RE2::Options::EncodingLatin1); // bytes, so that any text can be looked at
    auto compiled = std::make_unique<re2::RE2>(expression, options);
    if (!compiled->ok())
        throw host::Error("cannot use the expression \"" + expression + "\" as begins-with",
                          compiled->error(),
                          "use an expression as re2 has them; see syslogmon-inputs(5)");
    return compiled;
}

} // namespace

RecordSplitter::RecordSplitter(const Joining &joining, std::shared_ptr<Charset> charset)
    : by_indentation_(joining.by_indentation), begins_with_(Compile(joining.begins_with)),
      charset_(std::move(charset))
{
}

RecordSplitter::~RecordSplitter() = default;

// In a set of several bytes for a character, a line end begins where a character does.
size_t RecordSplitter::FindLineEnd(std::string_view bytes, size_t begin) const
{
    const std::string_view line_end = charset_->LineEnd();
    if (line_end.size() == 1) {
        const void *found = memchr(bytes.data() + begin, line_end[0], bytes.size() - begin);
        return found == nullptr
                   ? kNone
                   : static_cast<size_t>(static_cast<const char *>(found) - bytes.data());
    }
    size_t at = bytes.find(line_end, begin);
    while (at != kNone && (at - begin) % line_end.size() != 0)
        at = bytes.find(line_end, at + 1);
    return at;
}

RecordSplitter::Line RecordSplitter::LineAt(std::string_view bytes, size_t begin) const
{
    const size_t end = FindLineEnd(bytes, begin);
    const size_t size = (end == kNone ? bytes.size() : end) - begin;
    const bool has_single_bytes = charset_->LineEnd().size() == 1;
    const size_t zeros = has_single_bytes ? FindZeros(bytes.substr(begin, size)) : kNone;
    if (zeros != kNone)
        return UpToZeros(bytes, begin, zeros);
    if (end == kNone)
        return {size, bytes.size(), false, false};
    return {size, end + charset_->LineEnd().size(), true, false};
}

// The line ends where the zeros begin; whole is it when something comes behind them.
RecordSplitter::Line RecordSplitter::UpToZeros(std::string_view bytes, size_t begin, size_t zeros)
{
    const size_t next = std::min(bytes.find_first_not_of('\0', begin + zeros), bytes.size());
    return {zeros, next, next < bytes.size(), true};
}

// Does the line belong to the one before it?
bool RecordSplitter::GoesOn(std::string_view line) const
{
    const std::string_view text = charset_->Convert(line);
    if (begins_with_)
        return !re2::RE2::PartialMatch(re2::StringPiece(text.data(), text.size()), *begins_with_);
    return by_indentation_ && (text.starts_with(' ') || text.starts_with('\t'));
}

RecordSplitter::Cut RecordSplitter::CutOff(std::string_view bytes, size_t size, size_t used)
{
    Cut cut;
    cut.used = used;
    cut.record = charset_->Convert(bytes.substr(0, size));
    if (cut.record.ends_with('\r'))
        cut.record.remove_suffix(1);
    cut.has_record = !cut.record.empty(); // C3
    return cut;
}

RecordSplitter::Cut RecordSplitter::SkipRest(std::string_view bytes, Ending ending,
                                             bool *skipping) const
{
    const Line rest = LineAt(bytes, 0);
    *skipping = !rest.is_whole && ending != Ending::kComplete;
    const size_t unit = charset_->LineEnd().size();
    Cut cut;
    cut.used = rest.is_whole ? rest.next : bytes.size() / unit * unit;
    return cut;
}

RecordSplitter::Cut RecordSplitter::TakeLine(std::string_view bytes, Ending ending, bool *skipping)
{
    const Line line = LineAt(bytes, 0);
    if (line.size > kLongestRecord) {
        *skipping = !line.is_whole;
        Cut cut = CutOff(bytes, kLongestRecord, line.is_whole ? line.next : kLongestRecord);
        cut.is_cut_off = true;
        return cut;
    }
    // Zeros at the end may be space that is to be written still; but not without bound.
    const bool goes_on = line.ends_in_zeros && bytes.size() > kLongestRecord;
    if (!line.is_whole && ending != Ending::kComplete && !goes_on)
        return {};
    return CutOff(bytes, line.size, line.next);
}

RecordSplitter::Cut RecordSplitter::TakeJoined(std::string_view bytes, Ending ending,
                                               bool *skipping)
{
    const Line first = LineAt(bytes, 0);
    if (!first.is_whole || first.size > kLongestRecord || first.ends_in_zeros)
        return TakeLine(bytes, ending, skipping);
    size_t size = first.size;
    size_t next = first.next;
    while (next < bytes.size()) {
        const Line line = LineAt(bytes, next);
        if (!line.is_whole && ending != Ending::kComplete)
            break;
        if (next + line.size > kLongestRecord || !GoesOn(bytes.substr(next, line.size)))
            return CutOff(bytes, size, next);
        size = next + line.size;
        next = line.next;
        if (line.ends_in_zeros)
            return CutOff(bytes, size, next);
    }
    // The line behind it is not there yet, and might go on with it.
    if (ending == Ending::kGrowing && bytes.size() <= kLongestRecord)
        return {};
    return CutOff(bytes, size, next);
}

RecordSplitter::Cut RecordSplitter::Take(std::string_view bytes, Ending ending, bool *skipping)
{
    if (bytes.empty())
        return {};
    if (*skipping)
        return SkipRest(bytes, ending, skipping);
    return begins_with_ || by_indentation_ ? TakeJoined(bytes, ending, skipping)
                                           : TakeLine(bytes, ending, skipping);
}

} // namespace inputs
