#include "agent/cli/rendered_log.h"

#include <algorithm>
#include <chrono>
#include <ctime>

#include "agent/cli/option_word.h"
#include "agent/host/agent_values.h"
#include "agent/host/error.h"
#include "agent/inputs/folder_view.h"
#include "agent/inputs/journal_reader.h"
#include "agent/inputs/log_content.h"
#include "agent/inputs/records.h"
#include "agent/inputs/rendering.h"

namespace cli {

namespace {

// Read at a time; more than the longest record.
constexpr size_t kBlock = size_t{256} * 1024;
static_assert(kBlock > 2 * inputs::kLongestRecord);

// Renders records at one moment, that of the trial.
class Renderer {
  public:
    Renderer(const inputs::LineForm &form, const std::string &program) : form_(form)
    {
        if (form_.identifier.empty())
            form_.identifier = program;
    }

    void Append(std::string_view record, std::string *text)
    {
        const size_t begin = text->size();
        const inputs::Rendering rendering =
            inputs::RenderRecord(record, form_, now_, &clock_, text);
        if (rendering.result == inputs::RenderResult::kOwn)
            text->append(record).push_back('\n'); // a trial counts those, too
        else if (!rendering.own_stamp.empty())
            KeepTimeOfDay(rendering.own_stamp, text->data() + begin);
    }

  private:
    // In the stamp that was put in place of this one.
    void KeepTimeOfDay(const std::string &own_stamp, char *line)
    {
        const inputs::FoundStamp found =
            inputs::FindStamp(own_stamp + " ", inputs::StampFormat::kAuto);
        const inputs::CalendarTime own = found.moment ? clock_.At(*found.moment) : found.calendar;
        constexpr size_t kTimeOfDay = 7; // where it stands in a stamp
        if (own.month != 0)
            inputs::StampText(own).copy(line + kTimeOfDay, 8, kTimeOfDay);
    }

    inputs::LocalClock clock_;
    inputs::ReadingTime now_{clock_, time(nullptr)};
    inputs::LineForm form_;
};

// Where the entries come from is said by the names of the logs, and when they begin is not asked.
[[noreturn]] void RefuseOption(const std::string &name)
{
    throw host::Error(
        "cannot use the option \"" + name + "\" here",
        "the logs that are tried are named themselves, and read from their first line",
        "use options that say how lines or which entries are read, as format, encoding, "
        "join, begins-with, identifier, repeats, match and priority");
}

bool IsOfJournal(const std::string &name)
{
    const auto &all = inputs::AllInputOptions();
    return std::any_of(all.begin(), all.end(), [&](const inputs::InputOption &option) {
        return name == option.name && std::string(option.kind) == inputs::kJournalKind;
    });
}

} // namespace

RenderOptions RenderOptionsOf(const std::vector<std::string> &words)
{
    // A path that no file has: it is not looked for.
    inputs::InputConfig files{0, "trial", inputs::kFilesKind, {{"path", {"/nonexistent"}}}};
    inputs::InputConfig journal{0, "trial", inputs::kJournalKind, {}};
    for (const std::string &word : words) {
        const auto [name, value] = SplitOption(word);
        if (name == "path" || name == "exclude" || name == "begin")
            RefuseOption(name);
        inputs::InputConfig &config = IsOfJournal(name) ? journal : files;
        inputs::FindOption(config.kind, name);
        config.options[name].push_back(value);
    }
    CheckInput(files);
    CheckInput(journal);
    return {FollowOptionsOf(files, host::kDefaultLogCharset),
            JournalOptionsOf(journal, host::kDefaultLogCharset, "")};
}

void ReadUnpacked(const std::filesystem::path &path, const TakeText &take)
{
    inputs::LogContent content(path, true);
    std::string bytes;
    uint64_t at = 0;
    do {
        bytes.resize(kBlock);
        bytes.resize(content.Read(at, bytes.data(), kBlock));
        at += bytes.size();
    } while (!bytes.empty() && take(bytes));
}

void RenderLog(const std::filesystem::path &path, const std::string &name,
               const RenderOptions &options, const TakeText &take)
{
    const inputs::FollowOptions &files = options.files;
    Renderer renderer(files.form, inputs::IdentifierOf(name));
    inputs::RecordSplitter splitter(
        files.joining, std::make_shared<inputs::Charset>(files.encoding, files.log_charset));
    bool skipping = false;
    std::string unread;
    auto render = [&](inputs::Ending ending) {
        std::string text;
        std::string_view rest = unread;
        for (;;) {
            const auto cut = splitter.Take(rest, ending, &skipping);
            if (cut.used == 0)
                break;
            rest.remove_prefix(cut.used);
            if (cut.has_record)
                renderer.Append(cut.record, &text);
        }
        unread.erase(0, unread.size() - rest.size());
        return text;
    };
    bool goes_on = true;
    ReadUnpacked(path, [&](const std::string &bytes) {
        unread += bytes;
        goes_on = take(render(inputs::Ending::kGrowing));
        return goes_on;
    });
    if (goes_on)
        take(render(inputs::Ending::kComplete));
}

std::string RenderLine(const std::string &line, const RenderOptions &options)
{
    std::string text;
    Renderer(options.files.form, "unknown").Append(line, &text);
    return text.substr(0, text.find('\n'));
}

void RenderJournal(const RenderOptions &options, const TakeText &take)
{
    const inputs::JournalOptions &journal = options.journal;
    const bool is_hosts = journal.journal_namespace.empty() && journal.directory.empty();
    if (is_hosts && !inputs::JournalReader::HostsIsReadable())
        throw host::Error("cannot read the journal", "there is no entry in it that may be read",
                          "run this as root or as a member of the group systemd-journal, or name a "
                          "log");
    inputs::JournalReader reader(journal, "");
    inputs::Batch batch;
    bool has_more = true;
    while (has_more) {
        batch = {};
        has_more = reader.Read(time(nullptr), inputs::SteadyTime(std::chrono::hours(1)), &batch);
        if (!reader.problem().empty())
            throw host::Error(reader.problem());
        if (!take(batch.text))
            return;
    }
}

} // namespace cli
