#include "agent/daemon/live_settings.h"

#include <algorithm>
#include <utility>

#include "agent/daemon/trace_unit.h"
#include "agent/host/agent_values.h"
#include "agent/host/convert.h"
#include "agent/host/error.h"
#include "agent/host/trace_log.h"
#include "agent/logs/log_files.h"
#include "agent/settings/web_address.h"
#include "agent/text/say.h"

namespace syslogmond {

// What one reading finds, with defaults where there is nothing. Numbers are limited to what is
// accepted: a value that was stored by other means may be anything.
struct LiveSettings::Values {
    int trace_level;
    std::string charset;
    bool fault_tolerant;
    std::chrono::milliseconds trigger_interval;
    std::vector<std::filesystem::path> files;
    std::string web;
};

LiveSettings::LiveSettings(const std::filesystem::path &store, SettingEffects effects)
    : store_(store), registry_(store_), effects_(std::move(effects)),
      charset_(host::kDefaultLogCharset)
{
}

LiveSettings::Values LiveSettings::ReadValues()
{
    const uint32_t level =
        host::AgentNumber(registry_, "TraceLevel").value_or(host::kDefaultTraceLevel);
    const uint32_t interval =
        host::AgentNumber(registry_, "TriggerInterval").value_or(host::kDefaultTriggerInterval);
    return {static_cast<int>(std::min<uint32_t>(level, host::kTraceOff)),
            host::AgentText(registry_, "LogCharset").value_or(host::kDefaultLogCharset),
            host::AgentNumber(registry_, "FaultTolerant").value_or(0) != 0,
            std::chrono::milliseconds(std::min(interval, host::kMaxTriggerInterval)),
            FilesToWatch(),
            host::AgentText(registry_, settings::kWebValue).value_or("")};
}

// Whoever writes the spool makes the monitor look by itself.
std::vector<std::filesystem::path> LiveSettings::FilesToWatch()
{
    std::vector<std::filesystem::path> files = logs::WatchedPaths(registry_);
    std::erase(files, host::AgentText(registry_, host::kInputSpool).value_or(""));
    return files;
}

// The names of the files are read after the monitor has taken them, so both follow the same ones.
void LiveSettings::Read()
{
    // All are read before one is taken: a store that fails in the middle leaves the settings as
    // they were.
    Values values = ReadValues();
    host::SetTraceLevel(values.trace_level);
    TakeCharset(values.charset);
    TakeFaultTolerance(values.fault_tolerant);
    effects_.watch_files(std::move(values.files), values.trigger_interval);
    effects_.serve_page(values.web);
}

void LiveSettings::ReadOrRetry()
{
    try {
        Read();
        read_again_at_.reset();
        pause_.Reset();
    } catch (const host::Error &error) {
        // A store that is locked for long, or damaged, must not keep the loop busy with tries.
        const auto pause = pause_.Take();
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(pause).count();
        const std::string told = std::string("the settings cannot be read: ") + error.what() +
                                 "; they are read again in " + std::to_string(seconds) + " s";
        TRACE(TRACE_SYSTEM, "%s", told.c_str());
        text::Say(told);
        read_again_at_ = Clock::now() + pause;
    }
}

void LiveSettings::TakeCharset(const std::string &charset)
{
    // The conversion is for the whole process: tables that are loaded from here on are in the new
    // set, and so one must be loaded.
    if (charset == charset_)
        return;
    if (!host::SetLogCharset(charset)) {
        TRACE(TRACE_ERROR, "The log's character set %s is not known; the one before is kept.",
              charset.c_str());
        return;
    }
    charset_ = charset;
    effects_.reload_table();
}

void LiveSettings::TakeFaultTolerance(bool fault_tolerant)
{
    // At the first reading there is no monitor, and nothing to be started again.
    if (std::exchange(fault_tolerant_, fault_tolerant) != fault_tolerant)
        effects_.restart_monitor();
}

} // namespace syslogmond
