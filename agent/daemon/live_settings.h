// The settings that the daemon itself takes while it runs, each with what follows from its change. The module reads
// its own ones, when it is woken for them.
//
// They are read through a connection of their own, so reading never waits for a pass. A store that cannot be read is
// read again after a pause; until then the settings are what they were.
#ifndef AGENT_DAEMON_LIVE_SETTINGS_H
#define AGENT_DAEMON_LIVE_SETTINGS_H

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/daemon/retry_pause.h"
#include "agent/host/registry_tree.h"
#include "agent/host/store.h"

namespace syslogmond {

// What others do when a setting has changed.
struct SettingEffects {
    // The module asks whether the host is fault-tolerant only when it starts.
    std::function<void()> restart_monitor;
    // The table holds its keywords in the character set of the log.
    std::function<void()> reload_table;
    // Changes of these files wake the monitor, at most once in the interval; 0: they do not.
    std::function<void(std::vector<std::filesystem::path> files,
                       std::chrono::milliseconds interval)>
        watch_files;
    // Where the page is served; empty: nowhere.
    std::function<void(const std::string &address)> serve_page;
};

class LiveSettings {
  public:
    using Clock = std::chrono::steady_clock;

    // Throws host::Error when the store cannot be opened.
    LiveSettings(const std::filesystem::path &store, SettingEffects effects);

    // Reads all of them, then takes all of them. Throws host::Error, and has then taken none.
    void Read();
    // Reads them, now or, when that fails, after a pause: then it says so.
    void ReadOrRetry();
    // Is it time to read again what could not be read?
    [[nodiscard]] bool IsDue() const { return read_again_at_ && Clock::now() >= *read_again_at_; }
    [[nodiscard]] std::optional<Clock::time_point> Next() const { return read_again_at_; }

  private:
    struct Values;
    [[nodiscard]] Values ReadValues();
    [[nodiscard]] std::vector<std::filesystem::path> FilesToWatch();
    void TakeCharset(const std::string &charset);
    void TakeFaultTolerance(bool fault_tolerant);

    host::Store store_;
    host::RegistryTree registry_;
    SettingEffects effects_;
    std::string charset_;
    bool fault_tolerant_ = false;
    std::optional<Clock::time_point> read_again_at_; // set while they could not be read
    RetryPause pause_;
};

} // namespace syslogmond

#endif // AGENT_DAEMON_LIVE_SETTINGS_H
