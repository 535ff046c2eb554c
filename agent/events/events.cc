#include "agent/events/events.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "agent/events/required_text.h"
#include "agent/host/error.h"
#include "agent/host/host.h"
#include "agent/host/owned_handle.h"
#include "agent/host/registry_values.h"
#include "agent/host/waitable.h"
#include "platform/contract.h"
#include "platform/monitor_entry.h"
#include "platform/registry.h"
#include "platform/sync.h"

namespace events {

namespace {

// The longest that an event may have. A source has less room in the registry, as a key's name, than
// in the monitor's table.
constexpr size_t kMaxKeyword = kKeywordSize - 1; // bytes
constexpr size_t kMaxSource = 255;               // bytes of a registry key's name
constexpr size_t kMaxIdName = 15;                // characters that the monitor reads of an ID

// How long a command waits for the table's mutex before it says so. A shorter wait is nothing to
// read about; then it waits on without an end.
constexpr DWORD kToldAfterMs = 1000;
// The kernel's lock tells nobody when it is free.
constexpr std::chrono::milliseconds kLookAtMutexAgain{10};

std::string Quoted(const EventKey &key)
{
    return key.source + " " + FormatEventId(key.id);
}

// A value of less than four bytes counts, its missing bytes being 0: the monitor reads it into a
// number that it has cleared.
std::optional<uint32_t> MonitorsNumberOf(const std::optional<host::RegValue> &value)
{
    uint32_t number = 0;
    if (!value || value->data.size() > sizeof number)
        return std::nullopt;
    memcpy(&number, value->data.data(), value->data.size());
    return number;
}

bool HasControlCharacter(const std::string &text)
{
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < ' ' && c != '\t'; });
}

// A backslash would make two keys of it. Control characters would be a danger to whoever lists the
// events.
void CheckSource(const EventKey &key)
{
    const std::string &source = key.source;
    if (source.empty() || source.size() > kMaxSource || source.find('\\') != std::string::npos ||
        HasControlCharacter(source))
        throw host::Error("cannot use the source name \"" + source.substr(0, 60) + "\"",
                          "it is empty, too long, or holds a backslash or a control character",
                          "choose a name of 1 to 255 bytes without them");
}

bool AllEmpty(const std::array<std::string, 3> &keywords)
{
    return std::all_of(keywords.begin(), keywords.end(),
                       [](const std::string &keyword) { return keyword.empty(); });
}

// The monitor leaves an event without a keyword out of its table: it would be registered, and never
// reported.
void CheckKeywords(const EventRecord &event)
{
    bool all_empty = true;
    for (const std::string &keyword : event.keywords) {
        all_empty = all_empty && keyword.empty();
        if (keyword.size() > kMaxKeyword)
            throw host::Error("cannot use a keyword of event " + Quoted(event.key),
                              "it has " + std::to_string(keyword.size()) + " bytes",
                              "a keyword has at most 256 bytes");
        if (HasControlCharacter(keyword))
            throw host::Error("cannot use a keyword of event " + Quoted(event.key),
                              "it holds a control character, which no log line does",
                              "write the text that the line shows");
    }
    if (all_empty && !event.policy.regex.empty()) {
        CheckDerivedKeyword(event.policy);
        return;
    }
    if (all_empty)
        throw host::Error("cannot use event " + Quoted(event.key), "it has no keyword",
                          "give it one to three texts that a line must contain");
}

// The event ID that the monitor reads from the name of a key: its last eight digits.
uint32_t NumberOfKey(const std::string &id_text)
{
    return static_cast<uint32_t>(strtoul(id_text.c_str(), nullptr, 16));
}

// The registry key of a source, or of something below it.
std::string SourcePath(const std::string &source)
{
    return std::string(kApplicationKey) + "\\" + source;
}

} // namespace

void CheckDerivedKeyword(const EventPolicy &policy)
{
    const std::string text = RequiredText(policy.regex, policy.ignore_case);
    if (IsUsefulKeyword(text))
        return;
    throw host::Error("cannot search for the expression \"" + policy.regex.substr(0, 60) + "\"",
                      text.empty() ? "there is no text that each of its matches is seen to hold"
                                   : "all that each of its matches is seen to hold is \"" + text +
                                         "\", which is in too many lines",
                      "add keywords that are in each of its lines");
}

std::array<std::string, 3> TableKeywords(const EventRecord &event)
{
    if (!AllEmpty(event.keywords) || event.policy.regex.empty())
        return event.keywords;
    return {RequiredText(event.policy.regex, event.policy.ignore_case), "", ""};
}

// Damaged events count as well: mended, they take a place.
size_t CountTableEvents(const std::vector<StoredSource> &sources)
{
    size_t count = 0;
    for (const StoredSource &source : sources)
        count += source.is_new_application_type ? 0 : source.events.size();
    return count;
}

std::string FormatEventId(uint32_t id)
{
    char text[16];
    snprintf(text, sizeof text, "%X", id);
    return text;
}

