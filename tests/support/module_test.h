// The fixture of the module's unit tests: a fresh module, a scripted host, and a "/var/log" of its
// own.
#ifndef TESTS_SUPPORT_MODULE_TEST_H
#define TESTS_SUPPORT_MODULE_TEST_H

#include <array>
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/monitor_entry.h"
#include "tests/support/scripted_host.h"
#include "tests/support/system.h"

namespace test {

// Registry paths below HKEY_LOCAL_MACHINE.
extern const char *const kMonitorKey;     // ...\REPORTTABLE\EVENTLOG
extern const char *const kApplicationKey; // ...\APPLICATION
extern const char *const kFileMonitorKey; // ...\FILEMONITOR
extern const char *const kAlertReportKey; // ...\AlertReport

constexpr uint32_t kAllHours = 0xFFFFFF;

// One registered event, with values that make an entry that reports every match.
struct EventSpec {
    std::string source = "SRC";
    std::string id = "1";
    std::array<std::string, 3> keywords = {"", "", ""};
    uint32_t report_count = 1;
    uint32_t watch_time = kAllHours;
};

// A folder that is removed with its contents at the end.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    [[nodiscard]] const std::string &path() const { return path_; }

  private:
    std::string path_;
};

// Puts every module-wide variable back to what it is when the module has just been loaded, and
// frees what it owns.
void ResetModule();

class ModuleTest : public testing::Test {
  protected:
    ModuleTest();
    ~ModuleTest() override;

    // ---- files below "/var/log" ----
    [[nodiscard]] std::string LogFile(const std::string &name) const; // its real path
    void WriteLog(const std::string &name, const std::string &text) const;
    void AppendLog(const std::string &name, const std::string &text) const;
    void RenameLog(const std::string &from, const std::string &to) const;
    void RemoveLog(const std::string &name) const;
    void SetModified(const std::string &name, time_t when) const;

    // ---- the clock ----
    // Sets the module's clock to a local time, and stays there.
    static void SetClock(int year, int month, int day, int hour, int minute, int second);
    // A syslog stamp of the module's clock, moved by so many seconds: "Jan  5 10:00:01".
    static std::string Stamp(int seconds_from_now = 0);
    // A whole line with that stamp: "Jan  5 10:00:01 host prog: text".
    static std::string Line(const std::string &text, int seconds_from_now = 0);

    // ---- the table ----
    // Registers an event in the registry.
    static void Register(const EventSpec &event);
    // Puts an entry into the table by hand and returns it.
    static VKVMon *AddEntry(const EventSpec &event);

    // A thread record with the given stop handle and start-up event.
    static std::vector<char> ThreadRecord(HANDLE stop, HANDLE started);

    TempDir log_dir_;
};

} // namespace test

#endif // TESTS_SUPPORT_MODULE_TEST_H
