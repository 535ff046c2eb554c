// The histories in which a line is passed over or counted twice. Each is a consequence of how the monitor
// finds its place, each is known, and docs/histories.md says what an administrator can do about it. A test
// beside it shows what does not happen, where that is close by.
#ifndef TESTS_HISTORY_LOSSES_H
#define TESTS_HISTORY_LOSSES_H

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "filemonitor/filemonitor.h"
#include "tests/history/slow_clock.h"
#include "tests/support/module_test.h"
#include "vkevmon/pass.h"
#include "vkevmon/settings.h"

namespace history {

using Strings = std::vector<std::string>;

inline const Strings kNothing = {};

// One log, one event that reports every line of it. A line is known by its text.
class LossTest : public test::ModuleTest {
  protected:
    LossTest()
    {
        TheSlowClock() = SlowClock();
        SetClock(2024, 3, 10, 12, 0, 0);
        each_ = AddEntry({.keywords = {"host", "", ""}});
        test::Host().registry.CreateKey(test::kMonitorKey);
        ChangeCustFile();
    }
    ~LossTest() override { TheSlowClock() = SlowClock(); }

    static void Move(int seconds) { test::Sys().now = *test::Sys().now + seconds; }

    // Appends a line of this moment, or several.
    void Log(const Strings &texts, const std::string &name = "messages") const
    {
        for (const std::string &text : texts)
            AppendLog(name, Line(text) + "\n");
    }
    // A second later.
    void LogLater(const Strings &texts, const std::string &name = "messages") const
    {
        Move(1);
        Log(texts, name);
    }

    // Moves the live file away, numbered, and puts an empty one in its place.
    void Rotate(const std::string &name = "messages") const
    {
        for (int number = 8; number >= 1; --number) {
            if (std::filesystem::exists(LogFile(name + "." + std::to_string(number))))
                RenameLog(name + "." + std::to_string(number),
                          name + "." + std::to_string(number + 1));
        }
        RenameLog(name, name + ".1");
        WriteLog(name, "");
    }

    // What a pass reports, each line by its text.
    static Strings Pass()
    {
        test::Host().ForgetRecords();
        WatchSyslogMain();
        return Reported();
    }
    static Strings FilePass()
    {
        test::Host().ForgetRecords();
        WatchFileMonObjMain();
        return Reported();
    }

    // The next pass is interrupted before it opens its n-th file.
    static void BeforeFile(int n, const std::function<void()> &action)
    {
        test::Sys().BeforeCall("open", n, action);
    }

    static void NameCustomerFile(const std::string &path)
    {
        test::Host().registry.SetText(test::kMonitorKey, "FILENAME", path);
        TellCustomerFileChanged();
    }
    static void TellCustomerFileChanged()
    {
        IsCustFileChanged = 1;
        ChangeCustFile();
    }
    static void NameTarget(const std::string &path)
    {
        test::Host().registry.SetText(test::kFileMonitorKey, "FILENAME", path);
        ChangeFileMonObj();
    }

    VKVMon *each_;

  private:
    static Strings Reported()
    {
        Strings texts;
        for (const test::SentReport &report : test::Host().reports) {
            const size_t at = report.message.find("prog: ");
            texts.push_back(at == std::string::npos ? report.message
                                                    : report.message.substr(at + 6));
        }
        return texts;
    }
};

} // namespace history

#endif // TESTS_HISTORY_LOSSES_H
