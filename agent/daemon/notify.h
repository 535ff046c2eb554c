// What systemd is told. Without systemd, nothing happens.
#ifndef AGENT_DAEMON_NOTIFY_H
#define AGENT_DAEMON_NOTIFY_H

namespace syslogmond {

// The start is over: Type=notify in the unit waits for it.
void NotifyReady();
// The start goes on and may take so much longer from now on.
void NotifyStartTakesLonger(unsigned seconds);
// The end has begun.
void NotifyStopping();
// Feeds the watchdog, whose limit runs anew from now on.
void NotifyAlive();

// How often the watchdog must hear NotifyAlive, in milliseconds: a third of its limit. 0: no
// watchdog.
unsigned WatchdogPulseMs();

} // namespace syslogmond

#endif // AGENT_DAEMON_NOTIFY_H
