// An entry of an input as the line of the spool by which the module gets it:
//
//   Nov 21 10:00:01 host identifier[pid]: message
//
// What a line looks like depends on its entry alone, with one exception: the module takes lines of this
// month and of the last one only, so an entry with another stamp gets the time at which it is read.
//
//   R1  A line holds no control characters but the one of protected_words.h. They are shown as rsyslog
//       shows them: #012 for a line end.
//   R2  A line has at most as many bytes as the module looks at.
//   R3  The words of protected_words.h are broken up.
//   R4  A line of a file that names its program and stands for several by rsyslog's "message repeated 29 times: [ text]"
//       is followed by a line with which the module counts the rest of them, unless the input says that no such daemon
//       writes the file. Entries of a journal never are: it folds none.
//   R5  A line of a file is the monitor's own when it names the monitor as its program, and this host or none.
#ifndef AGENT_INPUTS_RENDERING_H
#define AGENT_INPUTS_RENDERING_H

#include <string>
#include <string_view>

#include "agent/inputs/local_clock.h"
#include "agent/inputs/stamp_formats.h"

namespace inputs {

// When entries are read, and which stamps the module takes then.
class ReadingTime {
  public:
    ReadingTime(LocalClock &clock, int64_t seconds);

    [[nodiscard]] int64_t seconds() const { return seconds_; }
    [[nodiscard]] const CalendarTime &local() const { return now_; }
    // Does the module take a stamp of this month, now and still a day later? The line may have to wait.
    [[nodiscard]] bool Takes(const CalendarTime &stamp) const;

  private:
    int64_t seconds_;
    CalendarTime now_;
    CalendarTime tomorrow_;
};

// "Nov 21 10:00:01 ", always as long as this.
inline constexpr size_t kStampLength = 16;
std::string StampText(const CalendarTime &time);

// How the lines of a log file are to be read.
struct LineForm {
    StampFormat format = StampFormat::kAuto;
    std::string host;          // of lines that name none: this host's name
    std::string identifier;    // of lines that name no program
    bool folds_repeats = true; // R4: a syslog daemon that does so may have written them
};

enum class RenderResult {
    kRendered,
    kOwn, // the monitor wrote it itself: nothing was rendered
};

struct Rendering {
    RenderResult result = RenderResult::kRendered;
    std::string own_stamp; // how the one begins that the module does not take; empty: it was kept
};

// Appends the rendering of a record of a file, which has no line end, to the text.
Rendering RenderRecord(std::string_view record, const LineForm &form, const ReadingTime &reading,
                       LocalClock *clock, std::string *text);

// The same of what a journal knows of an entry.
struct JournalEntry {
    int64_t seconds = 0; // since 1970
    std::string host;
    std::string identifier;
    std::string pid; // empty: not known
    std::string message;
};
Rendering RenderEntry(const JournalEntry &entry, const ReadingTime &reading, LocalClock *clock,
                      std::string *text);

} // namespace inputs

#endif // AGENT_INPUTS_RENDERING_H
