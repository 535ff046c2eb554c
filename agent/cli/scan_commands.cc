// scan: makes the monitor look now, and may wait until it has.
//
// With --wait it promises more than a pass: that all lines that were whole at the call have been
// checked. So it marks the files, waits for a full pass that began later, and then asks what is
// left of the marks.
#include <charconv>
#include <chrono>
#include <cstdio>
#include <thread>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/host/waitable.h"
#include "agent/logs/unread.h"
#include "agent/status/daemon_lock.h"
#include "agent/status/sign_of_life.h"
#include "agent/status/status_file.h"
#include "platform/contract.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;

// Between two looks at the daemon's status: short, because logrotate may be waiting, and the log it
// rotates is not written meanwhile. A look reads one small file.
constexpr std::chrono::milliseconds kLook{10};

constexpr double kDefaultTimeout = 300; // seconds; a pass over gigabytes takes that long

// In seconds, fractions too.
struct ScanOptions {
    bool wait = false;
    double timeout = kDefaultTimeout;
};

// A number as it was typed: 0.3, not 0.300000.
std::string Shortest(double number)
{
    char text[32];
    snprintf(text, sizeof text, "%g", number);
    return text;
}

// Waits for the end of a pass over all files that began after `asked_ns`.
void WaitForPass(const Context &context, int64_t asked_ns, double timeout)
{
    const auto end = Clock::now() + std::chrono::duration<double>(timeout);
    for (;;) {
        const auto status = status::ReadStatus(context.layout.run);
        // A pass that was under way when it was asked does not count: it may have gone past the
        // lines already. By the clock of the boot, which daemon and command share and nobody sets.
        if (status && status->last_full_pass.began_boot_ns >= asked_ns)
            return;
        // In each round: a daemon that ends meanwhile must not be waited for to the end of the
        // time.
        const auto daemon = status::DaemonLock::Holder(context.layout);
        if (!daemon)
            throw NotRunning();
        // Behind the look at the status, so that a pass which has just ended counts.
        if (Clock::now() >= end) {
            const std::string why = status::WhyItStands(*daemon, status);
            throw host::Error("cannot wait for the scan any longer",
                              "it has not ended after " + Shortest(timeout) + " seconds" +
                                  (why.empty() ? "" : ": " + why),
                              "see syslogmon status, or give a longer --timeout");
        }
        std::this_thread::sleep_for(kLook);
    }
}

// No store is needed. The daemon has the event open; without one, the caller has said so already.
void Ask(const Context &context)
{
    host::WakeEvent::Create(context.layout.run, kScanEvent, false, false)->Set();
}

// Asks, waits, and looks whether that was enough.
void ScanToTheEnd(Context &context, double timeout)
{
    context.OpenToRead();
    monitor::Module module(context.layout);
    // The order: the marks, the time, the request. What is marked was written before the pass that
    // is waited for.
    const logs::FileMarks marks = logs::MarkWatchedFiles(module, context.Host().registry());
    const int64_t asked_ns = status::BootTimeNs();
    Ask(context);
    WaitForPass(context, asked_ns, timeout);
    std::string unread;
    for (const std::string &told : logs::WhatIsUnread(module, context.Host().registry(), marks))
        unread += (unread.empty() ? "" : ", and ") + told;
    if (!unread.empty())
        throw host::Error("not everything is checked", unread,
                          "see syslogmon status and syslogmon doctor, then scan again");
}

int Scan(Context &context, const ScanOptions &options)
{
    if (!status::DaemonLock::Holder(context.layout))
        throw NotRunning();
    if (options.wait)
        ScanToTheEnd(context, options.timeout);
    else
        Ask(context);
    if (context.json)
        PrintJson({{"scan", options.wait ? "done" : "asked"}});
    return kExitDone;
}

void SetUpScan(Parser &parser, Context &context)
{
    auto options = std::make_shared<ScanOptions>();
    parser.AddFlag("--wait", options->wait,
                   "Return when everything that was written before the call has been checked; "
                   "fail when some of it cannot be");
    parser.Add("--timeout", options->timeout, "Seconds to wait at most")
        .ShowDefault()
        .TypeName("SECONDS")
        .Check([](const std::string &word) {
            double seconds = 0;
            // Also no "nan", which is above nothing.
            const char *const end = word.data() + word.size();
            const auto read = std::from_chars(word.data(), end, seconds);
            const bool is_good = read.ec == std::errc() && read.ptr == end && seconds > 0;
            return is_good ? std::string() : word + " is no number of seconds above 0";
        });
    parser.Runs([&, options] { return Scan(context, *options); });
}

} // namespace

const std::vector<Command> kScanCommands = {
    {"scan", "Look at all files now", SetUpScan},
};

} // namespace cli