uint32_t ParseEventId(const std::string &text)
{
    const bool is_hex = !text.empty() && text.size() <= 8 &&
                        text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (!is_hex)
        throw host::Error("cannot use the event ID \"" + text + "\"",
                          "it is not one to eight hexadecimal digits",
                          "write it without a prefix, such as 1A2B");
    return static_cast<uint32_t>(std::stoul(text, nullptr, 16));
}

void CheckEvent(const EventRecord &event)
{
    CheckSource(event.key);
    CheckKeywords(event);
    if (event.report_count < 1)
        throw host::Error("cannot use the report count " + std::to_string(event.report_count) +
                              " of event " + Quoted(event.key),
                          "it would never be reported", "use a number from 1 to 2147483647");
    CheckPolicy(event.policy);
    if (event.policy.absent_s != 0 && (event.report_count != 1 || event.hours != kAllHours))
        throw host::Error("cannot use a report count or hours with \"absent\"",
                          "each of its lines counts as a sign, at any time of the day",
                          "leave them out, or register a second event");
    if (event.policy.within_s > 0 && event.report_count > kMostWithin)
        throw host::Error("cannot use the report count " + std::to_string(event.report_count) +
                              " of event " + Quoted(event.key),
                          "its hits are to come within a time",
                          "use a number from 1 to 10000, or leave out \"within\"");
}

std::vector<StoredSource> EventRegistry::ReadAll()
{
    // One state for the whole walk: another process may add and remove events meanwhile. So a key
    // whose name was just read is there, and the optional below has a value.
    const host::Snapshot snapshot(registry_.store());
    std::vector<StoredSource> sources;
    const auto applications = registry_.Find(host::kRootKey, kApplicationKey);
    if (!applications)
        return sources;
    for (const std::string &name : registry_.SubKeys(*applications)) {
        const host::KeyId source_key = *registry_.Find(*applications, name);
        StoredSource source{
            name, registry_.Get(source_key, kNewApplicationTypeValue).has_value(), {}};
        for (const std::string &id_text : registry_.SubKeys(source_key))
            source.events.push_back(Read(name, id_text, *registry_.Find(source_key, id_text)));
        sources.push_back(std::move(source));
    }
    return sources;
}

StoredEvent EventRegistry::Read(const std::string &source, const std::string &id_text,
                                host::KeyId id_key)
{
    StoredEvent stored;
    stored.id_text = id_text;
    stored.event.key.source = source;
    stored.event.key.id = NumberOfKey(id_text);
    const auto settings = registry_.Find(id_key, kWatchSettingKey);
    if (!settings) {
        stored.problem = "it has no settings";
        return stored;
    }
    // One problem is enough: whichever it is, the event has to be written anew.
    const auto note = [&](const std::string &problem) {
        if (stored.problem.empty())
            stored.problem = problem;
    };
    if (id_text.size() > kMaxIdName)
        note("the name of its key is longer than 15 characters");
    for (size_t k = 0; k < std::size(kKeywordValues); ++k) {
        const auto value = registry_.Get(*settings, kKeywordValues[k]);
        if (!value)
            note(std::string("it has no ") + kKeywordValues[k]);
        // The size with its zero byte.
        else if (value->data.size() > kKeywordSize)
            note(std::string(kKeywordValues[k]) + " is longer than 256 bytes");
        else
            stored.event.keywords[k] = host::TextOf(*value);
    }
    const auto count = MonitorsNumberOf(registry_.Get(*settings, kReportCountValue));
    const auto hours = MonitorsNumberOf(registry_.Get(*settings, kWatchTimeValue));
    if (!count)
        note("it has no ReportCount of 4 bytes");
    if (!hours)
        note("it has no WatchTime of 4 bytes");
    stored.event.report_count = static_cast<int32_t>(count.value_or(0));
    stored.event.hours = hours.value_or(0);
    bool keyword_is_derived = false;
    stored.event.policy =
        ReadPolicy(registry_, id_key, &stored.event.report_count, &keyword_is_derived);
    // It is nobody's own: with another expression, it is another one.
    if (keyword_is_derived && !stored.event.policy.regex.empty())
        stored.event.keywords = {};
    return stored;
}

std::optional<std::string> EventRegistry::FindIdText(const EventKey &key)
{
    const auto source_key = registry_.Find(host::kRootKey, SourcePath(key.source));
    if (!source_key)
        return std::nullopt;
    // The number counts, not how it is written: 1a2b, 1A2B and 01A2B are one event.
    for (const std::string &id_text : registry_.SubKeys(*source_key)) {
        if (NumberOfKey(id_text) == key.id)
            return id_text;
    }
    return std::nullopt;
}

std::optional<StoredEvent> EventRegistry::Find(const EventKey &key)
{
    const host::Snapshot snapshot(registry_.store());
    const auto id_text = FindIdText(key);
    if (!id_text)
        return std::nullopt;
    // Its key was found a moment ago, in the same snapshot.
    const std::string path = SourcePath(key.source) + "\\" + *id_text;
    return Read(key.source, *id_text, *registry_.Find(host::kRootKey, path));
}

