#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "fileacc/fileacc.h"
#include "regacc/regacc.h"
#include "tests/support/module_test.h"

namespace {

using test::Host;
using test::kMonitorKey;
using Texts = std::vector<std::string>;

constexpr char kUntouchedByte = 'Z';
constexpr int64_t kUntouchedPos = -77;
constexpr time_t kUntouchedTime = -78;

// The value names of the two slots.
struct Names {
    int slot;
    const char *headline, *pos_low, *pos_high, *content;
};
constexpr std::array<Names, 2> kSlots = {{{0, "HEADLINE", "POS", "H_POS", "CONTENT"},
                                          {1, "HEADLINE_C", "POS_C", "H_POS_C", "CONTENT_C"}}};

class ScanState : public test::ModuleTest {
  protected:
    // No call leaves the key open, whatever happened to it.
    ~ScanState() override { EXPECT_EQ(left_open_, Host().registry.OpenHandles()); }

    static test::MemoryRegistry &Registry() { return Host().registry; }

    static std::optional<std::string> StoredText(const char *name)
    {
        const auto value = Registry().Get(kMonitorKey, name);
        if (!value)
            return std::nullopt;
        EXPECT_EQ(REG_SZ, value->type);
        EXPECT_EQ(value->data.size() - 1, value->data.find('\0')) << "not stored with its zero";
        return value->data.substr(0, value->data.size() - 1);
    }

    static std::optional<uint32_t> StoredNumber(const char *name)
    {
        const auto value = Registry().Get(kMonitorKey, name);
        if (value) {
            EXPECT_EQ(REG_DWORD, value->type);
            EXPECT_EQ(4U, value->data.size());
        }
        return Registry().Number(kMonitorKey, name);
    }

    // All that regacc traced but for entry marks: "1 RegGetRecTime: text".
    static Texts Said()
    {
        Texts texts;
        for (const auto &record : Host().trace) {
            EXPECT_EQ("regacc", record.unit);
            if (record.text.substr(0, 1) != ">")
                texts.push_back(std::to_string(record.level) + " " + record.function + ": " +
                                record.text);
        }
        return texts;
    }

    static void Forget() { Host().ForgetRecords(); }

    int left_open_ = 0; // keys that the test itself kept from being closed
};

// A text buffer whose every byte can be looked at.
struct TextBuffer {
    std::vector<char> bytes = std::vector<char>(kLineBufferSize + 1, kUntouchedByte);
    char *data() { return bytes.data(); }
    [[nodiscard]] bool IsUntouched() const
    {
        return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == kUntouchedByte; });
    }
    [[nodiscard]] bool IsCleared() const
    {
        return bytes.back() == kUntouchedByte &&
               std::all_of(bytes.begin(), bytes.end() - 1, [](char c) { return c == '\0'; });
    }
    [[nodiscard]] std::string Text() const
    {
        EXPECT_EQ(kUntouchedByte, bytes.back()) << "written behind the buffer";
        return bytes.data();
    }
};

const std::string kOpenFailed = std::string("<RegOpenKeyEx ") + kMonitorKey + " failed!return -1.";
const std::string kCreateFailed =
    std::string("<RegCreateKeyEx ") + kMonitorKey + " failed!return -1.";

// ---- the time of the last pass ----

using RegSetRecTime = ScanState;
using RegGetRecTime = ScanState;

TEST_F(RegSetRecTime, StoresTheTimeInAKeyThatItCreates)
{
    EXPECT_FALSE(Registry().HasKey(kMonitorKey));
    EXPECT_EQ(0, ::RegSetRecTime(1583409600));
    EXPECT_EQ(1583409600U, StoredNumber("RECORDTIME"));
    EXPECT_EQ((Texts{"0 RegSetRecTime: <return 0."}), Said());
    EXPECT_EQ(1, Host().Traced(0, ">time=1583409600"));
}

