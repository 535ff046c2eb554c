// Passes over the logs of four sets of rules (data/rules.h), beside what else could be run over the same files:
// everything in one run, on one core, in processor time, the median of five.
//
//   pass_bench [--lines=N] [--hits-per-1000=N] [--entries=N] [--set=NAME] [--pass-only] [--expressions]
//   pass_bench --rules=FILE --log=FILE [--entries=N] [--pass-only]
//
// What is compared:
//   pass          WatchSyslogMain from the first line: reading, stepping, stamps, matching, counters, trace
//                 calls at disabled levels, reports. Of the hostile set hits are counted, not reported
//   plain rule    the exported steps and CheckLine, which tries every entry; over fewer lines, scaled
//   grep          grep -c -F -f with all keywords, LC_ALL=C
//   hyperscan     a literal scan for all keywords over blocks of 64 KiB, read like those of a pass; the callbacks are
//                 counted, nothing else is done
//   wc            wc -l
//
// --rules and --log take rules and log from files instead: three keywords a line, between tabs, and lines with traditional
// stamps of this month. bench/other_words.py makes such a pair of words that nothing here was tuned for.
//
// --expressions compares passes on a fault-tolerant server with the plain rule instead: of 11 plain entries, of 11
// expressions, and of 2,048 entries of which 200 are expressions.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#ifdef HAVE_HYPERSCAN
#include <hs/hs.h>
#endif

#include "bench/data/log_writer.h"
#include "bench/data/rules.h"
#include "bench/quiet_host.h"
#include "fileacc/fileacc.h"
#include "match/match.h"
#include "match/table_data.h"
#include "vkevmon/pass.h"

namespace {

namespace fs = std::filesystem;

struct Options {
    int lines = 1000000;
    int hits_per_1000 = 1;
    std::vector<int> entries = {10, 100, 500, 2048};
    std::string set; // empty: all
    bool pass_only = false;
    bool expressions = false;
    std::string rules; // files
    std::string log;
};

constexpr int kRuns = 5;

double ProcessorSeconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + (static_cast<double>(now.tv_nsec) / 1e9);
}

