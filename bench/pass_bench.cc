// One pass over a log with a full table, beside what else could be run over the same file: everything in one
// run, on one core, in processor time.
//
//   pass_bench [--lines=N] [--hits-per-1000=N]
//
// What is compared:
//   pass          WatchSyslogMain from the first line: reading, stepping, stamps, matching, counters, trace
//                 calls at disabled levels, reports
//   plain rule    the exported steps and CheckLine, which tries every entry; over fewer lines, scaled
//   grep          grep -c -F -f with all keywords, LC_ALL=C
//   hyperscan     a literal scan for all keywords, line by line over the mapped file, nothing else done
//   wc            wc -l
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef HAVE_HYPERSCAN
#include <hs/hs.h>
#endif

#include "bench/data.h"
#include "bench/quiet_host.h"
#include "fileacc/fileacc.h"
#include "match/match.h"
#include "vkevmon/pass.h"

namespace {

namespace fs = std::filesystem;

struct Options {
    int lines = 1000000;
    int hits_per_1000 = 1;
};

double ProcessorSeconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + (static_cast<double>(now.tv_nsec) / 1e9);
}

// Processor seconds of the fastest of a few runs: what else the machine does only slows runs down.
double Fastest(const std::function<void()> &run, int runs = 3)
{
    double best = 1e9;
    for (int i = 0; i < runs; ++i) {
        const double begin = ProcessorSeconds(CLOCK_PROCESS_CPUTIME_ID);
        run();
        best = std::min(best, ProcessorSeconds(CLOCK_PROCESS_CPUTIME_ID) - begin);
    }
    return best;
}

std::string BenchFile(const char *name)
{
    return fs::temp_directory_path() / ("syslogmon-pass-bench-" + std::to_string(getpid()) + name);
}

