// What becomes of the parts of the logs that a pass has read.
#include "agent/daemon/loss_notes.h"

#include <sys/stat.h>

#include "agent/alerts/own_alert.h"
#include "platform/contract.h"
#include "tests/agent/support/host_test.h"

namespace {

class LossNotesTest : public test::HostTest {
  protected:
    LossNotesTest() : notes_(test::Store(), test::Registry())
    {
        test::WriteFile(one_, "first of one\n");
        test::WriteFile(other_, "first of the other\nsecond of the other\n");
        Set(one_);
        notes_.Begin();
    }

    static void Set(const std::filesystem::path &customer_file)
    {
        test::SetTreeText(kMonitorKey, kFileNameValue, customer_file);
    }
    // A pass that has read the last line of a file, which begins there, as the customer file.
    void Read(const std::filesystem::path &file, int64_t line)
    {
        struct stat status {};
        ASSERT_EQ(0, stat(file.c_str(), &status));
        const std::string log = file; // dies before the commit
        notes_.Add({.slot = 1,
                    .is_afresh = 0,
                    .device = status.st_dev,
                    .inode = status.st_ino,
                    .first = line,
                    .last_read = line,
                    .last = line,
                    .log = log.c_str()});
    }
    void Commit()
    {
        host::Transaction pass(test::Store());
        notes_.BeforeCommit();
        pass.Commit();
    }
    static size_t Told() { return alerts::ReadOwnTotals(test::Store().database()).size(); }
    static int64_t Known(const std::filesystem::path &log)
    {
        host::Statement count(test::Store().database(),
                              "SELECT count(*) FROM log_file WHERE log = ?");
        count.Start(log.string());
        return count.Next() ? count.Integer(0) : -1;
    }

    std::filesystem::path one_ = File("one.log");
    std::filesystem::path other_ = File("other.log");
    syslogmond::LossNotes notes_;
};

TEST_F(LossNotesTest, WhatIsBetweenTwoPartsIsTold)
{
    Read(one_, 0);
    Commit();
    EXPECT_EQ(0U, Told());
    test::WriteFile(one_, "first of one\nsecond of one\nthird of one\n");
    Read(one_, 27);
    Commit();
    EXPECT_EQ(1U, Told());
}

// The module hears of it behind the pass.
TEST_F(LossNotesTest, APassThatReadsTheCustomerFileWhileAnotherOneIsSetIsOneOfTheFileThatItReads)
{
    Read(one_, 0);
    Commit();
    test::WriteFile(one_, "first of one\nsecond of one\n");
    Read(one_, 13);
    Set(other_);
    Commit();
    EXPECT_EQ(1, Known(one_));
    EXPECT_EQ(0, Known(other_));
    Read(other_, 19);
    Commit();
    EXPECT_EQ(0, Known(one_));
    EXPECT_EQ(1, Known(other_));
    EXPECT_EQ(0U, Told()) << "the other one is followed from where its first pass stands";
}

TEST_F(LossNotesTest, WhatAPassThatIsGivenUpHasReadIsForgotten)
{
    Read(one_, 0);
    Commit();
    test::WriteFile(one_, "first of one\nsecond of one\nthird of one\n");
    Read(one_, 27);
    notes_.Abandoned();
    Read(one_, 13);
    Read(one_, 27);
    Commit();
    EXPECT_EQ(0U, Told());
}

TEST_F(LossNotesTest, OfACustomerFileThatIsSetNoLongerNothingIsKept)
{
    Read(one_, 0);
    Commit();
    EXPECT_EQ(1, Known(one_));
    Set("");
    Commit();
    EXPECT_EQ(0, Known(one_));
}

} // namespace
