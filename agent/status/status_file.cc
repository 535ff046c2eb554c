#include "agent/status/status_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <string_view>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "agent/host/error.h"
#include "agent/host/private_file.h"

namespace status {

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// In the order of the enumerations, whose values are their indexes. A reader takes a name that it
// does not know for the last one.
constexpr const char *kStateNames[] = {"starting", "running", "pausing", "stopping"};
constexpr const char *kKindNames[] = {"start",         "cycle",        "scan",
                                      "customer-file", "file-monitor", "other"};

// The index of a name, or the last one for a name that is not known.
template <size_t Size>
size_t IndexOf(const char *const (&names)[Size], const std::string &name)
{
    size_t index = 0;
    while (index + 1 < Size && name != names[index])
        ++index;
    return index;
}

fs::path StatusPath(const fs::path &run_folder)
{
    return run_folder / "status.json";
}

json ToJson(const PassStatus &pass)
{
    return {{"number", pass.number},
            {"kind", PassKindName(pass.kind)},
            {"began_ms", pass.began_ms},
            {"began_boot_ns", pass.began_boot_ns},
            {"took_us", pass.took_us}};
}

PassStatus PassOf(const json &object)
{
    PassStatus pass;
    pass.number = object.at("number");
    pass.kind = static_cast<PassKind>(IndexOf(kKindNames, object.at("kind").get<std::string>()));
    pass.began_ms = object.at("began_ms");
    pass.began_boot_ns = object.at("began_boot_ns");
    pass.took_us = object.at("took_us");
    return pass;
}

json ToJson(const InputStatus &input)
{
    return {{"name", input.name},
            {"kind", input.kind},
            {"open_files", input.open_files},
            {"behind_bytes", input.behind_bytes},
            {"behind_since_ms", input.behind_since_ms},
            {"last_entry_ms", input.last_entry_ms},
            {"problems", input.problems}};
}

InputStatus InputOf(const json &object)
{
    InputStatus input;
    input.name = object.at("name");
    input.kind = object.at("kind");
    input.open_files = object.at("open_files");
    input.behind_bytes = object.at("behind_bytes");
    input.behind_since_ms = object.at("behind_since_ms");
    input.last_entry_ms = object.at("last_entry_ms");
    input.problems = object.at("problems").get<std::vector<std::string>>();
    return input;
}

Status StatusOf(const json &object)
{
    Status status;
    status.pid = object.at("pid");
    status.version = object.at("version");
    status.started_ms = object.at("started_ms");
    status.state =
        static_cast<MonitorState>(IndexOf(kStateNames, object.at("state").get<std::string>()));
    status.restarts = object.at("restarts");
    status.next_start_ms = object.at("next_start_ms");
    status.last_error = object.at("last_error");
    status.table_size = object.at("table_size");
    status.last_pass = PassOf(object.at("last_pass"));
    status.last_full_pass = PassOf(object.at("last_full_pass"));
    // From here on with a default: a daemon of before these were written is still understood by a
    // command that was installed while it runs.
    status.watch_problem = object.value("watch_problem", "");
    status.alive_ns = object.value("alive_ns", int64_t{0});
    status.still_ms = object.value("still_ms", int64_t{0});
    status.store = object.value("store", "");
    status.waiting_since_ms = object.value("waiting_since_ms", int64_t{0});
    for (const json &input : object.value("inputs", json::array()))
        status.inputs.push_back(InputOf(input));
    status.inputs_wait = object.value("inputs_wait", "");
    status.inputs_caught_up_ns = object.value("inputs_caught_up_ns", int64_t{0});
    return status;
}

// Not synchronised with the disk: after a power cut there is no daemon for which it would be true.
void WriteWhole(const fs::path &path, std::string_view text)
{
    // For this user and the readers of the folder: the last error can name what others need not know.
    const host::Fd file = host::OpenReadableFile(path, O_WRONLY | O_CREAT | O_TRUNC);
    while (file.get() >= 0 && !text.empty()) {
        const ssize_t written = write(file.get(), text.data(), text.size());
        if (written < 0 && errno != EINTR)
            break;
        text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
    if (!text.empty())
        throw host::Error("cannot write " + path.string(), strerror(errno),
                          "free some space on its disk");
}

} // namespace

const char *MonitorStateName(MonitorState state)
{
    return kStateNames[static_cast<size_t>(state)];
}

const char *PassKindName(PassKind kind)
{
    return kKindNames[static_cast<size_t>(kind)];
}

bool ReadsAllFiles(PassKind kind)
{
    return kind == PassKind::kStart || kind == PassKind::kCycle || kind == PassKind::kScan;
}

void WriteStatus(const fs::path &run_folder, const Status &status)
{
    json inputs = json::array();
    for (const InputStatus &input : status.inputs)
        inputs.push_back(ToJson(input));
    const json object = {{"pid", status.pid},
                         {"version", status.version},
                         {"started_ms", status.started_ms},
                         {"state", MonitorStateName(status.state)},
                         {"restarts", status.restarts},
                         {"next_start_ms", status.next_start_ms},
                         {"last_error", status.last_error},
                         {"table_size", status.table_size},
                         {"last_pass", ToJson(status.last_pass)},
                         {"last_full_pass", ToJson(status.last_full_pass)},
                         {"watch_problem", status.watch_problem},
                         {"alive_ns", status.alive_ns},
                         {"still_ms", status.still_ms},
                         {"store", status.store},
                         {"waiting_since_ms", status.waiting_since_ms},
                         {"inputs", inputs},
                         {"inputs_wait", status.inputs_wait},
                         {"inputs_caught_up_ns", status.inputs_caught_up_ns}};
    const fs::path path = StatusPath(run_folder);
    // One name is enough, since one process writes, one call at a time. What is left of a write
    // that failed is overwritten by the next one.
    const fs::path unfinished = path.string() + ".new";
    // A path or an error may hold bytes that are no UTF-8. They are replaced: a status with a
    // question mark in it helps more than none.
    WriteWhole(unfinished, object.dump(-1, ' ', false, json::error_handler_t::replace) + "\n");
    fs::rename(unfinished, path);
}

std::optional<Status> ReadStatus(const fs::path &run_folder)
{
    std::ifstream file(StatusPath(run_folder));
    if (!file)
        return std::nullopt;
    try {
        return StatusOf(json::parse(file));
    } catch (const json::exception &) {
        return std::nullopt; // written by another version
    }
}

// The UUID tells it from other stores, device and inode from its copies.
std::string StoreName(const host::Store &store)
{
    const host::FileIdentity &file = store.identity();
    return store.uuid() + " in file " + std::to_string(file.device) + ":" +
           std::to_string(file.inode);
}

int64_t SecondsBehind(const InputStatus &input, int64_t now_ms)
{
    if (input.behind_since_ms == 0)
        return 0;
    return std::max<int64_t>(now_ms - input.behind_since_ms + 999, 1000) / 1000;
}

int64_t BootTimeNs()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return (int64_t{now.tv_sec} * 1'000'000'000) + now.tv_nsec;
}

int64_t UpTimeNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t{now.tv_sec} * 1'000'000'000) + now.tv_nsec;
}

int64_t WallTimeMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace status
