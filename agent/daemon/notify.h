// What systemd is told. Without systemd, nothing happens.
#ifndef AGENT_DAEMON_NOTIFY_H
#define AGENT_DAEMON_NOTIFY_H

#include <string>

namespace agent {

void NotifyReady();
void NotifyReloading();
void NotifyStopping();
void NotifyStatus(const std::string &text);
void NotifyAlive();

// How often the watchdog must hear NotifyAlive, in milliseconds: a third of its limit. 0: no
// watchdog.
unsigned WatchdogPulseMs();

} // namespace agent

#endif // AGENT_DAEMON_NOTIFY_H
