// A host inside another one, as a trial of rules makes it.
#include "platform/sync.h"
#include "tests/agent/support/host_test.h"

namespace {

constexpr char kKey[] = "SOFTWARE\\Outer";

class NestedHost : public test::HostTest {
  protected:
    [[nodiscard]] host::Layout InnerLayout() const { return host::Layout::Below(File("inner")); }
};

TEST_F(NestedHost, IsTheOneOfTheCFunctionsUntilItEnds)
{
    EXPECT_NE(nullptr, test::CreateKey(kKey));
    {
        const host::Host inner(InnerLayout(), host::Role::kCommand);
        EXPECT_EQ(&inner, &host::Current());
        EXPECT_EQ(nullptr, test::OpenKey(kKey)) << "it has a registry of its own";
    }
    EXPECT_EQ(&test::TheHost(), &host::Current());
    EXPECT_NE(nullptr, test::OpenKey(kKey));
}

TEST_F(NestedHost, LeavesTheHandlesOfTheOuterOneAlone)
{
    HANDLE outer_event = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    HKEY outer_key = test::CreateKey(kKey);
    {
        const host::Host inner(InnerLayout(), host::Role::kCommand);
        CloseHandle(CreateEvent(nullptr, TRUE, TRUE, nullptr));
        RegCloseKey(test::CreateKey("SOFTWARE\\Inner"));
    }
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(outer_event, 0));
    EXPECT_EQ(ERROR_SUCCESS, test::SetNumber(outer_key, "value", 1));
    EXPECT_EQ(FALSE, CloseHandle(nullptr));
    EXPECT_EQ(TRUE, CloseHandle(outer_event));
}

TEST_F(NestedHost, LeavesTheMomentsOfTheOuterOneAlone)
{
    struct Rests : host::Moments {
        int times = 0;
        bool ModuleRests() override { return ++times > 0; }
    } rests;
    test::TheHost().TellMoments(&rests, nullptr);
    {
        const host::Host inner(InnerLayout(), host::Role::kCommand);
        HANDLE event = CreateEvent(nullptr, TRUE, TRUE, nullptr);
        EXPECT_EQ(WAIT_RESULT_FIRST, WaitForMultipleObjects(1, &event, FALSE, 0));
        EXPECT_EQ(0, rests.times);
    }
    HANDLE event = CreateEvent(nullptr, TRUE, TRUE, nullptr);
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForMultipleObjects(1, &event, FALSE, 0));
    EXPECT_EQ(1, rests.times);
    test::TheHost().TellMoments(nullptr, nullptr);
}

TEST_F(NestedHost, ThatCannotBeMadeLeavesTheOuterOneAlone)
{
    test::WriteFile(File("inner"), "a file where the folder should be");
    EXPECT_NE("no error",
              test::ErrorOf([&] { const host::Host inner(InnerLayout(), host::Role::kCommand); }));
    EXPECT_EQ(&test::TheHost(), &host::Current());
}

} // namespace
