// A pass over the watched file.
#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "filemonitor/filemonitor.h"
#include "match/report.h"
#include "match/table_data.h"
#include "tests/unit/filemonitor/file_monitor_fixture.h"
#include "tests/unit/filemonitor/scan_fixture.h"

namespace {

using test::Host;
using test::kBlock;
using test::Strings;
using test::Sys;

// ---- a pass ----

constexpr char kNoNews[] = "0 <file monitoring object's content has not been modified.";
constexpr char kNews[] = "0 <file monitoring object's content has been modified.";
constexpr char kCheck[] = "3 Check file: [/var/log/app.log]";
constexpr char kEnd[] = "0 <Get end of file /var/log/app.log";

class FilePass : public test::FileMonitorTest {
  protected:
    // Loads a target that was read up to this offset.
    void Follow(const std::string &text, int64_t offset) const
    {
        WriteLog("app.log", text);
        SetPath("/var/log/app.log");
        StoreInode(InodeOf("app.log"));
        StoreOffset(offset);
        EXPECT_EQ(TRUE, ChangeFileMonObj());
    }

    // The same, read up to its end.
    void Follow(const std::string &text) const { Follow(text, static_cast<int64_t>(text.size())); }

    void Append(const std::string &text) const { AppendLog("app.log", text); }

    // One pass with this result. Gives the lines that were tested.
    static Strings Run(int result = TRUE)
    {
        Host().ForgetRecords();
        Sys().ForgetCalls();
        EXPECT_EQ(result, WatchFileMonObjMain());
        EXPECT_EQ(nullptr, filedata.filefp);
        return TestedLines();
    }

    static Strings TestedLines()
    {
        const std::string begin = "line \"";
        const std::string end = "\" is being checked\n";
        Strings lines;
        for (const test::TraceRecord &record : Host().trace) {
            if (record.function == "CheckFileLine" && record.text.starts_with(begin))
                lines.push_back(record.text.substr(begin.size(),
                                                   record.text.size() - begin.size() - end.size()));
        }
        return lines;
    }

    static Strings Own() { return RecordsOf("WatchFileMonObjMain"); }

    static void ExpectOffset(int64_t offset)
    {
        EXPECT_EQ(offset, filedata.offset);
        EXPECT_EQ(offset, StoredOffset());
    }

