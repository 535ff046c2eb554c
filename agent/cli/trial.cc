#include "agent/cli/trial.h"

#include <cstring>
#include <exception>
#include <map>

#include "agent/cli/temporary_folder.h"
#include "agent/host/agent_values.h"
#include "agent/host/convert.h"
#include "agent/host/error.h"
#include "agent/host/host.h"
#include "agent/host/owned_handle.h"
#include "agent/host/store.h"
#include "agent/host/sync.h"
#include "agent/host/trace_log.h"
#include "agent/regfile/reg_import.h"
#include "platform/contract.h"
#include "platform/sync.h"
#include "platform/thread_record.h"

namespace cli {

namespace fs = std::filesystem;

namespace {

// The host of a trial: the libraries of the real one, and everything else in a folder of its own.
class PrivateHost {
  public:
    PrivateHost(const host::Layout &real, const RulesCopy &rules)
    {
        host::StopHost();
        const fs::path &place = folder_.path();
        host::StartHost({real.root, place / "state", place / "run", place / "log"},
                        host::Role::kCommand);
        host::SetTraceLevel(host::kTraceOff);
        host::Transaction transaction(host::HostStore());
        auto &registry = host::HostRegistry();
        registry.Create(host::kRootKey, kApplicationKey);
        for (const regfile::RegKeyContent &key : rules.keys) {
            const host::KeyId copy = registry.Create(host::kRootKey, key.path);
            for (const host::RegValue &value : key.values)
                registry.Set(copy, value.name, value.type, value.data);
        }
        events::EventRegistry events(registry);
        for (const events::EventRecord &event : rules.events)
            events.Write(event);
        transaction.Commit();
        host::SetLogCharset(host::AgentText("LogCharset").value_or(host::kDefaultLogCharset));
    }
    ~PrivateHost()
    {
        host::SetWaitHooks({});
        host::SetEventHook(nullptr, nullptr);
        host::StopHost();
    }
    PrivateHost(const PrivateHost &) = delete;
    PrivateHost &operator=(const PrivateHost &) = delete;

  private:
    TemporaryFolder folder_; // goes after the host
};

void CopyTree(host::RegistryTree &registry, const std::string &path, RulesCopy *copy)
{
    const auto key = registry.Find(host::kRootKey, path);
    if (!key)
        return;
    const auto keys = regfile::ReadRegKeys(registry, *key, path);
    copy->keys.insert(copy->keys.end(), keys.begin(), keys.end());
}

// The module has not come to its start: one event that cannot be loaded is enough.
[[noreturn]] void FailToLoad(host::RegistryTree &registry)
{
    for (const events::StoredSource &source : events::EventRegistry(registry).ReadAll()) {
        for (const events::StoredEvent &stored : source.events) {
            if (!source.is_new_application_type && !stored.problem.empty())
                throw host::Error("cannot load event " + source.name + " " + stored.id_text,
                                  stored.problem,
                                  "remove it with syslogmon event remove and add it with all its "
                                  "values; until then, the monitor loads no event at all");
        }
    }
    throw host::Error("cannot start the monitor module", "it ended while it started",
                      "install the package again, or see the trace log of the daemon");
}

} // namespace

RulesCopy CopyRules(host::RegistryTree &registry, bool with_events)
{
    RulesCopy copy;
    const host::Snapshot snapshot(host::HostStore());
    if (with_events)
        CopyTree(registry, kApplicationKey, &copy);
    CopyTree(registry, kAlertReportKey, &copy);
    CopyTree(registry, host::kAgentKey, &copy);
    return copy;
}

void RunTrial(const host::Layout &layout, const RulesCopy &rules,
              const std::function<void(monitor::Module &)> &action)
{
    const PrivateHost host(layout, rules);
    monitor::Module module(layout);
    std::vector<char> record(kThreadRecordSize);
    const host::OwnedHandle stop(CreateEvent(nullptr, TRUE, TRUE, nullptr));
    const host::OwnedHandle started(CreateEvent(nullptr, TRUE, FALSE, nullptr));
    for (const auto &[offset, handle] : {std::pair(kThreadStopHandleOffset, stop.get()),
                                         std::pair(kThreadStartupEventOffset, started.get())})
        memcpy(record.data() + offset, &handle, sizeof handle);
    bool was_loaded = false;
    std::exception_ptr failure;
    host::SetEventHook(started.get(), [&] {
        was_loaded = true;
        try {
            action(module);
        } catch (...) {
            failure = std::current_exception();
        }
    });
    // The stop handle is signalled from the start, so the module ends when it waits for the first
    // time. Its first pass finds no resume points, and checks no line.
    module.StartThread(record.data());
    host::SetEventHook(nullptr, nullptr);
    if (failure)
        std::rethrow_exception(failure);
    if (!was_loaded)
        FailToLoad(host::HostRegistry());
}

std::vector<std::pair<events::StoredSource, events::StoredEvent>>
LeftOutEvents(host::RegistryTree &registry, const monitor::Module &module)
{
    std::multimap<std::string, uint32_t> loaded;
    for (int i = 0; i < *module.table().count; ++i)
        loaded.emplace(module.table().entries[i]->Source, module.table().entries[i]->EventID);
    std::vector<std::pair<events::StoredSource, events::StoredEvent>> left_out;
    for (const events::StoredSource &source : events::EventRegistry(registry).ReadAll()) {
        for (const events::StoredEvent &stored : source.events) {
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
