// Listing the subkeys of a registry key.
#include <strings.h>

#include "match/table_data.h"
#include "tests/unit/vkevmon/frame_fixture.h"
#include "vkevmon/subkeys.h"

namespace {

using test::ExpectNothingToTell;
using test::ExpectTraced;
using test::Host;
using test::kApplicationKey;
using test::SourceKey;

class SubKeyListing : public test::ModuleTest {
  protected:
    static constexpr int kUntouched = -77;

    int List(const std::string &path)
    {
        num_ = kUntouched;
        // What a load passes: no byte more.
        const size_t room = strcasecmp(path.c_str(), kApplicationKey) == 0 ? 500 : 16;
        names_.assign(kMaxEntries, std::vector<char>(room, '#'));
        std::vector<char *> buffers;
        for (auto &name : names_)
            buffers.push_back(name.data());
        return SearchSubKey(path.c_str(), buffers.data(), &num_);
    }
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names(static_cast<size_t>(num_));
        for (size_t i = 0; i < names.size(); ++i)
            names[i] = names_[i].data();
        return names;
    }
    static void MakeKeys(const std::string &path, const std::vector<std::string> &names)
    {
        for (const auto &name : names) {
            std::string key = path;
            key.append("\\").append(name);
            Host().registry.CreateKey(key);
        }
    }
    static void ExpectEveryKeyIsClosed() { EXPECT_EQ(0, Host().registry.OpenHandles()); }

    int num_ = kUntouched;
    std::vector<std::vector<char>> names_;
};

TEST_F(SubKeyListing, DeliversTheNamesInTheOrderOfTheRegistryAsTheyAreWritten)
{
    MakeKeys("Any\\Key", {"zeta", "Alpha", "MID dle", "a"});
    EXPECT_EQ(0, List("Any\\Key"));
    EXPECT_EQ((std::vector<std::string>{"zeta", "Alpha", "MID dle", "a"}), Names());
    EXPECT_EQ('#', names_[4][0]) << "buffers behind the last name are left alone";
    ExpectNothingToTell();
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, OfAKeyWithoutSubkeysIsEmpty)
{
    Host().registry.CreateKey("Any");
    EXPECT_EQ(0, List("Any"));
    EXPECT_EQ(0, num_);
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, OfAMissingKeyFails)
{
    EXPECT_EQ(-1, List("Missing"));
    ExpectTraced(1, "SearchSubKey", "<RegOpenKeyEx() failed. return -1.");
    EXPECT_EQ(kUntouched, num_);
}

TEST_F(SubKeyListing, FailsWhenTheNumberOfSubkeysCannotBeHad)
{
    MakeKeys("Any", {"a"});
    Host().FailCall("RegQueryInfoKey", 1);
    EXPECT_EQ(-1, List("Any"));
    ExpectTraced(1, "SearchSubKey", "<RegQueryInfoKey failed.return -1.");
    EXPECT_EQ(0, Host().Calls("RegEnumKeyEx"));
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, FailsWhenAnyNameCannotBeHad)
{
    MakeKeys("Any", {"a", "b", "c"});
    for (int n = 1; n <= 3; ++n) {
        Host().ForgetRecords();
        Host().FailCall("RegEnumKeyEx", n);
        EXPECT_EQ(-1, List("Any"));
        ExpectTraced(1, "SearchSubKey", "<RegEnumKeyEx failed.return -1.");
        EXPECT_EQ(1U, Host().Texts(1).size());
        EXPECT_EQ(n, Host().Calls("RegEnumKeyEx"));
        ExpectEveryKeyIsClosed();
    }
    Host().FailCall("RegEnumKeyEx", 4);
    EXPECT_EQ(0, List("Any"));
}

TEST_F(SubKeyListing, OfAnyKeyButThatOfTheSourcesDeliversNamesOf15CharactersAndPassesOverLongerOnes)
{
    const std::string longest(15, 'n');
    MakeKeys("Any", {"a", longest, longest + "n", std::string(255, 'n'), "b"});
    EXPECT_EQ(0, List("Any"));
    EXPECT_EQ((std::vector<std::string>{"a", longest, "b"}), Names());
    EXPECT_EQ(2U, Host().Texts(1).size());
}

