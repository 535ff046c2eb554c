#include "match/table_data.h"

#include <algorithm>
#include <cstdlib>

VKVMon *lpVKVMon[kMaxEntries];
int nCnt = 0;

bool AddTableEntry(VKVMon *entry)
{
    if (nCnt >= kMaxEntries)
        return false;
    lpVKVMon[nCnt++] = entry;
    return true;
}

void FreeTableEntries()
{
    for (int i = 0; i < nCnt; ++i) {
        free(lpVKVMon[i]);
        lpVKVMon[i] = nullptr;
    }
}

void EmptyTable()
{
    FreeTableEntries();
    nCnt = 0;
}

void ForgetTableEntries()
{
    std::fill_n(lpVKVMon, kMaxEntries, nullptr);
}
