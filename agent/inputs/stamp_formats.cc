#include "agent/inputs/stamp_formats.h"

#include <array>
#include <charconv>

#include "agent/inputs/byte_set.h"

namespace inputs {

namespace {

struct FormatName {
    StampFormat format;
    const char *name;
};
constexpr FormatName kFormats[] = {
    {StampFormat::kAuto, "auto"},       {StampFormat::kTraditional, "traditional"},
    {StampFormat::kRfc3339, "rfc3339"}, {StampFormat::kRfc5424, "rfc5424"},
    {StampFormat::kEpoch, "epoch"},     {StampFormat::kNone, "none"},
};

constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";

constexpr size_t kDateLength = 10; // "2026-11-21"

// Digits of seconds and of milliseconds since 1970, from 2001 to 2286.
constexpr size_t kSecondsDigits = 10;
constexpr size_t kMillisecondsDigits = 13;

constexpr ByteSet kZulu("Zz");
constexpr ByteSet kSigns("+-");
constexpr ByteSet kBeforeTime("Tt ");
constexpr ByteSet kBeforeParts(".,"); // of a second
constexpr ByteSet kBehindEpoch(":,");

bool IsDigit(char byte)
{
    return byte >= '0' && byte <= '9';
}

// Reads a text from left to right. What does not fit leaves it where it is.
class Cursor {
  public:
    explicit Cursor(std::string_view text) : text_(text) {}

    [[nodiscard]] size_t at() const { return at_; }
    [[nodiscard]] bool AtEnd() const { return at_ == text_.size(); }
    [[nodiscard]] char Next() const { return AtEnd() ? '\0' : text_[at_]; }
    [[nodiscard]] std::string_view From(size_t begin) const
    {
        return text_.substr(begin, at_ - begin);
    }

    bool Take(char byte)
    {
        if (Next() != byte || AtEnd())
            return false;
        ++at_;
        return true;
    }
    bool TakeOneOf(const ByteSet &bytes)
    {
        if (AtEnd() || !bytes.Has(text_[at_]))
            return false;
        ++at_;
        return true;
    }
    // Of exactly two digits, or of four.
    bool TakeTwo(int *number)
    {
        if (text_.size() - at_ < 2 || !IsDigit(text_[at_]) || !IsDigit(text_[at_ + 1]))
            return false;
        *number = (text_[at_] - '0') * 10 + (text_[at_ + 1] - '0');
        at_ += 2;
        return true;
    }
    bool TakeFour(int *number)
    {
        int hundreds = 0;
        int rest = 0;
        if (!TakeTwo(&hundreds) || !TakeTwo(&rest))
            return false;
        *number = hundreds * 100 + rest;
        return true;
    }
    bool TakeDigit(int *number)
    {
        if (!IsDigit(Next()))
            return false;
        *number = text_[at_++] - '0';
        return true;
    }
    std::string_view TakeDigits()
    {
        const size_t begin = at_;
        while (IsDigit(Next()))
            ++at_;
        return From(begin);
    }
    // ".123" of a second, where that is all of the word; or nothing.
    void TakeParts()
    {
        const size_t begin = at_;
        if (Take('.') && (TakeDigits().empty() || !AtBoundary()))
            at_ = begin;
    }
    void SkipBlanks()
    {
        while (Next() == ' ' || Next() == '\t')
            ++at_;
    }
    // A stamp ends here, and not in the middle of a word.
    [[nodiscard]] bool AtBoundary() const { return AtEnd() || !IsWordByte(text_[at_]); }

  private:
    static bool IsWordByte(char byte)
    {
        return IsDigit(byte) || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
    }

