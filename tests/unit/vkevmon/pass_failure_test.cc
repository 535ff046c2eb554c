// A pass when something fails.
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/vkevmon/pass_fixture.h"
#include "tests/unit/vkevmon/pass_story.h"
#include "vkevmon/pass.h"

namespace {

using test::Checked;
using test::CheckedList;
using test::CustomerPass;
using test::Host;
using test::kMonitorKey;
using test::kNow;
using test::Once;
using test::Pass;
using test::ResumePoint;
using test::Strings;
using test::Sys;

// ---- failures of the reader ----

class FailingPass : public Pass {
  protected:
    // The number of a system call counted from the start of a pass that is like the next one, but
    // ends in nothing new: the calls of CheckSyslog and those that open and position.
    static int CallsOfAnIdlePass(const std::string &name)
    {
        Sys().ForgetCalls();
        Run();
        return Sys().Calls(name);
    }
};

TEST_F(FailingPass, LeavesThePlaceWhenThereIsNoPositioning)
{
    Follow({head_, a_});
    const int last = CallsOfAnIdlePass("fseek");
    Append({b_});
    Sys().FailCall("fseek", last);
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ((Strings{"1 Set syslog pos failed.", "0 Get end of file /var/log/messages",
                       "0 <return 0", "0 <monitoring index:[1]: filename is empty, ignore."}),
              Own());
    EXPECT_EQ(PointAt(a_, {head_, a_}), StoredResumePoint());
    EXPECT_EQ(Once({b_}), Run());
}

TEST_F(FailingPass, LeavesThePlaceWhenTheFirstNewLineCannotBeRead)
{
    Follow({head_, a_});
    const int last = CallsOfAnIdlePass("fseek");
    // So long that the block that begins with the checked line is cut behind that line.
    const std::string line = Line(std::string(16384, 'x'));
    Append({line});
    Sys().FailCall("fseek", last + 1);
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ((Strings{"1 Get Next Line failed.", "0 Get end of file /var/log/messages",
                       "0 <return 0", "0 <monitoring index:[1]: filename is empty, ignore."}),
              Own());
    EXPECT_EQ(PointAt(a_, {head_, a_}), StoredResumePoint());
    EXPECT_EQ(line.substr(0, 3328), Run().at(0).line);
}

TEST_F(FailingPass, GoesOnLaterBehindTheLastLineItCouldRead)
{
    Follow({head_, a_});
    const int last = CallsOfAnIdlePass("fseek");
    const std::string line = Line(std::string(16384, 'x'));
    Append({b_, line, c_});
    Sys().FailCall("fseek", last + 1);
    EXPECT_EQ(Once({b_}), Run());
    EXPECT_EQ((Strings{"1 Get Next line failed."}), OwnNotable());
    ExpectStoredAt(b_, Text({head_, a_, b_}));
    EXPECT_EQ(line.substr(0, 3328), Run().at(0).line);
    EXPECT_EQ(c_, StoredResumePoint().content);
}

// The failed step leaves an empty line, not the repeat that was folded before it: the place is that
// of the line that was checked, and the repeat will be counted once more.
TEST_F(FailingPass, BehindARepeatStoresTheLineItBelongsTo)
{
    Follow({head_, a_});
    const int last = CallsOfAnIdlePass("fseek");
    Append({b_, Repeat(2), Line(std::string(16384, 'x'))});
    Sys().FailCall("fseek", last + 1);
    EXPECT_EQ((CheckedList{{b_, 3}}), Run());
    ExpectStoredAt(b_, Text({head_, a_, b_}));
    EXPECT_EQ((Checked{b_, 2}), Run().at(0));
}

TEST_F(FailingPass, DropsRepeatsWhenTheLineBeforeThemCannotBeRead)
{
    Follow({head_, a_, Repeat(1)});
    const int last = CallsOfAnIdlePass("fseek");
    Append({Repeat(2), b_});
    Sys().FailCall("fseek", last + 1); // the block before, which the walk back needs
    EXPECT_EQ(Once({b_}), Run());
    EXPECT_TRUE(OwnNotable().empty());
    ExpectStoredAt(b_, Text({head_, a_, Repeat(1), Repeat(2), b_}));
}

// ---- failures of the registry ----

TEST_F(FailingPass, TracesAPlaceThatCannotBeStored)
{
    Follow({head_, a_});
    Run();
    Append({b_});
    Host().FailCall("RegCreateKeyEx", 1);
    EXPECT_EQ(Once({b_}), Run());
    const std::string pos = std::to_string(OffsetOf(b_, Text({head_, a_, b_})));
    EXPECT_EQ((Strings{"1 RegSetOrientation error IGNORED: " + pos + " " + b_}), OwnNotable());
    EXPECT_EQ(Once({b_}), Run()); // the registry is the reference
}

TEST_F(FailingPass, TracesAnUnchangedPlaceThatCannotBeStored)
{
    Follow({head_, a_});
    Run();
    Host().FailCall("RegCreateKeyEx", 1);
    EXPECT_EQ(CheckedList{}, Run());
    const std::string pos = std::to_string(OffsetOf(a_, Text({head_, a_})));
    EXPECT_EQ((Strings{"1 Set orientation to reg error IGNORED: " + pos + " " + a_,
                       "0 Get end of file after GotoPos", "0 Get end of file /var/log/messages",
                       "0 <return 0", "0 <monitoring index:[1]: filename is empty, ignore."}),
              Own());
}

// ---- failures of CheckLine ----

// A clock of -1 stands one second before 1970, in December in this zone.
class PassWithoutAClock : public CustomerPass {
  protected:
    const std::string x_ = "Dec 31 22:00:01 host X";
    const std::string y_ = "Dec 31 22:00:02 host Y";
    const std::string z_ = "Dec 31 22:00:03 host Z";

