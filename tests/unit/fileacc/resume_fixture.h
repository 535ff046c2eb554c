// What the tests of resume positioning share.
#ifndef TESTS_UNIT_FILEACC_RESUME_FIXTURE_H
#define TESTS_UNIT_FILEACC_RESUME_FIXTURE_H

#include <optional>

#include "tests/unit/fileacc/reader_fixture.h"

namespace test {

struct LogLine {
    int64_t pos = 0;
    std::string text;
    std::optional<time_t> time; // of its stamp, where it has one
};

// Every line of a text, in which no line is longer than a block. A zero byte ends a line as well.
inline std::vector<LogLine> ReferenceLines(const std::string &text)
{
    std::vector<LogLine> lines;
    LogLine line;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\n' && text[i] != '\0') {
            line.text += text[i];
            continue;
        }
        lines.push_back(line);
        line = {static_cast<int64_t>(i) + 1, "", {}};
    }
    if (line.pos < static_cast<int64_t>(text.size()))
        lines.push_back(line);
    return lines;
}

inline std::string Cut(const std::string &text)
{
    return text.substr(0, kLineBufferSize - 1);
}

class GotoPos : public ReaderTest {
  protected:
    // The log is the given lines, each with its newline, opened.
    void OpenLines(const Texts &lines)
    {
        text_.clear();
        for (const auto &line : lines)
            text_ += line + "\n";
        WriteOldLog(text_);
        Open();
        ForgetTrace();
    }

    // Where line number `n` (from 0) of the log begins.
    [[nodiscard]] int64_t Head(int n) const
    {
        return ReferenceLines(text_).at(static_cast<size_t>(n)).pos;
    }

    // Positions on what was remembered. Afterwards `text_is_untouched_` tells whether the call
    // wrote to the text at all.
    Step Goto(int64_t pos, const std::string &remembered, int size = kLineBufferSize)
    {
        std::vector<char> content(kLineBufferSize + 1, kUntouchedByte);
        memcpy(content.data(), remembered.c_str(), remembered.size() + 1);
        const std::vector<char> before = content;
        const int result = ::GotoPos(&pos, content.data(), size);
        EXPECT_TRUE(BlockIsSound(curblock));
        EXPECT_EQ(kUntouchedByte, content.back());
        text_is_untouched_ = content == before;
        content_ = std::string(content.data(), kLineBufferSize);
        return {result, pos, content.data()};
    }

    // A positioning that fails leaves both values as they were.
    void ExpectFailure(int64_t pos, const std::string &remembered)
    {
        EXPECT_EQ((Step{-1, pos, remembered}), Goto(pos, remembered));
        EXPECT_TRUE(text_is_untouched_);
    }

    // The last word of the positioning, with its level.
    static std::string LastSaid()
    {
        const Texts said = Said("GotoPos");
        return said.empty() ? "" : said.back();
    }

    static Texts FirstThreeSaid()
    {
        Texts said = Said("GotoPos");
        said.resize(std::min<size_t>(said.size(), 3));
        return said;
    }

    static std::string CurrentLine() { return curblock.data + curblock.linepos; }

    std::string text_;
    std::string content_; // the whole buffer after a Goto
    bool text_is_untouched_ = false;
};

} // namespace test

#endif // TESTS_UNIT_FILEACC_RESUME_FIXTURE_H
