#include "tests/support/twin/reader.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "platform/trace.h"
#include "tests/support/twin/matcher.h"

namespace test::twin {

namespace {

constexpr char kUnit[] = "fileacc";

using ll = long long;

constexpr int64_t kFullBlock = 16384;
constexpr int kLine = 3329;

bool IsLineEnd(char c)
{
    return c == '\n' || c == '\0';
}

void CopyOut(const char *line, char *pcontent, int size)
{
    memset(pcontent, 0, static_cast<size_t>(size));
    strncpy(pcontent, line, static_cast<size_t>(size) - 1);
}

} // namespace

std::vector<PlainLine> SplitPlainly(const std::string &bytes)
{
    std::vector<PlainLine> lines;
    PlainLine line;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (IsLineEnd(bytes[i])) {
            lines.push_back(line);
            line = {static_cast<int64_t>(i) + 1, ""};
            continue;
        }
        line.text += bytes[i];
        // A piece at the end of the file needs no end of its own.
        if (line.text.size() == kFullBlock && i + 1 < bytes.size()) {
            lines.push_back(line);
            line = {static_cast<int64_t>(i) + 1, ""};
        }
    }
    if (!line.text.empty())
        lines.push_back(line);
    return lines;
}

// ---- the reader of the syslog scan ----

int64_t Reader::GetLineHead(int64_t pos)
{
    TRACE(0, ">pos=%lld", ll{pos});
    if (pos < 0 || pos >= length) {
        TRACE(1, "<parameter is invalided, pos/filelen is %lld/%lld.return -1.", ll{pos},
              ll{length});
        return -1;
    }
    for (int64_t i = pos - 1; i >= 0; --i) {
        if (i < static_cast<int64_t>(bytes.size()) && bytes[static_cast<size_t>(i)] == '\n') {
            TRACE(0, "<return %lld.", ll{i + 1});
            return i + 1;
        }
    }
    TRACE(0, "<get the head of file.");
    return 0;
}

int64_t Reader::GetBlockAt(int64_t pos, int64_t count, LogBuf *into) const
{
    TRACE(0, ">pos=%lld,leng=%lld,plogbuf=%p", ll{pos}, ll{count}, static_cast<void *>(into));
    if (pos < 0 || pos >= length) {
        TRACE(1, "<parameter error,return -1.");
        return -1;
    }
    *into = LogBuf{};
    into->start = pos;
    into->linepos = -1;
    for (int64_t i = pos;
         i < static_cast<int64_t>(bytes.size()) && i - pos < count && i - pos < kFullBlock; ++i) {
        const char c = bytes[static_cast<size_t>(i)];
        into->data[into->length++] = c == '\n' ? '\0' : c;
    }
    const int64_t end = pos + into->length;
    into->isend = end == length ? 1 : end > length ? 2 : 0;
    TRACE(0, "<return %ld.", into->length);
    return into->length;
}

int64_t Reader::GetNextBlock()
{
    TRACE(0, ">plogbuf=%p", static_cast<void *>(&block));
    const int64_t got = GetBlockAt(block.start + block.length, kFullBlock, &block);
    if (got < 0)
        return got;
    TrimBlockRight();
    TRACE(0, "<return %ld.", block.length);
    return block.length;
}

void Reader::TrimBlockRight()
{
    TRACE(0, ">plogbuf=%p", static_cast<void *>(&block));
    if (block.isend == 1) {
        TRACE(0, "<plogbuf->isend == 1");
        return;
    }
    if (block.length > 0 && block.data[block.length - 1] == '\0') {
        TRACE(0, "<get last 0.");
        return;
    }
    for (int64_t k = block.length - 2; k >= 0; --k) {
        if (block.data[k] == '\0') {
            block.length = k + 1;
            TRACE(0, "<");
            return;
        }
    }
    TRACE(0, "<there is no 0 in block.");
}

int64_t Reader::GetPreBlock()
{
    TRACE(0, ">plogbuf=%p", static_cast<void *>(&block));
    const int64_t end = block.start;
    if (end == 0) {
        TRACE(0, "<plogbuf->start == 0");
        return 0;
    }
    const int64_t from = end > kFullBlock ? end - kFullBlock : 0;
    block = LogBuf{};
    if (GetBlockAt(from, end - from, &block) < 0) {
        TRACE(1, "<GetBlockAt from %lld length %ld error,return -1.", ll{from}, end - from);
        return -1;
    }
    TrimBlockLeft();
    TRACE(0, "<return %ld.", block.length);
    return block.length;
}

void Reader::TrimBlockLeft()
{
    TRACE(0, ">plogbuf=%p", static_cast<void *>(&block));
    if (block.start == 0) {
        TRACE(1, "<no need to trim this block.");
        return;
    }
    for (int64_t k = 0; k <= block.length - 2; ++k) {
        if (block.data[k] != '\0')
            continue;
        block.start += k + 1;
        block.length -= k + 1;
        for (int64_t i = 0; i <= block.length; ++i)
            block.data[i] = block.data[i + k + 1];
        break;
    }
    TRACE(0, "<");
}

