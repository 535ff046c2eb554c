#include "vkevmon/reload.h"

#include <cstdlib>
#include <cstring>

#include "match/table_data.h"
#include "platform/trace.h"

VKVMon *tmp_VKVMon = nullptr;
int tmp_Cnt = 0;

namespace {

constexpr char kUnit[] = "vkevmon";

bool IsSameEvent(const VKVMon &a, const VKVMon &b)
{
    return a.EventID == b.EventID && a.ReportCount == b.ReportCount &&
           strcmp(a.Source, b.Source) == 0;
}

} // namespace

int VKVMonQueBackUp(void)
{
    TRACE(TRACE_DETAIL, ">");
    tmp_Cnt = nCnt;
    const size_t size = static_cast<size_t>(tmp_Cnt) * sizeof(VKVMon);
    // With an empty table this asks for 0 bytes; a null answer to that is a failure like any other.
    tmp_VKVMon = static_cast<VKVMon *>(malloc(size));
    if (tmp_VKVMon == nullptr) {
        TRACE(TRACE_ERROR, "<tmp_VKVMon malloc failed.return -1");
        return -1;
    }
    memset(static_cast<void *>(tmp_VKVMon), 0, size);
    for (int i = 0; i < tmp_Cnt; ++i) {
        memcpy(tmp_VKVMon[i].Source, lpVKVMon[i]->Source, kSourceNameSize);
        tmp_VKVMon[i].EventID = lpVKVMon[i]->EventID;
        tmp_VKVMon[i].ReportCount = lpVKVMon[i]->ReportCount;
        tmp_VKVMon[i].CurrentCount = lpVKVMon[i]->CurrentCount;
    }
    TRACE(TRACE_DETAIL, "<return 0");
    return 0;
}

int VKVMonQueCpy(void)
{
    TRACE(TRACE_DETAIL, ">");
    // A plain search: at most 2048 x 2048 comparisons, once per change of the table.
    for (int i = 0; i < nCnt; ++i) {
        for (int j = 0; j < tmp_Cnt; ++j) {
            if (IsSameEvent(*lpVKVMon[i], tmp_VKVMon[j])) {
                lpVKVMon[i]->CurrentCount = tmp_VKVMon[j].CurrentCount;
                break;
            }
        }
    }
    free(tmp_VKVMon);
    tmp_VKVMon = nullptr;
    TRACE(TRACE_DETAIL, "<");
    return 0;
}
