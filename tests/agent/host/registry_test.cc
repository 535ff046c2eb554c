// Keys and values through the registry's C interface.
#include <cstring>

#include "tests/agent/support/host_test.h"

namespace {

using test::BytesOf;
using test::CreateKey;
using test::OpenKey;
using test::SetBytes;
using test::SubKeys;

using Names = std::vector<std::string>;

class Registry : public test::HostTest {
  protected:
    HKEY key_ = CreateKey("Software\\Test");
};

// ---- keys ----

TEST_F(Registry, OpenOfAKeyThatDoesNotExistGivesFileNotFound)
{
    HKEY key = nullptr;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              RegOpenKeyEx(HKEY_LOCAL_MACHINE, "Software\\None", 0, KEY_READ, &key));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              RegOpenKeyEx(HKEY_LOCAL_MACHINE, "Software\\Test\\None", 0, KEY_READ, &key));
    EXPECT_EQ(nullptr, key);
}

TEST_F(Registry, OpenTakesAnAccessOfZero)
{
    HKEY key = nullptr;
    EXPECT_EQ(ERROR_SUCCESS, RegOpenKeyEx(HKEY_LOCAL_MACHINE, "Software\\Test", 0, 0, &key));
    EXPECT_NE(nullptr, key);
}

TEST_F(Registry, OpenGoesThroughAnyOpenKey)
{
    HKEY software = OpenKey("Software");
    EXPECT_NE(nullptr, OpenKey("Test", software));
    EXPECT_EQ(nullptr, OpenKey("Software", software));
}

TEST_F(Registry, OpenOfAnEmptyOrNullPathOpensTheKeyItself)
{
    SetBytes(key_, "value", REG_SZ, "here");
    EXPECT_EQ("here", BytesOf(OpenKey("", key_), "value"));
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegOpenKeyEx(key_, nullptr, 0, KEY_READ, &key));
    EXPECT_EQ("here", BytesOf(key, "value"));
}

TEST_F(Registry, OpenComparesNamesWithoutRegardToCase)
{
    EXPECT_NE(nullptr, OpenKey("SOFTWARE\\test"));
    EXPECT_NE(nullptr, OpenKey("software\\TEST"));
}

TEST_F(Registry, OpenWithoutAPlaceForTheHandleFails)
{
    EXPECT_EQ(ERROR_INVALID_HANDLE,
              RegOpenKeyEx(HKEY_LOCAL_MACHINE, "Software", 0, KEY_READ, nullptr));
}

TEST_F(Registry, CreateMakesTheMissingParents)
{
    ASSERT_NE(nullptr, CreateKey("A\\B\\C"));
    EXPECT_NE(nullptr, OpenKey("A"));
    EXPECT_NE(nullptr, OpenKey("A\\B"));
    EXPECT_NE(nullptr, OpenKey("A\\B\\C"));
}

TEST_F(Registry, CreateSaysWhetherTheKeyIsNew)
{
    const auto disposition_of = [](const char *path) {
        HKEY key = nullptr;
        DWORD disposition = 0;
        RegCreateKeyEx(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key,
                       &disposition);
        return disposition;
    };
    EXPECT_EQ(1U, disposition_of("New\\Key"));
    EXPECT_EQ(2U, disposition_of("New\\Key"));
    EXPECT_EQ(2U, disposition_of("new"));
}

TEST_F(Registry, CreateKeepsTheCaseOfTheFirstCreation)
{
    CreateKey("CamelCase");
    CreateKey("CAMELCASE");
    EXPECT_EQ((Names{"Software", "CamelCase"}), SubKeys(HKEY_LOCAL_MACHINE));
}

TEST_F(Registry, CreateOfAnExistingKeyKeepsItsValues)
{
    SetBytes(key_, "value", REG_SZ, "kept");
    EXPECT_EQ("kept", BytesOf(CreateKey("software\\test"), "value"));
}

