#include "regacc/last_end_time.h"

#include "regacc/regacc.h"

time_t lastendtime = 0;

bool RecallLastEndTime()
{
    if (lastendtime != 0 || RegGetRecTime(&lastendtime) == 0)
        return true;
    lastendtime = time(nullptr);
    return false;
}

bool RecordLastEndTime()
{
    lastendtime = time(nullptr);
    return RegSetRecTime(lastendtime) == 0;
}