double Median(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

// Processor seconds of a run, the median of some.
double SecondsOf(const std::function<void()> &run, int runs = kRuns)
{
    std::vector<double> seconds;
    for (int i = 0; i < runs; ++i) {
        const double begin = ProcessorSeconds(CLOCK_PROCESS_CPUTIME_ID);
        run();
        seconds.push_back(ProcessorSeconds(CLOCK_PROCESS_CPUTIME_ID) - begin);
    }
    return Median(std::move(seconds));
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
double SecondsOfProgram(const std::vector<std::string> &arguments)
{
    const File file(".out");
    const int output = open(file.path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    std::vector<double> used;
    for (int i = 0; i < kRuns; ++i) {
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
        used.push_back(seconds(usage.ru_utime) + seconds(usage.ru_stime));
    }
    close(output);
    return Median(std::move(used));
}

void WriteLog(const std::string &path, bench::RuleSet set, const std::vector<bench::Rule> &rules,
              const Options &options)
{
    bench::LogWriter writer(set, rules, options.hits_per_1000 / 1000.0);
    std::ofstream log(path, std::ios::trunc);
    for (int i = 0; i < options.lines; ++i)
        log << writer.Next() << '\n';
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
    return SecondsOf([&log] {
        bench::WatchFromStart(log);
        WatchSyslogMain();
    });
}

// Of so many lines at the head of the log.
double PlainRuleSeconds(const std::string &log, int lines)
{
    return SecondsOf(
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
        flags.push_back(0);
    }
    hs_database_t *database = nullptr;
    hs_compile_error_t *error = nullptr;
    if (hs_compile_lit_multi(texts.data(), flags.data(), ids.data(), lengths.data(),
                             static_cast<unsigned>(texts.size()), HS_MODE_BLOCK, nullptr, &database,
                             &error) != HS_SUCCESS)
        throw std::runtime_error(std::string("hyperscan: ") + error->message);
    hs_scratch_t *scratch = nullptr;
    hs_alloc_scratch(database, &scratch);
    int64_t matches = 0;
    const double seconds = SecondsOf([&] {
        static char block[size_t{64} * 1024];
        const int file = open(log.c_str(), O_RDONLY | O_CLOEXEC);
        for (ssize_t got = 0; (got = read(file, block, sizeof block)) > 0;)
            hs_scan(database, block, static_cast<unsigned>(got), 0, scratch, CountMatch, &matches);
        close(file);
    });
    hs_free_scratch(scratch);
    hs_free_database(database);
    return seconds;
}
#endif

// Nanoseconds a line.
struct Costs {
    double pass = 0, plain = 0, grep = 0, hyperscan = 0, wc = 0;
};

// Of a log of so many lines, with the table as it is.
Costs Measure(const std::string &log, int lines, const std::vector<bench::Rule> &rules,
              const Options &options)
{
    const double line = lines / 1e9;
    if (options.pass_only)
        return {.pass = PassSeconds(log) / line};
    const auto literals = Literals(rules);
    const File patterns(".patterns");
    std::ofstream file(patterns.path);
    for (const std::string &literal : literals)
        file << literal << '\n';
    file.close();
    const int plain_lines = std::min(lines, 20000);
    Costs costs{};
    costs.pass = PassSeconds(log) / line;
    costs.plain = PlainRuleSeconds(log, plain_lines) / (plain_lines / 1e9);
    costs.grep = SecondsOfProgram({"grep", "-c", "-F", "-f", patterns.path, log}) / line;
#ifdef HAVE_HYPERSCAN
    costs.hyperscan = HyperscanSeconds(log, literals) / line;
#endif
    costs.wc = SecondsOfProgram({"wc", "-l", log}) / line;
    return costs;
}

void PrintHead(const char *name, int lines)
{
    printf("%s: %d lines, nanoseconds a line, and in brackets how many times as fast the pass is\n",
           name, lines);
    printf("  %7s %9s %19s %17s %17s %15s\n", "entries", "pass", "plain rule", "grep -c -F -f",
           "hyperscan", "wc -l");
}

void PrintCosts(size_t entries, const Costs &costs)
{
    printf("  %7zu %9.1f", entries, costs.pass);
    for (const double other : {costs.plain, costs.grep, costs.hyperscan, costs.wc})
        printf(" %9.1f (%6.2f)", other, other / costs.pass);
    printf("\n");
    fflush(stdout);
}

void PrintSet(const char *name, bench::RuleSet set, const Options &options)
{
    if (!options.set.empty() && options.set != name)
        return;
    PrintHead(name, options.lines);
    for (const int entries : options.entries) {
        const auto rules = bench::MakeRules(set, entries);
        const File log(".log");
        WriteLog(log.path, set, rules, options);
        bench::FillTable(rules, false);
        if (set == bench::RuleSet::kHostile) {
            for (int i = 0; i < nCnt; ++i)
                lpVKVMon[i]->ReportCount = INT32_MAX;
        }
        PrintCosts(rules.size(), Measure(log.path, options.lines, rules, options));
    }
    printf("\n");
}

// ---- rules and log of files ----

std::ifstream Open(const std::string &path)
{
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error(path + " cannot be opened");
    return file;
}

std::vector<bench::Rule> ReadRules(const std::string &path)
{
    std::ifstream file = Open(path);
    std::vector<bench::Rule> rules;
    for (std::string line; rules.size() < kMaxEntries && std::getline(file, line);) {
        std::istringstream words(line);
        bench::Rule rule;
        for (std::string &keyword : rule.keywords)
            std::getline(words, keyword, '\t');
        rules.push_back(std::move(rule));
    }
    return rules;
}

int CountLines(const std::string &path)
{
    std::ifstream file = Open(path);
    return static_cast<int>(
        std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n'));
}

void PrintFiles(const Options &options)
{
    const auto all = ReadRules(options.rules);
    const int lines = CountLines(options.log);
    PrintHead(options.log.c_str(), lines);
    for (const int entries : options.entries) {
        const auto rules = std::vector(
            all.begin(), all.begin() + std::min<std::ptrdiff_t>(entries, std::ssize(all)));
        bench::FillTable(rules, false);
        PrintCosts(rules.size(), Measure(options.log, lines, rules, options));
    }
}

// On a fault-tolerant server.
void CompareExpressions(int entries, int expressions, const Options &options)
{
    const auto rules = bench::MakeRules(bench::RuleSet::kCatalogue, entries, expressions);
    const File log(".log");
    WriteLog(log.path, bench::RuleSet::kCatalogue, rules, options);
    bench::FillTable(rules, true);
    const double pass = PassSeconds(log.path) / options.lines;
    const int plain_lines = std::min(options.lines, expressions > 0 ? 300 : 3000);
    const double plain = PlainRuleSeconds(log.path, plain_lines) / plain_lines;
    printf("%4d entries, %3d of them expressions: pass %.0f ns a line, plain rule %.0f (%.1f)\n",
           entries, expressions, pass * 1e9, plain * 1e9, plain / pass);
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
        else if (argument.starts_with("--entries="))
            options.entries = {std::stoi(argument.substr(10))};
        else if (argument.starts_with("--set="))
            options.set = argument.substr(6);
        else if (argument.starts_with("--rules="))
            options.rules = argument.substr(8);
        else if (argument.starts_with("--log="))
            options.log = argument.substr(6);
        else if (argument == "--pass-only")
            options.pass_only = true;
        else if (argument == "--expressions")
            options.expressions = true;
        else
            throw std::runtime_error(
                "usage: pass_bench [--lines=N] [--hits-per-1000=N] [--entries=N] "
                "[--set=catalogue|phrases|short|hostile] [--rules=FILE --log=FILE] [--pass-only] "
                "[--expressions]");
    }
    if (options.rules.empty() != options.log.empty())
        throw std::runtime_error("--rules=FILE and --log=FILE go together: name both");
    return options;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        const Options options = Parse(argc, argv);
        if (options.expressions) {
            printf("fault-tolerant server:\n");
            CompareExpressions(11, 0, options);
            CompareExpressions(11, 11, options);
            CompareExpressions(2048, 200, options);
            return 0;
        }
        if (!options.rules.empty()) {
            PrintFiles(options);
            return 0;
        }
        PrintSet("catalogue", bench::RuleSet::kCatalogue, options);
        PrintSet("phrases", bench::RuleSet::kSharedPhrases, options);
        PrintSet("short", bench::RuleSet::kShort, options);
        PrintSet("hostile", bench::RuleSet::kHostile, options);
    } catch (const std::exception &error) {
        fprintf(stderr, "pass_bench: %s\n", error.what());
        return 1;
    }
}
