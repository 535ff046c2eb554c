// Where is the line that was checked last?

#include "regacc/last_end_time.h"
#include "tests/unit/fileacc/reader_fixture.h"
#include "tests/unit/fileacc/resume_fixture.h"

namespace {

using test::Cut;
using test::GotoPos;
using test::Host;
using test::kBlock;
using test::Step;
using test::Sys;
using test::Texts;

// ---- arguments ----

TEST_F(GotoPos, WithoutAnOpenLogFails)
{
    ExpectFailure(3, "one");
    EXPECT_EQ((Texts{"1 <parameter error.return -1."}), Said("GotoPos"));
}

TEST_F(GotoPos, OfAnEmptyFileFails)
{
    OpenLines({});
    ExpectFailure(-1, "one");
    ExpectFailure(0, "");
    EXPECT_EQ(Texts(2, "1 <parameter error.return -1."), Said("GotoPos"));
}

TEST_F(GotoPos, WithABadArgumentFailsAndLoadsNothing)
{
    OpenLines({"one", "two"});
    int64_t pos = 4;
    char content[] = "one";
    EXPECT_EQ(-1, ::GotoPos(nullptr, content, sizeof content));
    EXPECT_EQ(-1, ::GotoPos(&pos, nullptr, sizeof content));
    EXPECT_EQ(-1, ::GotoPos(&pos, content, 0));
    EXPECT_EQ(-1, ::GotoPos(&pos, content, -1));
    EXPECT_EQ(4, pos);
    EXPECT_STREQ("one", content);
    EXPECT_TRUE(IsCleared(curblock));
    EXPECT_EQ(Texts(4, "1 <parameter error.return -1."), Said("GotoPos"));
}

// ---- no position yet ----

TEST_F(GotoPos, WithoutAPositionStandsBeforeTheFirstLine)
{
    for (const int64_t none : {int64_t{-1}, int64_t{-5}, INT64_MIN}) {
        OpenLines({"one", "two"});
        EXPECT_EQ((Step{0, none, ""}), Goto(none, "two"));
        EXPECT_EQ(std::string("\0wo\0Z", 5), content_.substr(0, 5)); // its first byte alone
        EXPECT_EQ((Texts{"1 <*pos<0,return 0."}), Said("GotoPos"));
        EXPECT_EQ(1, ::FBegin());
        EXPECT_EQ(0, ::FEof());
        ExpectNext(0, "one");
    }
}

// ---- the line is where it was ----

TEST_F(GotoPos, FindsTheRememberedLineAtItsOffsetAndGoesOnWithTheFirstNewLine)
{
    OpenLines({Line("a"), Line("b"), Line("new")});
    EXPECT_EQ((Step{0, Head(1), Line("b")}), Goto(Head(1), Line("b")));
    EXPECT_TRUE(text_is_untouched_);
    EXPECT_EQ((Texts{"0 <found.return 0."}), Said("GotoPos"));
    EXPECT_EQ(0, ::FEof());
    ExpectNext(Head(2), Line("new"));
}

TEST_F(GotoPos, OnTheLastLineLeavesNothingToRead)
{
    OpenLines({Line("a"), Line("b")});
    Goto(Head(1), Line("b"));
    EXPECT_EQ(1, ::FEof());
}

TEST_F(GotoPos, DoesNotMoveAnOffsetInsideTheLineToItsHead)
{
    OpenLines({Line("a"), Line("b"), Line("new")});
    for (int64_t pos = Head(1); pos < Head(2); ++pos) {
        EXPECT_EQ((Step{0, pos, Line("b")}), Goto(pos, Line("b")));
        ExpectNext(Head(2), Line("new"));
    }
}

TEST_F(GotoPos, TakesTheBeginningOfALineForTheLine)
{
    const std::string line = Line(std::string(1000, 'x'));
    OpenLines({Line("a"), line, Line("new")});
    for (const size_t kept : {size_t{1}, size_t{499}, line.size()}) {
        EXPECT_EQ((Step{0, Head(1), line.substr(0, kept)}), Goto(Head(1), line.substr(0, kept)));
        EXPECT_EQ("0 <found.return 0.", LastSaid());
        ExpectNext(Head(2), Line("new"));
    }
}

TEST_F(GotoPos, DoesNotTakeALineForALongerTextThatBeginsWithIt)
{
    OpenLines({Line("a"), Line("b"), Line("bc")});
    EXPECT_EQ((Step{0, Head(2), Line("bc")}), Goto(Head(1), Line("bc")));
}

TEST_F(GotoPos, DoesNotTakeALineThatHoldsTheTextFurtherOn)
{
    OpenLines({Line("a"), Line("see: " + Line("b")), Line("b")});
    EXPECT_EQ((Step{0, Head(2), Line("b")}), Goto(Head(1), Line("b")));
}

TEST_F(GotoPos, TakesAnyLineForAnEmptyText)
{
    OpenLines({"one", "two", "three"});
    EXPECT_EQ((Step{0, 4, ""}), Goto(4, ""));
    EXPECT_EQ("0 <found.return 0.", LastSaid());
    ExpectNext(8, "three");
}

TEST_F(GotoPos, ComparesNoMoreOfALineThanItsBuffersHold)
{
    const std::string line = Line(std::string(5000, 'x'));
    OpenLines({line, Line("new")});
    EXPECT_EQ((Step{0, 0, Cut(line)}), Goto(0, Cut(line)));
    EXPECT_EQ("0 <found.return 0.", LastSaid());
    ExpectNext(Head(1), Line("new"));
}

TEST_F(GotoPos, BeyondATruncatedFileStartsAtItsLastLine)
{
    OpenLines({Line("a"), Line("b")});
    for (const int64_t pos : {filelen, filelen + 1, INT64_MAX}) {
        EXPECT_EQ((Step{0, pos, Line("b")}), Goto(pos, Line("b")));
        EXPECT_EQ("0 <found.return 0.", LastSaid());
        EXPECT_EQ(1, ::FEof());
        EXPECT_EQ((Step{0, 0, Line("a")}), Goto(pos, Line("a")));
        ExpectNext(Head(1), Line("b"));
    }
}

// ---- search before: the line at the offset is of the same second ----

TEST_F(GotoPos, FindsTheLineBackwardsAmongThoseOfItsSecond)
{
    OpenLines({Line("x", -1), Line("old"), Line("i"), Line("j"), Line("k")});
    EXPECT_EQ((Step{0, Head(1), Line("old")}), Goto(Head(3), Line("old")));
    EXPECT_TRUE(text_is_untouched_);
    EXPECT_EQ((Texts{"0 Search before ...", "1 <found.return 0."}), Said("GotoPos"));
    ExpectNext(Head(2), Line("i"));
}

TEST_F(GotoPos, FindsTheFirstLineOfTheFileBackwards)
{
    OpenLines({Line("old"), Line("i"), Line("j")});
    EXPECT_EQ((Step{0, 0, Line("old")}), Goto(Head(2), Line("old")));
    ExpectNext(Head(1), Line("i"));
}

TEST_F(GotoPos, LooksBackPastLinesWithoutAStamp)
{
    OpenLines({Line("old"), "continued", "", Line("j")});
    EXPECT_EQ((Step{0, 0, Line("old")}), Goto(Head(3), Line("old")));
    EXPECT_EQ((Texts{"0 Search before ...", "1 get \"\"'s time error",
                     "1 get \"continued\"'s time error", "1 <found.return 0."}),
              Said("GotoPos"));
}

TEST_F(GotoPos, LooksBackNoFurtherThanTheSecondAndThenForwards)
{
    for (const int other : {-1, 1}) { // older, and newer by a clock that was set back
        OpenLines({Line("old"), Line("x", other), Line("i"), Line("j"), Line("k"), Line("n", 1)});
        EXPECT_EQ((Step{0, Head(4), Line("k")}), Goto(Head(3), Line("old")));
        ExpectNext(Head(5), Line("n", 1));
    }
}

TEST_F(GotoPos, AfterAVainLookBackGoesOnFromTheLineAtTheOffset)
{
    OpenLines({Line("h"), Line("i"), Line("j"), Line("k"), Line("n", 1)});
    EXPECT_EQ((Step{0, Head(3), Line("k")}), Goto(Head(2), Line("gone")));
    const Texts said = Said("GotoPos");
    EXPECT_EQ("0 Search before ...", said[0]);
    EXPECT_EQ("0 Search down ...", said[1]);
    EXPECT_EQ("0 " + std::to_string(Head(3)) + "   :\"" + Line("k") + "\"\n", said[2]);
    ExpectNext(Head(4), Line("n", 1));
}

TEST_F(GotoPos, AfterAVainLookBackFromTheLastLineStaysThere)
{
    OpenLines({Line("x", -1), Line("i"), Line("j")});
    EXPECT_EQ((Step{0, Head(2), Line("j")}), Goto(Head(2), Line("gone")));
    EXPECT_EQ("0 <return 0.", LastSaid());
    EXPECT_EQ(1, ::FEof());
}

TEST_F(GotoPos, AfterAVainLookBackMayFindTheLineForwards)
{
    OpenLines({Line("h"), Line("i"), Line("j"), Line("old"), Line("k")});
    EXPECT_EQ((Step{0, Head(3), Line("old")}), Goto(Head(1), Line("old")));
    EXPECT_TRUE(text_is_untouched_);
    EXPECT_EQ("0 <found.return 0.", LastSaid());
    ExpectNext(Head(4), Line("k"));
}

TEST_F(GotoPos, LooksBackOverManyBlocksAndComesBackToTheLineAtTheOffset)
{
    Texts lines = {Line("old")};
    for (int i = 0; i < 700; ++i)
        lines.push_back(Line("line " + std::to_string(i) + std::string(70, '.')));
    lines.push_back(Line("n", 1));
    OpenLines(lines);
    EXPECT_EQ((Step{0, 0, Line("old")}), Goto(Head(690), Line("old")));
    ExpectNext(Head(1), lines[1]);
    EXPECT_EQ((Step{0, Head(700), lines[700]}), Goto(Head(690), Line("gone")));
    ExpectNext(Head(701), Line("n", 1));
}

// ---- search up: the line at the offset is newer ----

TEST_F(GotoPos, FindsAnOlderLineFurtherUp)
{
    OpenLines({Line("a", -9), Line("old", -5), Line("i", -2), Line("j"), Line("k")});
    EXPECT_EQ((Step{0, Head(1), Line("old", -5)}), Goto(Head(3), Line("old", -5)));
    EXPECT_TRUE(text_is_untouched_);
    EXPECT_EQ((Texts{"0 Search up...", "0 <found.return 0."}), Said("GotoPos"));
    ExpectNext(Head(2), Line("i", -2));
}

TEST_F(GotoPos, StandsOnTheNewestLineNotNewerWhenTheLineIsGone)
{
    OpenLines({Line("a", -9), Line("b", -6), Line("i", -2), Line("j")});
    EXPECT_EQ((Step{0, Head(1), Line("b", -6)}), Goto(Head(3), Line("gone", -5)));
    EXPECT_EQ((Texts{"0 Search up...", "0 <return 0"}), Said("GotoPos"));
    EXPECT_EQ(Line("b", -6), CurrentLine());
    ExpectNext(Head(2), Line("i", -2));
}

TEST_F(GotoPos, GoesThroughTheWholeSecondForTheTextBeforeItTakesTheNewestLineOfIt)
{
    const Texts lines = {Line("a", -9), Line("old", -5), "no stamp",
                         Line("b", -5), Line("c", -5),   Line("j")};
    OpenLines(lines);
    EXPECT_EQ((Step{0, Head(1), Line("old", -5)}), Goto(Head(5), Line("old", -5)));
    EXPECT_EQ((Step{0, Head(4), Line("c", -5)}), Goto(Head(5), Line("gone", -5)));
    ExpectNext(Head(5), Line("j"));
}

TEST_F(GotoPos, DoesNotSearchFurtherUpThanTheFirstOlderLine)
{
    OpenLines({Line("old", -5), Line("a", -6), Line("b", -7), Line("j")});
    EXPECT_EQ((Step{0, Head(2), Line("b", -7)}), Goto(Head(3), Line("old", -5)));
}

TEST_F(GotoPos, SearchesUpPastLinesWithoutAStamp)
{
    OpenLines({Line("b", -6), "", "continued", Line("j")});
    EXPECT_EQ((Step{0, 0, Line("b", -6)}), Goto(Head(3), Line("gone", -5)));
    EXPECT_EQ((Texts{"0 Search up...", "1 get \"continued\"'s time error",
                     "1 get \"\"'s time error", "0 <return 0"}),
              Said("GotoPos"));
}

// The cursor stands on the first line then, not before it: that line is passed over, as intended.
TEST_F(GotoPos, WhenEveryLineIsNewerHasNoPositionAndGoesOnWithTheSecondLine)
{
    const Texts lines = {Line("a", -2), Line("b", -1), Line("c")};
    for (int at = 0; at < 3; ++at) { // also from the first line itself
        OpenLines(lines);
        EXPECT_EQ((Step{0, -1, ""}), Goto(Head(at), Line("gone", -5)));
        EXPECT_EQ(Line("gone", -5).substr(1), content_.c_str() + 1); // its first byte alone
        EXPECT_EQ("0 <return 0", LastSaid());
        EXPECT_EQ(1, ::FBegin());
        ExpectNext(Head(1), lines[1]);
    }
}

TEST_F(GotoPos, WhenNoLineFurtherUpHasAStampHasNoPosition)
{
    OpenLines({"x", "y", Line("j")});
    EXPECT_EQ((Step{0, -1, ""}), Goto(Head(2), Line("gone", -5)));
    ExpectNext(2, "y");
}

TEST_F(GotoPos, SearchesUpOverManyBlocksAndComesBackToTheNewestLineOfTheSecond)
{
    Texts lines = {Line("a", -9)};
    for (int i = 0; i < 600; ++i)
        lines.push_back(Line("line " + std::to_string(i) + std::string(70, '.'), -5));
    for (int i = 0; i < 600; ++i)
        lines.push_back(Line("newer " + std::to_string(i) + std::string(70, '.')));
    OpenLines(lines);
    EXPECT_EQ((Step{0, Head(600), lines[600]}), Goto(Head(1150), Line("gone", -5)));
    EXPECT_EQ(lines[600], CurrentLine());
    ExpectNext(Head(601), lines[601]);
}

TEST_F(GotoPos, DeliversTheLineFoundFurtherUpWholeWhateverSizeIsGiven)
{
    const std::string line = Line(std::string(5000, 'x'), -6);
    OpenLines({line, Line("j")});
    EXPECT_EQ((Step{0, 0, Cut(line)}), Goto(Head(1), Line("gone", -5)));
    EXPECT_EQ((Step{0, 0, Cut(line)}), Goto(Head(1), Line("gone", -5).substr(0, 15), 10));
}

// ---- search down: the line at the offset is older ----

TEST_F(GotoPos, FindsANewerLineFurtherDown)
{
    OpenLines({Line("a", -9), Line("b", -7), Line("old", -5), Line("c")});
    EXPECT_EQ((Step{0, Head(2), Line("old", -5)}), Goto(0, Line("old", -5)));
    EXPECT_TRUE(text_is_untouched_);
    EXPECT_EQ((Texts{"0 Search down ...",
                     "0 " + std::to_string(Head(1)) + "   :\"" + Line("b", -7) + "\"\n",
                     "0 " + std::to_string(Head(2)) + "   :\"" + Line("old", -5) + "\"\n",
                     "0 <found.return 0."}),
              Said("GotoPos"));
    ExpectNext(Head(3), Line("c"));
}

TEST_F(GotoPos, FindsANewerLineThatIsNewerThanItsTextSays)
{
    // The text is compared before the time: a line that begins with it wins wherever it is met.
    OpenLines({Line("a", -9), "no stamp but the text", Line("c")});
    lastendtime = *Sys().now - 5;
    EXPECT_EQ((Step{0, Head(1), "no stamp"}), Goto(0, "no stamp"));
}

TEST_F(GotoPos, StopsBeforeTheFirstNewerLineWhenTheLineIsGone)
{
    OpenLines({Line("a", -9), Line("b", -7), Line("c", -5), Line("d", -4), Line("e", -9)});
    EXPECT_EQ((Step{0, Head(2), Line("c", -5)}), Goto(0, Line("gone", -5)));
    EXPECT_EQ("0 <return 0.", LastSaid());
    EXPECT_EQ(Line("c", -5), CurrentLine());
    ExpectNext(Head(3), Line("d", -4));
}

TEST_F(GotoPos, ClearsTheBufferBeforeItStoresTheLineFoundFurtherDown)
{
    OpenLines({Line("a", -9), Line("d", -4)});
    EXPECT_EQ((Step{0, 0, Line("a", -9)}), Goto(0, Line("gone and longer", -5)));
    const std::string rest = content_.substr(Line("a", -9).size());
    EXPECT_EQ(std::string(rest.size(), '\0'), rest);
}

TEST_F(GotoPos, MayStepBackOntoTheLineAtTheOffset)
{
    OpenLines({Line("a", -9), Line("d", -4), Line("e")});
    EXPECT_EQ((Step{0, 0, Line("a", -9)}), Goto(3, Line("gone", -5)));
    ExpectNext(Head(1), Line("d", -4));
}

TEST_F(GotoPos, WithoutANewerLineEndsOnTheLastOne)
{
    OpenLines({Line("a", -9), Line("b", -7), Line("c", -5)});
    EXPECT_EQ((Step{0, Head(2), Line("c", -5)}), Goto(0, Line("gone", -5)));
    EXPECT_EQ(1, ::FEof());
}

TEST_F(GotoPos, OnAnOldLastLineStaysThere)
{
    OpenLines({Line("a", -9)});
    EXPECT_EQ((Step{0, 0, Line("a", -9)}), Goto(5, Line("gone", -5)));
    EXPECT_EQ((Texts{"0 Search down ...", "0 <return 0."}), Said("GotoPos"));
    EXPECT_EQ(1, ::FEof());
}

TEST_F(GotoPos, SearchesDownPastLinesWithoutAStamp)
{
    OpenLines({Line("a", -9), "one", "", Line("d", -4)});
    EXPECT_EQ((Step{0, Head(2), ""}), Goto(0, Line("gone", -5)));
    EXPECT_EQ((Texts{"1 GotoPos: get \"one\"'s time error.", "1 GotoPos: get \"\"'s time error."}),
              Complaints());
    ExpectNext(Head(3), Line("d", -4));
}

TEST_F(GotoPos, StepsBackOverABlockEdge)
{
    // The first newer line is the first of the second block.
    const std::string first = Line("a", -9);
    const std::string second =
        Line(std::string(kBlock - 2 - first.size() - Line("").size(), 'x'), -9);
    OpenLines({first, second, Line("d", -4), Line("e")});
    ASSERT_EQ(kBlockSize, Head(2));
    EXPECT_EQ((Step{0, Head(1), Cut(second)}), Goto(0, Line("gone", -5)));
    ExpectNext(Head(2), Line("d", -4));
    ExpectNext(Head(3), Line("e"));
}

TEST_F(GotoPos, StoresNoMoreOfALineThanTheBufferHolds)
{
    OpenLines({Line("a", -9), Line("d", -4)});
    EXPECT_EQ((Step{0, 0, Line("a", -9).substr(0, 19)}), Goto(0, "Mar  5 11:59:55 ", 20));
    EXPECT_EQ(test::kUntouchedByte, content_[20]);
}

// ---- lines and texts without a time ----

TEST_F(GotoPos, OfATextWithoutAStampTakesTheEndOfTheLastPassForItsTime)
{
    OpenLines({Line("a", -9), Line("b", -5), Line("c", -4)});
    lastendtime = *Sys().now - 5;
    EXPECT_EQ((Step{0, Head(1), Line("b", -5)}), Goto(Head(1), "gone"));
    char when[32];
    EXPECT_EQ((Texts{"1 get pcontent \"gone\"'s time error",
                     "0 set pcontent's time to " + std::string(ctime_r(&lastendtime, when)) + "(" +
                         std::to_string(lastendtime) + ")",
                     "0 Search before ..."}),
              FirstThreeSaid());

    lastendtime = *Sys().now - 6; // then "b" is newer: up
    EXPECT_EQ((Step{0, 0, Line("a", -9)}), Goto(Head(1), "gone"));
    lastendtime = *Sys().now - 4; // then it is older: down
    EXPECT_EQ((Step{0, Head(2), Line("c", -4)}), Goto(Head(1), "gone"));
}

TEST_F(GotoPos, ShowsATimeThatCannotBeWrittenAsNull)
{
    OpenLines({Line("a", -9), Line("b", -5)});
    lastendtime = INT64_MAX;
    EXPECT_EQ((Step{0, Head(1), Line("b", -5)}), Goto(0, "gone"));
    EXPECT_EQ(1, Host().Traced(0, "set pcontent's time to NULL(9223372036854775807)"));
}

TEST_F(GotoPos, TakesALineWithoutAStampAtTheOffsetForOneSecondOlder)
{
    OpenLines({Line("a", -5), "no stamp", Line("old", -5), Line("b")});
    EXPECT_EQ((Step{0, Head(2), Line("old", -5)}), Goto(Head(1), Line("old", -5)));
    const time_t older = *Sys().now - 6;
    char when[32];
    EXPECT_EQ((Texts{"1 get \"no stamp\"'s time error",
                     "0 set time to " + std::string(ctime_r(&older, when)) + "(" +
                         std::to_string(older) + ")",
                     "0 Search down ..."}),
              FirstThreeSaid());
    EXPECT_EQ("0 <found.return 0.", LastSaid());
}

TEST_F(GotoPos, WithoutAnyStampEndsOnTheLastLine)
{
    OpenLines({"one", "two", "three"});
    EXPECT_EQ((Step{0, 8, "three"}), Goto(0, "gone"));
    EXPECT_EQ(1, ::FEof());
    EXPECT_EQ((Texts{"1 GotoPos: get pcontent \"gone\"'s time error",
                     "1 GotoPos: get \"one\"'s time error", "1 GotoPos: get \"two\"'s time error.",
                     "1 GotoPos: get \"three\"'s time error."}),
              Complaints());
}

// ---- odd files ----

TEST_F(GotoPos, OfAFileThatShrankToNothingFails)
{
    OpenLines({Line("a"), Line("b")});
    ShrinkTo(0);
    ExpectFailure(Head(1), Line("b"));
    EXPECT_EQ((Texts{"1 GetNextLine: <curblock's length is 0.return -1.",
                     "1 GotoPos: <GetNextLine() error. tmppos=0.return -1."}),
              Complaints());
}

TEST_F(GotoPos, OfAFileThatShrinksAfterTheOpeningFailsWhereItsLinesEnd)
{
    OpenLines({Line("a", -9), Line("b", -8), Line("c")});
    const int64_t end = Head(1);
    ShrinkTo(static_cast<size_t>(end));
    ExpectFailure(0, Line("gone", -5));
    EXPECT_EQ("1 <GetNextLine error. tmppos=0.return -1.", LastSaid());
}

TEST_F(GotoPos, OfAFileThatGrewReadsToTheEndOfTheBlockThatReachesBeyondTheOldEnd)
{
    OpenLines({Line("a"), Line("b")});
    Grow(Line("c") + "\nhalf a li");
    EXPECT_EQ((Step{0, Head(1), Line("b")}), Goto(Head(1), Line("b")));
    ExpectNext(static_cast<int64_t>(text_.size()), Line("c"));
    EXPECT_EQ(1, ::FEof());
}

TEST_F(GotoPos, DoesNotDeliverHalfOfALineThatIsStillBeingWritten)
{
    const std::string first = Line("a") + "\n";
    UntilLooked(2, [&] {
        OpenFresh(first + Line("b").substr(0, 9));
        WriteOnAtLook(2, Line("b").substr(9) + "\n");
        Goto(0, Line("a"));
    });
    ExpectNext(static_cast<int64_t>(first.size()), Line("b"));
    EXPECT_EQ(1, ::FEof());
}

TEST_F(GotoPos, FindsTheHeadOfALineByItsNewlineAlone)
{
    // A zero byte ends a line for the steps, but the search for the head passes it.
    OpenLines({Line("a"), Line("b") + std::string("\0tail", 5), Line("new")});
    EXPECT_EQ((Step{0, Head(2), Line("b")}), Goto(Head(2), Line("b")));
    ExpectNext(Head(2), "tail");
}

TEST_F(GotoPos, OnAPieceOfALongLineBeginsAtTheHeadOfTheLine)
{
    const std::string line = Line(std::string(2 * kBlock, 'x'));
    OpenLines({Line("a"), line, Line("new")});
    EXPECT_EQ((Step{0, Head(1) + kBlockSize, line.substr(0, 499)}),
              Goto(Head(1) + kBlockSize, line.substr(0, 499)));
    ExpectNext(Head(1) + kBlockSize, std::string(3328, 'x')); // its second piece
}

TEST_F(GotoPos, OfAFileThatIsOneUnfinishedLineStandsOnIt)
{
    WriteOldLog("no newline");
    Open();
    EXPECT_EQ((Step{0, 4, "no newl"}), Goto(4, "no newl"));
    EXPECT_EQ(1, ::FEof());
}

// ---- failures ----

TEST_F(GotoPos, WhenTheHeadOfTheLineCannotBeFoundFails)
{
    OpenLines({Line("a"), Line("b")});
    Sys().FailCall("fseek", 1);
    ExpectFailure(Head(1), Line("b"));
    EXPECT_EQ((Texts{"1 <GetLineHead() error.return -1."}), Said("GotoPos"));
}

TEST_F(GotoPos, WhenTheLineCannotBeLoadedFails)
{
    for (const char *call : {"fseek", "fread"}) {
        OpenLines({Line("a"), Line("b")});
        Sys().FailCall(call, 2);
        ExpectFailure(Head(1), Line("b"));
        EXPECT_EQ((Texts{"1 <GetBlockAt() error. pos=" + std::to_string(Head(1)) +
                         ", length=16384.return -1."}),
                  Said("GotoPos"));
        EXPECT_TRUE(IsCleared(curblock));
    }
}

TEST_F(GotoPos, WithoutAPositionFailsAsWellWhenTheFileCannotBeRead)
{
    for (const char *call : {"fseek", "fread"}) {
        OpenLines({Line("a")});
        Sys().FailCall(call, 1);
        ExpectFailure(-1, Line("b"));
        EXPECT_EQ((Texts{"1 <GetBlockAt() error. pos=0, length=16384.return -1."}),
                  Said("GotoPos"));
    }
}

// Failures of steps over a block edge, by kind of search. "a" is in the first block, alone with a
// line that fills it; the other lines are in the second.
class FailingSearch : public GotoPos {
  protected:
    // Lines of these times, seconds from now.
    void OpenTwoBlocks(int first, int filler, int second, int third)
    {
        const std::string a = Line("a", first);
        const std::string fill(kBlock - 2 - a.size() - Line("").size(), 'x');
        OpenLines({a, Line(fill, filler), Line("b", second), Line("c", third)});
        ASSERT_EQ(kBlockSize, Head(2));
    }
};

TEST_F(FailingSearch, BackwardsWithinTheSecondKeepsTheValues)
{
    for (const char *call : {"fseek", "fread"}) {
        OpenTwoBlocks(0, 0, 0, 0);
        Sys().FailCall(call, 3);
        ExpectFailure(Head(3), Line("gone"));
        EXPECT_EQ("1 <GetPreLine error. tmppos=" + std::to_string(Head(3)) + ".retrun -1.",
                  LastSaid());
    }
}

TEST_F(FailingSearch, UpwardsKeepsTheValues)
{
    for (const char *call : {"fseek", "fread"}) {
        OpenTwoBlocks(-9, -9, -1, 0);
        Sys().FailCall(call, 3);
        ExpectFailure(Head(2), Line("gone", -5));
        EXPECT_EQ("1 <GetPreLine error. tmppos=16384.return -1.", LastSaid());
    }
}

TEST_F(FailingSearch, DownwardsKeepsTheValues)
{
    for (const char *call : {"fseek", "fread"}) {
        OpenTwoBlocks(-9, -8, -7, 0);
        // From the first line no head is searched: load, then the next block. Its line is "b".
        Sys().FailCall(call, 2);
        ExpectFailure(0, Line("gone", -5));
        EXPECT_EQ("1 <GetNextLine error. tmppos=" + std::to_string(Head(1)) + ".return -1.",
                  LastSaid());
    }
}

TEST_F(FailingSearch, OfTheStepBackOntoTheLastOlderLineKeepsTheValues)
{
    for (const char *call : {"fseek", "fread"}) {
        OpenTwoBlocks(-9, -8, 0, 0);
        Sys().FailCall(call, 3); // load, next block, and back
        ExpectFailure(0, Line("gone", -5));
        EXPECT_EQ("1 <GetPreLine error. tmppos=16384.return -1.", LastSaid());
    }
}

// A vain look back over several blocks, then a search down over several: every kind of load.
TEST_F(FailingSearch, KeepsTheValuesWhicheverCallFails)
{
    Texts lines;
    for (int i = 0; i < 1200; ++i)
        lines.push_back(Line("line " + std::to_string(i) + std::string(70, '.')));
    lines.push_back(Line("n", 1));
    for (const char *call : {"fseek", "fread"}) {
        int failures = 0;
        for (int n = 1; n < 100; ++n) {
            SCOPED_TRACE(std::string(call) + " " + std::to_string(n));
            OpenLines(lines);
            Host().record_trace = n < 4; // enough to see the messages, and fast for the rest
            Sys().FailCall(call, n);
            const Step step = Goto(Head(600), Line("gone"));
            Sys().FailCall(call, 0);
            if (step.result == 0) {
                // Nothing failed, or the search for the head alone, which began further up then.
                EXPECT_EQ((Step{0, Head(1199), lines[1199]}), step);
                if (n > 1)
                    break;
                continue;
            }
            ++failures;
            EXPECT_EQ((Step{-1, Head(600), Line("gone")}), step);
            EXPECT_TRUE(text_is_untouched_);
            EXPECT_TRUE(n >= 4 || LastSaid().substr(0, 2) == "1 ");
        }
        EXPECT_LE(8, failures) << call;
        EXPECT_GT(90, failures) << call; // it ended because nothing failed any more
        Host().record_trace = true;
    }
}

} // namespace