    static std::string Failed(const std::string &line)
    {
        return "1 CheckLine: " + line + " --failed";
    }

    static Strings FailedChecks()
    {
        Strings list = OwnNotable();
        std::erase_if(list, [](const std::string &s) { return !s.starts_with("1 CheckLine"); });
        return list;
    }
};

TEST_F(PassWithoutAClock, TracesEachLineAndGoesOn)
{
    Follow({x_});
    Append({y_, z_});
    Sys().now = -1;
    EXPECT_EQ(Once({y_, z_}), Run());
    EXPECT_EQ((Strings{Failed(y_), Failed(z_)}), FailedChecks());
    EXPECT_EQ(PointAt(z_, {x_, y_, z_}), StoredResumePoint()); // they count as handled
}

TEST_F(PassWithoutAClock, TracesTheLineBeforeWhenItsRepeatsCannotBeChecked)
{
    const std::string repeat = "Dec 31 22:00:02 host last message repeated 2 times";
    Follow({x_});
    Append({y_});
    Run();
    Append({repeat, z_});
    Sys().now = -1;
    EXPECT_EQ((CheckedList{{y_, 2}, {z_, 1}}), Run());
    EXPECT_EQ((Strings{Failed(y_), Failed(z_)}), FailedChecks());
}

TEST_F(PassWithoutAClock, NamesTheSystemLogsLineWhileTheCustomerFileIsRead)
{
    FollowBoth();
    Append({x_});
    AppendLog("app.log", Text({y_, z_}));
    Sys().now = -1;
    EXPECT_EQ(Once({x_, y_, z_}), Run());
    EXPECT_EQ((Strings{Failed(x_), Failed(x_), Failed(x_)}), FailedChecks());
}

// ---- every host call fails once ----

// One call that a pass makes to the host, and what its failure comes to.
struct Step {
    std::string call;
    std::string message; // traced by the scan when it fails; empty: nothing
    bool starts_afresh = false;
    int group = 0;                             // the calls of one of the module's functions
    std::pair<std::string, std::string> value; // that it stores
};

using Values = std::map<std::string, std::string>;

// The calls of a pass, in order.
class PassScript {
  public:
    void Read(int values, const std::string &message, bool starts_afresh)
    {
        ++group_;
        Add({"RegOpenKeyEx", message, starts_afresh, group_, {}});
        for (int i = 0; i < values; ++i)
            Add({"RegQueryValueEx", message, starts_afresh, group_, {}});
        Add({"RegCloseKey", "", false, group_, {}});
    }

