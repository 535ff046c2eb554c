// Many lines at a time, and the cursor behind them.
#include <memory>

#include "fileacc/stretch.h"
#include "tests/unit/fileacc/reader_fixture.h"

namespace test {
namespace {

class StretchOfALog : public ReaderTest {
  protected:
    StretchOfALog() { bytes_left_to_blocks = 1; }
    ~StretchOfALog() override { bytes_left_to_blocks = kBlockSize; }

    // Opens a log, its first line delivered by the block.
    void OpenBehindTheFirst(const std::string &text) const
    {
        OpenOldLog(text);
        ExpectNext(0, "one");
    }
    void Read() const
    {
        BeginStretches();
        ASSERT_TRUE(ReadStretch(stretch_.get()));
    }

    const std::unique_ptr<Stretch> stretch_ = std::make_unique<Stretch>();
};

TEST_F(StretchOfALog, LeavesTheCursorOnTheLineThatWasTakenLast)
{
    OpenBehindTheFirst("one\ntwo\nthree\nfour\nfive\n");
    ExpectNext(4, "two"); // the cursor stands inside the block
    Read();
    EXPECT_EQ(8, stretch_->start);
    LeaveStretch(*stretch_, NextLineOfStretch(*stretch_, 0));
    EXPECT_EQ("three|", Shown(curblock));
    EXPECT_EQ(0, curblock.linepos);
    EXPECT_EQ(8, curblock.start);
    ExpectNext(14, "four");
    ExpectNext(19, "five");
}

TEST_F(StretchOfALog, ReturnsToTheBlockInWhichTheLineLies)
{
    OpenBehindTheFirst("one\ntwo\nthree\nfour\nfive\n");
    Read();
    const StretchLine two = NextLineOfStretch(*stretch_, 0);
    LeaveStretch(*stretch_, NextLineOfStretch(*stretch_, two.next));
    EXPECT_EQ("three|", Shown(curblock));
    ReturnToBlocks();
    EXPECT_EQ("one|two|three|four|five|", Shown(curblock));
    EXPECT_EQ(8, curblock.linepos);
    ExpectNext(14, "four");
}

TEST_F(StretchOfALog, StaysOnItsLineWhereTheFileIsAnotherOneByNow)
{
    OpenBehindTheFirst("one\ntwo\nthree\nfour\nfive\n");
    Read();
    LeaveStretch(*stretch_, NextLineOfStretch(*stretch_, 0));
    WriteLog(kLogName, "ONE\nTWO\nTHREE\nFOUR\nFIVE\n");
    ReturnToBlocks();
    EXPECT_EQ("two|", Shown(curblock));
    EXPECT_EQ(0, curblock.linepos);
    ExpectNext(8, "THREE");
}

TEST_F(StretchOfALog, OfAnEmptyLineIsOneByte)
{
    OpenBehindTheFirst("one\n\ntwo");
    bytes_left_to_blocks = 3;
    Read();
    EXPECT_EQ(1U, stretch_->length);
    LeaveStretch(*stretch_, NextLineOfStretch(*stretch_, 0));
    ExpectNext(5, "two");
}

} // namespace
} // namespace test
