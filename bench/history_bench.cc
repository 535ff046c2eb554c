// What it costs a pass that the monitor can be looked at: passes without it, with the history, and with all of it (history,
// page served, one page open), in turns, in one process.
//
//   history_bench [--lines=N] [--runs=N] [--short-runs=N]
//
// The module, its host and its store are the daemon's, the log is that of the catalogue (data/rules.h) with 100 events
// and a hit in a thousand lines. A pass is everything from the search for the place to the commit of what was read, with
// the alerts in it. With the history, each line is followed as in the daemon, and what was counted is written into the
// same commit. The page is a process of its own, which is told of each pass by the server's events and then asks for what a
// browser asks: overview, history, events, alerts. It is told when the pass begins, so that it asks meanwhile.
//
// Long passes are of N lines (1,000,000); short ones of 20 lines, as a log that is written now and then gives them.
// Of the thread that makes the pass, in processor time and by the clock; the store lies in memory where there is such a file
// system. Which of the three is first changes from round to round.
#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "agent/cli/temporary_folder.h"
#include "agent/cli/trial.h"
#include "agent/daemon/pass_counter.h"
#include "agent/host/waitable.h"
#include "agent/web/page_server.h"
#include "bench/data/log_writer.h"
#include "bench/data/rules.h"

namespace {

namespace fs = std::filesystem;

constexpr int kEvents = 100;
constexpr double kHitRate = 0.001;
constexpr int kShortLines = 20;

// What a pass goes without, and with.
enum Arm { kWithout, kHistory, kAll, kArms };
// A rest behind each pass, so that all begin alike. A page is told of news no sooner after the last ones, and would not ask
// beside the pass.
constexpr std::chrono::milliseconds kBetweenNews{320};

struct Seconds {
    double processor = 0;
    double clock = 0;
};

double SecondsOf(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + (static_cast<double>(now.tv_nsec) / 1e9);
}

Seconds Now()
{
    return {SecondsOf(CLOCK_THREAD_CPUTIME_ID), SecondsOf(CLOCK_MONOTONIC)};
}

// ---- the open page ----

constexpr const char *kAsked[] = {"/api/v1/overview", "/api/v1/history?seconds=3600&top=10",
                                  "/api/v1/events", "/api/v1/alerts?limit=50"};

host::Fd Ask(const std::string &socket_path, const std::string &path)
{
    host::Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    socket_path.copy(name.sun_path, sizeof name.sun_path - 1);
    const std::string request =
        "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0 ||
        write(fd.get(), request.data(), request.size()) < 0)
        throw std::runtime_error("the page's server does not answer");
    return fd;
}

// For ever; a byte goes into `told` for each time that it has asked for all.
void KeepPageOpen(const std::string &socket_path, int told)
{
    const host::Fd stream = Ask(socket_path, "/api/v1/stream");
    char bytes[4096];
    for (ssize_t size = 0; (size = read(stream.get(), bytes, sizeof bytes)) > 0;) {
        if (std::string_view(bytes, static_cast<size_t>(size)).find("event: pass") ==
            std::string_view::npos)
            continue;
        for (const char *path : kAsked) {
            const host::Fd answer = Ask(socket_path, path);
            while (read(answer.get(), bytes, sizeof bytes) > 0)
                continue;
        }
        if (write(told, "x", 1) != 1)
            return;
    }
}

// The server, in this process, and a page in another one.
class OpenPage {
  public:
    explicit OpenPage(const host::Layout &layout)
    {
        settings::WebAddress address;
        address.socket = layout.run / "web.sock";
        server_.emplace(layout, address, "bench");
        if (pipe(told_) != 0)
            throw std::runtime_error("no pipe");
        child_ = fork();
        if (child_ == 0) {
            try {
                KeepPageOpen(address.socket, told_[1]);
            } catch (const std::exception &) {
            }
            _exit(0);
        }
    }
    ~OpenPage()
    {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
        close(told_[0]);
        close(told_[1]);
    }
    OpenPage(const OpenPage &) = delete;
    OpenPage &operator=(const OpenPage &) = delete;

    void Tell() const { server_->Wake(); }
    // Until it has asked for everything again, so that the next pass is not beside it.
    void LetItAsk() const
    {
        char byte = 0;
        if (read(told_[0], &byte, 1) != 1)
            throw std::runtime_error("the page has ended");
    }

  private:
    std::optional<web::PageServer> server_;
    int told_[2] = {-1, -1};
    pid_t child_ = -1;
};

int NumberOf(int argc, char **argv, const char *option, int otherwise)
{
    for (int i = 1; i < argc; ++i) {
        if (strncmp(argv[i], option, strlen(option)) == 0)
            return atoi(argv[i] + strlen(option));
    }
    return otherwise;
}

cli::RulesCopy RulesOf(const std::vector<bench::Rule> &rules)
{
    cli::RulesCopy copy;
    for (size_t i = 0; i < rules.size(); ++i) {
        events::EventRecord event;
        event.key = {"BENCH", static_cast<uint32_t>(i + 1)};
        std::ranges::copy(rules[i].keywords, event.keywords.begin());
        copy.events.push_back(event);
    }
    return copy;
}

