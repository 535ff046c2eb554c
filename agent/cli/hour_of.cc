#include "agent/cli/hour_of.h"

#include <ctime>

namespace cli {

int HourFor(const monitor::Module &module, HourOf hour_of, const char *line)
{
    time_t moment = time(nullptr);
    if (hour_of == HourOf::kLine)
        module.GetSyslogTime(line, &moment);
    struct tm local {};
    localtime_r(&moment, &local);
    return local.tm_hour;
}

} // namespace cli