    std::string_view text_;
    size_t at_ = 0;
};

bool IsTimeOfDay(const CalendarTime &time)
{
    return time.hour <= 23 && time.minute <= 59 && time.second <= 60;
}

bool IsDate(const CalendarTime &time)
{
    return time.month >= 1 && time.month <= 12 && time.day >= 1 && time.day <= 31;
}

bool TakeTimeOfDay(Cursor *cursor, CalendarTime *time)
{
    return cursor->TakeTwo(&time->hour) && cursor->Take(':') && cursor->TakeTwo(&time->minute) &&
           cursor->Take(':') && cursor->TakeTwo(&time->second) && IsTimeOfDay(*time);
}

// Each of these fills a stamp that is empty, and returns whether there is one; without, what it has left in it is good for
// nothing. They write into the caller's: copying a stamp just behind its making is slower than the making.

// "Nov 21 10:00:01", with a blank or a zero before a day of one digit, and parts of a second where the writer was told to
// write them.
bool FindTraditional(std::string_view line, FoundStamp *found)
{
    if (line.size() < 3)
        return false;
    const size_t month = kMonths.find(line.substr(0, 3));
    if (month == std::string_view::npos || month % 3 != 0)
        return false;
    Cursor cursor(line.substr(3));
    CalendarTime &time = found->calendar;
    time.month = static_cast<int>(month / 3) + 1;
    if (!cursor.Take(' '))
        return false;
    const bool one_digit = cursor.Take(' ');
    const bool has_day = one_digit ? cursor.TakeDigit(&time.day) : cursor.TakeTwo(&time.day);
    if (!has_day || !cursor.Take(' ') || !TakeTimeOfDay(&cursor, &time) || !IsDate(time))
        return false;
    cursor.TakeParts();
    if (!cursor.AtBoundary())
        return false;
    found->format = StampFormat::kTraditional;
    found->own_text = line.substr(0, 3 + cursor.at());
    cursor.SkipBlanks();
    found->end = 3 + cursor.at();
    return true;
}

// "Z", "+01:00", "-0530", "+02". False when something else stands there, which is no zone.
bool TakeZone(Cursor *cursor, int *seconds_east)
{
    *seconds_east = 0;
    if (cursor->TakeOneOf(kZulu))
        return true;
    const bool is_west = cursor->Next() == '-';
    if (!cursor->TakeOneOf(kSigns))
        return false;
    int hours = 0;
    int minutes = 0;
    if (!cursor->TakeTwo(&hours))
        return false;
    const bool has_minutes = cursor->Take(':') || IsDigit(cursor->Next());
    if (has_minutes && !cursor->TakeTwo(&minutes))
        return false;
    *seconds_east = (hours * 3600 + minutes * 60) * (is_west ? -1 : 1);
    return hours <= 23 && minutes <= 59;
}

bool FindRfc3339(std::string_view line, FoundStamp *found)
{
    Cursor cursor(line);
    CalendarTime &time = found->calendar;
    if (!cursor.TakeFour(&time.year) || !cursor.Take('-') || !cursor.TakeTwo(&time.month) ||
        !cursor.Take('-') || !cursor.TakeTwo(&time.day) || !cursor.TakeOneOf(kBeforeTime) ||
        !TakeTimeOfDay(&cursor, &time) || !IsDate(time))
        return false;
    if (cursor.TakeOneOf(kBeforeParts) && cursor.TakeDigits().empty())
        return false;
    int seconds_east = 0;
    if (cursor.Next() == 'Z' || cursor.Next() == 'z' || cursor.Next() == '+' ||
        cursor.Next() == '-') {
        if (!TakeZone(&cursor, &seconds_east))
            return false;
        found->has_zone = true;
        found->moment = SecondsOf(time) - seconds_east;
    }
    if (!cursor.AtBoundary())
        return false;
    found->format = StampFormat::kRfc3339;
    found->own_text = line.substr(0, cursor.at());
    cursor.SkipBlanks();
    found->end = cursor.at();
    return true;
}

// "1 " and a stamp, or "-" for none, behind the priority.
bool FindRfc5424(std::string_view line, FoundStamp *found)
{
    constexpr std::string_view kVersion = "1 ";
    if (!line.starts_with(kVersion))
        return false;
    const std::string_view rest = line.substr(kVersion.size());
    if (rest.starts_with('-'))
        found->own_text = rest.substr(0, 1);
    else if (!FindRfc3339(rest, found) || !found->has_zone)
        return false;
    // The stamp is one whole word, in which a blank could stand before the time only.
    const std::string_view stamp = found->own_text;
    if ((stamp.size() > kDateLength && stamp[kDateLength] == ' ') ||
        !rest.substr(stamp.size()).starts_with(' '))
        return false;
    found->format = StampFormat::kRfc5424;
    found->end = kVersion.size() + found->own_text.size() + 1;
    return true;
}

bool FindEpoch(std::string_view line, FoundStamp *found)
{
    Cursor cursor(line);
    const bool in_brackets = cursor.Take('[');
    const std::string_view digits = cursor.TakeDigits();
    const bool is_seconds = digits.size() == kSecondsDigits;
    if (!is_seconds && digits.size() != kMillisecondsDigits)
        return false;
    int64_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (is_seconds && cursor.Take('.') && cursor.TakeDigits().empty())
        return false;
    if (in_brackets && !cursor.Take(']'))
        return false;
    if (!cursor.AtBoundary())
        return false;
    found->format = StampFormat::kEpoch;
    found->moment = is_seconds ? number : number / 1000;
    found->has_zone = true;
    found->own_text = line.substr(0, cursor.at());
    cursor.TakeOneOf(kBehindEpoch);
    cursor.SkipBlanks();
    found->end = cursor.at();
    return true;
}

// The length of a priority at the beginning of the line, "<0>" to "<191>"; 0: there is none.
size_t PriorityLength(std::string_view line)
{
    constexpr size_t kLongest = 3;
    Cursor cursor(line);
    if (!cursor.Take('<'))
        return 0;
    const std::string_view digits = cursor.TakeDigits();
    return !digits.empty() && digits.size() <= kLongest && cursor.Take('>') ? cursor.at() : 0;
}

bool Find(std::string_view line, StampFormat format, FoundStamp *found)
{
    switch (format) {
    case StampFormat::kTraditional:
        return FindTraditional(line, found);
    case StampFormat::kRfc3339:
        return FindRfc3339(line, found);
    case StampFormat::kRfc5424:
        return FindRfc5424(line, found);
    case StampFormat::kEpoch:
        return FindEpoch(line, found);
    default:
        return false;
    }
}

// Of a format of which the last try has found no stamp.
bool FindInstead(std::string_view line, StampFormat format, FoundStamp *found)
{
    *found = {};
    return Find(line, format, found);
}

// Lines of most logs can be told apart by their first byte.
bool FindAny(std::string_view line, bool has_priority, FoundStamp *found)
{
    if (line.empty())
        return false;
    if (line[0] >= 'A' && line[0] <= 'S') // from Apr to Sep
        return FindTraditional(line, found);
    // Without a priority before it, "1 2026-..." is more likely somebody's own form.
    if (has_priority && FindRfc5424(line, found))
        return true;
    return FindInstead(line, StampFormat::kRfc3339, found) ||
           FindInstead(line, StampFormat::kEpoch, found);
}

} // namespace

std::optional<StampFormat> StampFormatOf(const std::string &name)
{
    for (const FormatName &row : kFormats) {
        if (name == row.name)
            return row.format;
    }
    return std::nullopt;
}

std::string StampFormatNames()
{
    std::string names;
    for (const FormatName &row : kFormats)
        names += (names.empty() ? "" : ", ") + std::string(row.name);
    return names;
}

FoundStamp FindStamp(std::string_view line, StampFormat format)
{
    FoundStamp found;
    const size_t priority = line.starts_with('<') ? PriorityLength(line) : 0;
    const std::string_view rest = line.substr(priority);
    const bool is_there = format == StampFormat::kAuto ? FindAny(rest, priority > 0, &found)
                                                       : Find(rest, format, &found);
    if (is_there)
        found.end += priority;
    else
        found = {};
    return found;
}

} // namespace inputs
