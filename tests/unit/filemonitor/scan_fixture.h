// What the tests of the file monitor's scan share.
#ifndef TESTS_UNIT_FILEMONITOR_SCAN_FIXTURE_H
#define TESTS_UNIT_FILEMONITOR_SCAN_FIXTURE_H

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

#include "filemonitor/filemonitor.h"
#include "tests/unit/filemonitor/file_monitor_fixture.h"

namespace test {

constexpr int64_t kBlock = 16384;

std::string Format(const char *format, ...) __attribute__((format(printf, 1, 2)));

inline std::string Format(const char *format, ...)
{
    char text[8192];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

// A file that is open in filedata, as in the middle of a pass.
class OpenWatch : public FileMonitorTest {
  protected:
    void Open(const std::string &text)
    {
        WriteLog("app.log", text);
        SetWatchedPath("/var/log/app.log");
        ASSERT_EQ(TRUE, InitFileMonObj());
        Host().ForgetRecords();
        Sys().ForgetCalls();
    }

    static bool BlockIsClear()
    {
        const std::string zero(sizeof filedata.data, '\0');
        return filedata.start == 0 && filedata.length == 0 && filedata.linepos == 0 &&
               filedata.isend == 0 && filedata.overlong == 0 &&
               zero == std::string(filedata.data, sizeof filedata.data);
    }
};

} // namespace test

#endif // TESTS_UNIT_FILEMONITOR_SCAN_FIXTURE_H
