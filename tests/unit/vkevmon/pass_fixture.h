// What the tests of the syslog scan share: a clock, a time zone, whole folders, and what a pass
// handed to CheckLine and left in the registry.
#ifndef TESTS_UNIT_VKEVMON_PASS_FIXTURE_H
#define TESTS_UNIT_VKEVMON_PASS_FIXTURE_H

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "fileacc/fileacc.h"
#include "match/report.h"
#include "platform/split64.h"
#include "tests/support/module_test.h"
#include "vkevmon/file_set.h"
#include "vkevmon/settings.h"

namespace test {

using Strings = std::vector<std::string>;

constexpr char kVmkernel[] = "/var/log/vmkernel"; // the other system log

// The time zone of the process, until the end of the test.
class ZoneGuard {
  public:
    ZoneGuard()
    {
        const char *zone = getenv("TZ");
        if (zone != nullptr)
            before_ = zone;
    }
    ~ZoneGuard()
    {
        if (before_)
            setenv("TZ", before_->c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }
    ZoneGuard(const ZoneGuard &) = delete;
    ZoneGuard &operator=(const ZoneGuard &) = delete;

    static void Use(const char *zone)
    {
        setenv("TZ", zone, 1);
        tzset();
    }

  private:
    std::optional<std::string> before_;
};

// The records of one function but its entry mark, as "level text".
inline Strings RecordsOf(const std::string &function, const std::string &unit = "vkevmon")
{
    Strings list;
    for (const TraceRecord &record : Host().trace) {
        if (record.function != function || record.text.starts_with(">"))
            continue;
        EXPECT_EQ(unit, record.unit) << record.text;
        list.push_back(std::to_string(record.level) + " " + record.text);
    }
    return list;
}

// The same without those of level 0.
inline Strings NotableRecordsOf(const std::string &function)
{
    Strings list = RecordsOf(function);
    std::erase_if(list, [](const std::string &record) { return record.starts_with("0 "); });
    return list;
}

// One call of CheckLine.
struct Checked {
    std::string line;
    int times = 1;
    bool operator==(const Checked &) const = default;
};

inline void PrintTo(const Checked &checked, std::ostream *out)
{
    *out << '"' << checked.line.substr(0, 100) << "\" (" << checked.line.size() << " bytes) x "
         << checked.times;
}

using CheckedList = std::vector<Checked>;

inline CheckedList Once(const Strings &lines)
{
    CheckedList list;
    for (const auto &line : lines)
        list.push_back({line, 1});
    return list;
}

// Where the registry says that a slot goes on.
struct ResumePoint {
    std::string head;
    int64_t pos = -1;
    std::string content;
    bool operator==(const ResumePoint &) const = default;
};

inline void PrintTo(const ResumePoint &point, std::ostream *out)
{
    *out << "head \"" << point.head.substr(0, 60) << "\" pos " << point.pos << " content \""
         << point.content.substr(0, 60) << '"';
}

class SyslogScanTest : public ModuleTest {
  protected:
    using Files = std::map<std::string, std::string>; // name below "/var/log", content

    SyslogScanTest()
    {
        ZoneGuard::Use("UTC0");
        SetClock(2024, 3, 10, 12, 0, 0);
        report_function_ = pVKMonitorCall;
        ChangeCustFile();
        Host().ForgetRecords();
    }

    // What a restart of the process leaves: the registry and the files.
    void Restart() const
    {
        ResetModule();
        pVKMonitorCall = report_function_;
        ChangeCustFile();
        Host().ForgetRecords();
    }

    // What a fresh test begins with: nothing.
    void StartOver()
    {
        Host().Reset();
        Sys().Reset();
        Sys().log_dir = log_dir_.path();
        SetClock(2024, 3, 10, 12, 0, 0);
        SetFolder({});
        Restart();
    }

    static void WatchCustomerFile(const std::string &path)
    {
        Host().registry.SetText(kMonitorKey, "FILENAME", path);
        ChangeCustFile();
        Host().ForgetRecords();
    }

    // ---- the folder ----

    // Makes "/var/log" hold these files and nothing else.
    void SetFolder(const Files &files) const
    {
        for (const auto &entry : std::filesystem::directory_iterator(log_dir_.path()))
            std::filesystem::remove_all(entry.path());
        for (const auto &[name, text] : files)
            WriteLog(name, text);
    }

    static std::string Text(const Strings &lines)
    {
        std::string text;
        for (const auto &line : lines)
            text += line + "\n";
        return text;
    }

    // The offset at which a line begins in such a text.
    static int64_t OffsetOf(const std::string &line, const std::string &text)
    {
        const size_t offset = ("\n" + text).find("\n" + line + "\n");
        EXPECT_NE(std::string::npos, offset) << line;
        return static_cast<int64_t>(offset);
    }

    // ---- the registry ----

    static void StoreResumePoint(int slot, const ResumePoint &point)
    {
        const std::string suffix = slot == 0 ? "" : "_C";
        MemoryRegistry &registry = Host().registry;
        registry.SetText(kMonitorKey, "HEADLINE" + suffix, point.head);
        registry.SetNumber(kMonitorKey, "POS" + suffix, LowHalf(point.pos));
        registry.SetNumber(kMonitorKey, "H_POS" + suffix, HighHalf(point.pos));
        registry.SetText(kMonitorKey, "CONTENT" + suffix, point.content);
    }

    // The resume point behind this line of a file with these lines.
    static ResumePoint PointAt(const std::string &line, const Strings &lines)
    {
        return {lines.at(0), OffsetOf(line, Text(lines)), line};
    }

    static ResumePoint StoredResumePoint(int slot = 0)
    {
        const std::string suffix = slot == 0 ? "" : "_C";
        const MemoryRegistry &registry = Host().registry;
        return {registry.Text(kMonitorKey, "HEADLINE" + suffix).value_or("(none)"),
                JoinHalves(registry.Number(kMonitorKey, "POS" + suffix).value_or(77),
                           registry.Number(kMonitorKey, "H_POS" + suffix).value_or(77)),
                registry.Text(kMonitorKey, "CONTENT" + suffix).value_or("(none)")};
    }

    // ---- what was done ----

    // The lines that CheckLine got, in order.
    static CheckedList CheckedLines()
    {
        const std::string begin = "line \"";
        const std::string end = "\" is checked, it happend ";
        CheckedList list;
        for (const TraceRecord &record : Host().trace) {
            if (record.function != "CheckLine" || !record.text.starts_with(begin))
                continue;
            EXPECT_EQ(0, record.level);
            const size_t tail = record.text.rfind(end);
            list.push_back({record.text.substr(begin.size(), tail - begin.size()),
                            atoi(record.text.c_str() + tail + end.size())});
        }
        return list;
    }

    static Strings BackupNames(int slot)
    {
        Strings names;
        for (int i = 0; i < syslog_bakfilelist[slot].ibakfilenum; ++i)
            names.emplace_back(syslog_bakfilelist[slot].lpbakfilelist[i]);
        return names;
    }

    // Nothing of a pass is left: no open file, no backup list, no registry key.
    static void ExpectNothingHeld()
    {
        EXPECT_EQ(nullptr, gfp);
        for (const BakFileList &list : syslog_bakfilelist) {
            EXPECT_EQ(0, list.ibakfilenum);
            EXPECT_EQ(nullptr, list.lpbakfilelist);
        }
        EXPECT_EQ(0, Host().registry.OpenHandles());
    }

  private:
    ZoneGuard zone_;
    VKMonitorCallFn report_function_ = nullptr;
};

} // namespace test

#endif // TESTS_UNIT_VKEVMON_PASS_FIXTURE_H
