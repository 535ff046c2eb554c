#include "agent/cli/trial.h"

#include <cstring>
#include <exception>
#include <map>

#include "agent/cli/temporary_folder.h"
#include "agent/common/names.h"
#include "agent/common/reg_import.h"
#include "agent/libtarsk/convert.h"
#include "agent/libtarsk/error.h"
#include "agent/libtarsk/host.h"
#include "agent/libtarsk/owned_handle.h"
#include "agent/libtarsk/settings.h"
#include "agent/libtarsk/store.h"
#include "agent/libtarsk/sync.h"
#include "agent/libtarsk/trace_log.h"
#include "platform/sync.h"
#include "platform/thread_record.h"

namespace cli {

namespace fs = std::filesystem;

namespace {

// The host of a trial: the libraries of the real one, and everything else in a folder of its own.
class PrivateHost {
  public:
    PrivateHost(const tarsk::Layout &real, const RulesCopy &rules)
    {
        tarsk::StopHost();
        const fs::path &place = folder_.path();
        tarsk::StartHost({real.root, place / "state", place / "run", place / "log"},
                         tarsk::Role::kCommand);
        tarsk::SetTraceLevel(tarsk::kTraceOff);
        tarsk::Transaction transaction(tarsk::HostStore());
        auto &registry = tarsk::HostRegistry();
        registry.Create(tarsk::kRootKey, agent::kApplicationKey);
        for (const agent::RegKeyContent &key : rules.keys) {
            const tarsk::KeyId copy = registry.Create(tarsk::kRootKey, key.path);
            for (const tarsk::RegValue &value : key.values)
                registry.Set(copy, value.name, value.type, value.data);
        }
        agent::EventRegistry events(registry);
        for (const agent::EventRecord &event : rules.events)
            events.Write(event);
        transaction.Commit();
        tarsk::SetLogCharset(tarsk::AgentText("LogCharset").value_or(tarsk::kDefaultLogCharset));
    }
    ~PrivateHost()
    {
        tarsk::SetWaitHooks({});
        tarsk::SetEventHook(nullptr, nullptr);
        tarsk::StopHost();
    }
    PrivateHost(const PrivateHost &) = delete;
    PrivateHost &operator=(const PrivateHost &) = delete;

  private:
    TemporaryFolder folder_; // goes after the host
};

void CopyTree(tarsk::RegistryTree &registry, const std::string &path, RulesCopy *copy)
{
    const auto key = registry.Find(tarsk::kRootKey, path);
    if (!key)
        return;
    const auto keys = agent::ReadRegKeys(registry, *key, path);
    copy->keys.insert(copy->keys.end(), keys.begin(), keys.end());
}

// The module has not come to its start: one event that cannot be loaded is enough.
[[noreturn]] void FailToLoad(tarsk::RegistryTree &registry)
{
    for (const agent::StoredSource &source : agent::EventRegistry(registry).ReadAll()) {
        for (const agent::StoredEvent &stored : source.events) {
            if (!source.is_new_application_type && !stored.problem.empty())
                throw tarsk::Error("cannot load event " + source.name + " " + stored.id_text,
                                   stored.problem,
                                   "remove it with syslogmon event remove and add it with all its "
                                   "values; until then, the monitor loads no event at all");
        }
    }
    throw tarsk::Error("cannot start the monitor module", "it ended while it started",
                       "install the package again, or see the trace log of the daemon");
}

} // namespace

MonitorModule::MonitorModule(const tarsk::Layout &layout) : library_(layout.Library("vkevmon.dll"))
{
    library_.Find("StartThread", &start_thread);
    library_.Find("CheckLine", &check_line);
    library_.Find("GetSyslogTime", &get_syslog_time);
    library_.Find("OnTime", &on_time);
    library_.Find("InitFile", &init_file);
    library_.Find("FinishFile", &finish_file);
    library_.Find("GotoPos", &goto_pos);
    library_.Find("GetNextLine", &get_next_line);
    library_.Find("FEof", &at_end);
    library_.Find("lpVKVMon", &entries);
    library_.Find("nCnt", &count);
    library_.Find("report_ft", &report_ft);
    library_.Find("IsFTServer", &is_fault_tolerant);
    library_.Find("pVKMonitorCall", &report);
}

RulesCopy CopyRules(tarsk::RegistryTree &registry, bool with_events)
{
    RulesCopy copy;
    const tarsk::Snapshot snapshot(tarsk::HostStore());
    if (with_events)
        CopyTree(registry, agent::kApplicationKey, &copy);
    CopyTree(registry, agent::kAlertReportKey, &copy);
    CopyTree(registry, tarsk::kAgentKey, &copy);
    return copy;
}

void RunTrial(const tarsk::Layout &layout, const RulesCopy &rules,
              const std::function<void(MonitorModule &)> &action)
{
    const PrivateHost host(layout, rules);
    MonitorModule module(layout);
    std::vector<char> record(kThreadRecordSize);
    const tarsk::OwnedHandle stop(CreateEvent(nullptr, TRUE, TRUE, nullptr));
    const tarsk::OwnedHandle started(CreateEvent(nullptr, TRUE, FALSE, nullptr));
    for (const auto &[offset, handle] : {std::pair(kThreadStopHandleOffset, stop.get()),
                                         std::pair(kThreadStartupEventOffset, started.get())})
        memcpy(record.data() + offset, &handle, sizeof handle);
    bool was_loaded = false;
    std::exception_ptr failure;
    tarsk::SetEventHook(started.get(), [&] {
        was_loaded = true;
        try {
            action(module);
        } catch (...) {
            failure = std::current_exception();
        }
    });
    // The stop handle is signalled from the start, so the module ends when it waits for the first
    // time. Its first pass finds no resume points, and checks no line.
    module.start_thread(record.data());
    tarsk::SetEventHook(nullptr, nullptr);
    if (failure)
        std::rethrow_exception(failure);
    if (!was_loaded)
        FailToLoad(tarsk::HostRegistry());
}

std::vector<std::pair<agent::StoredSource, agent::StoredEvent>>
LeftOutEvents(tarsk::RegistryTree &registry, const MonitorModule &module)
{
    std::multimap<std::string, uint32_t> loaded;
    for (int i = 0; i < *module.count; ++i)
        loaded.emplace(module.entries[i]->Source, module.entries[i]->EventID);
    std::vector<std::pair<agent::StoredSource, agent::StoredEvent>> left_out;
    for (const agent::StoredSource &source : agent::EventRegistry(registry).ReadAll()) {
        for (const agent::StoredEvent &stored : source.events) {
            auto [found, end] = loaded.equal_range(source.name);
            while (found != end && found->second != stored.event.key.id)
                ++found;
            if (found == end)
                left_out.emplace_back(source, stored);
            else
                loaded.erase(found);
        }
    }
    return left_out;
}

} // namespace cli
