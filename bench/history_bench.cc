// What counting for the history costs a pass: passes with it and without it, in turns, in one process.
//
//   history_bench [--lines=N] [--runs=N] [--short-runs=N]
//
// The module, its host and its store are the daemon's, the log is that of the catalogue (data/rules.h) with 100 events
// and a hit in a thousand lines. A pass is everything from the search for the place to the commit of what was read, with
// the alerts in it. With the history, each line is followed as in the daemon, and what was counted is written into the
// same commit.
//
// Long passes are of N lines (1,000,000); short ones of 20 lines, as a log that is written now and then gives them.
// Processor time; the store lies in memory where there is such a file system. Of each pair, which of both is first
// changes from pair to pair.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "agent/cli/temporary_folder.h"
#include "agent/cli/trial.h"
#include "agent/daemon/pass_counter.h"
#include "bench/data/log_writer.h"
#include "bench/data/rules.h"

namespace {

namespace fs = std::filesystem;

constexpr int kEvents = 100;
constexpr double kHitRate = 0.001;
constexpr int kShortLines = 20;

double ProcessorSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + (static_cast<double>(now.tv_nsec) / 1e9);
}

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

// One pass; the processor seconds that it took.
double Pass(monitor::Module &module, host::Host &host, const cli::TrialLog &log, bool with_history)
{
    const auto time_of = [&module](const std::string &line) -> std::optional<int64_t> {
        time_t time = 0;
        if (module.GetSyslogTime(line.c_str(), &time) == FALSE)
            return std::nullopt;
        return time;
    };
    std::optional<syslogmond::PassCounter> counter;
    if (with_history) {
        counter.emplace(host, time_of);
        counter->BeginTable();
    }
    const double begin = ProcessorSeconds();
    host::Transaction transaction(host.store());
    cli::PassOver(host, module, log);
    if (counter)
        counter->Save(false);
    transaction.Commit();
    return ProcessorSeconds() - begin;
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

struct Pairs {
    std::vector<double> without, with, ratios;
};

Pairs Measure(monitor::Module &module, host::Host &host, const cli::TrialLog &log, int runs)
{
    Pairs pairs;
    Pass(module, host, log, true);
    Pass(module, host, log, false);
    for (int i = 0; i < runs; ++i) {
        double seconds[2] = {};
        for (const bool with : {i % 2 == 0, i % 2 != 0})
            seconds[with ? 1 : 0] = Pass(module, host, log, with);
        pairs.without.push_back(seconds[0]);
        pairs.with.push_back(seconds[1]);
        pairs.ratios.push_back(seconds[1] / seconds[0]);
    }
    return pairs;
}

void Print(const char *what, double scale, const char *unit, const Pairs &pairs)
{
    std::vector<double> ratios = pairs.ratios;
    std::ranges::sort(ratios);
    const size_t tenth = ratios.size() / 10;
    printf("%s: without the history %.1f %s, with it %.1f (medians of %zu); with / without in each "
           "pair: median %.3f, "
           "from %.3f to %.3f without the tenth at each end\n",
           what, Median(pairs.without) * scale, unit, Median(pairs.with) * scale, ratios.size(),
           Median(ratios), ratios[tenth], ratios[ratios.size() - 1 - tenth]);
}

} // namespace

int main(int argc, char **argv)
{
    const int lines = NumberOf(argc, argv, "--lines=", 1'000'000);
    const int runs = std::max(NumberOf(argc, argv, "--runs=", 40), 1);
    const int short_runs = std::max(NumberOf(argc, argv, "--short-runs=", 2000), 1);
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
                          Print("long passes", 1e9 / lines, "ns a line",
                                Measure(module, host, long_log, runs));
                          Print("short passes", 1e6, "us",
                                Measure(module, host, short_log, short_runs));
                          host.SetTable({});
                      });
    } catch (const std::exception &error) {
        fprintf(stderr, "history_bench: %s\n", error.what());
        return 1;
    }
}
