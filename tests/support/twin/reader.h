// The slow twins of the two readers: a file as one string, walked byte by byte. They trace like the module.
#ifndef TESTS_SUPPORT_TWIN_READER_H
#define TESTS_SUPPORT_TWIN_READER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fileacc/fileacc.h"

namespace test::twin {

// A line and the offset at which it begins.
struct PlainLine {
    int64_t pos = 0;
    std::string text;
    bool operator==(const PlainLine &) const = default;
};

// The lines of a file, split at every newline and zero byte. A line of more than a block's bytes comes in
// pieces of a block.
std::vector<PlainLine> SplitPlainly(const std::string &bytes);

// The reader of the syslog scan, over a file that may grow or shrink after it was opened.
class Reader {
  public:
    std::string bytes;    // the file as it is now
    int64_t length = 0;   // its size when it was opened
    LogBuf block{};       // the current block
    LogBuf saved_block{}; // the saved copy

    int64_t GetLineHead(int64_t pos);
    int64_t GetBlockAt(int64_t pos, int64_t count, LogBuf *into) const;
    int64_t GetNextBlock();
    int64_t GetPreBlock();
    void TrimBlockRight();
    void TrimBlockLeft();
    [[nodiscard]] int FBegin() const;
    [[nodiscard]] int FEof() const;
    int GetNextLine(int64_t *pos, char *pcontent, int size);
    int GetPreLine(int64_t *pos, char *pcontent, int size);
    int GetFirstLine(char *pcontent, int size) const;
    int GetLastLine(int64_t *pos, char *pcontent, int size);
    int GotoPos(int64_t *pos, char *pcontent, int size, time_t last_end_time);
};

// The line splitter of the file monitor. The fields are those of filedata.
class Splitter {
  public:
    std::string bytes;     // the file as it is now
    int64_t size = 0;      // as measured when the pass began
    int64_t start = 0;     // the block
    int64_t length = 0;    //
    int64_t linepos = 0;   //
    bool isend = false;    //
    bool overlong = false; //
    std::string data;      // its bytes, and zeros up to kFileDataSize
    int64_t offset = 0;    // of the first line not yet checked
    int64_t stored = -1;   // offset given to RegSetOffset last

    long GetFileBlock(int64_t pos, long leng);
    long GetFileNextLine(char *pcontent, int buffer_size);

  private:
    long EndOfFile();
};

} // namespace test::twin

#endif // TESTS_SUPPORT_TWIN_READER_H