struct File {
    std::string path;
    explicit File(const char *name) : path(BenchFile(name)) {}
    ~File() { fs::remove(path); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
};

// The same of a program. Its output goes to a file: some programs stop at the first match when nobody reads.
double FastestProgram(const std::vector<std::string> &arguments, int runs = 3)
{
    const File file(".out");
    const int output = open(file.path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    double best = 1e9;
    for (int i = 0; i < runs; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            std::vector<char *> argv;
            for (const std::string &argument : arguments)
                argv.push_back(const_cast<char *>(argument.c_str()));
            argv.push_back(nullptr);
            dup2(output, STDOUT_FILENO);
            setenv("LC_ALL", "C", 1);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        int status = 0;
        rusage usage{};
        if (child < 0 || wait4(child, &status, 0, &usage) < 0 || WEXITSTATUS(status) > 1)
            throw std::runtime_error(arguments[0] + " could not be run");
        const auto seconds = [](const timeval &t) {
            return static_cast<double>(t.tv_sec) + (static_cast<double>(t.tv_usec) / 1e6);
        };
        best = std::min(best, seconds(usage.ru_utime) + seconds(usage.ru_stime));
    }
    close(output);
    return best;
}

int64_t WriteLog(const std::string &path, const std::vector<bench::Rule> &rules, int lines,
                 double hits)
{
    bench::LogWriter writer(rules, hits);
    std::ofstream log(path, std::ios::trunc);
    for (int i = 0; i < lines; ++i)
        log << writer.Next() << '\n';
    return log.tellp();
}

std::set<std::string> Literals(const std::vector<bench::Rule> &rules)
{
    std::set<std::string> literals;
    for (const bench::Rule &rule : rules) {
        for (const std::string &keyword : rule.keywords) {
            if (!keyword.empty())
                literals.insert(keyword);
        }
    }
    return literals;
}

double PassSeconds(const std::string &log)
{
    return Fastest([&log] {
        bench::WatchFromStart(log);
        WatchSyslogMain();
    });
}

// Of so many lines at the head of the log.
double PlainRuleSeconds(const std::string &log, int lines)
{
    return Fastest(
        [&log, lines] {
            static char line[kLineBufferSize];
            int64_t pos = -1;
            char none[kLineBufferSize] = "";
            InitFile(log.c_str());
            GotoPos(&pos, none, kLineBufferSize);
            for (int i = 0; i < lines && FEof() == 0; ++i) {
                GetNextLine(&pos, line, kLineBufferSize);
                CheckLine(line, 1);
            }
            FinishFile();
        },
        1);
}

#ifdef HAVE_HYPERSCAN
int CountMatch(unsigned /*id*/, unsigned long long /*from*/, unsigned long long /*to*/,
               unsigned /*flags*/, void *count)
{
    ++*static_cast<int64_t *>(count);
    return 0;
}

double HyperscanSeconds(const std::string &log, const std::set<std::string> &literals)
{
    std::vector<const char *> texts;
    std::vector<unsigned> ids;
    std::vector<unsigned> flags;
    std::vector<size_t> lengths;
    for (const std::string &literal : literals) {
        texts.push_back(literal.c_str());
        lengths.push_back(literal.size());
        ids.push_back(static_cast<unsigned>(ids.size()));
        flags.push_back(HS_FLAG_SINGLEMATCH);
    }
    hs_database_t *database = nullptr;
    hs_compile_error_t *error = nullptr;
    if (hs_compile_lit_multi(texts.data(), flags.data(), ids.data(), lengths.data(),
                             static_cast<unsigned>(texts.size()), HS_MODE_BLOCK, nullptr, &database,
                             &error) != HS_SUCCESS)
        throw std::runtime_error(std::string("hyperscan: ") + error->message);
    hs_scratch_t *scratch = nullptr;
    hs_alloc_scratch(database, &scratch);
    const int file = open(log.c_str(), O_RDONLY | O_CLOEXEC);
    const auto size = fs::file_size(log);
    const char *begin = static_cast<const char *>(
        mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file, 0));
    int64_t matches = 0;
    const double seconds = Fastest([&] {
        for (const char *at = begin; at < begin + size;) {
            const auto left = static_cast<size_t>(begin + size - at);
            const auto *end = static_cast<const char *>(memchr(at, '\n', left));
            hs_scan(database, at, static_cast<unsigned>(end - at), 0, scratch, CountMatch,
                    &matches);
            at = end + 1;
        }
    });
    munmap(const_cast<char *>(begin), size);
    close(file);
    hs_free_scratch(scratch);
    hs_free_database(database);
    return seconds;
}
#endif

struct Column {
    const char *name;
    double seconds; // for `lines` lines
};

void PrintTable(const std::vector<Column> &rows, int lines, int64_t bytes)
{
    const double pass = rows.front().seconds;
    printf("  %-14s %14s %10s %22s\n", "", "lines/s", "MB/s", "the pass is ... times");
    for (const Column &row : rows)
        printf("  %-14s %14.0f %10.1f %21.2fx\n", row.name, lines / row.seconds,
               static_cast<double>(bytes) / 1e6 / row.seconds, row.seconds / pass);
    printf("\n");
}

void Compare(const Options &options, int entries, int expressions)
{
    const auto rules = bench::MakeRules(entries, expressions);
    const File log(".log");
    const int64_t bytes = WriteLog(log.path, rules, options.lines, options.hits_per_1000 / 1000.0);
    bench::FillTable(rules, expressions > 0);
    printf("%d entries, %d of them regular expressions%s, %d hits in 1000 lines, %d lines of %.0f "
           "bytes\n",
           entries, expressions, expressions > 0 ? " (fault-tolerant server)" : "",
           options.hits_per_1000, options.lines, static_cast<double>(bytes) / options.lines);
    std::vector<Column> rows;
    rows.push_back({"pass", PassSeconds(log.path)});
    const int plain_lines = std::min(options.lines, expressions > 0 ? 300 : 100000);
    rows.push_back(
        {"plain rule", PlainRuleSeconds(log.path, plain_lines) * options.lines / plain_lines});
    if (expressions == 0) {
        const auto literals = Literals(rules);
        const File patterns(".patterns");
        std::ofstream file(patterns.path);
        for (const std::string &literal : literals)
            file << literal << '\n';
        file.close();
        rows.push_back(
            {"grep -c -F -f", FastestProgram({"grep", "-c", "-F", "-f", patterns.path, log.path})});
#ifdef HAVE_HYPERSCAN
        rows.push_back({"hyperscan", HyperscanSeconds(log.path, literals)});
#endif
    }
    rows.push_back({"wc -l", FastestProgram({"wc", "-l", log.path})});
    PrintTable(rows, options.lines, bytes);
}

// How a pass grows with the table.
void CompareTables(const Options &options)
{
    printf("A pass by table size, %d lines\n", options.lines);
    double smallest = 0;
    for (const int entries : {10, 100, 500, 2048}) {
        const auto rules = bench::MakeRules(entries);
        const File log(".log");
        WriteLog(log.path, rules, options.lines, options.hits_per_1000 / 1000.0);
        bench::FillTable(rules, false);
        const double seconds = PassSeconds(log.path);
        if (smallest == 0)
            smallest = seconds;
        printf("  %5d entries %14.0f lines/s %10.2fx the time of 10 entries\n", entries,
               options.lines / seconds, seconds / smallest);
    }
    printf("\n");
}

Options Parse(int argc, char **argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.starts_with("--lines="))
            options.lines = std::stoi(argument.substr(8));
        else if (argument.starts_with("--hits-per-1000="))
            options.hits_per_1000 = std::stoi(argument.substr(16));
        else
            throw std::runtime_error("usage: pass_bench [--lines=N] [--hits-per-1000=N]");
    }
    return options;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        const Options options = Parse(argc, argv);
        Compare(options, 2048, 0);
        Options quick = options;
        quick.lines = std::min(options.lines, 100000);
        Compare(quick, 2048, 200);
        CompareTables(options);
    } catch (const std::exception &error) {
        fprintf(stderr, "pass_bench: %s\n", error.what());
        return 1;
    }
}
