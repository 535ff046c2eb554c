#include "agent/logs/stamps.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>

namespace logs {

namespace {

// What makes the usual syslog daemons write the stamps that the monitor reads.
#define TRADITIONAL_STAMPS                                                                         \
    "make the syslog daemon write traditional time stamps (Nov 21 10:00:01): with rsyslog, add "   \
    "template=\"RSYSLOG_TraditionalFileFormat\" to the action that writes the file, or "           \
    "$ActionFileDefaultTemplate RSYSLOG_TraditionalFileFormat before it; with syslog-ng, set "     \
    "ts-format(bsd) in its destination; or watch the file with syslogmon set file-monitor, which " \
    "needs no time stamps"

// One row per problem: what a program reads, what a person reads, and what he can do.
struct Row {
    StampProblem problem;
    const char *name;
    const char *text;
    const char *advice;
};

// The first two have no advice: such lines are a part of many healthy logs.
constexpr Row kRows[] = {
    {StampProblem::kEmpty, "empty", "it is empty", ""},
    {StampProblem::kNone, "none",
     "it has no time stamp at its head, such as the second line of a longer message", ""},
    {StampProblem::kIso, "iso", "it has an ISO time stamp", TRADITIONAL_STAMPS},
    {StampProblem::kPriority, "priority", "it begins with a priority in angle brackets",
     TRADITIONAL_STAMPS},
    {StampProblem::kWeekday, "weekday", "it begins with the day of the week", TRADITIONAL_STAMPS},
    {StampProblem::kSeconds, "seconds", "its time stamp is a count of seconds", TRADITIONAL_STAMPS},
    {StampProblem::kMonthName, "month-name",
     "its month is no English abbreviation such as Nov, with a capital letter", TRADITIONAL_STAMPS},
    {StampProblem::kOtherMonth, "other-month",
     "its time stamp is of neither this month nor the last one",
     "check the clock of this host; lines that are older than that are not looked at"},
    {StampProblem::kNoTime, "no-time", "no time can be made of its time stamp",
     "check the time zone of this host"},
};
static_assert(std::size(kRows) == kStampProblems);

const Row &RowOf(StampProblem problem)
{
    return *std::find_if(std::begin(kRows), std::end(kRows),
                         [&](const Row &row) { return row.problem == problem; });
}

// The form that the monitor reads, whatever the month is called.
bool HasTraditionalForm(const std::string &line)
{
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    // A word of up to four letters, since that is what the monitor lets pass before it looks for
    // the month in it.
    return sscanf(line.c_str(), "%*4s %d %d:%d:%d", &day, &hour, &minute, &second) == 4;
}

bool HasIsoForm(const std::string &line)
{
    constexpr char kForm[] = "0000-00-00T00:00"; // 0: any digit; T: or a blank
    if (line.size() < sizeof kForm - 1)
        return false;
    return std::equal(std::begin(kForm), std::end(kForm) - 1, line.begin(), [](char form, char c) {
        return form == '0' ? c >= '0' && c <= '9' : c == form || (form == 'T' && c == ' ');
    });
}

bool HasPriority(const std::string &line)
{
    const size_t end = line.find('>');
    // One to three digits: facility and severity make no larger number than 191.
    return line[0] == '<' && end != std::string::npos && end > 1 && end <= 4 &&
           line.find_first_not_of("0123456789", 1) == end;
}

bool BeginsWithNumber(const std::string &text, size_t digits)
{
    return text.size() >= digits &&
           std::all_of(text.begin(), text.begin() + static_cast<ptrdiff_t>(digits),
                       [](char c) { return c >= '0' && c <= '9'; });
}

// Only before a stamp that would be good without it: a line of text can begin with "Sun", too.
bool BeginsWithWeekday(const std::string &line)
{
    constexpr const char *kDays[] = {"Sun ", "Mon ", "Tue ", "Wed ", "Thu ", "Fri ", "Sat "};
    return std::any_of(std::begin(kDays), std::end(kDays),
                       [&](const char *day) { return line.rfind(day, 0) == 0; }) &&
           HasTraditionalForm(line.substr(4));
}

// 1795255201, or [12345.678901].
bool BeginsWithSeconds(const std::string &line)
{
    if (line[0] != '[')
        // Nine digits or more are seconds since 1973: a shorter number is rather a count of
        // something.
        return BeginsWithNumber(line, 9);
    const size_t number = line.find_first_not_of("[ ");
    return number != std::string::npos && BeginsWithNumber(line.substr(number), 1) &&
           line.find_first_not_of("0123456789.", number) == line.find(']');
}

// Of a stamp of the right form.
StampProblem ProblemOfMonth(const std::string &line)
{
    constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    // sscanf has skipped such blanks, too.
    const std::string word = line.substr(line.find_first_not_of(" \t\n\v\f\r"), 3);
    const auto *found = std::find_if(std::begin(kMonths), std::end(kMonths),
                                     [&](const char *month) { return word == month; });
    if (found == std::end(kMonths))
        return StampProblem::kMonthName;
    const auto month = static_cast<int>(found - std::begin(kMonths));
    // The months that the monitor takes are this one and the one before, by the local time of now.
    // A line of a longer while ago has no year that would tell its age.
    const time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    const bool near = month == local.tm_mon || month == (local.tm_mon + 11) % 12;
    return near ? StampProblem::kNoTime : StampProblem::kOtherMonth;
}

} // namespace

StampProblem StampProblemOf(const std::string &line)
{
    if (line.empty())
        return StampProblem::kEmpty;
    // Order: the form that is nearly right first, then those of which only one can be, then plain
    // text.
    if (HasTraditionalForm(line))
        return ProblemOfMonth(line);
    if (HasIsoForm(line))
        return StampProblem::kIso;
    if (HasPriority(line))
        return StampProblem::kPriority;
    if (BeginsWithWeekday(line))
        return StampProblem::kWeekday;
    if (BeginsWithSeconds(line))
        return StampProblem::kSeconds;
    return StampProblem::kNone;
}

const char *StampProblemName(StampProblem problem)
{
    return RowOf(problem).name;
}

const char *StampProblemText(StampProblem problem)
{
    return RowOf(problem).text;
}

const char *StampProblemAdvice(StampProblem problem)
{
    return RowOf(problem).advice;
}

bool IsContinuation(StampProblem problem)
{
    return problem == StampProblem::kEmpty || problem == StampProblem::kNone;
}

} // namespace logs
