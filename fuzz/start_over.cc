#include "fuzz/fuzz.h"
#include "match/report.h"
#include "platform/loader.h"
#include "tests/support/module_test.h"
#include "tests/support/scripted_host.h"
#include "tests/support/system.h"

namespace fuzz {

void StartOver()
{
    test::ResetModule();
    test::Host().Reset();
    test::Sys().Reset();
    pVKMonitorCall =
        reinterpret_cast<VKMonitorCallFn>(GetProcAddress(test::kReportLibrary, "VKMonitorCall"));
}

} // namespace fuzz
