#include "agent/settings/settings.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <optional>

#include "agent/host/agent_values.h"
#include "agent/host/convert.h"
#include "agent/host/error.h"
#include "agent/host/host.h"
#include "agent/host/trace_log.h"
#include "agent/host/waitable.h"
#include "agent/settings/alert_limits.h"
#include "agent/settings/web_address.h"
#include "agent/text/suggestion.h"
#include "platform/contract.h"
#include "platform/registry.h"

namespace settings {

namespace {

constexpr size_t kPathMax =
    kFileNameMax - 1; // bytes; with its zero byte it must fit in what is read

host::RegValue Number(uint32_t number)
{
    return {{}, REG_DWORD, std::string(reinterpret_cast<const char *>(&number), sizeof number)};
}

host::RegValue Text(const std::string &text)
{
    return {{}, REG_SZ, text + '\0'};
}

// Nothing for a value of another type or size: its bytes would be read as a number that nobody has
// set.
std::optional<uint32_t> NumberIn(const host::RegValue *stored)
{
    uint32_t number = 0;
    if (stored == nullptr || stored->type != REG_DWORD || stored->data.size() != sizeof number)
        return std::nullopt;
    memcpy(&number, stored->data.data(), sizeof number);
    return number;
}

std::string TextIn(const host::RegValue *stored, const char *otherwise)
{
    if (stored == nullptr || stored->type != REG_SZ)
        return otherwise;
    return TextOf(*stored);
}

// `accepted` is the text of the row, so that help and refusal say the same.
[[noreturn]] void Refuse(const char *name, const std::string &text, const char *accepted)
{
    throw host::Error(std::string("cannot set ") + name + " to \"" + text + "\"",
                      "the value is not accepted", std::string("use ") + accepted);
}

// from_chars takes no blank, no sign and nothing behind the digits: what is stored is what was typed.
uint32_t NumberWithin(const char *name, const std::string &text, uint32_t least, uint32_t most,
                      const char *accepted)
{
    uint32_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, failed] = std::from_chars(text.data(), end, number);
    if (failed != std::errc() || stopped != end || number < least || number > most)
        Refuse(name, text, accepted);
    return number;
}

// ---- the settings, one by one ----

constexpr char kCycleAccepted[] = "a number of seconds from 10 to 3600";

host::RegValue ParseCycle(const std::string &text)
{
    return Number(NumberWithin("cycle", text, kCycleMin, kCycleMax, kCycleAccepted));
}

// The module does not take a value out of range: one that starts has the default then.
std::string FormatCycle(const host::RegValue *stored)
{
    const auto seconds = NumberIn(stored);
    return seconds && *seconds >= kCycleMin && *seconds <= kCycleMax ? std::to_string(*seconds)
                                                                     : "300";
}

constexpr char kPathAccepted[] =
    "an absolute path of at most 254 bytes, or nothing (\"\") to watch no such file";

host::RegValue ParsePath(const char *name, const std::string &text)
{
    const bool ok = text.empty() || (text[0] == '/' && text.size() <= kPathMax);
    if (!ok)
        Refuse(name, text, kPathAccepted);
    return Text(text);
}

// The system log a second time would report each of its lines twice.
host::RegValue ParseCustomerFile(const std::string &text)
{
    if (text == kSystemLog)
        throw host::Error("cannot set customer-file to " + text, "it is watched already",
                          "name another file");
    return ParsePath("customer-file", text);
}

host::RegValue ParseFileMonitor(const std::string &text)
{
    return ParsePath("file-monitor", text);
}

std::string FormatPath(const host::RegValue *stored)
{
    return TextIn(stored, "");
}

constexpr char kSwitchAccepted[] = "on or off";

// Of the one setting that is a switch, whose name the refusal has.
host::RegValue ParseSwitch(const std::string &text)
{
    if (text != "on" && text != "off")
        Refuse("fault-tolerant", text, kSwitchAccepted);
    return Number(text == "on" ? 1 : 0);
}

std::string FormatSwitch(const host::RegValue *stored)
{
    return NumberIn(stored).value_or(0) != 0 ? "on" : "off";
}

constexpr char kCharsetAccepted[] = "a character set that iconv --list shows";

host::RegValue ParseCharset(const std::string &text)
{
    if (!host::CharsetIsKnown(text))
        Refuse("log-charset", text, kCharsetAccepted);
    return Text(text);
}

std::string FormatCharset(const host::RegValue *stored)
{
    return TextIn(stored, host::kDefaultLogCharset);
}

constexpr char kLevelAccepted[] = "detail, error, system, notable or off";

host::RegValue ParseLevel(const std::string &text)
{
    // By its number, too: that is what the registry holds and reg get shows.
    for (int level = 0; level <= host::kTraceOff; ++level) {
        if (text == host::TraceLevelName(level) || text == std::to_string(level))
            return Number(static_cast<uint32_t>(level));
    }
    Refuse("trace-level", text, kLevelAccepted);
}

// A number that is too high keeps nothing, as the highest does.
std::string FormatLevel(const host::RegValue *stored)
{
    const uint32_t level = NumberIn(stored).value_or(host::kDefaultTraceLevel);
    return host::TraceLevelName(static_cast<int>(std::min<uint32_t>(level, host::kTraceOff)));
}

// 0 is a value of its own, the trigger turned off; so the smallest interval is 1.
constexpr char kIntervalAccepted[] =
    "a number of milliseconds from 1 to 3600000, or 0 to look once in a cycle only";

host::RegValue ParseInterval(const std::string &text)
{
    return Number(
        NumberWithin("trigger-interval", text, 0, host::kMaxTriggerInterval, kIntervalAccepted));
}

std::string FormatInterval(const host::RegValue *stored)
{
    const uint32_t milliseconds = NumberIn(stored).value_or(host::kDefaultTriggerInterval);
    return std::to_string(std::min(milliseconds, host::kMaxTriggerInterval));
}

constexpr char kMegabytesAccepted[] = "a number of megabytes from 1 to 65536";

host::RegValue ParseSpool(const std::string &text)
{
    return Number(
        NumberWithin("spool-megabytes", text, 1, host::kMaxSpoolMegabytes, kMegabytesAccepted));
}

std::string FormatSpool(const host::RegValue *stored)
{
    const uint32_t megabytes = NumberIn(stored).value_or(host::kDefaultSpoolMegabytes);
    return std::to_string(std::clamp<uint32_t>(megabytes, 1, host::kMaxSpoolMegabytes));
}

constexpr char kAlarmAccepted[] = "a number of seconds from 1 to 86400";

host::RegValue ParseAlarmAfter(const std::string &text)
{
    return Number(NumberWithin("alarm-after", text, 1, host::kMaxAlarmAfter, kAlarmAccepted));
}

std::string FormatAlarmAfter(const host::RegValue *stored)
{
    const uint32_t seconds = NumberIn(stored).value_or(host::kDefaultAlarmAfter);
    return std::to_string(std::clamp<uint32_t>(seconds, 1, host::kMaxAlarmAfter));
}

constexpr char kSilentAccepted[] = "a number of hours from 1 to 8760, or 0 for no such alert";

host::RegValue ParseSilentAfter(const std::string &text)
{
    return Number(NumberWithin("silent-after", text, 0, host::kMaxSilentAfter, kSilentAccepted));
}

std::string FormatSilentAfter(const host::RegValue *stored)
{
    const uint32_t hours = NumberIn(stored).value_or(host::kDefaultSilentAfter);
    return std::to_string(std::min(hours, host::kMaxSilentAfter));
}

constexpr char kAlertLimitAccepted[] = "a number of alerts from 100 to 100000000";

host::RegValue ParseAlertLimit(const std::string &text)
{
    return Number(NumberWithin("alert-limit", text, kSmallestAlertLimit, kLargestAlertLimit,
                               kAlertLimitAccepted));
}

std::string FormatAlertLimit(const host::RegValue *stored)
{
    const uint32_t limit = NumberIn(stored).value_or(kDefaultAlertLimit);
    return std::to_string(std::clamp(limit, kSmallestAlertLimit, kLargestAlertLimit));
}

// What a quarter of the disk is shows when the daemon looks.
constexpr char kAlertMegabytesAccepted[] =
    "a number of megabytes from 1 to 1048576, or 0 for 256, and no more than a quarter of the disk";

host::RegValue ParseAlertMegabytes(const std::string &text)
{
    return Number(
        NumberWithin("alert-megabytes", text, 0, kLargestAlertMegabytes, kAlertMegabytesAccepted));
}

std::string FormatAlertMegabytes(const host::RegValue *stored)
{
    return std::to_string(std::min(NumberIn(stored).value_or(0), kLargestAlertMegabytes));
}

constexpr char kWebAccepted[] =
    "an address with a port, such as 127.0.0.1:9514 or [::1]:9514, the absolute "
    "path of a socket, or off";

host::RegValue ParseWeb(const std::string &text)
{
    if (text == "off")
        return Text("");
    std::error_code error;
    const bool is_folder = text.starts_with('/') && std::filesystem::is_directory(text, error);
    if (is_folder || !ParseWebAddress(text))
        Refuse("web", text, kWebAccepted);
    return Text(text);
}

std::string FormatWeb(const host::RegValue *stored)
{
    const std::string address = TextIn(stored, "");
    return ParseWebAddress(address) ? address : "off";
}

// One event for all values of the agent: the daemon reads them together, and takes what has
// changed.
const char *const kAgentEvent = host::kAgentSettingsEvent;

} // namespace

