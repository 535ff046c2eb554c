// What the tests of the file monitor share: a watched file, and its values in the registry.
#ifndef TESTS_UNIT_FILEMONITOR_FILE_MONITOR_FIXTURE_H
#define TESTS_UNIT_FILEMONITOR_FILE_MONITOR_FIXTURE_H

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "filemonitor/filemonitor.h"
#include "match/report.h"
#include "platform/split64.h"
#include "tests/support/module_test.h"

namespace test {

using Strings = std::vector<std::string>;

class FileMonitorTest : public ModuleTest {
  protected:
    FileMonitorTest() : report_function_(pVKMonitorCall) { SetClock(2024, 3, 10, 12, 0, 0); }

    // What a fresh test begins with: nothing.
    void StartOver()
    {
        ResetModule();
        Host().Reset();
        Sys().Reset();
        Sys().log_dir = log_dir_.path();
        SetClock(2024, 3, 10, 12, 0, 0);
        pVKMonitorCall = report_function_;
        for (const auto &entry : std::filesystem::directory_iterator(log_dir_.path()))
            std::filesystem::remove_all(entry.path());
    }

    // What a restart of the process leaves: the registry and the files.
    void Restart() const
    {
        ResetModule();
        pVKMonitorCall = report_function_;
        Host().ForgetRecords();
    }

    // ---- the watched file ----

    static void SetPath(const std::string &path)
    {
        Host().registry.SetText(kFileMonitorKey, "FILENAME", path);
    }

    // The path in memory.
    static void SetWatchedPath(const std::string &path)
    {
        snprintf(filedata.filemonpath, sizeof filedata.filemonpath, "%s", path.c_str());
    }

    [[nodiscard]] uint64_t InodeOf(const std::string &name) const
    {
        struct stat status {};
        EXPECT_EQ(0, stat(LogFile(name).c_str(), &status)) << name;
        return status.st_ino;
    }

    // ---- the registry ----

    static void StoreInode(uint64_t inode) { Store("INODE", static_cast<int64_t>(inode)); }
    static void StoreOffset(int64_t offset) { Store("OFFSET", offset); }

    static uint64_t StoredInode() { return static_cast<uint64_t>(Stored("INODE")); }
    static int64_t StoredOffset() { return Stored("OFFSET"); }

    // ---- the trace log ----

    // The records of one function but its entry mark, as "level text".
    static Strings RecordsOf(const std::string &function)
    {
        Strings list;
        for (const TraceRecord &record : Host().trace) {
            if (record.function != function || record.text.starts_with(">"))
                continue;
            EXPECT_EQ("filemonitor", record.unit) << record.text;
            list.push_back(std::to_string(record.level) + " " + record.text);
        }
        return list;
    }

    // The records of level 1 to 3 of the file monitor, in order.
    static Strings NotableRecords()
    {
        Strings list;
        for (const TraceRecord &record : Host().trace) {
            if (record.unit == "filemonitor" && record.level != 0)
                list.push_back(std::to_string(record.level) + " " + record.text);
        }
        return list;
    }

  private:
    static void Store(const std::string &name, int64_t value)
    {
        Host().registry.SetNumber(kFileMonitorKey, name + "_L", LowHalf(value));
        Host().registry.SetNumber(kFileMonitorKey, name + "_H", HighHalf(value));
    }

    // A half that is missing reads as 77777.
    static int64_t Stored(const std::string &name)
    {
        const MemoryRegistry &registry = Host().registry;
        return JoinHalves(registry.Number(kFileMonitorKey, name + "_L").value_or(77777),
                          registry.Number(kFileMonitorKey, name + "_H").value_or(77777));
    }

    VKMonitorCallFn report_function_;
};

} // namespace test

#endif // TESTS_UNIT_FILEMONITOR_FILE_MONITOR_FIXTURE_H