TEST_F(SubKeyListing, OfSourcesDeliversNamesOf255CharactersAndFailsOnLongerOnes)
{
    const std::string longest(255, 'n');
    MakeKeys(kApplicationKey, {"a", longest, "b"});
    EXPECT_EQ(0, List(kApplicationKey));
    EXPECT_EQ((std::vector<std::string>{"a", longest, "b"}), Names());

    MakeKeys(kApplicationKey, {longest + "n"});
    EXPECT_EQ(-1, List(kApplicationKey));
    ExpectTraced(1, "SearchSubKey", "<RegEnumKeyEx failed.return -1.");
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, OfSourcesLeavesOutThoseWithATypeOfTheirOwnWhateverItIs)
{
    MakeKeys(kApplicationKey, {"A", "Zero", "B", "One", "Minus", "C"});
    Host().registry.SetNumber(SourceKey("Zero"), "NEWAPPLICATIONTYPE", 0);
    Host().registry.SetNumber(SourceKey("One"), "newApplicationType", 1);
    Host().registry.SetNumber(SourceKey("Minus"), "NEWAPPLICATIONTYPE", 0xFFFFFFFF);
    EXPECT_EQ(0, List(kApplicationKey));
    EXPECT_EQ((std::vector<std::string>{"A", "B", "C"}), Names());
    ExpectTraced(0, "SearchSubKey", "The Type of Source: Zero is 0.");
    ExpectTraced(0, "SearchSubKey", "The Type of Source: One is 1.");
    ExpectTraced(0, "SearchSubKey", "The Type of Source: Minus is -1.");
    ExpectNothingToTell();
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, KnowsTheApplicationKeyInAnyCase)
{
    MakeKeys(kApplicationKey, {"A", "Typed"});
    Host().registry.SetNumber(SourceKey("Typed"), "NEWAPPLICATIONTYPE", 1);
    std::string path = kApplicationKey;
    for (char &c : path)
        c = static_cast<char>(tolower(c));
    EXPECT_EQ(0, List(path));
    EXPECT_EQ(std::vector<std::string>{"A"}, Names());
}

TEST_F(SubKeyListing, OfOtherKeysAsksForNoType)
{
    for (const std::string &path : {SourceKey("A"), std::string("APPLICATION")}) {
        MakeKeys(path, {"1"});
        Host().registry.SetNumber(path + "\\1", "NEWAPPLICATIONTYPE", 1);
        EXPECT_EQ(0, List(path));
        EXPECT_EQ(std::vector<std::string>{"1"}, Names());
    }
    EXPECT_EQ(0, Host().Calls("VKACRERegReadEx"));
}

TEST_F(SubKeyListing, KeepsASourceWhoseTypeCannotBeRead)
{
    MakeKeys(kApplicationKey, {"A", "B"});
    Host().registry.SetBytes(SourceKey("A"), "NEWAPPLICATIONTYPE", REG_BINARY, "12345");
    Host().registry.SetNumber(SourceKey("B"), "NEWAPPLICATIONTYPE", 1);
    Host().FailCall("VKACRERegReadEx", 2);
    EXPECT_EQ(0, List(kApplicationKey));
    EXPECT_EQ((std::vector<std::string>{"A", "B"}), Names());
}

TEST_F(SubKeyListing, ReadsATypeOfFewerBytesOverZeros)
{
    MakeKeys(kApplicationKey, {"A"});
    Host().registry.SetBytes(SourceKey("A"), "NEWAPPLICATIONTYPE", REG_BINARY, "\x05");
    EXPECT_EQ(0, List(kApplicationKey));
    EXPECT_EQ(0, num_);
    ExpectTraced(0, "SearchSubKey", "The Type of Source: A is 5.");
}

std::vector<std::string> ManyNames(size_t count)
{
    std::vector<std::string> names(count);
    for (size_t i = 0; i < count; ++i)
        names[i] = test::Hex(static_cast<uint32_t>(i));
    return names;
}

TEST_F(SubKeyListing, StopsQuietlyAt2048Names)
{
    MakeKeys("Any", ManyNames(2048));
    EXPECT_EQ(0, List("Any"));
    EXPECT_EQ(ManyNames(2048), Names());

    Host().ForgetRecords();
    MakeKeys("Any", {"One too many", "Two too many"});
    EXPECT_EQ(0, List("Any"));
    EXPECT_EQ(ManyNames(2048), Names());
    EXPECT_EQ(2048, Host().Calls("RegEnumKeyEx"));
    ExpectNothingToTell();
    ExpectEveryKeyIsClosed();
}

TEST_F(SubKeyListing, CountsOnlyTheSourcesThatItDelivers)
{
    MakeKeys(kApplicationKey, {"Typed"});
    MakeKeys(kApplicationKey, ManyNames(2049));
    Host().registry.SetNumber(SourceKey("Typed"), "NEWAPPLICATIONTYPE", 1);
    EXPECT_EQ(0, List(kApplicationKey));
    EXPECT_EQ(ManyNames(2048), Names());
    EXPECT_EQ(2049, Host().Calls("VKACRERegReadEx"));
}

} // namespace
