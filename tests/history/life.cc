#include "tests/history/life.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "agent/logs/log_witness.h"
#include "fileacc/stretch.h"
#include "filemonitor/filemonitor.h"
#include "match/table_data.h"
#include "platform/split64.h"
#include "platform/thread_record.h"
#include "tests/history/model.h"
#include "tests/history/slow_clock.h"
#include "tests/history/world.h"
#include "tests/support/module_test.h"
#include "vkevmon/entry.h"
#include "vkevmon/file_set.h"
#include "vkevmon/pass_lines.h"

namespace history {

namespace {

using test::Host;
using test::kFileMonitorKey;
using test::kMonitorKey;
using test::MemoryRegistry;
using test::Sys;

// The call with which both readers begin to open a file. Nothing else in the module makes it.
constexpr char kOpening[] = "stat64";

// Results of the module's wait.
constexpr DWORD kTimeOut = 1;
constexpr DWORD kStop = 2;
constexpr DWORD kTableChanged = 3;
constexpr DWORD kCycleChanged = 4;
constexpr DWORD kScanNow = 5;
constexpr DWORD kCustomerChanged = 6;
constexpr DWORD kTargetChanged = 7;

DWORD WaitResult(const Step &step)
{
    switch (step.what) {
    case Do::kPass:
        return step.n % 2 == 0 ? kTimeOut : kScanNow;
    case Do::kReload:
        return kTableChanged;
    case Do::kCycle:
        return kCycleChanged;
    case Do::kCustomerEvent:
        return kCustomerChanged;
    case Do::kTargetEvent:
        return kTargetChanged;
    case Do::kRestart:
        return kStop;
    default:
        return kTimeOut;
    }
}

// ---- what the module shows ----

std::optional<int64_t> Stored64(const char *key, const std::string &low, const std::string &high)
{
    const auto low_half = Host().registry.Number(key, low);
    const auto high_half = Host().registry.Number(key, high);
    if (!low_half || !high_half)
        return std::nullopt;
    return JoinHalves(*low_half, *high_half);
}

Record StoredRecord()
{
    const MemoryRegistry &registry = Host().registry;
    Record record;
    for (const size_t slot : {size_t{0}, size_t{1}}) {
        const std::string suffix = slot == 0 ? "" : "_C";
        record.slots[slot].head = registry.Text(kMonitorKey, "HEADLINE" + suffix);
        record.slots[slot].pos = Stored64(kMonitorKey, "POS" + suffix, "H_POS" + suffix);
        record.slots[slot].content = registry.Text(kMonitorKey, "CONTENT" + suffix);
    }
    record.end_time = registry.Number(kMonitorKey, "RECORDTIME");
    const auto inode = Stored64(kFileMonitorKey, "INODE_L", "INODE_H");
    if (inode)
        record.inode = static_cast<uint64_t>(*inode);
    record.offset = Stored64(kFileMonitorKey, "OFFSET_L", "OFFSET_H");
    return record;
}

// The values that the module writes, for a pass that is rolled back.
struct ValueName {
    const char *key;
    const char *name;
};
std::vector<ValueName> ModuleValues()
{
    return {
        {kMonitorKey, "RECORDTIME"},  {kMonitorKey, "HEADLINE"},    {kMonitorKey, "POS"},
        {kMonitorKey, "H_POS"},       {kMonitorKey, "CONTENT"},     {kMonitorKey, "HEADLINE_C"},
        {kMonitorKey, "POS_C"},       {kMonitorKey, "H_POS_C"},     {kMonitorKey, "CONTENT_C"},
        {kFileMonitorKey, "INODE_L"}, {kFileMonitorKey, "INODE_H"}, {kFileMonitorKey, "OFFSET_L"},
        {kFileMonitorKey, "OFFSET_H"}};
}

// The hit counters as the host keeps them: with what makes an event the same event.
struct Counter {
    std::string source;
    uint32_t id;
    int32_t report_count;
    int32_t hits;
};

std::vector<Counter> ModuleCounters()
{
    std::vector<Counter> counters;
    for (int i = 0; i < nCnt; ++i)
        counters.push_back({lpVKVMon[i]->Source, lpVKVMon[i]->EventID, lpVKVMon[i]->ReportCount,
                            lpVKVMon[i]->CurrentCount});
    return counters;
}

void PutBack(const std::vector<Counter> &counters)
{
    for (int i = 0; i < nCnt; ++i) {
        VKVMon &entry = *lpVKVMon[i];
        const auto same = std::find_if(counters.begin(), counters.end(), [&](const Counter &c) {
            return c.source == entry.Source && c.id == entry.EventID &&
                   c.report_count == entry.ReportCount;
        });
        if (same != counters.end())
            entry.CurrentCount = same->hits;
    }
}

// What the host has committed.
struct Committed {
    std::vector<std::optional<MemoryRegistry::Value>> values;
    std::vector<Counter> counters;
    size_t reports = 0;
};

Committed Commit()
{
    Committed committed;
    for (const ValueName &value : ModuleValues())
        committed.values.push_back(Host().registry.Get(value.key, value.name));
    committed.counters = ModuleCounters();
    committed.reports = Host().reports.size();
    return committed;
}

void RollBack(const Committed &committed)
{
    size_t i = 0;
    for (const ValueName &name : ModuleValues()) {
        const auto &value = committed.values[i++];
        if (value)
            Host().registry.SetBytes(name.key, name.name, value->type, value->data);
        else
            Host().registry.DeleteValue(name.key, name.name);
    }
    Host().reports.resize(committed.reports);
}

// ---- differences, as text ----

std::string Short(const std::string &text)
{
    return text.size() <= 70 ? text
                             : text.substr(0, 70) + "... (" + std::to_string(text.size()) + ")";
}

template <typename Value>
std::string OrNone(const std::optional<Value> &value)
{
    return value ? std::to_string(*value) : "none";
}

std::string OrNone(const std::optional<std::string> &value)
{
    return value ? "\"" + Short(*value) + "\"" : "none";
}

std::string TextOf(const Record &record)
{
    std::string text;
    for (const SlotRecord &slot : record.slots)
        text += "\n      head " + OrNone(slot.head) + " pos " + OrNone(slot.pos) + " content " +
                OrNone(slot.content);
    return text + "\n      end time " + OrNone(record.end_time) + " inode " + OrNone(record.inode) +
           " offset " + OrNone(record.offset);
}

std::string TextOf(const std::vector<Alert> &alerts)
{
    std::string text;
    for (const Alert &alert : alerts)
        text += "\n      " + alert.source + " " + std::to_string(alert.id) + " \"" +
                Short(alert.message) + "\"";
    return text.empty() ? " none" : text;
}

// ---- one life ----

// The time zone of the process. Stays: the next history sets its own.
class Zone {
  public:
    explicit Zone(const std::string &name)
    {
        setenv("TZ", name.c_str(), 1);
        tzset();
    }
};

class Life {
  public:
    Life(const History &history, const std::string &log_dir);
    ~Life();
    Life(const Life &) = delete;
    Life &operator=(const Life &) = delete;
    Outcome Run();