int Reader::FBegin() const
{
    const int result = block.start == 0 && (block.linepos <= 0 || block.length == 0) ? 1 : 0;
    TRACE(0, "<return %d", result);
    return result;
}

int Reader::FEof() const
{
    int result = 0;
    if (block.isend == 0)
        result = 0;
    else if (block.linepos >= block.length || block.length == 0)
        result = 1;
    else if (block.linepos >= 0)
        result = block.linepos + static_cast<int64_t>(strlen(block.data + block.linepos)) + 1 >=
                         block.length
                     ? 1
                     : 0;
    TRACE(0, "<return %d", result);
    return result;
}

int Reader::GetNextLine(int64_t *pos, char *pcontent, int size)
{
    TRACE(0, ">pos=%p,pcontent=%p,size=%d", static_cast<void *>(pos), static_cast<void *>(pcontent),
          size);
    if (length <= 0 || size <= 0) {
        TRACE(1, "<params error.return -1.");
        return -1;
    }
    memset(pcontent, 0, static_cast<size_t>(size));
    if (block.length <= 0) {
        TRACE(1, "<curblock's length is %ld.return -1.", block.length);
        return -1;
    }
    if (block.linepos < 0) {
        block.linepos = 0;
        CopyOut(block.data, pcontent, size);
        *pos = block.start;
        TRACE(0, "<*pos=%lld.pcontent=%s,return 0.", ll{*pos}, pcontent);
        return 0;
    }
    if (block.linepos < block.length) {
        int64_t next = block.linepos;
        while (block.data[next] != '\0')
            ++next;
        ++next;
        if (next < block.length) {
            block.linepos = next;
            CopyOut(block.data + next, pcontent, size);
            *pos = block.start + next;
            TRACE(0, "<*pos=%lld.return 0.", ll{*pos});
            return 0;
        }
    }
    if (block.isend != 0) {
        TRACE(1, "<end of file.return -1.");
        return -1;
    }
    if (GetNextBlock() < 0) {
        TRACE(1, "<GetNextBlock() failed.return -1.");
        return -1;
    }
    block.linepos = -1;
    const int result = GetNextLine(pos, pcontent, size);
    TRACE(0, "<return %d", result);
    return result;
}

int Reader::GetPreLine(int64_t *pos, char *pcontent, int size)
{
    TRACE(0, ">pos=%p,pcontent=%p,size=%d", static_cast<void *>(pos), static_cast<void *>(pcontent),
          size);
    if (length <= 0 || size <= 0) {
        TRACE(1, "<parameter error.return -1.");
        return -1;
    }
    memset(pcontent, 0, static_cast<size_t>(size));
    if (block.length <= 0) {
        TRACE(1, "<curblock's length is %ld.return -1.", block.length);
        return -1;
    }
    if (block.linepos <= 0) {
        if (block.start == 0) {
            TRACE(1, "<head of file.return -1.");
            return -1;
        }
        if (GetPreBlock() < 0) {
            TRACE(0, "<GetPreBlock() failed.return -1.");
            return -1;
        }
        block.linepos = block.length;
        const int result = GetPreLine(pos, pcontent, size);
        TRACE(0, "<return %d.", result);
        return result;
    }
    int64_t head = std::min(block.linepos, block.length) - 1;
    while (head > 0 && block.data[head - 1] != '\0')
        --head;
    CopyOut(block.data + head, pcontent, size);
    block.linepos = head;
    *pos = block.start + head;
    TRACE(0, "<return 0.");
    return 0;
}

int Reader::GetFirstLine(char *pcontent, int size) const
{
    TRACE(0, ">pcontent=%p,size=%d", static_cast<void *>(pcontent), size);
    LogBuf head;
    if (length <= 0 || size <= 0) {
        TRACE(1, "<parameters error.return -1.");
        return -1;
    }
    if (GetBlockAt(0, size - 1, &head) < 0) {
        TRACE(1, "<GetBlockAt() failed.return -1.");
        return -1;
    }
    CopyOut(head.data, pcontent, size);
    TRACE(0, "<return 0.");
    return 0;
}

int Reader::GetLastLine(int64_t *pos, char *pcontent, int size)
{
    TRACE(0, ">pos=%p,pcontent=%p,size=%d", static_cast<void *>(pos), static_cast<void *>(pcontent),
          size);
    if (length <= 0 || size <= 0) {
        TRACE(1, "<parameters error.return -1.");
        return -1;
    }
    const int64_t head = GetLineHead(length - 1);
    LogBuf tail;
    GetBlockAt(head, kFullBlock, &tail);
    CopyOut(tail.data, pcontent, size);
    *pos = head;
    TRACE(0, "<return 0.");
    return 0;
}

namespace {

bool Begins(const char *line, const std::string &remembered)
{
    const char *found = strstr(line, remembered.c_str());
    return found == line;
}

// The time of a line; `otherwise` when it has none, after the records that say so.
time_t TimeOr(const char *line, time_t otherwise, const char *error, const char *set)
{
    time_t moment = 0;
    if (twin::GetSyslogTime(line, &moment) != FALSE)
        return moment;
    TRACE_FOR("GotoPos", 1, "%s \"%s\"'s time error", error, line);
    char text[64];
    const char *shown = ctime_r(&otherwise, text);
    TRACE_FOR("GotoPos", 0, "%s to %s(%ld)", set, shown != nullptr ? shown : "NULL",
              static_cast<long>(otherwise));
    return otherwise;
}

} // namespace