cli::TrialLog WriteLog(const fs::path &path, const std::vector<bench::Rule> &rules, int lines)
{
    bench::LogWriter writer(bench::RuleSet::kCatalogue, rules, kHitRate);
    std::ofstream log(path, std::ios::binary);
    for (int i = 0; i < lines; ++i)
        log << writer.Next() << '\n';
    log.close();
    return {path, path, static_cast<int64_t>(fs::file_size(path))};
}

// One pass, and what it took.
Seconds Pass(monitor::Module &module, host::Host &host, const cli::TrialLog &log, Arm arm,
             const OpenPage &page)
{
    const auto time_of = [&module](const std::string &line) -> std::optional<int64_t> {
        time_t time = 0;
        if (module.GetSyslogTime(line.c_str(), &time) == FALSE)
            return std::nullopt;
        return time;
    };
    std::optional<syslogmond::PassCounter> counter;
    if (arm != kWithout) {
        counter.emplace(host, time_of);
        counter->BeginTable();
    }
    const Seconds begin = Now();
    if (arm == kAll)
        page.Tell();
    host::Transaction transaction(host.store());
    cli::PassOver(host, module, log);
    if (counter)
        counter->Save(false);
    transaction.Commit();
    const Seconds end = Now();
    if (arm == kAll)
        page.LetItAsk();
    std::this_thread::sleep_for(kBetweenNews);
    return {end.processor - begin.processor, end.clock - begin.clock};
}

// Of the same build: this program lies in its folder bench.
host::Layout LibrariesBeside(const fs::path &program)
{
    return host::Layout::Below(fs::canonical(program).parent_path().parent_path() / "root");
}

double Median(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

struct Times {
    std::array<std::vector<double>, kArms> processor, clock;
};

Times Measure(monitor::Module &module, host::Host &host, const cli::TrialLog &log, int rounds,
              const OpenPage &page)
{
    Times times;
    for (const Arm arm : {kWithout, kHistory, kAll})
        Pass(module, host, log, arm, page);
    for (int round = 0; round < rounds; ++round) {
        for (int turn = 0; turn < kArms; ++turn) {
            const auto arm = static_cast<Arm>((round + turn) % kArms);
            const Seconds took = Pass(module, host, log, arm, page);
            times.processor[arm].push_back(took.processor);
            times.clock[arm].push_back(took.clock);
        }
    }
    return times;
}

// Medians, and of each round how many times as much it was as without anything.
void Print(const char *what, double scale, const char *unit,
           const std::array<std::vector<double>, kArms> &times)
{
    constexpr const char *kNames[] = {"without", "history", "all of it"};
    printf("%s, %zu of each\n", what, times[kWithout].size());
    for (const Arm arm : {kWithout, kHistory, kAll}) {
        std::vector<double> ratios;
        for (size_t i = 0; i < times[arm].size(); ++i)
            ratios.push_back(times[arm][i] / times[kWithout][i]);
        std::ranges::sort(ratios);
        const size_t tenth = ratios.size() / 10;
        printf(
            "  %-10s %9.1f %s  median of the rounds %.3f, from %.3f to %.3f without the tenth at "
            "each end\n",
            kNames[arm], Median(times[arm]) * scale, unit, Median(ratios), ratios[tenth],
            ratios[ratios.size() - 1 - tenth]);
    }
}

void Print(const std::string &what, double scale, const char *unit, const Times &times)
{
    Print((what + ", processor time").c_str(), scale, unit, times.processor);
    Print((what + ", by the clock").c_str(), scale, unit, times.clock);
}

} // namespace

int main(int argc, char **argv)
{
    const int lines = NumberOf(argc, argv, "--lines=", 1'000'000);
    const int runs = std::max(NumberOf(argc, argv, "--runs=", 30), 1);
    const int short_runs = std::max(NumberOf(argc, argv, "--short-runs=", 80), 1);
    try {
        if (fs::exists("/dev/shm"))
            setenv("TMPDIR", "/dev/shm", 0);
        const cli::TemporaryFolder folder;
        const auto rules = bench::MakeRules(bench::RuleSet::kCatalogue, kEvents);
        const cli::TrialLog long_log = WriteLog(folder.path() / "long", rules, lines);
        const cli::TrialLog short_log = WriteLog(folder.path() / "short", rules, kShortLines);
        cli::RunTrial(LibrariesBeside(argv[0]), RulesOf(rules),
                      [&](monitor::Module &module, host::Host &host) {
                          host.SetTable(module.table());
                          const OpenPage page(host.layout());
                          Print("long passes", 1e9 / lines, "ns a line",
                                Measure(module, host, long_log, runs, page));
                          Print("short passes", 1e6, "us",
                                Measure(module, host, short_log, short_runs, page));
                          host.SetTable({});
                      });
    } catch (const std::exception &error) {
        fprintf(stderr, "history_bench: %s\n", error.what());
        return 1;
    }
}
