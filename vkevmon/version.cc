#include "vkevmon/version.h"

#include <cstdio>

#include "platform/trace.h"

char version[9] = " 1, 0, 0";

const char *const chglist[][4] = {
    {"File", "Date", "By", "Detail"},
    {"vkevmon", "2026-11-21", "maintainers", "entry, event loop, table, syslog scan"},
    {"fileacc", "2026-11-21", "maintainers", "block reader, line steps, resume positioning"},
    {"regacc", "2026-11-21", "maintainers", "scan state in the registry"},
    {"filemonitor", "2026-11-21", "maintainers", "file-monitor target by inode and offset"},
    {nullptr, nullptr, nullptr, nullptr},
};

namespace {

constexpr char kUnit[] = "vkevmon";

} // namespace

BOOL DllMain(HMODULE /*module*/, DWORD dwReason)
{
    TRACE(TRACE_DETAIL, ">dwReason=%d", static_cast<int>(dwReason));
    TRACE(TRACE_DETAIL, "<return TRUE.");
    return TRUE;
}

void printg(void) {}

void syslog_mon_verinfo(void)
{
    TRACE(TRACE_DETAIL, ">");
    printf("Syslog monitor Version: %s\n", version);
    printf("ChangeList:\n");
    for (const char *const *row = chglist[0]; row[0] != nullptr; row += 4) {
        for (int column = 0; column < 4; ++column)
            printf(" %-10s  ", row[column] != nullptr ? row[column] : "");
        printf("\n");
    }
    TRACE(TRACE_DETAIL, "<");
}
