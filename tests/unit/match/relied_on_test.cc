// What an index relies on: every change of it is noticed.
#include "match/relied_on.h"

#include <cstring>
#include <string>
#include <utility>

#include "match/table_data.h"
#include "tests/support/module_test.h"

namespace test {
namespace {

class ReliedOn : public ModuleTest {
  protected:
    static VKVMon *Add(const std::string &keyword)
    {
        EventSpec event;
        event.source = "A";
        event.keywords[0] = keyword;
        return AddEntry(event);
    }

    static void Rely()
    {
        RelyOnSlots(nCnt);
        for (int i = 0; i < nCnt; ++i)
            RelyOnKeyword(lpVKVMon[i]->Keyword1, strlen(lpVKVMon[i]->Keyword1));
    }
};

TEST_F(ReliedOn, IsTheSameUntilAnyByteOfAKeywordChanges)
{
    for (const size_t length : {1U, 31U, 32U, 33U, 200U, 256U}) {
        VKVMon *entry = Add(std::string(length, 'k'));
        Rely();
        ASSERT_TRUE(AllReliedOnIsTheSame());
        for (size_t i = 0; i <= length; ++i) {
            const char before = entry->Keyword1[i];
            entry->Keyword1[i] = 'x';
            EXPECT_FALSE(AllReliedOnIsTheSame()) << "byte " << i << " of " << length;
            entry->Keyword1[i] = before;
        }
        EXPECT_TRUE(AllReliedOnIsTheSame());
    }
}

TEST_F(ReliedOn, ChangesWithTheSlotsOfTheTable)
{
    VKVMon *first = Add("one");
    VKVMon *second = Add("two");
    Rely();
    std::swap(lpVKVMon[0], lpVKVMon[1]);
    EXPECT_FALSE(AllReliedOnIsTheSame());
    lpVKVMon[0] = first;
    lpVKVMon[1] = second;
    EXPECT_TRUE(AllReliedOnIsTheSame());

    nCnt = 1;
    EXPECT_FALSE(AllReliedOnIsTheSame());
    nCnt = 3; // behind an empty slot nothing counts
    EXPECT_TRUE(AllReliedOnIsTheSame());
    nCnt = 2;
    Add("three");
    EXPECT_FALSE(AllReliedOnIsTheSame());
}

} // namespace
} // namespace test