    void Write(const std::vector<std::pair<std::string, std::string>> &values,
               const std::string &message)
    {
        ++group_;
        Add({"RegCreateKeyEx", message, false, group_, {}});
        for (const auto &value : values)
            Add({"RegSetValueEx", message, false, group_, value});
        Add({"RegCloseKey", "", false, group_, {}});
    }

    void WritePlace(int64_t pos, const std::string &content, const std::string &message)
    {
        Write({{"POS", std::to_string(LowHalf(pos))},
               {"H_POS", std::to_string(HighHalf(pos))},
               {"CONTENT", content}},
              message);
    }

    void Report()
    {
        ++group_;
        Add({"TarskCodeConvert", "", false, group_, {}});
        Add({"VKMonitorCall", "", false, group_, {}});
    }

    [[nodiscard]] const std::vector<Step> &steps() const { return steps_; }

    [[nodiscard]] Strings Calls() const
    {
        Strings calls;
        for (const Step &step : steps_)
            calls.push_back(step.call);
        return calls;
    }

    // What the values are after the pass when this step failed: the rest of its group is not done.
    [[nodiscard]] Values ValuesAfter(Values values, size_t failed) const
    {
        for (size_t i = 0; i < steps_.size(); ++i) {
            const Step &step = steps_[i];
            const bool done =
                i < failed || step.group != steps_[failed].group || steps_[failed].message.empty();
            if (done && !step.value.first.empty())
                values[step.value.first] = step.value.second;
        }
        return values;
    }

  private:
    void Add(Step step) { steps_.push_back(std::move(step)); }

    std::vector<Step> steps_;
    int group_ = 0;
};

class PassStep : public Pass {
  protected:
    const std::string head1_ = Line("head of the newer", -70);
    const std::string head2_ = Line("head of the newest", -40);

    void Arrange()
    {
        StartOver();
        AddEntry({});
        SetFolder({{"messages.2", Text({head_, a_, b_})},
                   {"messages.1", Text({head1_, c_})},
                   {"messages", Text({head2_})}});
        StoreResumePoint(0, PointAt(a_, {head_, a_}));
        Host().registry.SetNumber(kMonitorKey, "RECORDTIME", 1234);
    }

    [[nodiscard]] PassScript Script() const
    {
        const std::string reset = "RegSetOrientation error IGNORED: -1, \"\\0\"";
        const int64_t pos_b = OffsetOf(b_, Text({head_, a_, b_}));
        const int64_t pos_c = OffsetOf(c_, Text({head1_, c_}));
        const auto stored = [](int64_t pos, const std::string &text) {
            return "RegSetOrientation error IGNORED: " + std::to_string(pos) + " " + text;
        };
        PassScript script;
        script.Read(1, "RegGetHeadLine error", true);
        script.Read(3, "RegGetOrientation error", true);
        script.Read(1, "Can't get last end time, use current time " + std::string(kNow), false);
        script.Report(); // b
        script.WritePlace(pos_b, b_, stored(pos_b, b_));
        script.Write({{"HEADLINE", head1_}}, "RegSetHeadLine error IGNORED: " + head1_);
        script.WritePlace(-1, "", reset);
        script.Report(); // the head line of messages.1
        script.Report(); // c
        script.WritePlace(pos_c, c_, stored(pos_c, c_));
        script.Write({{"HEADLINE", head2_}}, "RegSetHeadLine error IGNORED: " + head2_);
        script.WritePlace(-1, "", reset);
        script.Report(); // the one line of the live file
        script.WritePlace(0, head2_, stored(0, head2_));
        script.Write({{"RECORDTIME", std::to_string(*Sys().now)}},
                     "Can't set last end time to registry: " + std::string(kNow));
        return script;
    }

