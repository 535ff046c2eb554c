// Key handles that are open no more, or never were.
#include <functional>
#include <set>

#include "platform/sync.h"
#include "tests/agent/support/host_test.h"

namespace {

using test::BytesOf;
using test::CreateKey;
using test::OpenKey;
using test::SetBytes;

// A call that takes a key handle, and what it gives for one that is not open.
struct Call {
    const char *name;
    LONG refused;
    std::function<LONG(HKEY)> run;
};

// Where they would put it.
struct Room {
    DWORD number = 0;
    DWORD size = sizeof number;
    char name[16];
} given;

const std::vector<Call> kCalls = {
    {"RegOpenKeyEx", ERROR_INVALID_HANDLE,
     [](HKEY key) {
         HKEY opened = nullptr;
         return RegOpenKeyEx(key, "sub", 0, KEY_READ, &opened);
     }},
    {"RegCreateKeyEx", ERROR_INVALID_HANDLE,
     [](HKEY key) {
         HKEY opened = nullptr;
         return RegCreateKeyEx(key, "sub", 0, nullptr, 0, KEY_READ, nullptr, &opened, nullptr);
     }},
    {"RegQueryValueEx", ERROR_INVALID_HANDLE,
     [](HKEY key) {
         return RegQueryValueEx(key, "value", nullptr, nullptr, &given.number, &given.size);
     }},
    {"RegSetValueEx", ERROR_INVALID_HANDLE,
     [](HKEY key) {
         return RegSetValueEx(key, "value", 0, REG_DWORD, &given.number, sizeof given.number);
     }},
    {"RegQueryInfoKey", ERROR_INVALID_HANDLE,
     [](HKEY key) {
         return RegQueryInfoKey(key, nullptr, nullptr, nullptr, &given.number, nullptr, nullptr,
                                nullptr, nullptr, nullptr, nullptr, nullptr);
     }},
    {"RegEnumKeyEx", ERROR_INVALID_HANDLE,
     [](HKEY key) {
         return RegEnumKeyEx(key, 0, given.name, &given.size, nullptr, nullptr, nullptr, nullptr);
     }},
    {"RegCloseKey", ERROR_INVALID_HANDLE, RegCloseKey},
    {"RegRead", FALSE,
     [](HKEY key) { return RegRead(key, "sub", "value", nullptr, &given.number, &given.size); }},
    {"RegWrite", FALSE,
     [](HKEY key) {
         return RegWrite(key, "sub", "value", REG_DWORD, &given.number, sizeof given.number);
     }},
    {"VKACRERegReadEx", 0,
     [](HKEY key) {
         return VKACRERegReadEx(key, "sub", "value", &given.number, sizeof given.number);
     }},
    {"VKACREGetSubkeyValue", 0,
     [](HKEY key) {
         return VKACREGetSubkeyValue(key, "sub", "sub", "value", &given.number, &given.size);
     }},
};

void ExpectRefusedByEveryCall(HKEY key)
{
    for (const Call &call : kCalls)
        EXPECT_EQ(call.refused, call.run(key)) << call.name;
}

class KeyHandle : public test::HostTest {
  protected:
    static host::KeyId Id(const std::string &path)
    {
        return *test::Registry().Find(host::kRootKey, path);
    }
};

TEST_F(KeyHandle, ThatWasClosedIsRefusedByEveryCall)
{
    HKEY key = CreateKey("Key");
    ASSERT_EQ(ERROR_SUCCESS, RegCloseKey(key));
    ExpectRefusedByEveryCall(key);
}

TEST_F(KeyHandle, ThatWasNeverOpenedIsRefusedByEveryCall)
{
    int local = 0;
    for (const uintptr_t never :
         {uintptr_t{0}, uintptr_t{1}, uintptr_t{4}, uintptr_t{0x80000001}, uintptr_t{0x7FFFFFFC},
          reinterpret_cast<uintptr_t>(&local), ~uintptr_t{0}})
        ExpectRefusedByEveryCall(reinterpret_cast<HKEY>(never));
}

TEST_F(KeyHandle, OfAnEventIsRefusedByEveryCall)
{
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, nullptr);
    ExpectRefusedByEveryCall(event);
    EXPECT_NE(FALSE, CloseHandle(event));
}