TEST_F(RegSetRecTime, KeepsTheLow32BitsOnly)
{
    const std::array<std::pair<time_t, uint32_t>, 5> cases = {{
        {0, 0},
        {0xFFFFFFFF, 0xFFFFFFFF},
        {0x100000005, 5}, // in the year 2106
        {-1, 0xFFFFFFFF},
        {std::numeric_limits<time_t>::min(), 0},
    }};
    for (const auto &[time, stored] : cases) {
        EXPECT_EQ(0, ::RegSetRecTime(time));
        EXPECT_EQ(stored, StoredNumber("RECORDTIME"));
        time_t read = kUntouchedTime;
        EXPECT_EQ(0, ::RegGetRecTime(&read));
        EXPECT_EQ(time_t{stored}, read); // never negative
    }
}

TEST_F(RegSetRecTime, FailsWithTheCallThatFails)
{
    Host().FailCall("RegCreateKeyEx", 1);
    EXPECT_EQ(-1, ::RegSetRecTime(5));
    Host().FailCall("RegSetValueEx", 1);
    EXPECT_EQ(-1, ::RegSetRecTime(5));
    EXPECT_EQ((Texts{"1 RegSetRecTime: " + kCreateFailed,
                     "1 RegSetRecTime: <RegSetValueEx RECORDTIME failed!return -1."}),
              Said());
    EXPECT_EQ("", Registry().Dump());
}

TEST_F(RegGetRecTime, ReadsTheTimeBack)
{
    Registry().SetNumber(kMonitorKey, "RECORDTIME", 0xFFFFFFFE);
    time_t time = kUntouchedTime;
    EXPECT_EQ(0, ::RegGetRecTime(&time));
    EXPECT_EQ(0xFFFFFFFE, time);
    EXPECT_EQ((Texts{"0 RegGetRecTime: <return 0."}), Said());
}

