#include "agent/cli/trial.h"

#include <cerrno>
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
#include "platform/registry.h"
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

// ---- passes ----

// The slot of the customer file, which is read wherever it lies.
constexpr int kLogSlot = 1;

// A log with a name that the module can read from the registry, whatever its own name is.
class NamedLog {
  public:
    NamedLog(const host::Host &host, const fs::path &log) : name_(host.layout().state / "log")
    {
        if (name_.native().size() > kFileNameMax)
            throw host::Error("cannot try a log",
                              "the folder " + name_.parent_path().string() + " has too long a name",
                              "name another place for temporary files with TMPDIR");
        fs::create_symlink(fs::absolute(log), name_);
    }
    ~NamedLog()
    {
        std::error_code ignored;
        fs::remove(name_, ignored);
    }
    NamedLog(const NamedLog &) = delete;
    NamedLog &operator=(const NamedLog &) = delete;
    [[nodiscard]] const std::string &name() const { return name_.native(); }

  private:
    fs::path name_;
};

// Without a resume point a slot begins at the end of its log, and has no line to check. So the log of this host itself
// is never a part of a trial.
void ForgetPlaces(host::RegistryTree &registry, host::KeyId key)
{
    registry.DeleteValue(key, kFileNameValue);
    for (const SlotValues &values : kSlotValues) {
        for (const char *value : {values.headline, values.pos_low, values.pos_high, values.content})
            registry.DeleteValue(key, value);
    }
}

// Has slot 1 begin at the first line of the log.
void PlaceBeforeFirstLine(const monitor::Module &module, const std::string &name,
                          const TrialLog &log)
{
    if (module.InitFile(name.c_str()) != 0)
        throw host::Error("cannot read " + log.name, strerror(errno),
                          "name a log that can be read");
    char headline[kLineBufferSize] = {};
    module.GetFirstLine(headline, kLineBufferSize);
    module.FinishFile();
    module.RegSetHeadLine(headline, kLogSlot);
    module.RegSetOrientation(-1, "", kLogSlot);
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
    Pause pause([&] { action(module, host.get()); });
    {
        const host::MomentsOf moments(host.get(), pause, started.get());
        // The stop handle is signalled from the start, so the module ends when it waits for the first
        // time. Its first pass finds no resume points, and checks no line: see ForgetPlaces.
        module.StartThread(record.data());
    }
    if (pause.failure())
        std::rethrow_exception(pause.failure());
    if (!pause.WasReached())
        FailToLoad(host.get().registry());
}

void PassOver(host::Host &host, const monitor::Module &module, const TrialLog &log)
{
    const NamedLog named(host, log.path);
    auto &registry = host.registry();
    const host::KeyId key = registry.Create(host::kRootKey, kMonitorKey);
    ForgetPlaces(registry, key);
    registry.Set(key, kFileNameValue, REG_SZ, named.name() + '\0');
    PlaceBeforeFirstLine(module, named.name(), log);
    module.ChangeCustFile();
    module.WatchSyslogMain();
    ForgetPlaces(registry, key);
    module.ChangeCustFile();
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
