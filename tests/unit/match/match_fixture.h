// Gives CheckLine a line and tells what came of it.
#ifndef TESTS_UNIT_MATCH_MATCH_FIXTURE_H
#define TESTS_UNIT_MATCH_MATCH_FIXTURE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "match/match.h"
#include "match/report.h"
#include "match/table_data.h"
#include "tests/support/module_test.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace test {

class Match : public ModuleTest {
  protected:
    Match() { SetClock(2024, 3, 10, 12, 0, 0); }

    // Writes into an entry by hand, as the host may.
    template <size_t size>
    static void Set(char (&field)[size], const std::string &text)
    {
        snprintf(field, size, "%s", text.c_str());
    }

    static void EmptyTable()
    {
        FreeTableEntries();
        nCnt = 0;
    }

    // An entry with one keyword.
    static VKVMon *Watch(const std::string &keyword, uint32_t report_count = 1)
    {
        EventSpec event;
        event.keywords[0] = keyword;
        event.report_count = report_count;
        return AddEntry(event);
    }

    static VKVMon *Watch(const std::array<std::string, 3> &keywords)
    {
        EventSpec event;
        event.keywords = keywords;
        return AddEntry(event);
    }

    // Gives CheckLine a line as it stands, in a buffer of its own.
    static int Check(const std::string &line, int times = 1)
    {
        std::vector<char> buffer(line.c_str(), line.c_str() + line.size() + 1);
        const int result = CheckLine(buffer.data(), times);
        EXPECT_STREQ(line.c_str(), buffer.data());
        return result;
    }

    // Does a dated line with this text raise a report?
    static bool Reports(const std::string &text)
    {
        Host().ForgetRecords();
        EXPECT_EQ(0, Check(Line(text)));
        return !Host().reports.empty();
    }

    // The records of CheckLine itself but its entry mark, with their levels: "3 Report ...".
    static Strings OwnRecords() { return RecordsOf("CheckLine"); }

    // How often the hour was asked for.
    static int HourTests()
    {
        int count = 0;
        for (const TraceRecord &record : Host().trace)
            count += record.function == "OnTime" && record.text == ">" ? 1 : 0;
        return count;
    }

    static Strings Sources()
    {
        Strings list;
        for (const auto &report : Host().reports)
            list.push_back(report.source);
        return list;
    }
};

} // namespace test

#endif // TESTS_UNIT_MATCH_MATCH_FIXTURE_H