void EventRegistry::Write(const EventRecord &event)
{
    // Refused before anything is written. A name that the key has already is kept: under another
    // one, the same event would be there twice.
    CheckEvent(event);
    const std::string id_text = FindIdText(event.key).value_or(FormatEventId(event.key.id));
    const host::KeyId event_key =
        registry_.Create(host::kRootKey, SourcePath(event.key.source) + "\\" + id_text);
    const host::KeyId key = registry_.Create(event_key, kWatchSettingKey);
    const auto keywords = TableKeywords(event);
    for (size_t k = 0; k < keywords.size(); ++k)
        host::SetText(registry_, key, kKeywordValues[k], keywords[k]);
    // What the agent counts, it must hear of with each hit.
    const int32_t count_of_table = event.policy.Counts() ? 1 : event.report_count;
    host::SetNumber(registry_, key, kReportCountValue, static_cast<uint32_t>(count_of_table));
    host::SetNumber(registry_, key, kWatchTimeValue, event.hours);
    WritePolicy(registry_, event_key, event.policy, event.report_count, keywords != event.keywords);
}

bool EventRegistry::Remove(const EventKey &key)
{
    const auto id_text = FindIdText(key);
    if (!id_text)
        return false;
    const auto source_key = registry_.Find(host::kRootKey, SourcePath(key.source));
    registry_.DeleteKey(*registry_.Find(*source_key, *id_text));
    // An empty source would stay in every list. One that has values of its own was made by somebody
    // for a purpose, and stays.
    const bool source_is_empty =
        registry_.SubKeys(*source_key).empty() && registry_.Values(*source_key).empty();
    if (source_is_empty)
        registry_.DeleteKey(*source_key);
    return true;
}

namespace {

// The mutex around the table's registry tree, held for the life of this object. `on_wait` may
// throw, for a command that is to end: the handle is closed then, and the mutex was never had. A
// holder that dies gives it back by dying.
class TableMutex {
  public:
    explicit TableMutex(const std::function<void()> &on_wait)
        : mutex_(CreateMutex(nullptr, FALSE, kTableMutex))
    {
        // In two steps, so that nobody sits in front of a command that says nothing.
        DWORD result = mutex_.get() != nullptr ? WaitForSingleObject(mutex_.get(), kToldAfterMs)
                                               : WAIT_RESULT_FAILED;
        if (result == WAIT_RESULT_TIMEOUT) {
            on_wait();
            result = WaitForSingleObject(mutex_.get(), INFINITE);
        }
        if (result < WAIT_RESULT_FIRST)
            throw host::Error("cannot lock the table of events", "its mutex cannot be used",
                              "make the run-time folder writable, or run as root");
    }
    ~TableMutex() { ReleaseMutex(mutex_.get()); }
    TableMutex(const TableMutex &) = delete;
    TableMutex &operator=(const TableMutex &) = delete;

  private:
    host::OwnedHandle mutex_;
};

} // namespace

void ChangeEvents(host::Host &host, const std::function<void()> &change,
                  const std::function<void()> &on_wait)
{
    ChangeUnderTableMutex(
        host,
        [&] {
            change();
            return true;
        },
        on_wait);
}

namespace {

// Behind the mutex, which the monitor takes as the first thing when it wakes. Behind the
// commit, too: what has failed wakes nobody. When no daemon has the event open, the signal is
// lost, and rightly so: a daemon loads the table when it starts.
void WakeMonitor(const host::Layout &layout)
{
    host::WakeEvent::Create(layout.run, kTableEvent, false, false)->Set();
}

bool RunAsTransaction(host::Store &store, const std::function<bool()> &change)
{
    host::Transaction transaction(store);
    const bool touched = change();
    transaction.Commit();
    return touched;
}

} // namespace

void ChangeUnderTableMutex(host::Host &host, const std::function<bool()> &change,
                           const std::function<void()> &on_wait)
{
    bool touched = false;
    {
        // First the mutex, which is waited for without a limit, then the store's write lock: the
        // monitor could not store its pass while a command held that one and waited. The
        // transaction ends before the mutex is released, so whoever has the mutex reads all of the
        // change or nothing of it.
        const TableMutex mutex(on_wait);
        touched = RunAsTransaction(host.store(), change);
    }
    if (touched)
        WakeMonitor(host.layout());
}

// The wait of the host interface is the monitor's: it would end a pass.
bool ChangeBesideMonitor(const host::Layout &layout, host::Store &store,
                         const std::function<bool()> &change, const std::function<bool()> &leaves)
{
    const auto mutex = host::Mutex::Create(layout.run, kTableMutex, false);
    while (!mutex->TryTake()) {
        if (leaves())
            return false;
        std::this_thread::sleep_for(kLookAtMutexAgain);
    }
    bool touched = false;
    {
        const std::unique_ptr<host::Mutex, void (*)(host::Mutex *)> held(
            mutex.get(), [](host::Mutex *taken) { taken->Release(); });
        touched = RunAsTransaction(store, change);
    }
    if (touched)
        WakeMonitor(layout);
    return true;
}

} // namespace events
