#include "agent/inputs/rendering.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>
#include <strings.h>

#include "agent/inputs/byte_set.h"
#include "agent/inputs/line_origin.h"
#include "agent/inputs/protected_words.h"
#include "platform/contract.h"

namespace inputs {

namespace {

constexpr size_t kLongestLine = kLineBufferSize - 1;
constexpr int64_t kDay = 24 * 3600;

constexpr const char *kMonthNames[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// More than this a syslog daemon does not count up; a greater number is what somebody made up.
constexpr int kMostRepeats = 1000000;

// Who may write a line chooses how many digits parts of a second have. Of the others, no stamp is as long as that.
constexpr size_t kLongestOwnStamp = 64;

// Months since the year 0.
int MonthNumber(const CalendarTime &time)
{
    return time.year * 12 + time.month - 1;
}

// Is it of the month of `now`, or of the one before? Without a year, the month's name decides.
bool IsRecent(const CalendarTime &stamp, const CalendarTime &now)
{
    const int back = stamp.year != CalendarTime::kNoYear ? MonthNumber(now) - MonthNumber(stamp)
                                                         : (now.month - stamp.month + 12) % 12;
    return back == 0 || back == 1;
}

constexpr auto kTwoDigits = [] {
    std::array<char, 200> text{};
    for (size_t i = 0; i < 100; ++i) {
        text[2 * i] = static_cast<char>('0' + i / 10);
        text[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return text;
}();

void WriteTwoDigits(int number, char *out)
{
    memcpy(out, kTwoDigits.data() + 2 * number, 2);
}

void AppendStamp(const CalendarTime &time, std::string *text)
{
    char stamp[kStampLength] = {};
    memcpy(stamp, kMonthNames[time.month - 1], 3);
    stamp[3] = ' ';
    WriteTwoDigits(time.day, stamp + 4);
    if (stamp[4] == '0')
        stamp[4] = ' ';
    stamp[6] = ' ';
    WriteTwoDigits(time.hour, stamp + 7);
    stamp[9] = ':';
    WriteTwoDigits(time.minute, stamp + 10);
    stamp[12] = ':';
    WriteTwoDigits(time.second, stamp + 13);
    stamp[15] = ' ';
    text->append(stamp, sizeof stamp);
}

bool IsControl(char byte)
{
    const auto value = static_cast<unsigned char>(byte);
    return value < 0x20 || value == 0x7f;
}

// Of a block of fixed length, which the compiler makes a few instructions of.
template <size_t size>
bool BlockHasControls(const char *block)
{
    unsigned char found = 0;
    for (size_t i = 0; i < size; ++i)
        found |= static_cast<unsigned char>(IsControl(block[i]));
    return found != 0;
}

// Of a text of at least one block: by blocks, of which the last one may overlap the one before.
template <size_t size>
bool HasControlsIn(std::string_view text)
{
    bool found = BlockHasControls<size>(text.data() + text.size() - size);
    for (size_t at = 0; at + size < text.size(); at += size)
        found |= BlockHasControls<size>(text.data() + at);
    return found;
}

// Of all that is done with a line, this looks at each of its bytes.
bool HasControls(std::string_view text)
{
    if (text.size() >= 32)
        return HasControlsIn<32>(text);
    if (text.size() >= 8)
        return HasControlsIn<8>(text);
    return !text.empty() && HasControlsIn<1>(text);
}

// Appends it with R1.
void AppendShown(std::string_view shown, std::string *text)
{
    if (!HasControls(shown)) {
        text->append(shown);
        return;
    }
    for (const char byte : shown) {
        if (!IsControl(byte)) {
            text->push_back(byte);
            continue;
        }
        const auto value = static_cast<unsigned char>(byte);
        text->push_back('#');
        text->push_back(static_cast<char>('0' + (value >> 6U)));
        text->push_back(static_cast<char>('0' + ((value >> 3U) & 7U)));
        text->push_back(static_cast<char>('0' + (value & 7U)));
    }
}

bool IsContinuationByte(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

// Cuts the line that begins at `begin` by R2, not within a character of UTF-8.
void CutLine(size_t begin, std::string *text)
{
    constexpr size_t kLongestCharacter = 4;
    if (text->size() - begin <= kLongestLine)
        return;
    size_t end = begin + kLongestLine;
    for (size_t i = 1; i < kLongestCharacter && IsContinuationByte((*text)[end]); ++i)
        --end;
    text->resize(end);
}

// Makes a line of what was appended since `begin`. Each word that is broken up moves all that is behind it: so no more is
// left there than can be in the line.
void EndLine(size_t begin, std::string *text)
{
    text->resize(std::min(text->size(), begin + kLongestLine + kLongestWord));
    BreakWords(text, begin);
    CutLine(begin, text);
    text->push_back('\n');
}

// The occurrences that a message stands for by its text, with rsyslog's words; at least 1.
int TimesOf(std::string_view message)
{
    constexpr std::string_view kBegin = "message repeated ";
    constexpr std::string_view kMiddle = " times: [";
    if (!message.starts_with(kBegin) || !message.ends_with(']'))
        return 1;
    message.remove_prefix(kBegin.size());
    int times = 0;
    const auto [end, error] =
        std::from_chars(message.data(), message.data() + message.size(), times);
    message.remove_prefix(static_cast<size_t>(end - message.data()));
    const bool is_one =
        error == std::errc() && message.starts_with(kMiddle) && times >= 1 && times <= kMostRepeats;
    return is_one ? times : 1;
}

// R4, behind the line that is repeated. The words are the host's own here, and stay whole.
void AppendRepeats(const CalendarTime &time, int times, std::string *text)
{
    if (times < 2)
        return;
    AppendStamp(time, text);
    *text += "- last message repeated " + std::to_string(times - 1) + " times\n";
}

// Takes a word and the blank behind it off the text. RFC 5424 writes "-" for one that is missing.
std::string_view TakeField(std::string_view *text)
{
    const size_t end = FindByte(*text, ' ');
    const std::string_view word = text->substr(0, end);
    text->remove_prefix(end == std::string_view::npos ? text->size() : end + 1);
    return word == "-" ? std::string_view{} : word;
}

// What stands between the stamp and the message of RFC 5424.
struct Rfc5424Header {
    std::string_view host;
    std::string_view program;
    std::string_view pid;
};
Rfc5424Header TakeHeader(std::string_view *text)
{
    Rfc5424Header header;
    header.host = TakeField(text);
    header.program = TakeField(text);
    header.pid = TakeField(text);
    TakeField(text); // the message's kind
    if (*text == "-" || text->starts_with("- "))
        TakeField(text); // no structured data; what there is, is text to look at
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text->starts_with(kByteOrderMark))
        text->remove_prefix(kByteOrderMark.size());
    return header;
}

void AppendOrigin(std::string_view host, std::string_view program, std::string_view pid,
                  std::string *text)
{
    AppendShown(host, text);
    text->push_back(' ');
    AppendShown(program, text);
    if (!pid.empty()) {
        text->push_back('[');
        AppendShown(pid, text);
        text->push_back(']');
    }
    *text += ": ";
}

// The host and the program that the rest of a line with such a stamp names by itself. Programs that write their own logs
// use ISO stamps, too, but seldom with the "T" and the zone that syslog daemons write.
std::optional<LineOrigin> OriginBehind(const FoundStamp &stamp, std::string_view rest)
{
    if (stamp.format == StampFormat::kTraditional)
        return OriginOfBody(rest);
    constexpr size_t kDateLength = 10;
    if (stamp.format != StampFormat::kRfc3339 || !stamp.has_zone ||
        stamp.own_text[kDateLength] == ' ')
        return std::nullopt;
    const LineOrigin origin = OriginOfBody(rest);
    return IsOfSyslog(origin) ? std::optional(origin) : std::nullopt;
}

// "2026-11-21T10:00:01Z"
std::string IsoText(int64_t seconds)
{
    const CalendarTime utc = CalendarOf(seconds);
    char text[64];
    snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", utc.year, utc.month, utc.day,
             utc.hour, utc.minute, utc.second);
    return text;
}

// One line that is being rendered: where it begins, and with which stamp.
struct Line {
    const CalendarTime &time;
    size_t begin;
};

// Names of one host, which can stand with its domain or without it.
bool IsSameHost(std::string_view one, std::string_view other)
{
    one = one.substr(0, one.find('.'));
    other = other.substr(0, other.find('.'));
    return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

// Others can write as a program of that name, but not so easily as this host.
bool IsOwn(const LineOrigin &origin, const LineForm &form)
{
    return origin.program == kSyslogIdentifier &&
           (origin.host.empty() || IsSameHost(origin.host, form.host));
}

// Only a syslog daemon counts repeats, and it names the program.
RenderResult FinishLine(const Line &line, const LineOrigin &origin, const LineForm &form,
                        std::string *text)
{
    if (IsOwn(origin, form)) {
        text->resize(line.begin);
        return RenderResult::kOwn;
    }
    EndLine(line.begin, text);
    if (form.folds_repeats && !origin.program.empty())
        AppendRepeats(line.time, TimesOf(origin.message), text);
    return RenderResult::kRendered;
}

} // namespace

ReadingTime::ReadingTime(LocalClock &clock, int64_t seconds)
    : seconds_(seconds), now_(clock.At(seconds)), tomorrow_(clock.At(seconds + kDay))
{
}

bool ReadingTime::Takes(const CalendarTime &stamp) const
{
    return IsRecent(stamp, now_) && IsRecent(stamp, tomorrow_);
}

std::string StampText(const CalendarTime &time)
{
    std::string text;
    AppendStamp(time, &text);
    return text;
}

Rendering RenderRecord(std::string_view record, const LineForm &form, const ReadingTime &reading,
                       LocalClock *clock, std::string *text)
{
    const FoundStamp stamp = FindStamp(record, form.format);
    std::string_view rest = record.substr(stamp.end);
    Rendering rendering;
    CalendarTime moment;
    const CalendarTime *own = nullptr; // not copied: see stamp_formats.cc
    if (stamp.moment) {
        moment = clock->At(*stamp.moment);
        own = &moment;
    } else if (stamp.calendar.month != 0) {
        own = &stamp.calendar;
    }
    const bool keeps = own != nullptr && reading.Takes(*own);
    if (own != nullptr && !keeps)
        rendering.own_stamp = stamp.own_text.substr(0, kLongestOwnStamp);
    const Line line{keeps ? *own : reading.local(), text->size()};
    AppendStamp(line.time, text);

    LineOrigin origin;
    if (stamp.format == StampFormat::kRfc5424) {
        const Rfc5424Header header = TakeHeader(&rest);
        origin = {header.host, header.program, rest};
        AppendOrigin(header.host.empty() ? form.host : header.host,
                     header.program.empty() ? form.identifier : header.program, header.pid, text);
    } else if (const auto named = OriginBehind(stamp, rest)) {
        origin = *named;
    } else {
        AppendOrigin(form.host, form.identifier, {}, text);
    }
    AppendShown(rest, text);
    rendering.result = FinishLine(line, origin, form, text);
    return rendering;
}

Rendering RenderEntry(const JournalEntry &entry, const ReadingTime &reading, LocalClock *clock,
                      std::string *text)
{
    const size_t begin = text->size();
    const CalendarTime own = clock->At(entry.seconds);
    const bool keeps = reading.Takes(own);
    AppendStamp(keeps ? own : reading.local(), text);
    AppendOrigin(entry.host, entry.identifier, entry.pid, text);
    AppendShown(entry.message, text);
    EndLine(begin, text);
    Rendering rendering;
    if (!keeps)
        rendering.own_stamp = IsoText(entry.seconds);
    return rendering;
}

} // namespace inputs
