// What the tests of the frame, the settings and the monitoring table share: rows of the table as
// text, product lists, and whole lives of the monitor on a script of waits.
#ifndef TESTS_UNIT_VKEVMON_FRAME_FIXTURE_H
#define TESTS_UNIT_VKEVMON_FRAME_FIXTURE_H

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "match/table_data.h"
#include "platform/loader.h"
#include "platform/siblings.h"
#include "tests/support/module_test.h"
#include "vkevmon/entry.h"
#include "vkevmon/siblings.h"

namespace test {

// ---- the trace ----

// Every record of the trace, for messages about a failed expectation.
inline std::string TraceDump()
{
    std::string out = "the trace:\n";
    for (const auto &record : Host().trace)
        out += "  " + std::to_string(record.level) + " " + record.unit + " " + record.function +
               ": " + record.text + "\n";
    return out;
}

// How often the function has traced this text at this level.
inline int Traced(int level, const std::string &function, const std::string &text)
{
    return static_cast<int>(
        std::count_if(Host().trace.begin(), Host().trace.end(), [&](const TraceRecord &r) {
            return r.level == level && r.unit == "vkevmon" && r.function == function &&
                   r.text == text;
        }));
}

inline void ExpectTraced(int level, const std::string &function, const std::string &text,
                         int times = 1)
{
    EXPECT_EQ(times, Traced(level, function, text))
        << level << " " << function << ": " << text << "\n"
        << TraceDump();
    EXPECT_EQ(times, Host().Traced(text)) << "the same text elsewhere or at another level\n"
                                          << TraceDump();
}

// What the trace holds at levels 1 to 3 is all there is to tell an administrator.
inline void ExpectNothingToTell()
{
    for (const int level : {1, 2, 3})
        EXPECT_TRUE(Host().Texts(level).empty()) << TraceDump();
}

// The texts that the function has traced, in order, without its entry mark.
inline std::vector<std::string> TextsOf(const std::string &function)
{
    std::vector<std::string> texts;
    for (const auto &record : Host().trace) {
        if (record.function == function && record.text[0] != '>')
            texts.push_back(record.text);
    }
    return texts;
}

// The functions that were entered since record number `from` of the trace, out of those that the
// event loop calls, in order and separated by spaces.
inline std::string FunctionsEntered(size_t from = 0)
{
    static const std::vector<std::string> kOfTheLoop = {
        "ChangeCycle",         "ChangeCustFile",  "WatchSyslogMain", "ChangeFileMonObj",
        "WatchFileMonObjMain", "VKVMonQueBackUp", "VKVMonQueGet",    "VKVMonQueCpy"};
    std::string entered;
    for (size_t i = from; i < Host().trace.size(); ++i) {
        const TraceRecord &record = Host().trace[i];
        if (record.text[0] == '>' &&
            std::find(kOfTheLoop.begin(), kOfTheLoop.end(), record.function) != kOfTheLoop.end())
            entered += (entered.empty() ? "" : " ") + record.function;
    }
    return entered;
}

// ---- the table ----

inline std::string Hex(uint32_t number)
{
    char text[16];
    snprintf(text, sizeof text, "%X", number);
    return text;
}

// One entry: source, ID, keywords, report count, hours, hits so far.
inline std::string Row(const VKVMon &entry)
{
    return std::string(entry.Source) + "|" + Hex(entry.EventID) + "|" + entry.Keyword1 + "|" +
           entry.Keyword2 + "|" + entry.Keyword3 + "|" + std::to_string(entry.ReportCount) + "|" +
           Hex(entry.WatchTime) + "|" + std::to_string(entry.CurrentCount);
}

// Are all bytes of the fields the same, those behind the texts included?
inline void ExpectSameFields(const VKVMon &want, const VKVMon &got)
{
    const auto bytes = [](const auto &text) { return std::string(text, sizeof text); };
    EXPECT_EQ(bytes(want.Keyword1), bytes(got.Keyword1));
    EXPECT_EQ(bytes(want.Keyword2), bytes(got.Keyword2));
    EXPECT_EQ(bytes(want.Keyword3), bytes(got.Keyword3));
    EXPECT_EQ(want.EventID, got.EventID);
    EXPECT_EQ(bytes(want.Source), bytes(got.Source));
    EXPECT_EQ(want.WatchTime, got.WatchTime);
    EXPECT_EQ(want.ReportCount, got.ReportCount);
    EXPECT_EQ(want.CurrentCount, got.CurrentCount);
}

using Rows = std::vector<std::string>;

// The table as it stands. Beyond its last entry every slot has to be null.
inline Rows TableRows()
{
    Rows rows;
    for (int i = 0; i < nCnt; ++i)
        rows.push_back(lpVKVMon[i] != nullptr ? Row(*lpVKVMon[i]) : "null");
    for (int i = nCnt; i < kMaxEntries; ++i)
        EXPECT_EQ(nullptr, lpVKVMon[i]) << "slot " << i;
    return rows;
}

inline std::string SourceKey(const std::string &source)
{
    return std::string(kApplicationKey) + "\\" + source;
}

inline std::string SettingsKey(const std::string &source, const std::string &id)
{
    return SourceKey(source) + "\\" + id + "\\WATCHSETTING";
}

// Lets the next backup of the table find no memory, whichever of the two calls the compiler makes
// of an allocation that is zeroed at once.
inline void FailBackup()
{
    Sys().FailCall("malloc", 1);
    Sys().FailCall("calloc", 1);
}

// ---- products ----

// Products as the product-registry library lists them.
class ProductList {
  public:
    void Add(const std::string &name, int32_t state)
    {
        records_.emplace_back(kProductStateOffset + 64);
        char *record = records_.back().data();
        memcpy(record + kProductNameOffset, name.c_str(), name.size() + 1);
        memcpy(record + kProductStateOffset, &state, sizeof state);
        if (records_.size() > 1) {
            char *before = std::prev(records_.end(), 2)->data();
            memcpy(before + kProductNextOffset, static_cast<void *>(&record), sizeof record);
        }
    }
    void *head() { return records_.empty() ? nullptr : records_.front().data(); }

