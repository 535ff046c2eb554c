// scan: makes the monitor look now, and may wait until it has.
//
// With --wait it promises more than a pass: that all lines that were whole at the call have been
// checked. So it waits until what was in the inputs then is in the spool, marks the files, waits for a
// full pass that began later, and then asks what is left of the marks.
#include <charconv>
#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/host/waitable.h"
#include "agent/inputs/input_registry.h"
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

// Until when is waited.
struct Patience {
    explicit Patience(double wait)
        : seconds(wait),
          end(Clock::now() +
              std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(wait)))
    {
    }
    double seconds;
    Clock::time_point end;
};

// Looks at the daemon's status again and again, until it shows what is waited for.
status::Status WaitFor(const Context &context, const Patience &patience,
                       const std::function<bool(const status::Status &)> &is_done)
{
    for (;;) {
        const auto status = status::ReadStatus(context.layout.run);
        if (status && is_done(*status))
            return *status;
        // In each round: a daemon that ends meanwhile must not be waited for to the end of the
        // time.
        const auto daemon = status::DaemonLock::Holder(context.layout);
        if (!daemon)
            throw NotRunning();
        // Behind the look at the status, so that what has just ended counts.
        if (Clock::now() >= patience.end) {
            std::string why = status::WhyItStands(*daemon, status);
            if (why.empty() && status)
                why = status->inputs_wait;
            throw host::Error("cannot wait for the scan any longer",
                              "it has not ended after " + Shortest(patience.seconds) + " seconds" +
                                  (why.empty() ? "" : ": " + why),
                              "see syslogmon status, or give a longer --timeout");
        }
        std::this_thread::sleep_for(kLook);
    }
}

// No store is needed. The daemon has the events open; without one, the caller has said so already.
void Ask(const Context &context)
{
    for (const char *event : {inputs::kCatchUpEvent, kScanEvent})
        host::WakeEvent::Create(context.layout.run, event, false, false)->Set();
}

bool HasInputs(const Context &context)
{
    return !inputs::InputRegistry(context.Host().store(), context.Host().registry())
                .ReadAll()
                .empty();
}

// Waits until the spool has what is in the inputs now. Returns what of them cannot be read, a sentence each. The marks of
// the files are taken behind this: the spool is one of them.
std::vector<std::string> WaitForInputs(const Context &context, const Patience &patience)
{
    if (!HasInputs(context))
        return {};
    const int64_t asked_ns = status::BootTimeNs();
    Ask(context);
    const status::Status status = WaitFor(context, patience, [&](const status::Status &seen) {
        // The last of them may be removed meanwhile.
        return seen.inputs_caught_up_ns >= asked_ns || (seen.inputs.empty() && !HasInputs(context));
    });
    std::vector<std::string> problems;
    for (const status::InputStatus &input : status.inputs) {
        for (const std::string &problem : input.problems) {
            // There may be such a file one day; now there is nothing to be read.
            if (problem != inputs::kNothingMatches)
                problems.push_back("input " + input.name + ": " + problem);
        }
    }
    return problems;
}

// Asks, waits, and looks whether that was enough.
void ScanToTheEnd(Context &context, double timeout)
{
    const Patience patience(timeout);
    context.OpenToRead();
    std::vector<std::string> told = WaitForInputs(context, patience);
    monitor::Module module(context.layout);
    // The order: the marks, the time, the request. What is marked was written before the pass that
    // is waited for.
    const logs::FileMarks marks = logs::MarkWatchedFiles(module, context.Host().registry());
    const int64_t asked_ns = status::BootTimeNs();
    Ask(context);
    // A pass that was under way when it was asked does not count: it may have gone past the lines
    // already. By the clock of the boot, which daemon and command share and nobody sets.
    WaitFor(context, patience, [&](const status::Status &status) {
        return status.last_full_pass.began_boot_ns >= asked_ns;
    });
    for (std::string &unread : logs::WhatIsUnread(module, context.Host().registry(), marks))
        told.push_back(std::move(unread));
    std::string list;
    for (const std::string &sentence : told)
        list += (list.empty() ? "" : ", and ") + sentence;
    if (!list.empty())
        throw host::Error("not everything is checked", list,
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