TEST_F(RegGetRecTime, WithoutATargetFailsBeforeItAsksTheRegistry)
{
    Registry().SetNumber(kMonitorKey, "RECORDTIME", 5);
    EXPECT_EQ(-1, ::RegGetRecTime(nullptr));
    EXPECT_EQ((Texts{"1 RegGetRecTime: <time==NULL,return -1."}), Said());
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(RegGetRecTime, WithoutTheKeyOrTheValueLeavesTheTimeUntouched)
{
    time_t time = kUntouchedTime;
    EXPECT_EQ(-1, ::RegGetRecTime(&time));
    EXPECT_FALSE(Registry().HasKey(kMonitorKey)); // reading creates nothing
    Registry().CreateKey(kMonitorKey);
    EXPECT_EQ(-1, ::RegGetRecTime(&time));
    EXPECT_EQ((Texts{"1 RegGetRecTime: " + kOpenFailed,
                     "1 RegGetRecTime: <RegQueryValueEx RECORDTIME failed!return -1."}),
              Said());
    EXPECT_EQ(kUntouchedTime, time);
}

TEST_F(RegGetRecTime, OfAnOddValueIsHarmless)
{
    time_t time = kUntouchedTime;
    Registry().SetBytes(kMonitorKey, "RECORDTIME", REG_BINARY, std::string(5, '\x01')); // too long
    EXPECT_EQ(-1, ::RegGetRecTime(&time));
    EXPECT_EQ(kUntouchedTime, time);
    Registry().SetBytes(kMonitorKey, "RECORDTIME", REG_SZ, "\x05"); // too short, of another type
    EXPECT_EQ(0, ::RegGetRecTime(&time));
    EXPECT_EQ(5, time);
    Registry().SetBytes(kMonitorKey, "RECORDTIME", REG_DWORD, "");
    EXPECT_EQ(0, ::RegGetRecTime(&time));
    EXPECT_EQ(0, time);
}

// ---- the head line ----

using RegSetHeadLine = ScanState;
using RegGetHeadLine = ScanState;

TEST_F(RegSetHeadLine, StoresTheLineWithItsZeroUnderTheNameOfTheSlot)
{
    for (const auto &names : kSlots) {
        Forget();
        EXPECT_EQ(0, ::RegSetHeadLine("Mar  5 12:00:00 host", names.slot));
        EXPECT_EQ("Mar  5 12:00:00 host", StoredText(names.headline));
        EXPECT_EQ((Texts{"0 RegSetHeadLine: <return 0."}), Said());
    }
    EXPECT_EQ(0, ::RegSetHeadLine("", 0));
    EXPECT_EQ("", StoredText("HEADLINE"));
    EXPECT_EQ("Mar  5 12:00:00 host", StoredText("HEADLINE_C"));
}

TEST_F(RegSetHeadLine, KeepsAtMost499Bytes)
{
    for (const size_t length : {498U, 499U, 500U, 501U, 600U, 3328U}) {
        const std::string line(length, 'x');
        EXPECT_EQ(0, ::RegSetHeadLine(line.c_str(), 0));
        EXPECT_EQ(line.substr(0, 499), StoredText("HEADLINE"));
        TextBuffer read;
        EXPECT_EQ(0, ::RegGetHeadLine(read.data(), kLineBufferSize, 0));
        EXPECT_EQ(line.substr(0, 499), read.Text());
    }
}

TEST_F(RegSetHeadLine, ReplacesALongerOne)
{
    ::RegSetHeadLine("a long one", 0);
    ::RegSetHeadLine("short", 0);
    EXPECT_EQ("short", StoredText("HEADLINE"));
}

TEST_F(RegSetHeadLine, WithoutALineFailsFirst)
{
    EXPECT_EQ(-1, ::RegSetHeadLine(nullptr, 7)); // the line is looked at before the slot
    EXPECT_EQ((Texts{"1 RegSetHeadLine: <[in]line==NULL.return -1."}), Said());
    EXPECT_EQ(1, Host().Traced(0, ">line=NULL,monindex=7"));
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(RegSetHeadLine, FailsWithTheCallThatFails)
{
    for (const auto &names : kSlots) {
        Forget();
        Host().FailCall("RegCreateKeyEx", 1);
        EXPECT_EQ(-1, ::RegSetHeadLine("line", names.slot));
        Host().FailCall("RegSetValueEx", 1);
        EXPECT_EQ(-1, ::RegSetHeadLine("line", names.slot));
        EXPECT_EQ((Texts{"1 RegSetHeadLine: " + kCreateFailed, "1 RegSetHeadLine: <RegSetValueEx " +
                                                                   std::string(names.headline) +
                                                                   " failed!return -1."}),
                  Said());
        EXPECT_EQ("", Registry().Dump());
    }
}

TEST_F(RegGetHeadLine, ReadsTheLineOfTheSlotAndNoMoreThanItsBytes)
{
    for (const auto &names : kSlots) {
        Forget();
        Registry().SetText(kMonitorKey, names.headline, names.headline);
        TextBuffer line;
        EXPECT_EQ(0, ::RegGetHeadLine(line.data(), kLineBufferSize, names.slot));
        EXPECT_EQ(names.headline, line.Text());
        EXPECT_EQ(kUntouchedByte, line.bytes[strlen(names.headline) + 1]); // not cleared before
        EXPECT_EQ((Texts{"0 RegGetHeadLine: <return 0."}), Said());
    }
}

TEST_F(RegGetHeadLine, WithoutABufferFailsFirst)
{
    EXPECT_EQ(-1, ::RegGetHeadLine(nullptr, kLineBufferSize, -1));
    EXPECT_EQ((Texts{"1 RegGetHeadLine: <line==NULL,return -1."}), Said());
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(RegGetHeadLine, WithoutTheKeyOrTheValueLeavesTheBufferUntouched)
{
    for (const auto &names : kSlots) {
        Forget();
        Registry().DeleteKey(kMonitorKey);
        TextBuffer line;
        EXPECT_EQ(-1, ::RegGetHeadLine(line.data(), kLineBufferSize, names.slot));
        Registry().CreateKey(kMonitorKey);
        EXPECT_EQ(-1, ::RegGetHeadLine(line.data(), kLineBufferSize, names.slot));
        EXPECT_EQ((Texts{"1 RegGetHeadLine: " + kOpenFailed, "1 RegGetHeadLine: <RegQueryValueEx " +
                                                                 std::string(names.headline) +
                                                                 " failed!return -1."}),
                  Said());
        EXPECT_TRUE(line.IsUntouched());
    }
}

TEST_F(RegGetHeadLine, PassesTheSizeOfTheBuffer)
{
    Registry().SetText(kMonitorKey, "HEADLINE", "12345678");
    for (int size = 1; size <= 8; ++size) {
        TextBuffer line;
        EXPECT_EQ(-1, ::RegGetHeadLine(line.data(), size, 0)) << size;
        EXPECT_TRUE(line.IsUntouched());
    }
    TextBuffer line;
    EXPECT_EQ(0, ::RegGetHeadLine(line.data(), 9, 0));
    EXPECT_EQ("12345678", line.Text());
}

TEST_F(RegGetHeadLine, OfATextThatWasStoredWithoutItsZeroStaysInsideTheBuffer)
{
    Registry().SetBytes(kMonitorKey, "HEADLINE", REG_SZ, "12345678");
    TextBuffer line;
    EXPECT_EQ(0, ::RegGetHeadLine(line.data(), 8, 0));
    EXPECT_EQ("1234567", line.Text());
    EXPECT_EQ(kUntouchedByte, line.bytes[8]);

    // Behind a shorter one nothing is written.
    TextBuffer longer;
    EXPECT_EQ(0, ::RegGetHeadLine(longer.data(), 12, 0));
    EXPECT_EQ("12345678ZZZZZ", std::string(longer.data(), 13));
}

TEST_F(RegGetHeadLine, WritesNothingBehindTheValue)
{
    Registry().SetText(kMonitorKey, "HEADLINE", "1234");
    TextBuffer line;
    EXPECT_EQ(0, ::RegGetHeadLine(line.data(), 12, 0));
    EXPECT_EQ(std::string("1234\0ZZZZZZZZ", 13), std::string(line.data(), 13));
}

TEST_F(RegGetHeadLine, IntoABufferWithoutBytesWritesNothing)
{
    Registry().SetBytes(kMonitorKey, "HEADLINE", REG_SZ, "");
    Registry().SetBytes(kMonitorKey, "CONTENT", REG_SZ, "");
    TextBuffer line;
    EXPECT_EQ(0, ::RegGetHeadLine(line.data() + 1, 0, 0));
    EXPECT_EQ(0, ::RegGetOrientation(nullptr, line.data() + 1, 0, 0));
    EXPECT_TRUE(line.IsUntouched());
    Registry().SetText(kMonitorKey, "HEADLINE", "x");
    EXPECT_EQ(-1, ::RegGetHeadLine(line.data() + 1, 0, 0));
    EXPECT_TRUE(line.IsUntouched());
}

// ---- position and text of the last line checked ----

using RegSetOrientation = ScanState;
using RegGetOrientation = ScanState;

TEST_F(RegSetOrientation, StoresBothHalvesAndTheText)
{
    for (const auto &names : kSlots) {
        Forget();
        EXPECT_EQ(0, ::RegSetOrientation(0x100000005, "last line", names.slot));
        EXPECT_EQ(5U, StoredNumber(names.pos_low));
        EXPECT_EQ(1U, StoredNumber(names.pos_high));
        EXPECT_EQ("last line", StoredText(names.content));
        EXPECT_EQ((Texts{"0 RegSetOrientation: <return 0."}), Said());
    }
}

TEST_F(RegSetOrientation, ComesBackTheSameForEveryKindOfPosition)
{
    for (const int64_t pos :
         {int64_t{0}, int64_t{1}, int64_t{-1}, int64_t{0x7FFFFFFF}, int64_t{0x80000000},
          int64_t{0xFFFFFFFF}, int64_t{0x100000000}, int64_t{0x100000005}, int64_t{-2},
          int64_t{-0x100000000}, std::numeric_limits<int64_t>::max(),
          std::numeric_limits<int64_t>::min()}) {
        for (const auto &names : kSlots) {
            EXPECT_EQ(0, ::RegSetOrientation(pos, "", names.slot));
            int64_t read = kUntouchedPos;
            TextBuffer content;
            EXPECT_EQ(0, ::RegGetOrientation(&read, content.data(), kLineBufferSize, names.slot));
            EXPECT_EQ(pos, read);
            EXPECT_TRUE(content.IsCleared());
        }
    }
}

TEST_F(RegSetOrientation, StoresNoPositionAsAllBitsSet)
{
    EXPECT_EQ(0, ::RegSetOrientation(-1, "", 0));
    EXPECT_EQ(0xFFFFFFFFU, StoredNumber("POS"));
    EXPECT_EQ(0xFFFFFFFFU, StoredNumber("H_POS"));
    EXPECT_EQ("", StoredText("CONTENT"));
}

TEST_F(RegSetOrientation, KeepsAtMost499BytesOfTheText)
{
    for (const size_t length : {499U, 500U, 3328U}) {
        const std::string content(length, 'x');
        EXPECT_EQ(0, ::RegSetOrientation(5, content.c_str(), 1));
        EXPECT_EQ(content.substr(0, 499), StoredText("CONTENT_C"));
    }
}

TEST_F(RegSetOrientation, WithoutATextFailsFirst)
{
    EXPECT_EQ(-1, ::RegSetOrientation(5, nullptr, 2));
    EXPECT_EQ((Texts{"1 RegSetOrientation: <content= null!return -1."}), Said());
    EXPECT_EQ(1, Host().Traced(0, ">pos=5,content=NULL,monindex=2"));
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(RegSetOrientation, NamesTheConstantWhenTheKeyCannotBeCreated)
{
    Host().FailCall("RegCreateKeyEx", 1);
    EXPECT_EQ(-1, ::RegSetOrientation(5, "line", 0));
    EXPECT_EQ((Texts{"1 RegSetOrientation: <RegCreateKeyEx TARSK_REG_SYSLOG_SUB_KEY "
                     "failed!return -1."}),
              Said());
    EXPECT_EQ("", Registry().Dump());
}

TEST_F(RegSetOrientation, WritesLowHalfHighHalfAndTextAndStopsAtTheFirstFailure)
{
    for (const auto &names : kSlots) {
        const std::array<const char *, 3> order = {names.pos_low, names.pos_high, names.content};
        for (size_t n = 0; n < order.size(); ++n) {
            SCOPED_TRACE(order.at(n));
            Registry().DeleteKey(kMonitorKey);
            Forget();
            Host().FailCall("RegSetValueEx", static_cast<int>(n) + 1);
            EXPECT_EQ(-1, ::RegSetOrientation(0x100000005, "line", names.slot));
            EXPECT_EQ((Texts{"1 RegSetOrientation: <RegSetValueEx " + std::string(order.at(n)) +
                             " failed!return -1."}),
                      Said());
            for (size_t i = 0; i < order.size(); ++i) // what came before stays written
                EXPECT_EQ(i < n, Registry().Get(kMonitorKey, order.at(i)).has_value());
        }
    }
}

TEST_F(RegGetOrientation, ReadsPositionAndText)
{
    for (const auto &names : kSlots) {
        Forget();
        Registry().SetNumber(kMonitorKey, names.pos_low, 0xFFFFFFFE);
        Registry().SetNumber(kMonitorKey, names.pos_high, 2);
        Registry().SetText(kMonitorKey, names.content, "last line");
        int64_t pos = kUntouchedPos;
        TextBuffer content;
        EXPECT_EQ(0, ::RegGetOrientation(&pos, content.data(), kLineBufferSize, names.slot));
        EXPECT_EQ(0x2FFFFFFFE, pos);
        EXPECT_EQ("last line", content.Text());
        EXPECT_EQ('\0', content.bytes[kLineBufferSize - 1]); // cleared over its whole size
        EXPECT_EQ((Texts{"0 RegGetOrientation: <return 0.*pos=12884901886,content=last line"}),
                  Said());
    }
}

TEST_F(RegGetOrientation, SkipsWhatIsNotAskedFor)
{
    ::RegSetOrientation(7, "line", 0);
    Forget();
    int64_t pos = kUntouchedPos;
    EXPECT_EQ(0, ::RegGetOrientation(&pos, nullptr, kLineBufferSize, 0));
    EXPECT_EQ(7, pos);
    EXPECT_EQ(2, Host().Calls("RegQueryValueEx"));

    TextBuffer content;
    EXPECT_EQ(0, ::RegGetOrientation(nullptr, content.data(), kLineBufferSize, 0));
    EXPECT_EQ("line", content.Text());
    EXPECT_EQ(3, Host().Calls("RegQueryValueEx"));

    EXPECT_EQ(0, ::RegGetOrientation(nullptr, nullptr, 0, 0));
    EXPECT_EQ(3, Host().Calls("RegQueryValueEx"));
    EXPECT_EQ(3, Host().Calls("RegOpenKeyEx"));
    EXPECT_EQ(3U, Said().size());
}

TEST_F(RegGetOrientation, WithoutAPositionDoesNotNeedItsValues)
{
    Registry().SetText(kMonitorKey, "CONTENT", "line");
    TextBuffer content;
    EXPECT_EQ(0, ::RegGetOrientation(nullptr, content.data(), kLineBufferSize, 0));
    EXPECT_EQ("line", content.Text());
}

TEST_F(RegGetOrientation, OfAMissingKeyLeavesEverythingUntouched)
{
    int64_t pos = kUntouchedPos;
    TextBuffer content;
    EXPECT_EQ(-1, ::RegGetOrientation(&pos, content.data(), kLineBufferSize, 0));
    EXPECT_EQ(kUntouchedPos, pos);
    EXPECT_TRUE(content.IsUntouched());
    EXPECT_EQ((Texts{"1 RegGetOrientation: " + kOpenFailed}), Said());
}

TEST_F(RegGetOrientation, ReadsLowHalfHighHalfAndTextAndLeavesWhatItHadReadAtAFailure)
{
    for (const auto &names : kSlots) {
        const std::array<const char *, 3> order = {names.pos_low, names.pos_high, names.content};
        const std::array<int64_t, 3> left = {kUntouchedPos, 0xFFFFFFFE, 0x1FFFFFFFE};
        for (size_t missing = 0; missing < order.size(); ++missing) {
            SCOPED_TRACE(order.at(missing));
            ::RegSetOrientation(0x1FFFFFFFE, "line", names.slot);
            Registry().DeleteValue(kMonitorKey, order.at(missing));
            Forget();
            int64_t pos = kUntouchedPos;
            TextBuffer content;
            EXPECT_EQ(-1, ::RegGetOrientation(&pos, content.data(), kLineBufferSize, names.slot));
            EXPECT_EQ(left.at(missing), pos);
            EXPECT_EQ(missing < 2, content.IsUntouched());
            EXPECT_EQ(missing == 2, content.IsCleared());
            EXPECT_EQ((Texts{"1 RegGetOrientation: <RegQueryValueEx " +
                             std::string(order.at(missing)) + " failed!return -1."}),
                      Said());
        }
    }
}

TEST_F(RegGetOrientation, OfOddValuesIsHarmless)
{
    Registry().SetBytes(kMonitorKey, "POS", REG_SZ, std::string("\x07\0", 2)); // short
    Registry().SetBytes(kMonitorKey, "H_POS", REG_BINARY, "");
    Registry().SetBytes(kMonitorKey, "CONTENT", REG_BINARY, "no zero");
    int64_t pos = kUntouchedPos;
    TextBuffer content;
    EXPECT_EQ(0, ::RegGetOrientation(&pos, content.data(), kLineBufferSize, 0));
    EXPECT_EQ(7, pos);
    EXPECT_EQ("no zero", content.Text());

    TextBuffer small;
    EXPECT_EQ(0, ::RegGetOrientation(&pos, small.data(), 7, 0));
    EXPECT_EQ("no zer", small.Text());
    EXPECT_EQ(kUntouchedByte, small.bytes[7]);

    TextBuffer smaller; // too small: cleared, and not filled
    EXPECT_EQ(-1, ::RegGetOrientation(&pos, smaller.data(), 6, 0));
    EXPECT_EQ("", smaller.Text());
    EXPECT_EQ(std::string(6, '\0') + kUntouchedByte, std::string(smaller.data(), 7));

    Registry().SetBytes(kMonitorKey, "POS", REG_BINARY, "12345"); // long
    pos = kUntouchedPos;
    EXPECT_EQ(-1, ::RegGetOrientation(&pos, content.data(), kLineBufferSize, 0));
    EXPECT_EQ(kUntouchedPos, pos);
}

// ---- the slots ----

using Slots = ScanState;

TEST_F(Slots, AreKeptApart)
{
    ::RegSetHeadLine("head 0", 0);
    ::RegSetOrientation(10, "line 0", 0);
    ::RegSetRecTime(99);
    const std::string before = Registry().Dump();
    EXPECT_EQ(std::string::npos, before.find("_C"));
    ::RegSetHeadLine("head 1", 1);
    ::RegSetOrientation(0x500000014, "line 1", 1);
    EXPECT_EQ(before, Registry().Dump().substr(0, before.size())); // added behind, nothing changed

    int64_t pos = 0;
    TextBuffer content;
    EXPECT_EQ(0, ::RegGetOrientation(&pos, content.data(), kLineBufferSize, 0));
    EXPECT_EQ(10, pos);
    EXPECT_EQ("line 0", content.Text());
    EXPECT_EQ(0, ::RegGetOrientation(&pos, content.data(), kLineBufferSize, 1));
    EXPECT_EQ(0x500000014, pos);
    EXPECT_EQ("line 1", content.Text());
}

// Every function that takes a slot, with good arguments otherwise.
struct SlotCall {
    const char *name;
    std::function<int(int)> call;
};

const std::array<SlotCall, 4> kSlotCalls = {{
    {"RegGetHeadLine",
     [](int slot) {
         TextBuffer line;
         const int result = ::RegGetHeadLine(line.data(), kLineBufferSize, slot);
         EXPECT_TRUE(line.IsUntouched());
         return result;
     }},
    {"RegSetHeadLine", [](int slot) { return ::RegSetHeadLine("line", slot); }},
    {"RegGetOrientation",
     [](int slot) {
         int64_t pos = kUntouchedPos;
         TextBuffer content;
         const int result = ::RegGetOrientation(&pos, content.data(), kLineBufferSize, slot);
         EXPECT_EQ(kUntouchedPos, pos);
         EXPECT_TRUE(content.IsUntouched());
         return result;
     }},
    {"RegSetOrientation", [](int slot) { return ::RegSetOrientation(5, "line", slot); }},
}};

TEST_F(Slots, OutsideTheTwoAreRefusedBeforeTheRegistryIsAsked)
{
    for (const auto &[name, call] : kSlotCalls) {
        for (const int slot : {-1, -2, std::numeric_limits<int>::min()}) {
            Forget();
            EXPECT_EQ(-1, call(slot));
            EXPECT_EQ((Texts{"1 " + std::string(name) + ": <monindex[" + std::to_string(slot) +
                             "] is invalided, return -1."}),
                      Said());
            EXPECT_TRUE(Host().calls.empty());
        }
        for (const int slot : {2, 3, std::numeric_limits<int>::max()}) {
            Forget();
            EXPECT_EQ(-1, call(slot));
            EXPECT_EQ((Texts{"1 " + std::string(name) + ": <monindex[" + std::to_string(slot) +
                             "] must less than MAX_MON_FILES[2], return -1."}),
                      Said());
            EXPECT_TRUE(Host().calls.empty());
        }
    }
    EXPECT_EQ("", Registry().Dump());
}

// ---- any call of the host fails ----

using FailingRegistry = ScanState;

// One call of the module with what it may touch.
struct Operation {
    const char *name;
    std::vector<const char *> host_calls; // in order
    std::function<int()> run;
};

const std::vector<Operation> &Operations()
{
    static time_t time;
    static int64_t pos;
    static TextBuffer text;
    static const std::vector<Operation> operations = {
        {"RegSetRecTime",
         {"RegCreateKeyEx", "RegSetValueEx", "RegCloseKey"},
         [] { return ::RegSetRecTime(5); }},
        {"RegGetRecTime",
         {"RegOpenKeyEx", "RegQueryValueEx", "RegCloseKey"},
         [] { return ::RegGetRecTime(&time); }},
        {"RegSetHeadLine",
         {"RegCreateKeyEx", "RegSetValueEx", "RegCloseKey"},
         [] { return ::RegSetHeadLine("head", 1); }},
        {"RegGetHeadLine",
         {"RegOpenKeyEx", "RegQueryValueEx", "RegCloseKey"},
         [] { return ::RegGetHeadLine(text.data(), kLineBufferSize, 1); }},
        {"RegSetOrientation",
         {"RegCreateKeyEx", "RegSetValueEx", "RegSetValueEx", "RegSetValueEx", "RegCloseKey"},
         [] { return ::RegSetOrientation(5, "line", 1); }},
        {"RegGetOrientation",
         {"RegOpenKeyEx", "RegQueryValueEx", "RegQueryValueEx", "RegQueryValueEx", "RegCloseKey"},
         [] { return ::RegGetOrientation(&pos, text.data(), kLineBufferSize, 1); }},
    };
    return operations;
}

TEST_F(FailingRegistry, EndsTheCallAndClosesTheKeyForEveryCallThatFails)
{
    ::RegSetRecTime(1);
    ::RegSetHeadLine("old", 1);
    ::RegSetOrientation(1, "old", 1);
    for (const auto &operation : Operations()) {
        const std::vector<const char *> &made = operation.host_calls;
        for (size_t n = 1; n < made.size(); ++n) { // all but the last, which closes
            SCOPED_TRACE(std::string(operation.name) + " " + std::to_string(n));
            Forget();
            Host().FailAnyCall(static_cast<int>(n));
            EXPECT_EQ(-1, operation.run());
            EXPECT_TRUE(Host().AnyFailureWasUsed());
            Host().FailAnyCall(0);
            Texts expected(made.begin(), made.begin() + static_cast<ptrdiff_t>(n));
            if (n > 1)
                expected.emplace_back("RegCloseKey");
            EXPECT_EQ(expected, Host().calls);
            ASSERT_EQ(1U, Said().size());
            EXPECT_EQ("1 " + std::string(operation.name) + ": <" + made[n - 1] + " ",
                      Said()[0].substr(0, strlen(operation.name) + 5 + strlen(made[n - 1]) + 1));
            EXPECT_EQ(0, Registry().OpenHandles());
        }
    }
}

TEST_F(FailingRegistry, MakesExactlyTheCallsTestedForFailure)
{
    for (const auto &operation : Operations()) {
        ::RegSetRecTime(1);
        ::RegSetHeadLine("old", 1);
        ::RegSetOrientation(1, "old", 1);
        Forget();
        EXPECT_EQ(0, operation.run());
        EXPECT_EQ(Texts(operation.host_calls.begin(), operation.host_calls.end()), Host().calls);
    }
}

TEST_F(FailingRegistry, DoesNotMindAKeyThatCannotBeClosed)
{
    ::RegSetRecTime(1);
    ::RegSetHeadLine("old", 1);
    ::RegSetOrientation(1, "old", 1);
    for (const auto &operation : Operations()) {
        Host().FailCall("RegCloseKey", 1);
        EXPECT_EQ(0, operation.run()) << operation.name;
        EXPECT_EQ(++left_open_, Registry().OpenHandles());
    }
}

} // namespace
