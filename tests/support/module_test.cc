#include "tests/support/module_test.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>

#include "fileacc/fileacc.h"
#include "filemonitor/filemonitor.h"
#include "match/report.h"
#include "match/table_data.h"
#include "platform/loader.h"
#include "platform/thread_record.h"
#include "regacc/last_end_time.h"
#include "regacc/regacc.h"
#include "vkevmon/file_set.h"
#include "vkevmon/reload.h"
#include "vkevmon/settings.h"
#include "vkevmon/siblings.h"
#include "vkevmon/table_lock.h"

namespace test {

const char *const kMonitorKey = TARSK_REG_SYSLOG_SUB_KEY;
const char *const kApplicationKey = TARSK_REG_SYSLOG_SUB_KEY "\\APPLICATION";
const char *const kFileMonitorKey = TARSK_REG_SYSLOG_SUB_KEY "\\FILEMONITOR";
const char *const kAlertReportKey = "SOFTWARE\\KORBIN\\TARSKVOSKAR\\AlertReport";

TempDir::TempDir()
{
    // In memory where there is such a place: the tests write many small files.
    const std::string base = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
    std::string name = base + "/syslogmon-test-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no temporary folder below " + base);
    path_ = name;
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void ResetModule()
{
    FinishFile();
    FinishFileMonObj();
    FreeTableEntries();
    std::fill_n(lpVKVMon, kMaxEntries, nullptr);
    nCnt = 0;
    free(tmp_VKVMon);
    tmp_VKVMon = nullptr;
    tmp_Cnt = 0;
    for (int slot = 0; slot < MAX_MON_FILES; ++slot) {
        FreeBackupList(slot);
        memset(headline[slot], 0, sizeof headline[slot]);
        memset(content[slot], 0, sizeof content[slot]);
        curpos[slot] = 0;
        logindex[slot] = 0;
    }
    gMonIndex = -1;
    memset(syslogpath, 0, sizeof syslogpath);
    IsCustFileChanged = 0;
    cycle = 300;
    lastendtime = 0;
    memset(static_cast<void *>(&curblock), 0, sizeof curblock);
    memset(static_cast<void *>(&bakblock), 0, sizeof bakblock);
    filelen = -1;
    memset(static_cast<void *>(&filedata), 0, sizeof filedata);
    hDll = nullptr;
    hvkirtuptDll = nullptr;
    pVKMonitorCall = nullptr;
    pReadProductsRegisteried = nullptr;
    pTARSKPPLX_PPInfoClear = nullptr;
    IsFTServer = 0;
    report_ft = 0;
    hEventlogMutex = nullptr;
}

ModuleTest::ModuleTest()
{
    ResetModule();
    Host().Reset();
    Sys().Reset();
    Sys().log_dir = log_dir_.path();
    pVKMonitorCall = reinterpret_cast<VKMonitorCallFn>(
        GetProcAddress(kReportLibrary, "VKMonitorCall")); // a pass needs it
    Host().ForgetRecords();
}

ModuleTest::~ModuleTest()
{
    EXPECT_EQ(std::vector<std::string>{}, Host().wrong_arguments);
    Sys().Reset();
    ResetModule();
}

std::string ModuleTest::LogFile(const std::string &name) const
{
    return log_dir_.path() + "/" + name;
}

void ModuleTest::WriteLog(const std::string &name, const std::string &text) const
{
    std::ofstream(LogFile(name), std::ios::binary | std::ios::trunc) << text;
}

void ModuleTest::AppendLog(const std::string &name, const std::string &text) const
{
    std::ofstream(LogFile(name), std::ios::binary | std::ios::app) << text;
}

void ModuleTest::RenameLog(const std::string &from, const std::string &to) const
{
    std::filesystem::rename(LogFile(from), LogFile(to));
}

void ModuleTest::RemoveLog(const std::string &name) const
{
    std::filesystem::remove_all(LogFile(name));
}

void ModuleTest::SetModified(const std::string &name, time_t when) const
{
    const timespec times[2] = {{when, 0}, {when, 0}};
    utimensat(AT_FDCWD, LogFile(name).c_str(), times, 0);
}

void ModuleTest::SetClock(int year, int month, int day, int hour, int minute, int second)
{
    struct tm local {};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    local.tm_isdst = -1;
    Sys().now = mktime(&local);
}

std::string ModuleTest::Stamp(int seconds_from_now)
{
    const time_t moment = Sys().now.value_or(time(nullptr)) + seconds_from_now;
    struct tm local {};
    localtime_r(&moment, &local);
    char text[32];
    strftime(text, sizeof text, "%b %e %H:%M:%S", &local);
    return text;
}

std::string ModuleTest::Line(const std::string &text, int seconds_from_now)
{
    return Stamp(seconds_from_now) + " host prog: " + text;
}

void ModuleTest::Register(const EventSpec &event)
{
    const std::string path =
        std::string(kApplicationKey) + "\\" + event.source + "\\" + event.id + "\\WATCHSETTING";
    MemoryRegistry &registry = Host().registry;
    registry.SetText(path, "KeyWord", event.keywords[0]);
    registry.SetText(path, "KeyWord2", event.keywords[1]);
    registry.SetText(path, "KeyWord3", event.keywords[2]);
    registry.SetNumber(path, "ReportCount", event.report_count);
    registry.SetNumber(path, "WatchTime", event.watch_time);
}

VKVMon *ModuleTest::AddEntry(const EventSpec &event)
{
    auto *entry = static_cast<VKVMon *>(calloc(1, sizeof(VKVMon)));
    snprintf(entry->Keyword1, sizeof entry->Keyword1, "%s", event.keywords[0].c_str());
    snprintf(entry->Keyword2, sizeof entry->Keyword2, "%s", event.keywords[1].c_str());
    snprintf(entry->Keyword3, sizeof entry->Keyword3, "%s", event.keywords[2].c_str());
    snprintf(entry->Source, sizeof entry->Source, "%s", event.source.c_str());
    entry->EventID = static_cast<uint32_t>(strtoul(event.id.c_str(), nullptr, 16));
    entry->ReportCount = static_cast<int32_t>(event.report_count);
    entry->WatchTime = event.watch_time;
    lpVKVMon[nCnt++] = entry;
    return entry;
}

std::vector<char> ModuleTest::ThreadRecord(HANDLE stop, HANDLE started)
{
    std::vector<char> record(kThreadRecordSize);
    memcpy(record.data() + kThreadStopHandleOffset, &stop, sizeof stop);
    memcpy(record.data() + kThreadStartupEventOffset, &started, sizeof started);
    return record;
}

} // namespace test
