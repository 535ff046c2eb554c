// What inputs cost, in processor time.
//
//   input_bench files [--lines=N] [--form=FORM]
//       A file of N lines (1,000,000) of each usual form, or of this one, from its beginning into the spool: lines a second. The lines
//       imitate those of a busy mail host, 80 to 200 bytes behind the stamp; file and spool lie in memory where there
//       is such a file system. The median of five runs, with smallest and largest.
//   input_bench journal DIRECTORY
//       All entries of the journal files there, beside journalctl -o short of the same: entries a second of each.
//       bench/journal.py makes such a journal.
//   input_bench idle [--files=N] [--seconds=N]
//       What a thread costs that follows N files (500) to which nobody writes, for so long (60): percent of a core.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include "agent/inputs/input_thread.h"
#include "agent/inputs/journal_reader.h"
#include "agent/inputs/spool.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRuns = 5;

double ProcessorSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + (static_cast<double>(now.tv_nsec) / 1e9);
}

// Of the child processes that have ended.
double ChildSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + (static_cast<double>(time.tv_usec) / 1e6);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

class Folder {
  public:
    Folder()
    {
        std::string name = fs::exists("/dev/shm") ? "/dev/shm/bench-XXXXXX" : "/tmp/bench-XXXXXX";
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no folder can be made");
        path = name;
    }
    ~Folder() { fs::remove_all(path); }
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    fs::path path;
};

long NumberOf(int argc, char **argv, const char *option, long otherwise)
{
    for (int i = 2; i < argc; ++i) {
        if (strncmp(argv[i], option, strlen(option)) == 0)
            return atol(argv[i] + strlen(option));
    }
    return otherwise;
}

std::string TextOf(int argc, char **argv, const char *option)
{
    for (int i = 2; i < argc; ++i) {
        if (strncmp(argv[i], option, strlen(option)) == 0)
            return argv[i] + strlen(option);
    }
    return {};
}

// ---- files ----

std::string StampOf(const std::string &form, time_t moment)
{
    tm local{};
    localtime_r(&moment, &local);
    char text[64] = {};
    if (form == "rfc3339")
        strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.123456+00:00 ", &local);
    else if (form == "rfc5424")
        strftime(text, sizeof text, "<34>1 %Y-%m-%dT%H:%M:%S.123Z ", &local);
    else if (form == "epoch")
        return std::to_string(moment) + ".123 ";
    else if (form == "traditional")
        strftime(text, sizeof text, "%b %e %H:%M:%S ", &local);
    return text;
}

void WriteLog(const fs::path &path, const std::string &form, long lines)
{
    std::mt19937 random(1); // the same log in each run
    std::ofstream log(path, std::ios::binary);
    const std::string origin =
        form == "rfc5424" ? "mail1 postfix 4711 - - " : "mail1 postfix/smtpd[4711]: ";
    for (long i = 0; i < lines; ++i)
        log << StampOf(form, time(nullptr) - 60) << origin << "connect from unknown["
            << std::to_string(i) << "] " << std::string(30 + random() % 120, 'x') << '\n';
}

double SecondsOfFile(const fs::path &log, const fs::path &spool_path)
{
    inputs::FollowOptions options;
    options.name = "bench";
    options.rules.paths = {log};
    options.form.host = "here";
    options.log_charset = "UTF-8";
    options.from_start = true;
    inputs::FileFollower follower(options, {});
    follower.Begin();
    fs::remove(spool_path);
    inputs::SpoolFile spool(spool_path);
    spool.Begin(1);
    inputs::SpoolState state = inputs::BeginOfGeneration(1);
    const double begin = ProcessorSeconds();
    auto now = std::chrono::steady_clock::now();
    bool has_more = true;
    while (has_more) {
        follower.Look(now);
        inputs::Batch batch;
        has_more = follower.Read(time(nullptr), now, &batch);
        state = spool.Append(state, batch.text);
    }
    return ProcessorSeconds() - begin;
}

int MeasureFiles(long lines, const std::string &only)
{
    const Folder folder;
    for (const char *form : {"traditional", "rfc3339", "rfc5424", "epoch", "none"}) {
        if (!only.empty() && only != form)
            continue;
        const fs::path log = folder.path / "mail.log";
        WriteLog(log, form, lines);
        std::vector<double> rates;
        for (int run = 0; run < kRuns; ++run)
            rates.push_back(static_cast<double>(lines) / SecondsOfFile(log, folder.path / "spool"));
        std::sort(rates.begin(), rates.end());
        printf("%-12s %.2f million lines a second (%.2f to %.2f)\n", form, rates[kRuns / 2] / 1e6,
               rates.front() / 1e6, rates.back() / 1e6);
    }
    return 0;
}

// ---- the journal ----

int MeasureJournal(const std::string &directory)
{
    inputs::JournalOptions options;
    options.name = "bench";
    options.directory = directory;
    std::vector<double> ours;
    std::vector<double> theirs;
    long entries = 0;
    for (int run = 0; run < kRuns; ++run) {
        inputs::JournalReader reader(options, "");
        const double begin = ProcessorSeconds();
        entries = 0;
        bool has_more = true;
        while (has_more) {
            inputs::Batch batch;
            has_more =
                reader.Read(time(nullptr), inputs::SteadyTime(std::chrono::hours(1)), &batch);
            entries += std::count(batch.text.begin(), batch.text.end(), '\n');
        }
        ours.push_back(ProcessorSeconds() - begin);
        const double before = ChildSeconds();
        const std::string command = "journalctl -q -o short -D '" + directory + "' >/dev/null";
        if (system(command.c_str()) != 0)
            return 1;
        theirs.push_back(ChildSeconds() - before);
    }
    std::sort(ours.begin(), ours.end());
    std::sort(theirs.begin(), theirs.end());
    const auto count = static_cast<double>(entries);
    printf("%ld entries: input %.0f a second, journalctl -o short %.0f a second, ratio %.2f\n",
           entries, count / ours[kRuns / 2], count / theirs[kRuns / 2],
           theirs[kRuns / 2] / ours[kRuns / 2]);
    return 0;
}

// ---- nobody writes ----

int MeasureIdle(long files, long seconds)
{
    const Folder folder;
    for (long i = 0; i < files; ++i)
        std::ofstream(folder.path / (std::to_string(i) + ".log"))
            << "Nov  1 10:00:00 host app: first\n";
    {
        host::Store store(folder.path / "agent.db");
        host::RegistryTree registry(store);
        inputs::InputRegistry(store, registry)
            .Add({0, "all", inputs::kFilesKind, {{"path", {(folder.path / "*.log").string()}}}},
                 "UTF-8");
    }
    inputs::InputThread thread({.store = folder.path / "agent.db",
                                .own_folder = "",
                                .batch_is_ready = [] {},
                                .status_changed = [] {}});
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const double begin = ProcessorSeconds();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    printf("%ld files: %.3f percent of a core\n", files,
           100 * (ProcessorSeconds() - begin) / static_cast<double>(seconds));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "files")
        return MeasureFiles(NumberOf(argc, argv, "--lines=", 1000000),
                            TextOf(argc, argv, "--form="));
    if (what == "journal" && argc > 2)
        return MeasureJournal(argv[2]);
    if (what == "idle")
        return MeasureIdle(NumberOf(argc, argv, "--files=", 500),
                           NumberOf(argc, argv, "--seconds=", 60));
    fprintf(
        stderr,
        "usage: input_bench files [--lines=N] [--form=FORM] | journal DIRECTORY | idle [--files=N] "
        "[--seconds=N]\n");
    return 2;
}