    // Is the file closed before the pass gives its last record?
    static bool ClosedBeforeTheEnd()
    {
        const auto &trace = Host().trace;
        return trace.size() > 2 && trace.back().function == "WatchFileMonObjMain" &&
               trace[trace.size() - 2].function == "FinishFileMonObj";
    }
};

TEST_F(FilePass, WithoutATargetIsNothing)
{
    EXPECT_EQ(Strings{}, Run());
    EXPECT_EQ(Strings{"0 <file monitoring object is empty, ignore."}, Own());
    ASSERT_EQ(2U, Host().trace.size());
    EXPECT_EQ("WatchFileMonObjMain", Host().trace[0].function);
    EXPECT_EQ(">", Host().trace[0].text);
    EXPECT_EQ(0, Host().trace[0].level);
    EXPECT_EQ(0, Sys().Calls("stat"));
}

TEST_F(FilePass, OverAFileThatDoesNotExistFails)
{
    SetPath("/var/log/app.log");
    StoreInode(1);
    StoreOffset(7);
    ChangeFileMonObj();
    EXPECT_EQ(Strings{}, Run(FALSE));
    EXPECT_EQ((Strings{"2 <stat /var/log/app.log error, error code is 2. return FALSE.",
                       "1 <Init file /var/log/app.log failed."}),
              NotableRecords());
    EXPECT_EQ(1U, StoredInode());
    ExpectOffset(7);
}

TEST_F(FilePass, OverAnUnchangedFileReadsNothing)
{
    Follow("abc\n");
    EXPECT_EQ(Strings{}, Run());
    EXPECT_EQ((Strings{kCheck, kNoNews}), Own());
    EXPECT_EQ(Strings{}, RecordsOf("CheckFileMonObj"));
    EXPECT_EQ(0, Sys().Calls("fread"));
    EXPECT_EQ(0, Sys().Calls("fseek"));
    EXPECT_EQ(1, Sys().Calls("open"));
    EXPECT_TRUE(Host().calls.empty());
    EXPECT_TRUE(ClosedBeforeTheEnd());
}

TEST_F(FilePass, TestsTheLinesThatWereAppended)
{
    Follow("abc\n");
    Append("def\n");
    EXPECT_EQ(Strings{"def"}, Run());
    EXPECT_EQ((Strings{kCheck, kNews, kEnd}), Own());
    EXPECT_EQ(
        Strings{"0 <file monitoring object's content has been modified, need to scan documents."},
        RecordsOf("CheckFileMonObj"));
    ExpectOffset(8);
    EXPECT_EQ(8, filedata.lastsize);
    EXPECT_TRUE(ClosedBeforeTheEnd());
    EXPECT_EQ(Strings{}, Run());
    Append("\n\nx\r\n");
    EXPECT_EQ((Strings{"", "", "x\r"}), Run());
    ExpectOffset(13);
}

TEST_F(FilePass, LeavesAnUnfinishedLineUntilItIsComplete)
{
    Follow("abc\n");
    Append("def");
    EXPECT_EQ(Strings{}, Run());
    EXPECT_EQ((Strings{kCheck, kNews, kEnd}), Own());
    ExpectOffset(4);
    EXPECT_EQ(7, filedata.lastsize);
    EXPECT_EQ(Strings{}, Run()); // not changed meanwhile
    Append("gh");
    EXPECT_EQ(Strings{}, Run());
    ExpectOffset(4);
    Append("i\nj");
    EXPECT_EQ(Strings{"defghi"}, Run());
    ExpectOffset(11);
    Restart();
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ(Strings{}, Run());
    Append("\n");
    EXPECT_EQ(Strings{"j"}, Run());
}

TEST_F(FilePass, GoesOnAfterARestart)
{
    Follow("abc\n");
    Append("def\n");
    Run();
    Append("ghi\n");
    Restart();
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ(Strings{"ghi"}, Run());
    ExpectOffset(12);
}

TEST_F(FilePass, CutsALineAt3328Bytes)
{
    for (const size_t length : {3327U, 3328U, 3329U, 3330U, 16384U, 20000U}) {
        StartOver();
        Follow("abc\n");
        Append(std::string(length, 'x') + "\nnext\n");
        EXPECT_EQ((Strings{std::string(std::min<size_t>(length, 3328), 'x'), "next"}), Run());
        ExpectOffset(static_cast<int64_t>(length) + 10);
    }
}

TEST_F(FilePass, ReadsAnOverLongLineAgainThatWasNotFinished)
{
    Follow("abc\n");
    Append(std::string(20000, 'x'));
    EXPECT_EQ(Strings{}, Run());
    ExpectOffset(4);
    Append("\nnext\n");
    EXPECT_EQ((Strings{std::string(3328, 'x'), "next"}), Run());
}

TEST_F(FilePass, LeavesWhatIsWrittenDuringItForTheNextOne)
{
    AddEntry({});
    Follow("abc\n");
    Append("def\n");
    Host().on_report = [this](const ReportRequest &) {
        if (Host().reports.size() == 1)
            Append("ghi\n");
    };
    EXPECT_EQ(Strings{"def"}, Run());
    ExpectOffset(8);
    EXPECT_EQ(Strings{"ghi"}, Run());
}

TEST_F(FilePass, StoresTheOffsetAtTheEndOnly)
{
    AddEntry({});
    Follow("abc\n");
    Append("def\nghi\n");
    std::vector<std::pair<int64_t, int64_t>> offsets; // in memory, stored
    Host().on_report = [&](const ReportRequest &) {
        offsets.emplace_back(filedata.offset, StoredOffset());
    };
    Run();
    EXPECT_EQ((std::vector<std::pair<int64_t, int64_t>>{{8, 4}, {12, 4}}), offsets);
    EXPECT_EQ((Strings{"TarskCodeConvert", "VKMonitorCall", "TarskCodeConvert", "VKMonitorCall",
                       "RegWrite", "RegWrite"}),
              Host().calls);
    ExpectOffset(12);
    EXPECT_EQ(1, Host().Traced(3, "Report def, the next line's offset is 8"));
    EXPECT_EQ(1, Host().Traced(3, "Report ghi, the next line's offset is 12"));
}

TEST_F(FilePass, KeepsThePathThatWasLoaded)
{
    Follow("abc\n");
    WriteLog("other.log", "other\n");
    SetPath("/var/log/other.log");
    Append("def\n");
    EXPECT_EQ(Strings{"def"}, Run());
    EXPECT_EQ(Strings{}, Run());
}

TEST_F(FilePass, TakesAnEqualSizeForUnchangedContent)
{
    Follow("abc\n");
    WriteLog("app.log", "xyz\n");
    EXPECT_EQ(Strings{}, Run());
    WriteLog("app.log", "1\n2\n3\n4\n"); // rewritten, and longer: read on from the old offset
    EXPECT_EQ((Strings{"3", "4"}), Run());
}

// ---- a file that shrank ----

TEST_F(FilePass, OverAFileThatShrankMovesToItsEnd)
{
    Follow("abc\ndef\nghi\n");
    WriteLog("app.log", "new\n");
    EXPECT_EQ(Strings{}, Run());
    EXPECT_EQ((Strings{kCheck, kNoNews}), Own());
    EXPECT_EQ((Strings{"3 file monitoring object's content has been unexpectly modified.",
                       "3 <Set offset to EOF(4)."}),
              RecordsOf("CheckFileMonObj"));
    ExpectOffset(4);
    EXPECT_EQ(4, filedata.lastsize);
    EXPECT_EQ(0, Sys().Calls("fread"));
    EXPECT_TRUE(ClosedBeforeTheEnd());
    Append("next\n");
    EXPECT_EQ(Strings{"next"}, Run());
}

TEST_F(FilePass, OverAFileThatWasEmptiedMovesToItsHead)
{
    Follow("abc\n");
    WriteLog("app.log", "");
    EXPECT_EQ(Strings{}, Run());
    ExpectOffset(0);
    Append("new\n");
    EXPECT_EQ(Strings{"new"}, Run());
}

TEST_F(FilePass, FailsWhenTheNewEndCannotBeStored)
{
    for (const int n : {1, 2}) {
        StartOver();
        Follow("abc\ndef\nghi\n");
        WriteLog("app.log", "new\n");
        Host().FailCall("RegWrite", n);
        EXPECT_EQ(Strings{}, Run(FALSE));
        EXPECT_EQ((Strings{kCheck, "0 <CheckFileMonObj failed."}), Own());
        EXPECT_EQ((Strings{"3 file monitoring object's content has been unexpectly modified.",
                           "1 <Set file monitoring object's offset to registry failed."}),
                  RecordsOf("CheckFileMonObj"));
        EXPECT_EQ(4, filedata.offset);
        EXPECT_EQ(4, filedata.lastsize);
        EXPECT_EQ(n == 1 ? 12 : 4, StoredOffset());
        EXPECT_TRUE(ClosedBeforeTheEnd());
    }
}

TEST_F(FilePass, DecidesByTheSizeAlone)
{
    filedata.filestat.st_size = 10;
    filedata.lastsize = 10;
    EXPECT_EQ(0, CheckFileMonObj());
    EXPECT_EQ(1, Host().Traced(0, ">"));
    filedata.lastsize = 11;
    EXPECT_EQ(0, CheckFileMonObj());
    EXPECT_EQ(10, filedata.lastsize);
    filedata.lastsize = 9;
    filedata.offset = 3;
    EXPECT_EQ(1, CheckFileMonObj());
    EXPECT_EQ(10, filedata.lastsize);
    EXPECT_EQ(3, filedata.offset);
    filedata.lastsize = -1;
    EXPECT_EQ(1, CheckFileMonObj());
    filedata.lastsize = 11;
    Host().FailCall("RegWrite", 1);
    EXPECT_EQ(-1, CheckFileMonObj());
}

// ---- a file that was replaced ----

TEST_F(FilePass, ReadsAReplacedFileFromItsFirstByte)
{
    Follow("abc\ndef\nghi\n");
    Append("not read any more\n");
    RenameLog("app.log", "app.log.1");
    WriteLog("app.log", "new\nfile\n");
    EXPECT_EQ((Strings{"new", "file"}), Run());
    EXPECT_EQ(InodeOf("app.log"), StoredInode());
    ExpectOffset(9);
    EXPECT_EQ((Strings{kCheck, kNews, kEnd}), Own());
    EXPECT_EQ(Strings{}, Run());
}

TEST_F(FilePass, ReadsAFileWithoutAStoredInodeWhole)
{
    WriteLog("app.log", "abc\ndef\n");
    SetPath("/var/log/app.log");
    EXPECT_EQ(FALSE, ChangeFileMonObj());
    EXPECT_EQ((Strings{"abc", "def"}), Run());
    EXPECT_EQ(InodeOf("app.log"), StoredInode());
    ExpectOffset(8);
}

TEST_F(FilePass, StoresANewInodeBeforeItReads)
{
    AddEntry({});
    Follow("abc\n");
    RenameLog("app.log", "app.log.1");
    WriteLog("app.log", "new\n");
    uint64_t inode = 0;
    int64_t offset = 77;
    Host().on_report = [&](const ReportRequest &) {
        inode = StoredInode();
        offset = StoredOffset();
    };
    Run();
    EXPECT_EQ(InodeOf("app.log"), inode);
    EXPECT_EQ(0, offset);
}

TEST_F(FilePass, TakesAnEmptyReplacementForUnchanged)
{
    Follow("abc\n");
    RenameLog("app.log", "app.log.1");
    WriteLog("app.log", "");
    EXPECT_EQ(Strings{}, Run());
    EXPECT_EQ((Strings{kCheck, kNoNews}), Own());
    ExpectOffset(0);
    Append("new\n");
    EXPECT_EQ(Strings{"new"}, Run());
}

TEST_F(FilePass, FollowsANewPath)
{
    Follow("abc\n");
    WriteLog("other.log", "other\n");
    SetPath("/var/log/other.log");
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ(Strings{"other"}, Run()); // its inode is another
    ExpectOffset(6);
}

// ---- offsets that make no sense ----

TEST_F(FilePass, OverAnEmptyFileWithANegativeOffsetFails)
{
    Follow("", -1);
    EXPECT_EQ(Strings{}, Run(FALSE));
    EXPECT_EQ((Strings{kCheck, kNews, "1 <GetFileNextLine() failed.return FALSE."}), Own());
    ASSERT_EQ(1U, RecordsOf("GetFileNextLine").size());
    EXPECT_EQ(0U, RecordsOf("GetFileNextLine")[0].find("1 <params error, fp is 0x"));
    EXPECT_NE(std::string::npos, RecordsOf("GetFileNextLine")[0].find(", filesize is 0, pcontent"));
    EXPECT_TRUE(ClosedBeforeTheEnd());
}

TEST_F(FilePass, WithANegativeOffsetFails)
{
    Follow("abc\n", -5);
    EXPECT_EQ(Strings{}, Run(FALSE));
    EXPECT_EQ(
        (Strings{kCheck, "1 <parameter error, pos is -5, filedata.filestat.st_size is 4,return -1.",
                 "1 <GetFileBlock error.return -1.", "1 <GetFileNextLine() failed.return FALSE."}),
        NotableRecords());
    EXPECT_EQ(-5, StoredOffset());
}

TEST_F(FilePass, FromTheMiddleOfALineBeginsThere)
{
    Follow("abc\ndef\n", 2);
    EXPECT_EQ((Strings{"c", "def"}), Run());
}

// ---- failures in the middle ----

TEST_F(FilePass, ThatFailsGoesOnFromMemoryAndAfterARestartFromTheRegistry)
{
    const std::string dots(3328, '.');
    const std::string x(2000, 'x');
    const std::string y(2000, 'y');
    const std::string z(2000, 'z');
    const std::string w(2000, 'w'); // begins in the first block and ends in the second
    const std::string text =
        std::string(10000, '.') + "\n" + x + "\n" + y + "\n" + z + "\n" + w + "\n";
    Follow("abc\n");
    Append(text);
    Sys().FailCall("fseek", 2);
    EXPECT_EQ((Strings{dots, x, y, z}), Run(FALSE));
    EXPECT_EQ((Strings{kCheck, kNews, "1 <GetFileNextLine() failed.return FALSE."}), Own());
    EXPECT_EQ(4 + 10001 + 3 * 2001, filedata.offset);
    EXPECT_EQ(4, StoredOffset());

    EXPECT_EQ(Strings{}, Run()); // the size is the one it has seen
    EXPECT_EQ((Strings{kCheck, kNoNews}), Own());
    Append("last\n");
    EXPECT_EQ((Strings{w, "last"}), Run());
    ExpectOffset(4 + static_cast<int64_t>(text.size()) + 5);

    StoreOffset(4); // as if it had been stopped after the failure
    Restart();
    EXPECT_EQ(TRUE, ChangeFileMonObj());
    EXPECT_EQ((Strings{dots, x, y, z, w, "last"}), Run());
}

TEST_F(FilePass, LosesTheLineForWhichThereWasNoClock)
{
    Follow("abc\n");
    Append("def\nghi\n");
    Sys().now = -1;
    EXPECT_EQ(Strings{"def"}, Run(FALSE));
    EXPECT_EQ((Strings{kCheck, kNews, "1 <CheckFileLine() failed.return FALSE."}), Own());
    EXPECT_TRUE(ClosedBeforeTheEnd());
    EXPECT_EQ(8, filedata.offset);
    EXPECT_EQ(4, StoredOffset());
    SetClock(2024, 3, 10, 12, 0, 0);
    Append("jkl\n");
    EXPECT_EQ((Strings{"ghi", "jkl"}), Run());
}

TEST_F(FilePass, TakesNothingFromTheHeap)
{
    AddEntry({});
    Follow("abc\n");
    Append("def\nghi\n");
    Host().record_trace = false;
    Sys().ForgetCalls();
    Sys().count_memory = true;
    EXPECT_EQ(TRUE, WatchFileMonObjMain());
    Sys().count_memory = false;
    EXPECT_EQ(2U, Host().reports.size());
    EXPECT_EQ(0, Sys().Calls("malloc"));
    EXPECT_EQ(0, Sys().Calls("calloc"));
}

// ---- every call fails once ----

class FilePassFailure : public FilePass {
  protected:
    // A replaced file of two blocks: a pass with every kind of call.
    void Arrange()
    {
        StartOver();
        AddEntry({});
        Follow("abc\n");
        RenameLog("app.log", "app.log.1");
        lines_.clear();
        for (int i = 10; i < 30; ++i)
            lines_.push_back(std::to_string(i) + std::string(1000, 'x'));
        std::string text;
        for (const auto &line : lines_)
            text += line + "\n";
        WriteLog("app.log", text);
        size_ = static_cast<int64_t>(text.size());
        ASSERT_LT(kBlock, size_);
        Host().ForgetRecords();
        Sys().ForgetCalls();
    }

