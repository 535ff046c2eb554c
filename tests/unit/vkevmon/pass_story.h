// A pass over a system log, and what is expected of it.
#ifndef TESTS_UNIT_VKEVMON_PASS_STORY_H
#define TESTS_UNIT_VKEVMON_PASS_STORY_H

#include <cstdint>
#include <string>

#include "tests/unit/vkevmon/pass_fixture.h"
#include "vkevmon/pass.h"

namespace test {

constexpr char kNow[] = "Sun Mar 10 12:00:00 2024\n"; // the clock of these tests, as ctime shows it

class Pass : public SyslogScanTest {
  protected:
    // One pass. Gives what CheckLine got.
    static CheckedList Run()
    {
        Host().ForgetRecords();
        WatchSyslogMain();
        ExpectNothingHeld();
        return CheckedLines();
    }

    // Starts to follow a system log with these lines.
    void Follow(const Strings &lines) const
    {
        SetFolder({{"messages", Text(lines)}});
        EXPECT_EQ(CheckedList{}, Run());
    }

    void Append(const Strings &lines) const { AppendLog("messages", Text(lines)); }

    static Strings Own() { return RecordsOf("WatchSyslogMain"); }
    static Strings OwnNotable() { return NotableRecordsOf("WatchSyslogMain"); }

    static std::string Repeat(int64_t times)
    {
        return Line("last message repeated " + std::to_string(times) + " times");
    }

    // The stored place is this line of the live file, the last one when it occurs again.
    void ExpectStoredAt(const std::string &line, const std::string &text) const
    {
        const size_t end = ("\n" + text).rfind("\n" + line + "\n");
        ASSERT_NE(std::string::npos, end);
        EXPECT_EQ(static_cast<int64_t>(end), StoredResumePoint().pos);
        EXPECT_EQ(line, StoredResumePoint().content);
    }

    const std::string head_ = Line("head", -99);
    const std::string a_ = Line("A", -9);
    const std::string b_ = Line("B", -8);
    const std::string c_ = Line("C", -7);
    const std::string d_ = Line("D", -6);
};

class CustomerPass : public Pass {
  protected:
    void FollowBoth() const
    {
        SetFolder({{"messages", Text({head_})}, {"app.log", Text({"app head"})}});
        WatchCustomerFile("/var/log/app.log");
        EXPECT_EQ(CheckedList{}, Run());
    }
};

} // namespace test

#endif // TESTS_UNIT_VKEVMON_PASS_STORY_H