    static Values StoredValues()
    {
        Values values;
        for (const char *name : {"HEADLINE", "CONTENT"})
            values[name] = Host().registry.Text(kMonitorKey, name).value_or("(none)");
        for (const char *name : {"POS", "H_POS", "RECORDTIME"})
            values[name] =
                std::to_string(Host().registry.Number(kMonitorKey, name).value_or(777777));
        return values;
    }

    static Strings Errors()
    {
        Strings errors;
        for (const auto &record : Host().trace) {
            if (record.level == 1 &&
                (record.function == "WatchSyslogMain" || record.function == "CheckSyslog"))
                errors.push_back(record.text);
        }
        return errors;
    }

    void ExpectOutcomeOf(const PassScript &script, size_t failed, const Values &before) const
    {
        const Step &step = script.steps()[failed];
        EXPECT_EQ(step.message.empty() ? Strings{} : Strings{step.message}, Errors());
        EXPECT_EQ(nullptr, gfp);
        EXPECT_EQ(nullptr, syslog_bakfilelist[0].lpbakfilelist);
        EXPECT_EQ(step.call == "RegCloseKey" ? 1 : 0, Host().registry.OpenHandles());
        if (step.starts_afresh) {
            EXPECT_EQ(CheckedList{}, CheckedLines());
            EXPECT_EQ((ResumePoint{head2_, 0, head2_}), StoredResumePoint());
            EXPECT_EQ("1234", StoredValues()["RECORDTIME"]);
            return;
        }
        EXPECT_EQ(Once({b_, head1_, c_, head2_}), CheckedLines());
        EXPECT_EQ(step.call == "VKMonitorCall" ? 3U : 4U, Host().reports.size());
        EXPECT_EQ(script.ValuesAfter(before, failed), StoredValues());
    }
};

TEST_F(PassStep, AllAreMadeInThisOrder)
{
    Arrange();
    EXPECT_EQ(Once({b_, head1_, c_, head2_}), Run());
    EXPECT_EQ(Script().Calls(), Host().calls);
}

TEST_F(PassStep, ThatFailsIsTracedAndDoesNoMoreHarmThanItMust)
{
    const PassScript script = Script();
    for (size_t i = 0; i < script.steps().size(); ++i) {
        SCOPED_TRACE(std::to_string(i) + " " + script.steps()[i].call);
        Arrange();
        const Values before = StoredValues();
        Host().ForgetRecords();
        Host().FailAnyCall(static_cast<int>(i) + 1);
        WatchSyslogMain();
        EXPECT_TRUE(Host().AnyFailureWasUsed());
        ExpectOutcomeOf(script, i, before);
    }
}

// ---- every system call fails once ----

class PassOverAnyFailure : public Pass {
  protected:
    const std::string head1_ = Line("head of the newer", -70);
    const std::string head2_ = Line("head of the newest", -40);
    const Strings old_ = {head_, Line("old 1", -90), Line("old 2", -89), Line("old 3", -88)};
    const Strings newer_ = {head1_, Line("newer 1", -60), Line("newer 2", -59)};
    const Strings live_ = {head2_, Line("live 1", -30), Line("live 2", -29)};

    void Arrange()
    {
        StartOver();
        SetFolder(
            {{"messages.2", Text(old_)}, {"messages.1", Text(newer_)}, {"messages", Text(live_)}});
        StoreResumePoint(0, PointAt(old_[1], old_));
        Host().registry.SetNumber(kMonitorKey, "RECORDTIME", 1234);
    }

    // Was the file read to its end?
    static bool WasRead(const std::string &path)
    {
        const Strings records = Own();
        for (size_t i = 0; i < records.size(); ++i) {
            if (records[i] == "0 Get end of file " + path)
                return i == 0 || (records[i - 1] != "1 Set syslog pos failed." &&
                                  records[i - 1] != "1 Get Next Line failed.");
        }
        return false;
    }