const std::vector<Setting> &AllSettings()
{
    // Only the cycle has a default that is stored: a monitor that finds no value keeps the cycle
    // that it has.
    static const std::vector<Setting> settings = {
        {"cycle", "seconds", "Time from one look at all files to the next", kCycleAccepted,
         kMonitorKey, kCycleValue, kCycleEvent, "300", true, ParseCycle, FormatCycle},
        {"customer-file", "", "A second log that is watched like the system log", kPathAccepted,
         kMonitorKey, kFileNameValue, kCustomerFileEvent, "", false, ParseCustomerFile, FormatPath},
        {"file-monitor", "", "One more file of any format, followed by inode and offset",
         kPathAccepted, kFileMonitorKey, kFileNameValue, kFileMonitorEvent, "", false,
         ParseFileMonitor, FormatPath},
        {"fault-tolerant", "",
         "This is a fault-tolerant server: keywords may be regular expressions", kSwitchAccepted,
         host::kAgentKey, "FaultTolerant", kAgentEvent, "off", false, ParseSwitch, FormatSwitch},
        {"log-charset", "", "Character set of the logs", kCharsetAccepted, host::kAgentKey,
         "LogCharset", kAgentEvent, host::kDefaultLogCharset, false, ParseCharset, FormatCharset},
        {"trace-level", "", "Lowest level that the trace log keeps", kLevelAccepted,
         host::kAgentKey, "TraceLevel", kAgentEvent, "error", false, ParseLevel, FormatLevel},
        {"trigger-interval", "milliseconds",
         "Least time between two looks at files that are being written; 0: once in a cycle",
         kIntervalAccepted, host::kAgentKey, "TriggerInterval", kAgentEvent, "1000", false,
         ParseInterval, FormatInterval},
        {"spool-megabytes", "megabytes",
         "So much of the inputs' entries may wait for the monitor; then the inputs wait",
         kMegabytesAccepted, host::kAgentKey, host::kSpoolMegabytes, kAgentEvent, "64", false,
         ParseSpool, FormatSpool},
        {"web", "", "Where the page, its data and the metrics are served", kWebAccepted,
         host::kAgentKey, kWebValue, kAgentEvent, "off", false, ParseWeb, FormatWeb},
        {"alarm-after", "seconds",
         "A trouble of the monitor that may pass by itself is told of when it has lasted so long",
         kAlarmAccepted, host::kAgentKey, host::kAlarmAfter, kAgentEvent, "900", false,
         ParseAlarmAfter, FormatAlarmAfter},
        {"silent-after", "hours",
         "Time without a line of the system log after which an alert tells of it; 0: never",
         kSilentAccepted, host::kAgentKey, host::kSilentAfter, kAgentEvent, "24", false,
         ParseSilentAfter, FormatSilentAfter},
        {"alert-limit", "alerts", "How many alerts are kept; beyond it the oldest go",
         kAlertLimitAccepted, host::kAgentKey, kAlertLimit, kSinksEvent, "100000", false,
         ParseAlertLimit, FormatAlertLimit},
        {"alert-megabytes", "megabytes",
         "How many megabytes of them are kept; 0: 256, and no more than a quarter of the disk",
         kAlertMegabytesAccepted, host::kAgentKey, kAlertMegabytes, kSinksEvent, "0", false,
         ParseAlertMegabytes, FormatAlertMegabytes},
    };
    return settings;
}