    // The pass went through.
    void ExpectAllTested() const
    {
        EXPECT_EQ(lines_, TestedLines());
        EXPECT_EQ(size_, filedata.offset);
        EXPECT_EQ(kEnd, Own().back());
    }

    Strings lines_;
    int64_t size_ = 0;
};

TEST_F(FilePassFailure, OfAHostCallIsTracedAndEndsThePassOrDoesNoHarm)
{
    const std::string no_inode = "1 <Update /var/log/app.log's inode failed.";
    const std::string no_path = "1 <Update 's inode failed.";
    // The calls of the pass in order: the inode and the offset are stored, path, inode and offset
    // loaded again.
    const Strings renewing = {no_inode, no_inode, no_inode, no_inode, no_path,
                              no_inode, no_inode, no_inode, no_inode};
    for (size_t i = 0; i < renewing.size(); ++i) {
        SCOPED_TRACE(i + 1);
        Arrange();
        Host().FailAnyCall(static_cast<int>(i) + 1);
        EXPECT_EQ(FALSE, WatchFileMonObjMain());
        EXPECT_EQ(nullptr, filedata.filefp);
        EXPECT_EQ((Strings{kCheck, renewing[i]}), Own());
        EXPECT_EQ(Strings{}, TestedLines());
        EXPECT_EQ(i + 1, Host().calls.size());
    }
    // Then a conversion and a report for each line, and at last the offset is stored.
    const size_t reporting = renewing.size() + 2 * lines_.size();
    for (size_t i = renewing.size(); i < reporting + 2; ++i) {
        SCOPED_TRACE(i + 1);
        Arrange();
        Host().FailAnyCall(static_cast<int>(i) + 1);
        EXPECT_EQ(TRUE, WatchFileMonObjMain());
        EXPECT_TRUE(Host().AnyFailureWasUsed());
        EXPECT_EQ(nullptr, filedata.filefp);
        ExpectAllTested();
        EXPECT_EQ(i >= reporting ? 1U : 0U, Host().Texts(1).size());
        // What is stored: nothing, or the low half; the file is shorter than the high half counts.
        EXPECT_EQ(i == reporting ? 0 : size_, StoredOffset());
    }
    Arrange();
    EXPECT_EQ(TRUE, WatchFileMonObjMain());
    EXPECT_EQ(reporting + 2, Host().calls.size());
}

TEST_F(FilePassFailure, OfASystemCallLosesNothingOnceTheFileGrows)
{
    int failures = 0;
    for (const char *name :
         {"stat", "fstat", "open", "fdopen", "fseek", "fread", "calloc", "malloc"}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(n));
            Arrange();
            Sys().FailCall(name, n);
            const int result = WatchFileMonObjMain();
            Sys().count_memory = false;
            EXPECT_EQ(nullptr, filedata.filefp);
            if (Sys().Calls(name) < n) {
                ExpectAllTested();
                break;
            }
            ++failures;
            Strings tested = TestedLines();
            if (result == TRUE) {
                ExpectAllTested(); // the second look at the status is not needed
            } else {
                EXPECT_EQ(1U, Host().Texts(2).size());
                const bool opened = Host().Traced("Check file: [/var/log/app.log]") != 0;
                const auto done = static_cast<int64_t>(1003 * tested.size());
                EXPECT_EQ(opened ? done : 4, filedata.offset);
                EXPECT_EQ(opened ? 0 : 4, StoredOffset());
            }
            Append("last\n");
            const Strings rest = Run();
            tested.insert(tested.end(), rest.begin(), rest.end());
            Strings expected = lines_;
            expected.emplace_back("last");
            EXPECT_EQ(expected, tested);
            ExpectOffset(size_ + 5);
        }
    }
    EXPECT_LT(7, failures);
}

