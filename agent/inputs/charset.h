// The character set in which a log is written, and the one in which the monitor reads.
#ifndef AGENT_INPUTS_CHARSET_H
#define AGENT_INPUTS_CHARSET_H

#include <iconv.h>
#include <string>
#include <string_view>

namespace inputs {

class Charset {
  public:
    // From `written` to `read`, as iconv names them; an empty or equal name converts nothing. Throws
    // host::Error for a name that is not known.
    Charset(const std::string &written, const std::string &read);
    ~Charset();
    Charset(const Charset &) = delete;
    Charset &operator=(const Charset &) = delete;

    // What cannot be converted becomes "?", and a byte order mark at the beginning is left out. Without a conversion, the
    // text itself; else valid until the next call.
    std::string_view Convert(std::string_view text);

    // A line end, as it is written.
    [[nodiscard]] std::string_view LineEnd() const { return line_end_; }

  private:
    iconv_t descriptor_;
    std::string converted_;
    std::string line_end_ = "\n";
};

} // namespace inputs

#endif // AGENT_INPUTS_CHARSET_H
