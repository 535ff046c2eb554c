// Blocks that end in a line that is still being written.
#include <chrono>

#include "tests/unit/fileacc/reader_fixture.h"

namespace {

using test::kBlock;
using test::kLogName;
using test::Sys;

using GetBlockAt = test::ReaderTest;
using TrimBlockRight = test::ReaderTest;
using FEof = test::ReaderTest;

class LineStillBeingWritten : public test::ReaderTest {
  protected:
    // Loads a fresh log to which the daemon writes at the reader's first look for more.
    void LoadWhileWritten(const std::string &text, const std::string &rest) const
    {
        UntilLooked(2, [&] {
            OpenFresh(text);
            WriteOnAtLook(2, rest);
            Load();
        });
        EXPECT_TRUE(BlockIsSound(curblock));
    }

    static void Load() { ASSERT_LE(0, ::GetBlockAt(0, kBlockSize, &curblock)); }

    static void LoadAndTrim()
    {
        Load();
        ::TrimBlockRight(&curblock);
        EXPECT_TRUE(BlockIsSound(curblock));
    }
};

TEST_F(LineStillBeingWritten, IsDeliveredWholeWhenItsRestComes)
{
    LoadWhileWritten("first\nsec", "ond\n");
    EXPECT_EQ("first|second|", Shown(curblock));
    EXPECT_EQ(0, curblock.start);
    EXPECT_EQ(-1, curblock.linepos);
    EXPECT_EQ(kBlockBeyond, curblock.isend);
    EXPECT_EQ(9, filelen);
    EXPECT_EQ("0 <return 13.", Said("GetBlockAt").back());
    EXPECT_EQ(2, Looks());
}

TEST_F(LineStillBeingWritten, IsSeenAlsoWhenItsRestCameBeforeTheFirstLook)
{
    UntilLooked(2, [this] {
        OpenFresh("first\nsec");
        // Between the read and the question whether the log is fresh.
        Sys().BeforeCall("fstat", 1, [this] {
            Grow("ond\n");
            SetModified(kLogName, *Sys().now);
        });
        Load();
    });
    EXPECT_EQ("first|second|", Shown(curblock));
}

TEST_F(LineStillBeingWritten, IsCutOffAgainWithTheBeginningOfTheNextOne)
{
    LoadWhileWritten("first\nsec", "ond\nthi");
    ::TrimBlockRight(&curblock);
    EXPECT_EQ("first|second|", Shown(curblock));
    ExpectNext(0, "first");
    ExpectNext(6, "second");
    EXPECT_EQ(1, ::FEof());
}

TEST_F(LineStillBeingWritten, MayComeInManyPieces)
{
    UntilLooked(4, [this] {
        OpenFresh("first\ns");
        Sys().BeforeCall("fstat", 2, [this] {
            Grow("e");
            Sys().BeforeCall("fstat", 1, [this] {
                Grow("con");
                WriteOnAtLook(1, "d\n");
            });
        });
        Load();
    });
    EXPECT_EQ("first|second|", Shown(curblock));
    EXPECT_EQ(kBlockBeyond, curblock.isend);
    EXPECT_EQ(4, Looks());
}

TEST_F(LineStillBeingWritten, CountsAsALineWhenItsRestDoesNotComeWithin50Milliseconds)
{
    OpenFresh("first\nsec");
    const auto begin = std::chrono::steady_clock::now();
    LoadAndTrim();
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_LE(std::chrono::milliseconds(49), waited); // whole milliseconds are counted
    EXPECT_LE(Looks(), 1 + 51); // one for the age, and not more often than once a millisecond
    EXPECT_EQ("first|sec", Shown(curblock));
    EXPECT_EQ(kBlockAtEnd, curblock.isend);
    EXPECT_EQ(-1, curblock.linepos);
    ExpectNext(0, "first");
    ExpectNext(6, "sec");
    EXPECT_EQ(1, ::FEof());
    EXPECT_TRUE(Complaints().empty());
}

TEST_F(LineStillBeingWritten, IsLeftForTheNextTimeWhenItGrewButDidNotEnd)
{
    LoadWhileWritten("first\nsec", "on");
    EXPECT_EQ(kBlockBeyond, curblock.isend);
    ::TrimBlockRight(&curblock);
    EXPECT_EQ("first|", Shown(curblock));
    ExpectNext(0, "first");
    EXPECT_EQ(1, ::FEof());
}

// A full block that ends exactly at the recorded length is the end of the file, grown or not.
TEST_F(LineStillBeingWritten, ThatFillsItsBlockIsNotAwaited)
{
    OpenFresh("head\n" + std::string(kBlock - 5, 'x'));
    Grow("yyy\n");
    LoadAndTrim();
    EXPECT_EQ(kBlockSize, curblock.length);
    EXPECT_EQ(kBlockAtEnd, curblock.isend);
    EXPECT_EQ(0, Looks()); // the rest has no room here
    ExpectNext(0, "head");
    ExpectNext(5, std::string(3328, 'x'));
    EXPECT_EQ(1, ::FEof());
}

TEST_F(LineStillBeingWritten, ThatIsAWholeBlockIsDeliveredAsAPiece)
{
    OpenFresh(std::string(kBlock, 'x'));
    Grow("yyy\n");
    LoadAndTrim();
    EXPECT_EQ(kBlockSize, curblock.length);
    EXPECT_EQ(kBlockAtEnd, curblock.isend);
    ExpectNext(0, std::string(3328, 'x'));
    EXPECT_EQ(1, ::FEof());
}

TEST_F(LineStillBeingWritten, IsFilledUpToTheEndOfTheBlock)
{
    LoadWhileWritten(std::string(kBlock - 3, 'x'), "y\nzzzzzz\n");
    EXPECT_EQ(std::string(kBlock - 3, 'x') + "y|z", Shown(curblock));
    EXPECT_EQ('\0', curblock.data[kBlockSize]);
}

TEST_F(LineStillBeingWritten, MayEndInAZeroByte)
{
    LoadWhileWritten(std::string("first\nse\0", 9), "cond\n");
    EXPECT_EQ("first|se|cond|", Shown(curblock));
    EXPECT_EQ(kBlockBeyond, curblock.isend);
}

TEST_F(LineStillBeingWritten, IsAwaitedOnlyInALogOfTheLastTwoSeconds)
{
    for (int age = -4; age <= 4; ++age) { // a negative age is a clock that was set back
        SCOPED_TRACE(age);
        const bool fresh = age >= -2 && age <= 2;
        UntilLooked(fresh ? 2 : 1, [&] {
            OpenFresh("first\nsec");
            SetModified(kLogName, *Sys().now - age);
            WriteOnAtLook(2, "ond\n");
            Load();
        });
        EXPECT_EQ(fresh ? "first|second|" : "first|sec", Shown(curblock));
        EXPECT_EQ(fresh ? kBlockBeyond : kBlockAtEnd, curblock.isend);
        EXPECT_EQ(fresh ? 2 : 1, Looks());
    }
}

TEST_F(LineStillBeingWritten, IsNotAwaitedWithoutAClock)
{
    OpenFresh("first\nsec");
    Sys().now = -1;
    LoadAndTrim();
    EXPECT_EQ("first|sec", Shown(curblock));
    EXPECT_EQ(1, Looks());
}

TEST_F(LineStillBeingWritten, IsNotSuspectedWhenTheLogEndsWithANewline)
{
    OpenFresh("first\nsecond\n");
    LoadAndTrim();
    EXPECT_EQ(0, Looks());
}

TEST_F(LineStillBeingWritten, IsNotSuspectedInsideTheLog)
{
    OpenFresh("head\n" + std::string(kBlock, 'x') + "\n");
    LoadAndTrim();
    EXPECT_EQ("head|", Shown(curblock));
    EXPECT_EQ(0, Looks());
}

TEST_F(LineStillBeingWritten, IsNotAwaitedWhenTheLogHadGrownAlready)
{
    OpenFresh("first\nsec");
    Grow("ond\nthi");
    LoadAndTrim();
    EXPECT_EQ("first|second|", Shown(curblock));
    EXPECT_EQ(0, Looks());
}

TEST_F(LineStillBeingWritten, CountsAsALineWhenALookFails)
{
    for (const int look : {1, 2}) {
        SCOPED_TRACE(look);
        UntilLooked(look, [&] {
            OpenFresh("first\nsec");
            Sys().FailCall("fstat", look);
            LoadAndTrim();
        });
        EXPECT_EQ("first|sec", Shown(curblock));
        EXPECT_EQ(kBlockAtEnd, curblock.isend);
        EXPECT_EQ(look, Looks());
    }
}

TEST_F(LineStillBeingWritten, IsWhatWasReadFirstWhenItCannotBeReadAgain)
{
    for (const char *call : {"fseek", "fread"}) {
        SCOPED_TRACE(call);
        UntilLooked(2, [&] {
            OpenFresh("first\nsec");
            WriteOnAtLook(2, "ond\n");
            Sys().FailCall(call, 2);
            Load();
        });
        EXPECT_EQ("first|sec", Shown(curblock));
        EXPECT_TRUE(BlockIsSound(curblock));
        Sys().FailCall(call, 0);
    }
    EXPECT_TRUE(Complaints().empty());
}

TEST_F(LineStillBeingWritten, IsWhatWasReadFirstWhenTheLogIsTruncatedBeforeItIsReadAgain)
{
    UntilLooked(2, [this] {
        OpenFresh("first\nsec");
        WriteOnAtLook(2, "ond\n");
        Sys().BeforeCall("fread", 2, [this] { ShrinkTo(3); });
        Load();
    });
    EXPECT_EQ("first|sec", Shown(curblock));
    EXPECT_TRUE(BlockIsSound(curblock));
}

// Half of one file and half of another would be lines that nobody wrote.
TEST_F(LineStillBeingWritten, IsNotMixedWithTheLinesOfALogThatIsWrittenAnew)
{
    UntilLooked(2, [this] {
        OpenFresh("first\nsec");
        WriteOnAtLook(2, "ond\n");
        Sys().BeforeCall("fread", 2, [this] { WriteFreshLog("NEW\n"); });
        Load();
    });
    EXPECT_EQ("first|sec", Shown(curblock));
    EXPECT_TRUE(BlockIsSound(curblock));
}

TEST_F(LineStillBeingWritten, HasNoOldBytesBehindItWhenTheLogShrinksBetweenTwoLooks)
{
    UntilLooked(3, [this] {
        OpenFresh("sec");
        WriteOnAtLook(2, "onddddddd");
        Sys().BeforeCall("fseek", 3, [] { Sys().FailCall("fstat", 1); }); // no look 4
        Sys().BeforeCall("fread", 3, [this] { ShrinkTo(5); });
        Load();
    });
    EXPECT_TRUE(BlockIsSound(curblock));
    EXPECT_EQ(curblock.length, static_cast<int64_t>(strlen(curblock.data)));
}

TEST_F(LineStillBeingWritten, IsWholeAsTheFirstAndAsTheLastLineOfALog)
{
    test::Step step;
    UntilLooked(2, [&] {
        OpenFresh("sec");
        WriteOnAtLook(2, "ond\nthird\n");
        step = First();
    });
    EXPECT_EQ((test::Step{0, test::kUntouchedPos, "second"}), step);

    UntilLooked(2, [&] {
        OpenFresh("first\nsec");
        WriteOnAtLook(2, "ond\nthird\n");
        step = Last();
    });
    EXPECT_EQ((test::Step{0, 6, "second"}), step);
}

TEST_F(LineStillBeingWritten, IsNeverSeenInHalvesWhenAWriterCutsEveryLineInTwo)
{
    const std::string line = "a line of which the second half comes a moment later\n";
    const auto length = static_cast<int64_t>(line.size());
    std::string written;
    for (int64_t i = 0; i < 300; ++i) {
        const size_t half = 1 + static_cast<size_t>(i) % (line.size() - 1);
        UntilLooked(2, [&] {
            OpenFresh(written + line.substr(0, half));
            WriteOnAtLook(2, line.substr(half));
            LoadAt(std::max<int64_t>(i - 1, 0) * length);
        });
        test::Step step;
        while (::FEof() == 0)
            step = Next();
        ASSERT_EQ((test::Step{0, i * length, line.substr(0, line.size() - 1)}), step);
        written += line;
    }
}

} // namespace
