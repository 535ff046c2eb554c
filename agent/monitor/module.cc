#include "agent/monitor/module.h"

namespace monitor {

namespace {

// Reasons for which DllMain is called. The dynamic linker does not know that function: the host
// calls it, once after loading and once before unloading.
constexpr DWORD kProcessAttach = 1;
constexpr DWORD kProcessDetach = 0;

} // namespace

// All exports are looked up before DllMain is called: a library that lacks one is unloaded again
// without having been told of anything.
Module::Module(const host::Layout &layout) : library_(layout.Library("vkevmon.dll"))
{
    library_.Find("StartThread", &StartThread);
    library_.Find("CheckLine", &CheckLine);
    library_.Find("WatchSyslogMain", &WatchSyslogMain);
    library_.Find("GetSyslogTime", &GetSyslogTime);
    library_.Find("OnTime", &OnTime);
    library_.Find("InitFile", &InitFile);
    library_.Find("FinishFile", &FinishFile);
    library_.Find("GetFirstLine", &GetFirstLine);
    library_.Find("GotoPos", &GotoPos);
    library_.Find("GetNextLine", &GetNextLine);
    library_.Find("FEof", &FEof);
    library_.Find("ChangeCustFile", &ChangeCustFile);
    library_.Find("ListBackupsOfSlot", &ListBackupsOfSlot);
    library_.Find("RegSetHeadLine", &RegSetHeadLine);
    library_.Find("RegSetOrientation", &RegSetOrientation);
    library_.Find("RegGetHeadLine", &RegGetHeadLine);
    library_.Find("RegGetOrientation", &RegGetOrientation);
    library_.Find("report_ft", &report_ft);
    library_.Find("IsFTServer", &IsFTServer);
    library_.Find("pVKMonitorCall", &pVKMonitorCall);
    library_.Find("DllMain", &dll_main_);
    library_.Find("lpVKVMon", &table_.entries);
    library_.Find("nCnt", &table_.count);
    dll_main_(library_.get(), kProcessAttach);
}

Module::~Module()
{
    dll_main_(library_.get(), kProcessDetach);
}

} // namespace monitor