TEST_F(Registry, AKeyNameHasAtMost255Bytes)
{
    EXPECT_NE(nullptr, CreateKey(std::string(255, 'k'), key_));
    EXPECT_EQ(nullptr, CreateKey(std::string(256, 'k'), key_));
    EXPECT_EQ(Names{std::string(255, 'k')}, SubKeys(key_));
}

TEST_F(Registry, NamesOfOtherAlphabetsAreKeptByteByByte)
{
    CreateKey("Журнал\\日本", key_);
    EXPECT_EQ(Names{"Журнал"}, SubKeys(key_));
    EXPECT_NE(nullptr, OpenKey("Журнал\\日本", key_));
}

// ---- enumeration ----

TEST_F(Registry, SubkeysComeInTheOrderOfTheirCreation)
{
    for (const char *name : {"zebra", "Ant", "mouse", "10", "9"})
        CreateKey(name, key_);
    EXPECT_EQ((Names{"zebra", "Ant", "mouse", "10", "9"}), SubKeys(key_));
}

TEST_F(Registry, ASubkeyThatWasDeletedAndCreatedAgainComesLast)
{
    for (const char *name : {"one", "two", "three"})
        CreateKey(name, key_);
    auto &tree = test::Registry();
    tree.DeleteKey(*tree.Find(host::kRootKey, "Software\\Test\\one"));
    CreateKey("one", key_);
    EXPECT_EQ((Names{"two", "three", "one"}), SubKeys(key_));
}

