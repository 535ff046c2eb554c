// What the tests of the loading of the table share.
#ifndef TESTS_UNIT_VKEVMON_TABLE_FIXTURE_H
#define TESTS_UNIT_VKEVMON_TABLE_FIXTURE_H

#include "match/table_data.h"
#include "tests/unit/vkevmon/frame_fixture.h"
#include "vkevmon/table.h"

namespace test {

class TableLoad : public ModuleTest {
  protected:
    TableLoad() { Host().registry.CreateKey(kApplicationKey); }

    static EventSpec Event(const std::string &source, const std::string &id,
                           const std::string &keyword = "word")
    {
        return {.source = source, .id = id, .keywords = {keyword, "", ""}};
    }

    // Loads; the table has to hold exactly these rows then.
    static void ExpectLoads(const Rows &rows)
    {
        EXPECT_EQ(0, VKVMonQueGet()) << TraceDump();
        EXPECT_EQ(rows, TableRows());
        EXPECT_EQ(static_cast<int>(rows.size()), nCnt);
        ExpectTraced(0, "VKVMonQueGet", "<return 0");
    }
    // Loads; that has to fail, and the table to be empty then.
    static void ExpectFails()
    {
        EXPECT_EQ(-1, VKVMonQueGet()) << TraceDump();
        EXPECT_EQ(0, nCnt);
        EXPECT_EQ(Rows{}, TableRows());
        ExpectTraced(0, "VKVMonQueGet", "<return -1");
    }
    static void ExpectKeysLeftOpen(int n) { EXPECT_EQ(n, Host().registry.OpenHandles()); }
};

} // namespace test

#endif // TESTS_UNIT_VKEVMON_TABLE_FIXTURE_H