int Reader::GotoPos(int64_t *pos, char *pcontent, int size, time_t last_end_time)
{
    TRACE(0, ">pos=%p,pcontent=%p,size=%d", static_cast<void *>(pos), static_cast<void *>(pcontent),
          size);
    if (length < 1 || size < 1) {
        TRACE(1, "<parameter error.return -1.");
        return -1;
    }
    int64_t at = GetLineHead(std::clamp<int64_t>(*pos, 0, length - 1));
    GetBlockAt(at, kFullBlock, &block);
    TrimBlockRight();
    if (*pos < 0) {
        pcontent[0] = '\0';
        TRACE(1, "<*pos<0,return 0.");
        return 0;
    }
    const std::string remembered = pcontent;
    const int64_t base_pos = at;
    char base[kLine];
    char line[kLine];
    block.linepos = -1;
    if (GetNextLine(&at, base, kLine) != 0) {
        TRACE(1, "<GetNextLine() error. tmppos=%lld.return -1.", ll{at});
        return -1;
    }
    if (Begins(base, remembered)) {
        TRACE(0, "<found.return 0.");
        return 0;
    }
    const time_t wanted = TimeOr(pcontent, last_end_time, "get pcontent", "set pcontent's time");
    const time_t base_time = TimeOr(base, wanted - 1, "get", "set time");

    const auto place = [&](int64_t where) {
        *pos = where;
        return 0;
    };
    if (base_time == wanted) {
        TRACE(0, "Search before ...");
        saved_block = block;
        TRACE_FOR("SaveFileEnv", 0, ">");
        TRACE_FOR("SaveFileEnv", 0, "<");
        while (FBegin() == 0) {
            if (GetPreLine(&at, line, kLine) != 0) {
                TRACE(1, "<GetPreLine error. tmppos=%lld.retrun -1.", ll{at});
                return -1;
            }
            if (Begins(line, remembered)) {
                TRACE(1, "<found.return 0.");
                return place(at);
            }
            time_t moment = 0;
            if (twin::GetSyslogTime(line, &moment) == FALSE)
                TRACE(1, "get \"%s\"'s time error", line);
            else if (moment != wanted)
                break;
        }
        block = saved_block;
        TRACE_FOR("RecoverFileEnv", 0, ">");
        TRACE_FOR("RecoverFileEnv", 0, "<");
    }
    if (base_time > wanted) {
        TRACE(0, "Search up...");
        bool saved = false;
        int64_t saved_pos = -1;
        std::string saved_line;
        while (FBegin() == 0) {
            if (GetPreLine(&at, line, kLine) != 0) {
                TRACE(1, "<GetPreLine error. tmppos=%lld.return -1.", ll{at});
                return -1;
            }
            if (Begins(line, remembered)) {
                TRACE(0, "<found.return 0.");
                return place(at);
            }
            time_t moment = 0;
            if (twin::GetSyslogTime(line, &moment) == FALSE) {
                TRACE(1, "get \"%s\"'s time error", line);
                continue;
            }
            if (moment > wanted)
                continue;
            if (!saved) {
                saved_block = block;
                TRACE_FOR("SaveFileEnv", 0, ">");
                TRACE_FOR("SaveFileEnv", 0, "<");
                saved_pos = at;
                saved_line = line;
                saved = true;
            }
            if (moment < wanted)
                break;
        }
        if (saved) {
            block = saved_block;
            TRACE_FOR("RecoverFileEnv", 0, ">");
            TRACE_FOR("RecoverFileEnv", 0, "<");
            strcpy(pcontent, saved_line.c_str());
        } else {
            pcontent[0] = '\0';
        }
        TRACE(0, "<return 0");
        return place(saved_pos);
    }
    TRACE(0, "Search down ...");
    at = base_pos;
    strcpy(line, base);
    while (FEof() == 0) {
        if (GetNextLine(&at, line, kLine) != 0) {
            TRACE(1, "<GetNextLine error. tmppos=%lld.return -1.", ll{at});
            return -1;
        }
        TRACE(0, "%-5lld:\"%s\"\n", ll{at}, line);
        if (Begins(line, remembered)) {
            TRACE(0, "<found.return 0.");
            return place(at);
        }
        time_t moment = 0;
        if (twin::GetSyslogTime(line, &moment) == FALSE) {
            TRACE(1, "get \"%s\"'s time error.", line);
        } else if (moment > wanted) {
            if (GetPreLine(&at, line, kLine) != 0) {
                TRACE(1, "<GetPreLine error. tmppos=%lld.return -1.", ll{at});
                return -1;
            }
            break;
        }
    }
    CopyOut(line, pcontent, size);
    TRACE(0, "<return 0.");
    return place(at);
}

} // namespace test::twin