TEST_F(FilePassFailure, HasAMessageForEachSystemCall)
{
    const std::string no_open =
        "2 <open file /var/log/app.log error, error code is 5, return FALSE.";
    const std::string no_init = "1 <Init file /var/log/app.log failed.";
    const std::string no_line = "1 <GetFileNextLine() failed.return FALSE.";
    const std::vector<std::pair<std::pair<const char *, int>, Strings>> cases = {
        {{"stat", 1}, {"2 <stat /var/log/app.log error, error code is 5. return FALSE.", no_init}},
        {{"open", 1}, {no_open, no_init}},
        {{"fdopen", 1}, {no_open, no_init}},
        {{"fseek", 1},
         {"2 <fseek error, pos 0, error code is 5.return -1.", "1 <GetFileBlock error.return -1.",
          no_line}},
        {{"fseek", 2},
         {"2 <fseek error, pos 16048, error code is 5.return -1.",
          "1 <GetFileNextBlock() failed.return -1.", no_line}},
        {{"fread", 1},
         {"2 <read file ERROR,  0 BYTES readed, the error is 0.return -1.",
          "1 <GetFileBlock error.return -1.", no_line}},
        {{"fread", 2},
         {"2 <read file ERROR,  0 BYTES readed. the error is 0.return -1.",
          "1 <GetFileNextBlock() failed.return -1.", no_line}},
    };
    for (const auto &[call, messages] : cases) {
        SCOPED_TRACE(std::string(call.first) + " " + std::to_string(call.second));
        Arrange();
        FreeTableEntries(); // no reports between the messages
        nCnt = 0;
        Sys().FailCall(call.first, call.second, EIO);
        EXPECT_EQ(FALSE, WatchFileMonObjMain());
        const Strings all = NotableRecords();
        ASSERT_LE(messages.size(), all.size());
        EXPECT_EQ(messages,
                  Strings(all.end() - static_cast<std::ptrdiff_t>(messages.size()), all.end()));
    }
}

} // namespace
