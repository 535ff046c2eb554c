// Losses of the customer file and of the watched file. See losses.h.
#include "tests/history/losses.h"

namespace history {
namespace {

// ---- the customer file ----

using CustomerFile = LossTest;

// Files opened by a pass over both logs: the system log twice, then the customer file twice.
constexpr int kToLookAtCustomerFile = 3;
constexpr int kToReadCustomerFile = 4;

TEST_F(CustomerFile, LosesWhatIsUnreadWhenTheMonitorIsToldTwiceOfTheSameName)
{
    Log({"system"});
    Log({"checked"}, "customer.log");
    NameCustomerFile("/var/log/customer.log");
    Pass();
    Log({"lost"}, "customer.log");
    TellCustomerFileChanged();
    EXPECT_EQ(kNothing, Pass());
    Log({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(CustomerFile, LosesItsFirstLinesWhenItIsMissingAsItIsNamed)
{
    Log({"system"});
    NameCustomerFile("/var/log/customer.log");
    Pass();
    Log({"lost 1", "lost 2"}, "customer.log");
    EXPECT_EQ(kNothing, Pass());
    Log({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(CustomerFile, LosesAtItsRotationWhatIsUnreadAndWhatIsNew)
{
    Log({"system"});
    Log({"checked"}, "customer.log");
    NameCustomerFile("/var/log/customer.log");
    Pass();
    LogLater({"lost, old"}, "customer.log");
    Rotate("customer.log");
    LogLater({"lost, new"}, "customer.log");
    EXPECT_EQ(kNothing, Pass());
    LogLater({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(CustomerFile, LosesWhatIsNewAfterItsRotationAlsoWhenAllWasReadBefore)
{
    Log({"system"});
    Log({"checked"}, "customer.log");
    NameCustomerFile("/var/log/customer.log");
    Pass();
    LogLater({"old"}, "customer.log");
    EXPECT_EQ(Strings{"old"}, Pass());
    Rotate("customer.log");
    EXPECT_EQ(kNothing, Pass());
    LogLater({"lost"}, "customer.log");
    EXPECT_EQ(kNothing, Pass());
    LogLater({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

// There are no backups to look for the place in, so it starts afresh in this pass and not in the next.
TEST_F(CustomerFile, LosesNothingThatComesAfterThePassInWhichItIsRotated)
{
    Log({"system"});
    Log({"checked"}, "customer.log");
    NameCustomerFile("/var/log/customer.log");
    Pass();
    LogLater({"lost, old"}, "customer.log");
    BeforeFile(kToLookAtCustomerFile, [this] {
        Rotate("customer.log");
        LogLater({"lost, new"}, "customer.log");
    });
    EXPECT_EQ(kNothing, Pass());
    LogLater({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

// The new file is read as if it were the old one, by its time stamps.
TEST_F(CustomerFile, LosesWhatIsUnreadAndTheFirstNewLineWhenItIsRotatedBeforeItIsRead)
{
    Log({"system"});
    Log({"checked"}, "customer.log");
    NameCustomerFile("/var/log/customer.log");
    Pass();
    LogLater({"lost, old"}, "customer.log");
    BeforeFile(kToReadCustomerFile, [this] {
        Rotate("customer.log");
        LogLater({"passed over", "new 1", "new 2"}, "customer.log");
    });
    EXPECT_EQ((Strings{"new 1", "new 2"}), Pass());
    LogLater({"lost"}, "customer.log");
    EXPECT_EQ(kNothing, Pass());
    LogLater({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(CustomerFile, LosesNothingAtItsRotationWhenItIsVmkernel)
{
    Log({"system"});
    Log({"checked"}, "vmkernel");
    NameCustomerFile("/var/log/vmkernel");
    Pass();
    LogLater({"old"}, "vmkernel");
    Rotate("vmkernel");
    LogLater({"new"}, "vmkernel");
    EXPECT_EQ((Strings{"old", "new"}), Pass());
}

TEST_F(CustomerFile, LosesAllThatIsUnreadAfterFiveRotationsOfVmkernelBetweenTwoPasses)
{
    Log({"system"});
    Log({"checked"}, "vmkernel");
    NameCustomerFile("/var/log/vmkernel");
    Pass();
    for (int i = 0; i < 5; ++i) {
        LogLater({"lost"}, "vmkernel");
        Rotate("vmkernel");
    }
    LogLater({"lost"}, "vmkernel");
    EXPECT_EQ(kNothing, Pass());
}

// ---- the file monitor ----

class WatchedFile : public LossTest {
  protected:
    // A watched file of which everything was read.
    WatchedFile()
    {
        Log({"checked"}, "app.log");
        NameTarget("/var/log/app.log");
        FilePass();
    }
};

TEST_F(WatchedFile, LosesWhatIsUnreadWhenItIsReplaced)
{
    Log({"lost"}, "app.log");
    Rotate("app.log");
    Log({"new"}, "app.log");
    EXPECT_EQ(Strings{"new"}, FilePass());
}

TEST_F(WatchedFile, LosesNothingWhenItWasReadBeforeItsReplacement)
{
    Log({"old"}, "app.log");
    EXPECT_EQ(Strings{"old"}, FilePass());
    Rotate("app.log");
    Log({"new"}, "app.log");
    EXPECT_EQ(Strings{"new"}, FilePass());
}

TEST_F(WatchedFile, LosesWhatIsWrittenBetweenItsTruncationAndTheNextPassThatFindsItShorter)
{
    Log({"old"}, "app.log");
    EXPECT_EQ(Strings{"old"}, FilePass());
    std::filesystem::copy(LogFile("app.log"), LogFile("app.log.1"));
    WriteLog("app.log", "");
    Log({"lost"}, "app.log");
    EXPECT_EQ(kNothing, FilePass());
    Log({"counted"}, "app.log");
    EXPECT_EQ(Strings{"counted"}, FilePass());
}

TEST_F(WatchedFile, LosesWhatIsRewrittenInPlaceAtEqualSize)
{
    WriteLog("app.log", Line("CHANGED") + "\n"); // as long as "checked"
    EXPECT_EQ(kNothing, FilePass());
    Log({"counted"}, "app.log");
    EXPECT_EQ(Strings{"counted"}, FilePass());
}

TEST_F(WatchedFile, LosesWhatItHoldsAtTheFirstPassThatFindsItShorter)
{
    Log({"also checked"}, "app.log");
    FilePass();
    WriteLog("app.log", Line("lost") + "\n");
    EXPECT_EQ(kNothing, FilePass());
    Log({"counted"}, "app.log");
    EXPECT_EQ(Strings{"counted"}, FilePass());
}

TEST_F(WatchedFile, IsReadOnFromItsOldSizeWhenItWasTruncatedAndRefilledBeyondIt)
{
    // "checked" took as many bytes as "lost 01".
    WriteLog("app.log", Line("lost 01") + "\n" + Line("counted") + "\n");
    EXPECT_EQ(Strings{"counted"}, FilePass());
}

TEST_F(WatchedFile, IsReadFromTheMiddleOfALineWhenItsOldSizeLiesThere)
{
    VKVMon *host = each_;
    snprintf(host->Keyword1, sizeof host->Keyword1, "tail");
    WriteLog("app.log", Line("a long line that was lost, but for its tail") + "\n");
    const Strings reported = FilePass();
    ASSERT_EQ(1U, reported.size());
    EXPECT_EQ(std::string::npos, reported[0].find("host"));
    EXPECT_NE(std::string::npos, reported[0].find("tail"));
}

TEST_F(WatchedFile, LosesTheFirstPartOfALineThatIsUnfinishedWhenItIsFoundShorter)
{
    snprintf(each_->Keyword1, sizeof each_->Keyword1, "rest");
    WriteLog("app.log", "a line: ");
    EXPECT_EQ(kNothing, FilePass());
    AppendLog("app.log", "the rest\n");
    EXPECT_EQ(Strings{"the rest"}, FilePass());
}

TEST_F(WatchedFile, WaitsForTheEndOfAnUnfinishedLine)
{
    AppendLog("app.log", Line("half and "));
    EXPECT_EQ(kNothing, FilePass());
    AppendLog("app.log", "half\n");
    EXPECT_EQ(Strings{"half and half"}, FilePass());
}

TEST_F(WatchedFile, CountsALineTwiceBehindALongOneThatLiesAcrossTheEdgeOfABlock)
{
    constexpr size_t kBlock = 16384;
    constexpr size_t kBeforeTheEdge = 1500; // of the long line; with all of it more than is handled
    snprintf(each_->Keyword1, sizeof each_->Keyword1, "twice");
    const size_t filled = kBlock - kBeforeTheEdge;
    AppendLog("app.log", std::string(filled - 1, 'x') + "\n");
    AppendLog("app.log", std::string(2000, 'y') + "\n");
    Log({"twice", "after"}, "app.log");
    const Strings reported = FilePass();
    ASSERT_EQ(2U, reported.size());
    EXPECT_EQ("twice\n", reported[0].substr(0, 6)); // behind the long line, whose delivery runs on
    EXPECT_EQ("twice", reported[1]);
}

TEST_F(WatchedFile, CountsALineOnceBehindAShorterOneThatLiesAcrossTheEdgeOfABlock)
{
    snprintf(each_->Keyword1, sizeof each_->Keyword1, "once");
    AppendLog("app.log", std::string(16384 - 1500, 'x') + "\n");
    AppendLog("app.log", std::string(1664, 'y') + "\n"); // twice that is no more than is handled
    Log({"once", "after"}, "app.log");
    EXPECT_EQ(Strings{"once"}, FilePass());
}

TEST_F(WatchedFile, CountsAgainWhenItIsNamedAgainAfterAnother)
{
    Log({"other"}, "other.log");
    NameTarget("/var/log/other.log");
    EXPECT_EQ(Strings{"other"}, FilePass());
    NameTarget("/var/log/app.log");
    EXPECT_EQ(Strings{"checked"}, FilePass());
}

TEST_F(WatchedFile, CountsFromItsFirstLineWhenItIsNamed)
{
    Log({"written long ago", "and yesterday"}, "other.log");
    NameTarget("/var/log/other.log");
    EXPECT_EQ((Strings{"written long ago", "and yesterday"}), FilePass());
}

} // namespace
} // namespace history