TEST_F(Registry, EnumerationBehindTheLastSubkeyGivesNoMoreItems)
{
    CreateKey("only", key_);
    char name[16] = {};
    DWORD size = sizeof name;
    EXPECT_EQ(ERROR_NO_MORE_ITEMS,
              RegEnumKeyEx(key_, 1, name, &size, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(ERROR_NO_MORE_ITEMS,
              RegEnumKeyEx(key_, 0xFFFFFFFF, name, &size, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(Registry, EnumerationCountsTheZeroByteInAndNotOut)
{
    CreateKey("four", key_);
    char name[8] = {};
    DWORD size = 5;
    EXPECT_EQ(ERROR_SUCCESS,
              RegEnumKeyEx(key_, 0, name, &size, nullptr, nullptr, nullptr, nullptr));
    EXPECT_STREQ("four", name);
    EXPECT_EQ(4U, size);
}

TEST_F(Registry, EnumerationIntoATooSmallBufferGivesMoreDataAndWritesNothing)
{
    CreateKey("four", key_);
    for (const DWORD room : {0U, 1U, 4U}) {
        char name[8] = "asbefor";
        DWORD size = room;
        EXPECT_EQ(ERROR_MORE_DATA,
                  RegEnumKeyEx(key_, 0, name, &size, nullptr, nullptr, nullptr, nullptr));
        EXPECT_STREQ("asbefor", name) << room;
        EXPECT_GE(size, 4U) << room;
    }
}

TEST_F(Registry, EnumerationGivesAnEmptyClass)
{
    CreateKey("key", key_);
    char name[8] = {};
    char key_class[8] = "xxxxxxx";
    DWORD size = sizeof name;
    DWORD class_size = sizeof key_class;
    EXPECT_EQ(ERROR_SUCCESS,
              RegEnumKeyEx(key_, 0, name, &size, nullptr, key_class, &class_size, nullptr));
    EXPECT_STREQ("", key_class);
    EXPECT_EQ(0U, class_size);
}

TEST_F(Registry, EnumerationSeesKeysThatAreAddedMeanwhile)
{
    CreateKey("one", key_);
    Names seen;
    for (DWORD index = 0; index < 4; ++index) {
        char name[16] = {};
        DWORD size = sizeof name;
        ASSERT_EQ(ERROR_SUCCESS,
                  RegEnumKeyEx(key_, index, name, &size, nullptr, nullptr, nullptr, nullptr));
        seen.emplace_back(name);
        CreateKey("added" + std::to_string(index), key_);
    }
    EXPECT_EQ((Names{"one", "added0", "added1", "added2"}), seen);
}

TEST_F(Registry, EnumerationSeesTheKeysOfAnotherConnection)
{
    CreateKey("here", key_);
    EXPECT_EQ(Names{"here"}, SubKeys(key_));
    host::Store other(Layout().Store());
    host::RegistryTree tree(other);
    tree.Create(host::kRootKey, "Software\\Test\\elsewhere");
    EXPECT_EQ((Names{"here", "elsewhere"}), SubKeys(key_));
}

// ---- counts ----

TEST_F(Registry, QueryInfoGivesCountsAndLongestLengths)
{
    CreateKey("abc", key_);
    CreateKey("abcdef", key_);
    SetBytes(key_, "n", REG_BINARY, "12345");
    SetBytes(key_, "name", REG_SZ, std::string("x", 2));
    DWORD sub_keys = 9;
    DWORD longest_key = 9;
    DWORD values = 9;
    DWORD longest_name = 9;
    DWORD longest_value = 9;
    DWORD class_size = 9;
    DWORD longest_class = 9;
    DWORD security = 9;
    EXPECT_EQ(ERROR_SUCCESS, RegQueryInfoKey(key_, nullptr, &class_size, nullptr, &sub_keys,
                                             &longest_key, &longest_class, &values, &longest_name,
                                             &longest_value, &security, nullptr));
    EXPECT_EQ(2U, sub_keys);
    EXPECT_EQ(6U, longest_key);
    EXPECT_EQ(2U, values);
    EXPECT_EQ(4U, longest_name);
    EXPECT_EQ(5U, longest_value);
    EXPECT_EQ(0U, class_size);
    EXPECT_EQ(0U, longest_class);
    EXPECT_EQ(0U, security);
}

TEST_F(Registry, QueryInfoTakesNullForEveryResult)
{
    EXPECT_EQ(ERROR_SUCCESS, RegQueryInfoKey(key_, nullptr, nullptr, nullptr, nullptr, nullptr,
                                             nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
}

// ---- values ----

TEST_F(Registry, AValueComesBackWithItsTypeAndItsBytes)
{
    const std::string bytes("a\0b\xFF\0", 5);
    for (const DWORD type : {REG_SZ, REG_BINARY, REG_DWORD, 7U}) {
        ASSERT_EQ(ERROR_SUCCESS, SetBytes(key_, "value", type, bytes));
        DWORD found = 0;
        char data[8] = {};
        DWORD size = sizeof data;
        EXPECT_EQ(ERROR_SUCCESS, RegQueryValueEx(key_, "value", nullptr, &found, data, &size));
        EXPECT_EQ(type, found);
        EXPECT_EQ(bytes, std::string(data, size));
    }
}

TEST_F(Registry, AStringIsStoredWithItsZeroByte)
{
    ASSERT_NE(0, RegWrite(HKEY_LOCAL_MACHINE, "Software\\Test", "text", REG_SZ, "abc", 4));
    EXPECT_EQ(std::string("abc\0", 4), BytesOf(key_, "text"));
}

TEST_F(Registry, ValueNamesCompareWithoutRegardToCase)
{
    SetBytes(key_, "Name", REG_SZ, "first");
    SetBytes(key_, "NAME", REG_SZ, "second");
    EXPECT_EQ("second", BytesOf(key_, "name"));
    const auto values =
        test::Registry().Values(*test::Registry().Find(host::kRootKey, "Software\\Test"));
    ASSERT_EQ(1U, values.size());
    EXPECT_EQ("Name", values[0].name);
}

TEST_F(Registry, ANullNameIsTheValueWithoutAName)
{
    EXPECT_EQ(ERROR_SUCCESS, RegSetValueEx(key_, nullptr, 0, REG_SZ, "x", 2));
    EXPECT_EQ(std::string("x\0", 2), BytesOf(key_, ""));
    EXPECT_EQ(ERROR_SUCCESS, RegQueryValueEx(key_, nullptr, nullptr, nullptr, nullptr, nullptr));
}

TEST_F(Registry, AMissingValueGivesFileNotFound)
{
    char data[4] = {};
    DWORD size = sizeof data;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, RegQueryValueEx(key_, "none", nullptr, nullptr, data, &size));
    EXPECT_EQ(4U, size);
}

TEST_F(Registry, ATooSmallBufferGivesMoreDataAndTheSizeThatIsNeeded)
{
    SetBytes(key_, "value", REG_BINARY, "12345");
    for (const DWORD room : {0U, 1U, 4U}) {
        char data[8] = "asbefor";
        DWORD size = room;
        DWORD type = 0;
        EXPECT_EQ(ERROR_MORE_DATA, RegQueryValueEx(key_, "value", nullptr, &type, data, &size));
        EXPECT_EQ(5U, size);
        EXPECT_EQ(REG_BINARY, type);
        EXPECT_STREQ("asbefor", data);
    }
}

TEST_F(Registry, ABufferOfTheExactSizeIsEnough)
{
    SetBytes(key_, "value", REG_BINARY, "12345");
    char data[8] = "asbefor";
    DWORD size = 5;
    EXPECT_EQ(ERROR_SUCCESS, RegQueryValueEx(key_, "value", nullptr, nullptr, data, &size));
    EXPECT_STREQ("12345or", data);
}

TEST_F(Registry, ANullBufferAsksForTheSizeAlone)
{
    SetBytes(key_, "value", REG_BINARY, "12345");
    for (const DWORD room : {0U, 100U}) {
        DWORD size = room;
        EXPECT_EQ(ERROR_SUCCESS, RegQueryValueEx(key_, "value", nullptr, nullptr, nullptr, &size));
        EXPECT_EQ(5U, size);
    }
}

TEST_F(Registry, ABufferWithoutASizeGivesMoreData)
{
    SetBytes(key_, "value", REG_BINARY, "12345");
    char data[8] = {};
    EXPECT_EQ(ERROR_MORE_DATA, RegQueryValueEx(key_, "value", nullptr, nullptr, data, nullptr));
}

TEST_F(Registry, AnEmptyValueIsAValue)
{
    EXPECT_EQ(ERROR_SUCCESS, RegSetValueEx(key_, "empty", 0, REG_BINARY, "", 0));
    DWORD size = 7;
    EXPECT_EQ(ERROR_SUCCESS, RegQueryValueEx(key_, "empty", nullptr, nullptr, nullptr, &size));
    EXPECT_EQ(0U, size);
}

TEST_F(Registry, AnEmptyValueNeedsNoData)
{
    EXPECT_EQ(ERROR_SUCCESS, RegSetValueEx(key_, "empty", 0, REG_BINARY, nullptr, 0));
    EXPECT_EQ("", BytesOf(key_, "empty"));
}

TEST_F(Registry, AValueCanStandInTheRoot)
{
    EXPECT_EQ(ERROR_SUCCESS, SetBytes(HKEY_LOCAL_MACHINE, "value", REG_SZ, "root"));
    EXPECT_EQ("root", BytesOf(HKEY_LOCAL_MACHINE, "value"));
}

TEST_F(Registry, AValueNameHasAtMost16383Bytes)
{
    EXPECT_EQ(ERROR_SUCCESS, SetBytes(key_, std::string(16383, 'n'), REG_SZ, "long"));
    EXPECT_NE(ERROR_SUCCESS, SetBytes(key_, std::string(16384, 'n'), REG_SZ, "too long"));
    EXPECT_EQ("long", BytesOf(key_, std::string(16383, 'N')));
    EXPECT_EQ("(none)", BytesOf(key_, std::string(16384, 'n')));
}

TEST_F(Registry, AValueHasAtMostOneMebibyte)
{
    const std::string most(size_t{1024} * 1024, 'x');
    EXPECT_EQ(ERROR_SUCCESS, SetBytes(key_, "value", REG_BINARY, most));
    EXPECT_EQ(most, BytesOf(key_, "value"));
    EXPECT_NE(ERROR_SUCCESS, SetBytes(key_, "value", REG_BINARY, most + "x"));
    EXPECT_EQ(most, BytesOf(key_, "value"));
}

// ---- one value in one call ----

TEST_F(Registry, RegWriteCreatesTheKeyAndRegReadReadsIt)
{
    const uint32_t number = 0x12345678;
    EXPECT_NE(0, RegWrite(HKEY_LOCAL_MACHINE, "Far\\Away", "n", REG_DWORD, &number, 4));
    uint32_t read = 0;
    DWORD type = 0;
    DWORD size = sizeof read;
    EXPECT_NE(0, RegRead(HKEY_LOCAL_MACHINE, "far\\away", "N", &type, &read, &size));
    EXPECT_EQ(number, read);
    EXPECT_EQ(REG_DWORD, type);
    EXPECT_EQ(4U, size);
}

TEST_F(Registry, RegReadFailsForAMissingKeyAMissingValueAndASmallBuffer)
{
    SetBytes(key_, "value", REG_BINARY, "12345");
    char data[4] = {};
    DWORD type = 0;
    DWORD size = sizeof data;
    EXPECT_EQ(0, RegRead(HKEY_LOCAL_MACHINE, "None", "value", &type, data, &size));
    EXPECT_EQ(0, RegRead(HKEY_LOCAL_MACHINE, "Software\\Test", "none", &type, data, &size));
    EXPECT_EQ(4U, size);
    EXPECT_EQ(0, RegRead(HKEY_LOCAL_MACHINE, "Software\\Test", "value", &type, data, &size));
    EXPECT_EQ(5U, size);
}

TEST_F(Registry, RegWriteRefusesWhatIsTooLong)
{
    EXPECT_EQ(0, RegWrite(HKEY_LOCAL_MACHINE, std::string(256, 'k').c_str(), "n", REG_SZ, "", 1));
    EXPECT_EQ(Names{"Software"}, SubKeys(HKEY_LOCAL_MACHINE));
}

TEST_F(Registry, TheAlertComponentsReaderGivesNonZeroForAValueItCouldRead)
{
    test::SetNumber(key_, "NEWAPPLICATIONTYPE", 77);
    uint32_t number = 0;
    EXPECT_NE(0, VKACRERegReadEx(HKEY_LOCAL_MACHINE, "Software\\Test", "NewApplicationType",
                                 &number, sizeof number));
    EXPECT_EQ(77U, number);
    EXPECT_EQ(
        0, VKACRERegReadEx(HKEY_LOCAL_MACHINE, "Software\\Test", "None", &number, sizeof number));
    EXPECT_EQ(0, VKACRERegReadEx(HKEY_LOCAL_MACHINE, "None", "NEWAPPLICATIONTYPE", &number,
                                 sizeof number));
    EXPECT_EQ(
        0, VKACRERegReadEx(HKEY_LOCAL_MACHINE, "Software\\Test", "NEWAPPLICATIONTYPE", &number, 3));
    EXPECT_EQ(77U, number);
}

TEST_F(Registry, TheAlertComponentsSubkeyReaderGivesOneAndTheSize)
{
    SetBytes(CreateKey("Product", key_), "Source", REG_BINARY, "12345");
    char data[508] = {};
    DWORD size = 507;
    EXPECT_EQ(1, VKACREGetSubkeyValue(HKEY_LOCAL_MACHINE, "Software\\Test", "PRODUCT", "source",
                                      data, &size));
    EXPECT_EQ("12345", std::string(data, size));
    EXPECT_NE(1, VKACREGetSubkeyValue(HKEY_LOCAL_MACHINE, "Software\\Test", "None", "Source", data,
                                      &size));
    EXPECT_NE(1, VKACREGetSubkeyValue(HKEY_LOCAL_MACHINE, "Software\\Test", "Product", "None", data,
                                      &size));
    size = 4;
    EXPECT_NE(1, VKACREGetSubkeyValue(HKEY_LOCAL_MACHINE, "Software\\Test", "Product", "Source",
                                      data, &size));
    EXPECT_EQ(5U, size);
}

} // namespace
