#include "match/report.h"

VKMonitorCallFn pVKMonitorCall = nullptr;
int32_t IsFTServer = 0;
int32_t report_ft = 0;