TEST_F(KeyHandle, IsNoHandleOfAnEvent)
{
    HKEY key = CreateKey("Key");
    EXPECT_EQ(FALSE, SetEvent(key));
    EXPECT_EQ(FALSE, ReleaseMutex(key));
    EXPECT_EQ(FALSE, CloseHandle(key));
    EXPECT_EQ(WAIT_RESULT_FAILED, WaitForSingleObject(key, 0));
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(key));
}

TEST_F(KeyHandle, OfTheRootStaysOpenForEver)
{
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(HKEY_LOCAL_MACHINE));
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(HKEY_LOCAL_MACHINE));
    EXPECT_NE(nullptr, CreateKey("Key"));
}

TEST_F(KeyHandle, ThatWasClosedReachesNoOtherKeyAfterManyOpenings)
{
    HKEY stale = CreateKey("Stale");
    RegCloseKey(stale);
    SetBytes(CreateKey("Other"), "value", REG_SZ, "other");
    std::set<HKEY> seen;
    for (int i = 0; i < 20000; ++i) {
        HKEY other = OpenKey("Other");
        ASSERT_NE(nullptr, other);
        ASSERT_TRUE(seen.insert(other).second) << "handle number used again after " << i;
        ASSERT_EQ(ERROR_SUCCESS, RegCloseKey(other));
    }
    EXPECT_EQ(0U, seen.count(stale));
    ExpectRefusedByEveryCall(stale);
}

TEST_F(KeyHandle, OfOneKeyOpenedTwiceIsClosedAlone)
{
    HKEY first = CreateKey("Key");
    HKEY second = OpenKey("Key");
    ASSERT_NE(first, second);
    RegCloseKey(first);
    EXPECT_EQ(ERROR_SUCCESS, SetBytes(second, "value", REG_SZ, "x"));
}

// ---- a key that goes away under its handle ----

TEST_F(KeyHandle, OfADeletedKeyFindsNothing)
{
    HKEY key = CreateKey("Parent\\Key");
    CreateKey("Parent\\Key\\Below");
    SetBytes(key, "value", REG_SZ, "x");
    test::Registry().DeleteKey(Id("Parent"));

    EXPECT_EQ("(none)", BytesOf(key, "value"));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, SetBytes(key, "value", REG_SZ, "y"));
    EXPECT_EQ(nullptr, OpenKey("Below", key));
    EXPECT_EQ(nullptr, OpenKey("", key));
    EXPECT_EQ(nullptr, CreateKey("New", key));
    EXPECT_TRUE(test::SubKeys(key).empty());
    EXPECT_EQ(ERROR_SUCCESS, RegCloseKey(key));
}

TEST_F(KeyHandle, OfADeletedKeyIsNoHandleOfTheKeyThatTakesItsPlace)
{
    HKEY old_key = CreateKey("Key");
    test::Registry().DeleteKey(Id("Key"));
    SetBytes(CreateKey("Key"), "value", REG_SZ, "new");
    EXPECT_EQ("(none)", BytesOf(old_key, "value"));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, SetBytes(old_key, "value", REG_SZ, "old"));
    EXPECT_EQ("new", BytesOf(OpenKey("Key"), "value"));
}

TEST_F(KeyHandle, OfADeletedKeyKeepsNothingThatIsWrittenBelowIt)
{
    HKEY key = CreateKey("Key");
    test::Registry().DeleteKey(Id("Key"));
    EXPECT_EQ(FALSE, RegWrite(key, "Below", "value", REG_SZ, "x", 2));
    EXPECT_EQ(nullptr, OpenKey("Below", key));
}

TEST_F(KeyHandle, OfAKeyWhosePassWasAbandonedReachesNoOtherKey)
{
    Restart(host::Role::kDaemon);
    HKEY abandoned = CreateKey("Abandoned");
    test::Store().AbandonPass();
    SetBytes(CreateKey("Other"), "value", REG_SZ, "other");
    test::Store().CommitPass();
    EXPECT_EQ("(none)", BytesOf(abandoned, "value"));
}

} // namespace
