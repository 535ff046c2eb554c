#include "agent/cli/trial.h"

#include <cstring>
#include <exception>
#include <map>

#include "agent/cli/temporary_folder.h"
#include "agent/host/agent_values.h"
#include "agent/host/convert.h"
#include "agent/host/error.h"
#include "agent/host/host.h"
#include "agent/host/moments.h"
#include "agent/host/owned_handle.h"
#include "agent/host/store.h"
#include "agent/host/trace_log.h"
#include "agent/regfile/reg_import.h"
#include "platform/contract.h"
#include "platform/sync.h"
#include "platform/thread_record.h"

namespace cli {

namespace fs = std::filesystem;

namespace {

// The host of a trial: the libraries of the real one, and everything else in a folder of its own.
// The C functions of the module work with it as long as it lives, and with the host before it, if
// any, behind that.
class PrivateHost {
  public:
    PrivateHost(const host::Layout &real, const RulesCopy &rules)
        : host_(
              {real.root, folder_.path() / "state", folder_.path() / "run", folder_.path() / "log"},
              host::Role::kCommand)
    {
        // The module traces each line, and nobody would see it.
        host::SetTraceLevel(host::kTraceOff);
        host::Transaction transaction(host_.store());
        auto &registry = host_.registry();
        // The module does not start without it.
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
        // A set that is not known leaves the one before, as in the daemon.
        host::SetLogCharset(
            host::AgentText(registry, "LogCharset").value_or(host::kDefaultLogCharset));
    }
    host::Host &get() { return host_; }

  private:
    TemporaryFolder folder_; // goes after the host
    host::Host host_;
};

// Does what is to be done in the pause, and keeps what it throws: the module must come to its end
// first.
class Pause : public host::Moments {
  public:
    explicit Pause(std::function<void()> action) : action_(std::move(action)) {}

    void TableLoaded() override
    {
        // Whatever the action does: the module has loaded its table.
        was_reached_ = true;
        try {
            action_();
        } catch (...) {
            // Nothing may be thrown through the module, which knows no exceptions.
            failure_ = std::current_exception();
        }
    }
    [[nodiscard]] bool WasReached() const { return was_reached_; }
    [[nodiscard]] const std::exception_ptr &failure() const { return failure_; }

  private:
    std::function<void()> action_;
    bool was_reached_ = false;
    std::exception_ptr failure_;
};

// Nothing, when the key is not there.
void CopyTree(host::RegistryTree &registry, const std::string &path, RulesCopy *copy)
{
    const auto key = registry.Find(host::kRootKey, path);
    if (!key)
        return;
    // With what is unknown in them: the module decides what it reads.
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

// One moment's: the snapshot spans the three trees.
RulesCopy CopyRules(host::RegistryTree &registry, bool with_events)
{
    RulesCopy copy;
    const host::Snapshot snapshot(registry.store());
    if (with_events)
        CopyTree(registry, kApplicationKey, &copy);
    CopyTree(registry, kAlertReportKey, &copy);
    CopyTree(registry, host::kAgentKey, &copy);
    return copy;
}

void RunTrial(const host::Layout &layout, const RulesCopy &rules, const TrialAction &action)
{
    PrivateHost host(layout, rules);
    monitor::Module module(layout);
    std::vector<char> record(kThreadRecordSize);
    const host::OwnedHandle stop(CreateEvent(nullptr, TRUE, TRUE, nullptr));
    const host::OwnedHandle started(CreateEvent(nullptr, TRUE, FALSE, nullptr));
    for (const auto &[offset, handle] : {std::pair(kThreadStopHandleOffset, stop.get()),
                                         std::pair(kThreadStartupEventOffset, started.get())})
        memcpy(record.data() + offset, &handle, sizeof handle);
    Pause pause([&] { action(module, host.get().registry()); });
    {
        const host::MomentsOf moments(host.get(), pause, started.get());
        // The stop handle is signalled from the start, so the module ends when it waits for the first
        // time. Its first pass finds no resume points, and checks no line.
        module.StartThread(record.data());
    }
    if (pause.failure())
        std::rethrow_exception(pause.failure());
    if (!pause.WasReached())
        FailToLoad(host.get().registry());
}

std::vector<LeftOutEvent> LeftOutEvents(host::RegistryTree &registry, const monitor::Module &module)
{
    // With duplicates: an ID that is registered under two keys is loaded twice, and neither of them
    // is left out.
    std::multimap<std::string, uint32_t> loaded;
    for (int i = 0; i < *module.table().count; ++i)
        loaded.emplace(module.table().entries[i]->Source, module.table().entries[i]->EventID);
    std::vector<LeftOutEvent> left_out;
    for (const events::StoredSource &source : events::EventRegistry(registry).ReadAll()) {
        for (const events::StoredEvent &stored : source.events) {
            auto [found, end] = loaded.equal_range(source.name);
            while (found != end && found->second != stored.event.key.id)
                ++found;
            if (found == end)
                left_out.push_back({source, stored, events::WhyLeftOut(registry, source, stored)});
            else
                loaded.erase(found);
        }
    }
    return left_out;
}

} // namespace cli
