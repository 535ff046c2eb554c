#include "agent/host/here_and_now.h"

#include <chrono>
#include <climits>
#include <unistd.h>

namespace host {

std::string HostName()
{
    // One byte more than is asked for: gethostname need not terminate a name that it cuts.
    char name[HOST_NAME_MAX + 1] = {};
    gethostname(name, HOST_NAME_MAX);
    return name;
}

int64_t NowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace host
