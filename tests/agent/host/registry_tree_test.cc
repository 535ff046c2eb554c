// The registry as a tree: what the C interface does not reach.
#include "tests/agent/host/faults.h"
#include "tests/agent/support/host_test.h"

namespace {

using host::kRootKey;
using test::ErrorOf;
using Names = std::vector<std::string>;

class RegistryTree : public test::HostTest {
  protected:
    host::RegistryTree &tree_ = test::Registry();
};

TEST_F(RegistryTree, FindOfAnEmptyPathIsTheKeyItself)
{
    EXPECT_EQ(kRootKey, tree_.Find(kRootKey, ""));
    const auto key = tree_.Create(kRootKey, "Key");
    EXPECT_EQ(key, tree_.Find(key, ""));
}

// A pass asks for a dozen paths; locks and unlocks for each name of them would be most of its system calls.
TEST_F(RegistryTree, APathIsOneLookAtTheStoreHoweverLongItIs)
{
    const auto parent = tree_.Create(kRootKey, "A\\B\\C\\D\\E");
    const auto calls_of = [](const auto &action) {
        test::CountCalls();
        action();
        return test::StopBreaking();
    };
    tree_.Find(kRootKey, "A"); // the first look behind a write is dearer
    const int64_t one = calls_of([&] { tree_.Find(kRootKey, "A"); });
    EXPECT_LT(0, one);
    EXPECT_EQ(one, calls_of([&] { tree_.Find(kRootKey, "A\\B\\C\\D\\E"); }));
    EXPECT_EQ(one, calls_of([&] { EXPECT_EQ(parent, tree_.Create(kRootKey, "A\\B\\C\\D\\E")); }));
}

TEST_F(RegistryTree, EmptyNamesInAPathAreSkipped)
{
    const auto key = tree_.Create(kRootKey, "\\A\\\\B\\");
    EXPECT_EQ(key, tree_.Find(kRootKey, "A\\B"));
    EXPECT_EQ(Names{"A"}, tree_.SubKeys(kRootKey));
}

TEST_F(RegistryTree, ASlashIsAnOrdinaryCharacter)
{
    tree_.Create(kRootKey, "a/b");
    EXPECT_EQ(Names{"a/b"}, tree_.SubKeys(kRootKey));
}

TEST_F(RegistryTree, ATooLongKeyNameIsRefusedAndNothingIsStored)
{
    const std::string name(256, 'k');
    EXPECT_EQ("cannot create the registry key " + std::string(40, 'k') +
                  "...: its name has more than 255 bytes; choose a shorter name",
              ErrorOf([&] { tree_.Create(kRootKey, name); }));
    EXPECT_TRUE(tree_.SubKeys(kRootKey).empty());
}

TEST_F(RegistryTree, ATooLongValueIsRefusedWithItsLimits)
{
    const auto key = tree_.Create(kRootKey, "Key");
    const std::string expected = "cannot store the registry value n: its name or its data is too "
                                 "long; a name has at most 16383 bytes, a value at most 1 MiB";
    EXPECT_EQ(expected, ErrorOf([&] {
                  tree_.Set(key, "n", REG_BINARY, std::string(size_t{1024} * 1024 + 1, 'x'));
              }));
    EXPECT_FALSE(tree_.Get(key, "n"));
}

TEST_F(RegistryTree, DeleteKeyTakesEverythingBelowWithIt)
{
    const auto deep = tree_.Create(kRootKey, "A\\B\\C");
    tree_.Set(deep, "value", REG_SZ, "x");
    const auto beside = tree_.Create(kRootKey, "Beside\\C");
    EXPECT_TRUE(tree_.DeleteKey(*tree_.Find(kRootKey, "A")));
    EXPECT_FALSE(tree_.Find(kRootKey, "A"));
    EXPECT_FALSE(tree_.Exists(deep));
    EXPECT_TRUE(tree_.Values(deep).empty());
    EXPECT_TRUE(tree_.Exists(beside));
    EXPECT_EQ(Names{"Beside"}, tree_.SubKeys(kRootKey));
}

TEST_F(RegistryTree, TheRootCannotBeDeleted)
{
    test::SetTreeText("Key", "value", "kept");
    EXPECT_EQ(
        "cannot delete the root of the registry: everything is below it; delete the keys below "
        "it",
        test::ErrorOf([] { test::Registry().DeleteKey(host::kRootKey); }));
    EXPECT_TRUE(test::TreeValue("Key", "value"));
}

TEST_F(RegistryTree, DeleteKeyOfAKeyThatIsGoneIsFalse)
{
    const auto key = tree_.Create(kRootKey, "Key");
    EXPECT_TRUE(tree_.DeleteKey(key));
    EXPECT_FALSE(tree_.DeleteKey(key));
}

TEST_F(RegistryTree, DeleteValueSaysWhetherThereWasOne)
{
    const auto key = tree_.Create(kRootKey, "Key");
    tree_.Set(key, "Value", REG_SZ, "x");
    EXPECT_TRUE(tree_.DeleteValue(key, "VALUE"));
    EXPECT_FALSE(tree_.DeleteValue(key, "VALUE"));
}

TEST_F(RegistryTree, ValuesComeInTheOrderOfTheirNames)
{
    const auto key = tree_.Create(kRootKey, "Key");
    for (const char *name : {"b", "C", "a", ""})
        tree_.Set(key, name, REG_SZ, name);
    Names names;
    for (const auto &value : tree_.Values(key))
        names.push_back(value.name);
    EXPECT_EQ((Names{"", "a", "b", "C"}), names);
}

TEST_F(RegistryTree, TextOfAValueEndsAtItsZeroByte)
{
    EXPECT_EQ("abc", host::TextOf({"n", REG_SZ, std::string("abc\0def\0", 8)}));
    EXPECT_EQ("abc", host::TextOf({"n", REG_SZ, "abc"}));
    EXPECT_EQ("", host::TextOf({"n", REG_SZ, ""}));
}

TEST_F(RegistryTree, AValueThatIsWhatItWasOpensNoTransaction)
{
    const auto key = tree_.Create(kRootKey, "Key");
    tree_.Set(key, "value", REG_SZ, "same");
    Restart(host::Role::kDaemon);
    test::Registry().Set(key, "VALUE", REG_SZ, "same");
    EXPECT_FALSE(test::Store().database().InTransaction());
    test::Registry().Set(key, "value", REG_BINARY, "same");
    EXPECT_TRUE(test::Store().database().InTransaction());
}

TEST_F(RegistryTree, EverythingIsThereAfterARestart)
{
    tree_.Set(tree_.Create(kRootKey, "A\\b"), "Name", REG_DWORD, test::NumberBytes(42));
    tree_.Create(kRootKey, "A\\a");
    Restart(host::Role::kCommand);
    auto &again = test::Registry();
    const auto key = again.Find(kRootKey, "a");
    ASSERT_TRUE(key);
    EXPECT_EQ((Names{"b", "a"}), again.SubKeys(*key));
    const auto value = again.Get(*again.Find(*key, "b"), "name");
    ASSERT_TRUE(value);
    EXPECT_EQ(REG_DWORD, value->type);
    EXPECT_EQ(test::NumberBytes(42), value->data);
}

} // namespace
