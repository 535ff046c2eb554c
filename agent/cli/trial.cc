#include "agent/cli/trial.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <exception>
#include <map>
#include <unistd.h>

#include "agent/common/names.h"
#include "agent/libtarsk/convert.h"
#include "agent/libtarsk/error.h"
#include "agent/libtarsk/host.h"
#include "agent/libtarsk/settings.h"
#include "agent/libtarsk/store.h"
#include "agent/libtarsk/sync.h"
#include "agent/libtarsk/trace_log.h"
#include "platform/sync.h"
#include "platform/thread_record.h"

namespace cli {

namespace fs = std::filesystem;

namespace {

template <typename Symbol>
void Find(void *library, const char *name, Symbol *symbol)
{
    *symbol = reinterpret_cast<Symbol>(dlsym(library, name));
    if (*symbol == nullptr)
        throw tarsk::Error("cannot use the monitor module", std::string("it has no ") + name,
                           "install the module and the command of one version");
}

// A folder that is gone at the end.
class TemporaryFolder {
  public:
    TemporaryFolder()
    {
        std::string name = (fs::temp_directory_path() / "syslogmon.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw tarsk::Error("cannot create a temporary folder", strerror(errno),
                               "make room in " + fs::temp_directory_path().string() +
                                   ", or name another place with TMPDIR");
        path_ = name;
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    [[nodiscard]] const fs::path &path() const { return path_; }

  private:
    fs::path path_;
};

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
        for (const RulesCopy::Key &key : rules.keys) {
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
    copy->keys.push_back({path, registry.Values(*key)});
    for (const std::string &name : registry.SubKeys(*key))
        CopyTree(registry, path + "\\" + name, copy);
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

MonitorModule::MonitorModule(const tarsk::Layout &layout)
    : library_(dlopen(layout.Library("vkevmon.dll").c_str(), RTLD_NOW | RTLD_LOCAL))
{
    if (library_ == nullptr)
        throw tarsk::Error("cannot load the monitor module", dlerror(),
                           "name the install root with --root, or install the package again");
    Find(library_, "StartThread", &start_thread);
    Find(library_, "CheckLine", &check_line);
    Find(library_, "GetSyslogTime", &get_syslog_time);
    Find(library_, "OnTime", &on_time);
    Find(library_, "InitFile", &init_file);
    Find(library_, "FinishFile", &finish_file);
    Find(library_, "GotoPos", &goto_pos);
    Find(library_, "GetNextLine", &get_next_line);
    Find(library_, "FEof", &at_end);
    Find(library_, "lpVKVMon", &entries);
    Find(library_, "nCnt", &count);
    Find(library_, "report_ft", &report_ft);
    Find(library_, "IsFTServer", &is_fault_tolerant);
    Find(library_, "pVKMonitorCall", &report);
}

MonitorModule::~MonitorModule()
{
    dlclose(library_);
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
    HANDLE stop = CreateEvent(nullptr, TRUE, TRUE, nullptr);
    HANDLE started = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    memcpy(record.data() + kThreadStopHandleOffset, &stop, sizeof stop);
    memcpy(record.data() + kThreadStartupEventOffset, &started, sizeof started);
    bool was_loaded = false;
    std::exception_ptr failure;
    tarsk::SetEventHook(started, [&] {
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
    CloseHandle(stop);
    CloseHandle(started);
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

void FixTimeZone()
{
    setenv("TZ", ":/etc/localtime", 0);
    tzset();
}

} // namespace cli