    static bool SomethingWasTraced()
    {
        return !Host().Texts(1).empty() || !Host().Texts(2).empty();
    }

    static CheckedList Join(CheckedList list, const CheckedList &more)
    {
        list.insert(list.end(), more.begin(), more.end());
        return list;
    }

    // The files that were read to their end were read whole, at most one was not, and the live
    // file's lines come later if they did not come now.
    void ExpectOneFileMissingAtMost()
    {
        const bool old_read = WasRead("/var/log/messages.2");
        const bool newer_read = WasRead("/var/log/messages.1");
        const bool live_read = WasRead("/var/log/messages");
        EXPECT_LE(2, old_read + newer_read + live_read);
        EXPECT_TRUE((old_read && newer_read && live_read) || SomethingWasTraced());
        CheckedList expected;
        if (old_read)
            expected = Once({old_[2], old_[3]});
        if (newer_read)
            expected = Join(expected, Once(newer_));
        if (live_read)
            expected = Join(expected, Once(live_));
        EXPECT_EQ(expected, CheckedLines());
        EXPECT_EQ(live_read ? CheckedList{} : Once(live_), Run());
        EXPECT_EQ(PointAt(live_[2], live_), StoredResumePoint());
    }

    void ExpectSoundOutcome()
    {
        ExpectNothingHeld();
        if (Host().Traced(1, "< CheckSyslog(0) failed.") != 0) {
            EXPECT_EQ(CheckedList{}, CheckedLines());
            EXPECT_EQ(PointAt(old_[1], old_), StoredResumePoint());
            EXPECT_EQ(Join(Once({old_[2], old_[3]}), Join(Once(newer_), Once(live_))), Run());
        } else if (Host().Traced(0, "<Syslog is needn't to change.") != 0) {
            EXPECT_TRUE(SomethingWasTraced());
            EXPECT_EQ(CheckedList{}, CheckedLines());
            EXPECT_EQ(PointAt(live_[2], live_), StoredResumePoint());
            EXPECT_EQ(CheckedList{}, Run());
        } else {
            ExpectOneFileMissingAtMost();
        }
    }
};

TEST_F(PassOverAnyFailure, OfASystemCallLosesAtMostTheFileThatItHits)
{
    int failures = 0;
    for (const char *name :
         {"stat", "fstat", "open", "fdopen", "fseek", "fread", "scandir", "calloc", "malloc"}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(n));
            Arrange();
            Host().ForgetRecords();
            Sys().FailCall(name, n);
            WatchSyslogMain();
            Sys().count_memory = false;
            if (Sys().Calls(name) < n)
                break;
            ++failures;
            ExpectSoundOutcome();
        }
    }
    EXPECT_LT(40, failures);
}

// Adds up how often each line was handed over.
std::map<std::string, int> Total(const CheckedList &list)
{
    std::map<std::string, int> total;
    for (const Checked &checked : list)
        total[checked.line] += checked.times;
    return total;
}

TEST_F(PassOverAnyFailure, OfASeekOrReadCountsEveryLineOfALongFileAllTheSame)
{
    Strings lines;
    std::map<std::string, int> expected;
    for (int i = 0; i < 60; ++i) {
        lines.push_back(Line(std::to_string(i) + std::string(1000, '.')));
        expected[lines.back()] = 1;
    }
    for (const char *name : {"fseek", "fread"}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(n));
            StartOver();
            Follow({head_, a_});
            Append(lines);
            Host().ForgetRecords();
            Sys().ForgetCalls();
            Sys().FailCall(name, n);
            WatchSyslogMain();
            ExpectNothingHeld();
            const bool afresh = Host().Traced("<Syslog is needn't to change.") != 0;
            CheckedList list = CheckedLines();
            list = Join(list, Run());
            EXPECT_EQ(afresh ? (std::map<std::string, int>{}) : expected, Total(list));
            if (Sys().Calls(name) < n)
                break;
        }
    }
}

} // namespace
