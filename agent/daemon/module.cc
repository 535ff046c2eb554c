#include "agent/daemon/module.h"

namespace syslogmond {

namespace {

// Reasons for which DllMain is called.
constexpr DWORD kProcessAttach = 1;
constexpr DWORD kProcessDetach = 0;

} // namespace

Module::Module(const std::filesystem::path &path) : library_(path)
{
    library_.Find("StartThread", &start_thread_);
    library_.Find("DllMain", &dll_main_);
    library_.Find("lpVKVMon", &table_.entries);
    library_.Find("nCnt", &table_.count);
    dll_main_(library_.get(), kProcessAttach);
}

Module::~Module()
{
    dll_main_(library_.get(), kProcessDetach);
}

} // namespace syslogmond