  private:
    std::list<std::vector<char>> records_;
};

// One record of a product's "Source" value. The text is the part that is skipped.
inline std::string SourceRecord(const std::string &source, const std::string &text = "text")
{
    return std::string("\x07\x00\x01\x00", 4) + text + '\0' + source + '\0';
}

inline void SetProductSource(const std::string &product, const std::string &data)
{
    Host().registry.SetBytes(std::string(kAlertReportKey) + "\\" + product, "Source", REG_BINARY,
                             data);
}

// The loaded functions of the product-registry library, as after a start-up.
inline void LoadProductFunctions()
{
    pReadProductsRegisteried = reinterpret_cast<ReadProductsRegisteriedFn>(
        GetProcAddress(kProductLibrary, "ReadProductsRegisteried"));
    pTARSKPPLX_PPInfoClear = reinterpret_cast<TARSKPPLX_PPInfoClearFn>(
        GetProcAddress(kProductLibrary, "TARSKPPLX_PPInfoClear"));
    Host().ForgetRecords();
}

// ---- a table with something of everything ----

// Sources, in order: SRC with two events, TYPED with a type of its own, PRODUCT of a product that
// is not set up, BLANK with an event without keywords between two others. A failing product or type
// look-up may bring in what is left out here; nothing else may change the table.
class MixedTable {
  public:
    MixedTable()
    {
        Put({.source = "SRC", .id = "1A", .keywords = {"one", "", ""}});
        Put({.source = "SRC", .id = "1B", .keywords = {"two", "three", "four"}});
        Put({.source = "TYPED", .id = "1", .keywords = {"typed", "", ""}});
        Put({.source = "PRODUCT", .id = "2", .keywords = {"product", "", ""}});
        Put({.source = "BLANK", .id = "3", .keywords = {"", "first", ""}});
        Put({.source = "BLANK", .id = "4", .keywords = {"", "", ""}});
        Put({.source = "BLANK", .id = "5", .keywords = {"", "", "last"}});
        Host().registry.SetNumber(SourceKey("TYPED"), "NEWAPPLICATIONTYPE", 1);
        products_.Add("Opened", 1);
        products_.Add("Unopened", 0);
        products_.Add("Sourceless", 0);
        SetProductSource("Unopened", SourceRecord("other") + SourceRecord("product"));
        Host().products = products_.head();
    }