  private:
    void Start();
    void Script();
    void AtRest();
    void AtDeath();
    void FinishWake();
    void CheckRest();
    [[nodiscard]] bool MaySplit(Log log) const;
    void BeginWake(const Step &wake);
    void WriteSettings();
    void WriteTable();
    void RunModel(const Step &wake);
    void Compare();
    void CompareLedger();
    void BeginWitnesses();
    void LookAtLogs();
    void TakeLosses();
    void CompareLosses();
    void Fail(const std::string &what);
    void Interrupt(const std::vector<Step> &steps);
    void InterruptBefore(int number, const Step &wake);
    [[nodiscard]] bool MayInterruptAgain(const Step &wake, size_t so_far) const;

    History history_;
    Zone zone_;
    Disk disk_;
    World world_;
    Model model_;
    Outcome outcome_;
    size_t at_ = 0;              // the next step
    const Step *wake_ = nullptr; // the wake that is under way; null: the start
    bool is_killed_ = false;     // the pass under way will be rolled back
    bool has_to_start_ = true;   // after a stop or a death
    std::vector<std::string> sources_;
    Committed committed_;
    Model::Lasting model_committed_;
    bool model_follows_ = true; // until something happens between two of its steps
    size_t reports_seen_ = 0;
    // Of the two logs that the module follows by its own rules; what they told of, in bytes.
    std::string log_dir_;
    std::array<std::optional<logs::LogWitness>, kLogs> witnesses_;
    std::array<int64_t, kLogs> told_{};
    // Of the wake that is interrupted: the world as it is after each interruption to which the module has come,
    // and to how many of them the model has come.
    std::vector<World> interrupted_;
    size_t model_interruptions_ = 0;
};

Life::Life(const History &history, const std::string &log_dir)
    : history_(history), zone_(history.setup.zone), disk_(log_dir),
      world_(&disk_, history.setup, history.is_faithful), model_(&world_), log_dir_(log_dir)
{
    test::ResetModule();
    Host().Reset();
    Host().record_trace = false;
    // Logs are short here: a part of the histories reads stretches of any length, down to the last line.
    Host().detail_is_on = history.setup.dated;
    least_news_for_stretches = 1;
    bytes_left_to_blocks = 1;
    Sys().Reset();
    Sys().log_dir = log_dir;
    TheSlowClock() = SlowClock();
    if (history_.is_faithful || history_.tells_losses) {
        // Two passes over complete logs: nothing may be left over.
        history_.steps.push_back({});
        history_.steps.push_back({});
    }
}

Life::~Life()
{
    world_.folder.Clear();
    test::ResetModule();
    Host().Reset();
    Sys().Reset();
    TheSlowClock() = SlowClock();
}

void Life::Fail(const std::string &what)
{
    if (outcome_.failed)
        return;
    outcome_.failed = true;
    outcome_.what =
        (at_ == 0 ? std::string("after the start: ") : "after step " + std::to_string(at_) + ": ") +
        what;
}

Outcome Life::Run()
{
    WriteTable();
    Script();
    while (has_to_start_ && !outcome_.failed) {
        has_to_start_ = false;
        Start();
    }
    if (!outcome_.failed && history_.is_faithful)
        CompareLedger();
    if (!outcome_.failed && history_.tells_losses)
        CompareLosses();
    return outcome_;
}

// One process: from StartThread to its return.
void Life::Start()
{
    test::ResetModule();
    BeginWitnesses();
    WriteSettings();
    Sys().now = world_.clock;
    // The host puts the counters back when the table has been loaded; the first thing that a pass does is
    // to look at the system log.
    Sys().BeforeCall("stat", 1, [this] { PutBack(committed_.counters); });
    wake_ = nullptr;
    interrupted_.clear();
    char record[kThreadRecordSize] = {};
    const HANDLE stop = Host().NewHandle("stop");
    const HANDLE started = Host().NewHandle("started");
    memcpy(record + kThreadStopHandleOffset, &stop, sizeof stop);
    memcpy(record + kThreadStartupEventOffset, &started, sizeof started);
    StartThread(record);
}

// Scripts the next wait: at its beginning the module is at rest, its result is the next wake of the
// history, or the stop when there is none.
void Life::Script()
{
    size_t next = at_;
    while (next < history_.steps.size() && !IsWake(history_.steps[next].what))
        ++next;
    const DWORD result = next < history_.steps.size() ? WaitResult(history_.steps[next]) : kStop;
    Host().waits.push_back({result, [this] { AtRest(); }});
}

void Life::AtRest()
{
    FinishWake();
    TakeLosses();
    if (outcome_.failed)
        return;
    while (at_ < history_.steps.size()) {
        if ((history_.is_faithful || history_.tells_losses) && at_ + 2 == history_.steps.size())
            world_.Finish();
        const Step &step = history_.steps[at_++];
        if (IsWake(step.what)) {
            BeginWake(step);
            return;
        }
        world_.Apply(step);
        model_.NoteWhatWasEmptied();
        LookAtLogs();
        if (step.what == Do::kTable)
            WriteTable();
    }
    committed_ = Commit();
}

// The process was killed before the pass came to its end.
void Life::AtDeath()
{
    RunModel(*wake_);
    RollBack(committed_);
    Host().parts.clear();
    reports_seen_ = Host().reports.size();
    model_.Restore(model_committed_);
    model_.alerts.clear();
}

// Can a line be written in two during a pass? Not in a file of more than a block: the rest may have no room
// in the block that is being read, and is then left for the next pass.
bool Life::MaySplit(Log log) const
{
    constexpr size_t kFarFromABlock = 12000;
    return world_.IsWatched(log) && world_.folder.Size(world_.NameOf(log)) < kFarFromABlock;
}

void Life::BeginWake(const Step &wake)
{
    world_.BeforeWake();
    wake_ = &wake;
    ++outcome_.wakes;
    if (wake.what == Do::kKill || wake.what == Do::kRestart) {
        committed_ = Commit();
        model_committed_ = model_.Save();
        has_to_start_ = true;
    }
    const bool is_split = wake.what == Do::kPassSplit && MaySplit(wake.log);
    if (is_split && !world_.IsInTwo(wake.log))
        world_.WritePart(wake.log, wake.n);
    WriteSettings();
    Sys().now = world_.clock;
    TheSlowClock().BeginWake();
    TheSlowClock().after_pause = nullptr;
    interrupted_.clear();
    model_interruptions_ = 0;

    if (wake.what == Do::kPassDuring)
        InterruptBefore(wake.n, wake);
    if (wake.what == Do::kPassDuringCall)
        Sys().BeforeCall(Sys().kAnyFileCall, wake.n, [this, &wake] {
            model_follows_ = false;
            Interrupt(wake.inner);
        });
    if (is_split)
        TheSlowClock().after_pause = [this, &wake](int64_t slept) {
            if (slept >= wake.m && interrupted_.empty())
                Interrupt({{Do::kRest, wake.log, 0, 0, {}}});
        };
    if (wake.what == Do::kKill)
        Host().waits.push_back({kStop, [this] {
                                    AtDeath();
                                    Script();
                                }});
    else
        Script(); // after a restart, for the next process
}

// The module has come to the moment at which something happens to the logs. On disk it happens now; for the
// model when it comes there too.
void Life::Interrupt(const std::vector<Step> &steps)
{
    outcome_.was_interrupted = true;
    interrupted_.push_back(interrupted_.empty() ? world_ : interrupted_.back());
    for (const Step &step : steps)
        interrupted_.back().Apply(step);
}

// The pass is interrupted before the file number `number` from now is opened, and then again. The opening
// begins with a look at the name, which fixes how much of the file is read, however it grows until it is open.
void Life::InterruptBefore(int number, const Step &wake)
{
    Sys().BeforeCall(kOpening, number, [this, &wake] {
        Interrupt(wake.inner);
        if (MayInterruptAgain(wake, interrupted_.size()))
            InterruptBefore(wake.m, wake);
    });
}

bool Life::MayInterruptAgain(const Step &wake, size_t so_far) const
{
    const int most = history_.is_faithful ? kMostFaithfulInterruptions : kMostInterruptions;
    return wake.m > 0 && so_far < static_cast<size_t>(most);
}

void Life::RunModel(const Step &wake)
{
    if (!model_follows_) {
        if (!interrupted_.empty())
            world_ = interrupted_.back();
        return;
    }
    const auto take_over = [this] {
        if (model_interruptions_ == interrupted_.size())
            return false;
        world_ = interrupted_[model_interruptions_++];
        return true;
    };
    model_.interruption = {};
    if (wake.what == Do::kPassDuring)
        model_.interruption.before_open = [&, next = wake.n](int number) mutable {
            if (number != next)
                return;
            next += wake.m;
            take_over();
        };
    if (wake.what == Do::kPassSplit)
        model_.interruption.while_waiting = take_over;
    switch (wake.what) {
    case Do::kReload:
        model_.Reload();
        break;
    case Do::kCycle:
    case Do::kRestart:
        break;
    case Do::kCustomerEvent:
        model_.CustomerEvent();
        break;
    case Do::kTargetEvent:
        model_.TargetEvent();
        break;
    default:
        model_.Pass();
        break;
    }
    model_.interruption = {};
    if (model_interruptions_ < interrupted_.size()) {
        world_ = interrupted_.back();
        Fail("the module came to the interruption, the model did not");
    }
}

// The module waits: what was begun by the last wake is done.
void Life::FinishWake()
{
    if (wake_ != nullptr)
        RunModel(*wake_);
    else if (model_follows_)
        model_.Start();
    for (const char *call : {kOpening, Sys().kAnyFileCall})
        Sys().BeforeCall(call, 0, nullptr); // an interruption that never came
    CheckRest();
    Compare();
    if (!interrupted_.empty())
        return; // how far the pass has come depends on when
    const Do what = wake_ != nullptr ? wake_->what : Do::kPass;
    if (what != Do::kReload && what != Do::kCycle && what != Do::kTargetEvent)
        world_.ScanWasCommitted();
    if (what != Do::kReload && what != Do::kCycle && what != Do::kCustomerEvent)
        world_.WatchWasCommitted();
}

// At rest nothing is open and nothing is left over.
void Life::CheckRest()
{
    if (gfp != nullptr || filedata.filefp != nullptr)
        Fail("a log is still open at rest");
    if (Host().registry.OpenHandles() != 0)
        Fail("a registry key is still open at rest");
    for (const BakFileList &list : syslog_bakfilelist) {
        if (list.lpbakfilelist != nullptr && list.ibakfilenum == 0)
            Fail("an empty list of backups is kept");
    }
}

void Life::Compare()
{
    std::vector<Alert> got;
    for (size_t i = reports_seen_; i < Host().reports.size(); ++i) {
        const test::SentReport &report = Host().reports[i];
        got.push_back({report.source, report.event_id, report.message});
    }
    reports_seen_ = Host().reports.size();
    outcome_.alerts += static_cast<int>(got.size());
    if (!model_follows_)
        return;
    if (got != model_.alerts)
        Fail("reports\n    want:" + TextOf(model_.alerts) + "\n    got:" + TextOf(got));
    model_.alerts.clear();

    const Record record = StoredRecord();
    if (record != model_.record())
        Fail("registry\n    want:" + TextOf(model_.record()) + "\n    got:" + TextOf(record));

    std::string want;
    for (const Counted &entry : model_.table())
        want += " " + entry.event.source + "/" + std::to_string(entry.event.id) + "=" +
                std::to_string(entry.hits);
    std::string counted;
    for (const Counter &counter : ModuleCounters())
        counted += " " + counter.source + "/" + std::to_string(counter.id) + "=" +
                   std::to_string(counter.hits);
    if (want != counted)
        Fail("hit counters\n    want:" + want + "\n    got: " + counted);
}

// The number of a line, from its text.
int IdOf(const std::string &line)
{
    const size_t at = line.find("id=");
    return at == std::string::npos ? 0 : atoi(line.c_str() + at + 3);
}

void Life::CompareLedger()
{
    const Ledger &ledger = world_.ledger;
    std::map<int, int> got;
    for (const test::SentReport &report : Host().reports) {
        if (report.source == "EACH")
            ++got[IdOf(report.message)];
    }
    std::map<int, int> want = ledger.reports;
    for (const int id : ledger.repeated) {
        got.erase(id);
        want.erase(id);
    }
    for (const auto &[id, times] : want) {
        if (got[id] != times)
            Fail("line " + std::to_string(id) + " was written " + std::to_string(times) +
                 " time(s) and reported " + std::to_string(got[id]) + " time(s)");
        got.erase(id);
    }
    for (const auto &[id, times] : got)
        Fail("line " + std::to_string(id) + " was reported " + std::to_string(times) +
             " time(s), for nothing");
    for (const Counter &counter : committed_.counters) {
        if (counter.source != "SUM")
            continue;
        const size_t line_class = counter.id - 0x10;
        if (counter.hits != ledger.sums[line_class])
            Fail("lines of class " + std::to_string(line_class) + " occurred " +
                 std::to_string(ledger.sums[line_class]) + " times and were counted " +
                 std::to_string(counter.hits) + " times");
    }
}

// ---- what is told of losses ----

// A process that starts knows what the one before has stored.
void Life::BeginWitnesses()
{
    for (const Log log : kAllLogs) {
        auto &witness = witnesses_[log];
        const std::string path = log_dir_ + "/" + world_.NameOf(log);
        auto known = witness && witness->log() == path ? witness->Records()
                                                       : std::vector<logs::FileRecord>{};
        if (world_.IsWatched(log))
            witness.emplace(path, std::move(known));
        else
            witness.reset();
    }
    Host().parts.clear();
}

void Life::LookAtLogs()
{
    for (auto &witness : witnesses_) {
        if (witness)
            witness->Look();
    }
}

// In a faithful history nothing is lost, so nothing is told.
void Life::TakeLosses()
{
    const std::vector<LogPart> parts = std::exchange(Host().parts, {});
    for (const Log log : kAllLogs) {
        std::vector<LogPart> own;
        std::copy_if(parts.begin(), parts.end(), std::back_inserter(own),
                     [&](const LogPart &part) { return part.slot == log; });
        if (!witnesses_[log])
            continue;
        for (const logs::LogLoss &loss : witnesses_[log]->Take(own)) {
            told_[log] += (loss.end - loss.begin) * (loss.is_twice ? -1 : 1);
            if (history_.is_faithful)
                Fail("nothing was lost, and it is told: " + TextOf(loss));
        }
    }
}

void Life::CompareLosses()
{
    for (const Log log : kAllLogs) {
        const int64_t lost = world_.ledger.bytes[log] - model_.BytesRead(log);
        if (lost != told_[log])
            Fail("of log " + std::to_string(log) + ", " + std::to_string(lost) +
                 " bytes were lost, and " + std::to_string(told_[log]) + " are told of");
    }
}

// ---- the administrator ----

void SetOrDelete(const char *key, const char *name, const std::string &text)
{
    if (text.empty())
        Host().registry.DeleteValue(key, name);
    else if (Host().registry.Text(key, name) != text)
        Host().registry.SetText(key, name, text);
}

void Life::WriteSettings()
{
    Host().registry.CreateKey(kMonitorKey);
    SetOrDelete(kMonitorKey, "FILENAME", world_.settings.customer);
    SetOrDelete(kFileMonitorKey, "FILENAME", world_.settings.target);
}

std::string IdText(uint32_t id)
{
    char text[16];
    snprintf(text, sizeof text, "%X", id);
    return text;
}

void Life::WriteTable()
{
    const std::vector<Event> &events = world_.settings.events;
    const auto is_gone = [&](const std::string &source) {
        return std::none_of(events.begin(), events.end(),
                            [&](const Event &event) { return event.source == source; });
    };
    for (const std::string &source : sources_) {
        if (is_gone(source))
            Host().registry.DeleteKey(std::string(test::kApplicationKey) + "\\" + source);
    }
    std::erase_if(sources_, is_gone);
    for (const Event &event : events) {
        const std::string path = std::string(test::kApplicationKey) + "\\" + event.source + "\\" +
                                 IdText(event.id) + "\\WATCHSETTING";
        MemoryRegistry &registry = Host().registry;
        registry.SetText(path, "KeyWord", event.keywords[0]);
        registry.SetText(path, "KeyWord2", event.keywords[1]);
        registry.SetText(path, "KeyWord3", event.keywords[2]);
        registry.SetNumber(path, "ReportCount", static_cast<uint32_t>(event.count));
        registry.SetNumber(path, "WatchTime", event.hours);
        if (std::find(sources_.begin(), sources_.end(), event.source) == sources_.end())
            sources_.push_back(event.source);
    }
}

} // namespace

Outcome Run(const History &history, const std::string &log_dir)
{
    Life life(history, log_dir);
    return life.Run();
}

} // namespace history
