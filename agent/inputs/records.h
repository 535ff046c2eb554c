// From the bytes of a log to its records: a line each, or several lines that belong together.
//
//   C1  A record is taken when it is known where it ends. What is left of the bytes belongs to a record that
//       is still being written.
//   C2  A record has at most kLongestRecord bytes. The rest of a longer line is skipped; further lines of a
//       longer record begin another one.
//   C3  Lines without any text are none.
//   C4  Many zero bytes in a row are what a power cut has left of a part of the file, or somebody who went on writing
//       behind the end of a file that was emptied. They end a line, and are no part of the next one.
#ifndef AGENT_INPUTS_RECORDS_H
#define AGENT_INPUTS_RECORDS_H

#include <memory>
#include <string>
#include <string_view>

#include "agent/inputs/charset.h"

namespace re2 {
class RE2;
}

namespace inputs {

inline constexpr size_t kLongestRecord = size_t{64} * 1024;

// How the lines of a log are joined.
struct Joining {
    bool by_indentation =
        false; // a line that begins with a blank or a tab goes on with the one before
    std::string
        begins_with; // each line that this expression finds nothing in does; empty: none does
};

// What is known of the end of the bytes.
enum class Ending {
    kGrowing,  // more may come
    kQuiet,    // no more lines for now: the last whole line ends its record
    kComplete, // nothing comes any more: the last line needs no line end
};

class RecordSplitter {
  public:
    // Throws host::Error for an expression that cannot be used.
    RecordSplitter(const Joining &joining, std::shared_ptr<Charset> charset);
    ~RecordSplitter();
    RecordSplitter(const RecordSplitter &) = delete;
    RecordSplitter &operator=(const RecordSplitter &) = delete;

    struct Cut {
        size_t used = 0;         // bytes that are done with
        bool has_record = false; // what was used holds a record
        bool is_cut_off = false; // its line goes on behind the longest record (C2)
        std::string_view record; // without its line end, in the character set of the monitor; valid
                                 // until the next call
    };

    // Takes the next record off the bytes. Nothing used: there is none yet.
    //   skipping  in and out: the bytes begin with the rest of a line that is too long
    Cut Take(std::string_view bytes, Ending ending, bool *skipping);

    // A line end as it is written, and where the first one is behind `begin`, at which a character begins; npos: there is
    // none.
    [[nodiscard]] std::string_view LineEnd() const { return charset_->LineEnd(); }
    [[nodiscard]] size_t FindLineEnd(std::string_view bytes, size_t begin) const;

  private:
    // A line at a place of the bytes; `size` is that of its text, `next` where the one behind it begins.
    struct Line {
        size_t size = 0;
        size_t next = 0;
        bool is_whole = false;      // its end is there
        bool ends_in_zeros = false; // C4
    };
    [[nodiscard]] Line LineAt(std::string_view bytes, size_t begin) const;
    static Line UpToZeros(std::string_view bytes, size_t begin, size_t zeros);
    bool GoesOn(std::string_view line) const;
    Cut SkipRest(std::string_view bytes, Ending ending, bool *skipping) const;
    Cut TakeLine(std::string_view bytes, Ending ending, bool *skipping);
    Cut TakeJoined(std::string_view bytes, Ending ending, bool *skipping);
    Cut CutOff(std::string_view bytes, size_t size, size_t used);

    bool by_indentation_;
    std::unique_ptr<re2::RE2> begins_with_;
    std::shared_ptr<Charset> charset_;
};

} // namespace inputs

#endif // AGENT_INPUTS_RECORDS_H