    static Rows Complete() { return Without({"TYPED", "PRODUCT"}); }
    static Rows WithTyped() { return Without({"PRODUCT"}); }
    static Rows WithProduct() { return Without({"TYPED"}); }

  private:
    static void Put(const EventSpec &event)
    {
        const std::string path = SettingsKey(event.source, event.id);
        Host().registry.SetText(path, "KeyWord", event.keywords[0]);
        Host().registry.SetText(path, "KeyWord2", event.keywords[1]);
        Host().registry.SetText(path, "KeyWord3", event.keywords[2]);
        Host().registry.SetNumber(path, "ReportCount", event.report_count);
        Host().registry.SetNumber(path, "WatchTime", event.watch_time);
    }
    static Rows Without(const std::vector<std::string> &sources)
    {
        Rows rows;
        for (const char *row : {"SRC|1A|one|||1|FFFFFF|0", "SRC|1B|two|three|four|1|FFFFFF|0",
                                "TYPED|1|typed|||1|FFFFFF|0", "PRODUCT|2|product|||1|FFFFFF|0",
                                "BLANK|3||first||1|FFFFFF|0", "BLANK|5|||last|1|FFFFFF|0"}) {
            const std::string source = std::string(row).substr(0, std::string(row).find('|'));
            if (std::find(sources.begin(), sources.end(), source) == sources.end())
                rows.emplace_back(row);
        }
        return rows;
    }

    ProductList products_;
};

// ---- whole lives ----

// Runs the monitor from StartThread to its end. At each scripted wait the test can look at the
// module at rest.
class LifeTest : public ModuleTest {
  protected:
    LifeTest()
        : stop_(Host().NewHandle("stop")), started_(Host().NewHandle("started")),
          record_(ThreadRecord(stop_, started_))
    {
    }

    // Scripts the next wait. The action runs while the module waits, before the result is given.
    void OnWait(DWORD result, std::function<void()> action = {})
    {
        Host().waits.push_back({result, [this, action = std::move(action)] {
                                    NoteRest();
                                    if (action)
                                        action();
                                }});
    }
    void Run() { StartThread(record_.data()); }

    // Handles open beyond the two that the host has put into the thread record.
    static int HandlesLeft() { return Host().OpenHandles() - 2; }

    // The position of the first call of that name, at or after `from`.
    static size_t PositionOf(const std::string &call, size_t from = 0)
    {
        const auto begin = Host().calls.begin();
        return static_cast<size_t>(
            std::find(begin + static_cast<std::ptrdiff_t>(from), Host().calls.end(), call) - begin);
    }

    HANDLE stop_;
    HANDLE started_;
    std::vector<char> record_;
    std::vector<std::string> steps_; // what the loop has called before each scripted wait
    std::vector<Rows> tables_;       // the table at each scripted wait

  private:
    void NoteRest()
    {
        steps_.push_back(FunctionsEntered(noted_));
        tables_.push_back(TableRows());
        noted_ = Host().trace.size();
    }
    size_t noted_ = 0; // records of the trace that the steps so far have used up
};

// Results of the loop's wait.
constexpr DWORD kTimeOut = 1;
constexpr DWORD kStopped = 2;
constexpr DWORD kTableChanged = 3;
constexpr DWORD kCycleChanged = 4;
constexpr DWORD kScanNow = 5;
constexpr DWORD kCustomFileChanged = 6;
constexpr DWORD kFileMonitorChanged = 7;

} // namespace test

#endif // TESTS_UNIT_VKEVMON_FRAME_FIXTURE_H
