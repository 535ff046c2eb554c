// Each stage of a pass by itself. The data is that of data.h.
//
//   module_bench [--benchmark_filter=REGEX] ...
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>

#include <benchmark/benchmark.h>

#include "bench/data/log_writer.h"
#include "bench/data/rules.h"
#include "bench/quiet_host.h"
#include "fileacc/fileacc.h"
#include "filemonitor/filemonitor.h"
#include "match/index.h"
#include "match/match.h"
#include "stamp/syslog_time.h"

namespace {

constexpr int kLines = 100000;

// A log of kLines lines in a file, and the same lines in memory.
struct Log {
    std::string path;
    std::vector<std::string> lines;
    int64_t bytes = 0;
    static inline int count = 0; // of the logs made so far: each has a file of its own

    Log(const std::vector<bench::Rule> &rules, double hit_rate)
        : path(std::filesystem::temp_directory_path() /
               ("syslogmon-bench-" + std::to_string(++count) + ".log"))
    {
        bench::LogWriter writer(bench::RuleSet::kCatalogue, rules, hit_rate);
        std::ofstream file(path, std::ios::trunc);
        for (int i = 0; i < kLines; ++i) {
            lines.push_back(writer.Next());
            bytes += static_cast<int64_t>(lines.back().size()) + 1;
            file << lines.back() << '\n';
        }
    }
    ~Log() { std::filesystem::remove(path); }
    Log(const Log &) = delete;
    Log &operator=(const Log &) = delete;
};

const Log &PlainLog()
{
    static const std::vector<bench::Rule> none;
    static const Log log(none, 0);
    return log;
}

void BlockLoad(benchmark::State &state)
{
    InitFile(PlainLog().path.c_str());
    int64_t pos = 0;
    for (auto _ : state) {
        if (pos + kBlockSize >= filelen)
            pos = 0;
        pos += GetBlockAt(pos, kBlockSize, &curblock);
    }
    state.SetBytesProcessed(state.iterations() * kBlockSize);
    FinishFile();
}
BENCHMARK(BlockLoad);

void NextLine(benchmark::State &state)
{
    InitFile(PlainLog().path.c_str());
    GetBlockAt(0, kBlockSize, &curblock);
    TrimBlockRight(&curblock);
    char line[kLineBufferSize];
    int64_t pos = 0;
    size_t length = 0;
    for (auto _ : state) {
        if (FEof() != 0) {
            GetBlockAt(0, kBlockSize, &curblock);
            TrimBlockRight(&curblock);
        }
        benchmark::DoNotOptimize(ReadNextLine(&pos, line, kLineBufferSize, &length));
    }
    state.SetItemsProcessed(state.iterations());
    FinishFile();
}
BENCHMARK(NextLine);

void PreviousLine(benchmark::State &state)
{
    InitFile(PlainLog().path.c_str());
    char line[kLineBufferSize];
    int64_t pos = filelen;
    const auto from_end = [] {
        GetBlockAt(GetLineHead(filelen - 1), kBlockSize, &curblock);
        curblock.linepos = 0;
    };
    from_end();
    for (auto _ : state) {
        if (FBegin() != 0)
            from_end();
        benchmark::DoNotOptimize(GetPreLine(&pos, line, kLineBufferSize));
    }
    state.SetItemsProcessed(state.iterations());
    FinishFile();
}
BENCHMARK(PreviousLine);

void LineHead(benchmark::State &state)
{
    InitFile(PlainLog().path.c_str());
    int64_t pos = 12345;
    for (auto _ : state) {
        pos = (pos + 1000003) % filelen;
        benchmark::DoNotOptimize(GetLineHead(pos));
    }
    FinishFile();
}
BENCHMARK(LineHead);

void TimeStamp(benchmark::State &state)
{
    const auto &lines = PlainLog().lines;
    size_t i = 0;
    time_t when = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetSyslogTime(lines[i].c_str(), &when));
        i = (i + 1) % lines.size();
    }
}
BENCHMARK(TimeStamp);

void TimeStampIsValid(benchmark::State &state)
{
    const auto &lines = PlainLog().lines;
    LocalMoment moment;
    size_t i = 0;
    time_t when = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            GetSyslogTimeAt(&moment, lines[i].c_str(), &when, StampUse::kValidity));
        i = (i + 1) % lines.size();
    }
}
BENCHMARK(TimeStampIsValid);

// Matching of whole lines: entries, lines with a hit per 1,000, expressions among the entries.
void Match(benchmark::State &state, bool indexed)
{
    const auto entries = static_cast<int>(state.range(0));
    const auto expressions = static_cast<int>(state.range(2));
    const auto rules = bench::MakeRules(bench::RuleSet::kCatalogue, entries, expressions);
    Log log(rules, static_cast<double>(state.range(1)) / 1000);
    bench::FillTable(rules, expressions > 0);
    LocalMoment moment;
    FoundLiterals found{};
    DropIndex();
    if (indexed)
        BuildIndex();
    size_t i = 0;
    for (auto _ : state) {
        std::string &line = log.lines[i];
        if (indexed)
            benchmark::DoNotOptimize(CheckLineOfPass(&moment, &found, line.data(), line.size(), 1));
        else
            benchmark::DoNotOptimize(CheckLine(line.data(), 1));
        i = (i + 1) % log.lines.size();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK_CAPTURE(Match, Indexed, true)
    ->ArgNames({"entries", "hits_per_1000", "expressions"})
    ->ArgsProduct({{1, 10, 100, 500, 2048}, {1, 100}, {0}})
    ->Args({2048, 1, 200});
BENCHMARK_CAPTURE(Match, PlainRule, false)
    ->ArgNames({"entries", "hits_per_1000", "expressions"})
    ->ArgsProduct({{1, 10, 100, 500, 2048}, {1, 100}, {0}})
    ->Args({2048, 1, 200});

void IndexBuild(benchmark::State &state)
{
    const auto rules =
        bench::MakeRules(bench::RuleSet::kCatalogue, static_cast<int>(state.range(0)));
    bench::FillTable(rules, false);
    for (auto _ : state)
        BuildIndex();
}
BENCHMARK(IndexBuild)->Arg(10)->Arg(2048);

void FileMonitorLine(benchmark::State &state)
{
    snprintf(filedata.filemonpath, sizeof filedata.filemonpath, "%s", PlainLog().path.c_str());
    filedata.offset = 0;
    filedata.length = 0;
    InitFileMonObj();
    char line[kFileLineBufferSize];
    for (auto _ : state) {
        const long count = GetFileNextLine(line, kFileLineBufferSize);
        if (count < 0) {
            state.SkipWithError("the log could not be read");
            break;
        }
        if (count == 0) {
            filedata.offset = 0;
            filedata.length = 0;
        }
    }
    state.SetItemsProcessed(state.iterations());
    FinishFileMonObj();
}
BENCHMARK(FileMonitorLine);

} // namespace

BENCHMARK_MAIN();