const Setting &FindSetting(const std::string &name)
{
    std::string known;
    std::vector<std::string> names;
    for (const Setting &setting : AllSettings()) {
        if (name == setting.name)
            return setting;
        known += known.empty() ? "" : ", ";
        known += setting.name;
        names.emplace_back(setting.name);
    }
    throw host::Error("cannot find the setting \"" + name + "\"", "there is none of that name",
                      text::Suggestion(name, names) + "use one of " + known);
}

std::string GetSetting(host::RegistryTree &registry, const Setting &setting)
{
    const auto key = registry.Find(host::kRootKey, setting.key);
    const auto stored = key ? registry.Get(*key, setting.value) : std::nullopt;
    std::string value = setting.format(stored ? &*stored : nullptr);
    // While there are inputs, the module's customer file is their spool, and the one that was set is kept apart.
    if (setting.value == kFileNameValue && setting.key == kMonitorKey && !value.empty() &&
        value == host::AgentText(registry, host::kInputSpool))
        return host::AgentText(registry, host::kCustomerFile).value_or("");
    return value;
}

bool IsFaultTolerant(host::RegistryTree &registry)
{
    return GetSetting(registry, FindSetting("fault-tolerant")) == "on";
}

void StoreSetting(host::Store &store, host::RegistryTree &registry, const Setting &setting,
                  const std::string &text)
{
    const bool is_default = text == kDefaultWord;
    // The default is parsed, too: nothing can be stored that could not be typed.
    const host::RegValue value = setting.parse(is_default ? setting.shown_default : text);
    // Key and value together: a failure between them leaves nothing behind.
    host::Transaction transaction(store);
    const host::KeyId key = registry.Create(host::kRootKey, setting.key);
    if (is_default && !setting.default_is_stored)
        registry.DeleteValue(key, setting.value);
    else
        registry.Set(key, setting.value, value.type, value.data);
    transaction.Commit();
}

void ChangeSetting(host::Host &host, const Setting &setting, const std::string &text)
{
    StoreSetting(host.store(), host.registry(), setting, text);
    // Behind the commit: a daemon that is woken earlier reads the value of before. Without a daemon
    // nobody has the event open, and the signal is gone with this object.
    host::WakeEvent::Create(host.layout().run, setting.wake_event, false, false)->Set();
}

} // namespace settings
