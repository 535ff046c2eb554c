#include "agent/cli/rendered_log.h"

#include <chrono>
#include <ctime>

#include "agent/host/error.h"
#include "agent/host/here_and_now.h"
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
    explicit Renderer(const std::string &program)
    {
        form_.host = host::HostName();
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

} // namespace

void ReadUnpacked(const std::filesystem::path &path, const TakeText &take)
{
    inputs::LogContent content(path);
    std::string bytes;
    uint64_t at = 0;
    do {
        bytes.resize(kBlock);
        bytes.resize(content.Read(at, bytes.data(), kBlock));
        at += bytes.size();
    } while (!bytes.empty() && take(bytes));
}

void RenderLog(const std::filesystem::path &path, const std::string &name, const TakeText &take)
{
    Renderer renderer(inputs::IdentifierOf(name));
    inputs::RecordSplitter splitter({}, std::make_shared<inputs::Charset>("", "UTF-8"));
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

std::string RenderLine(const std::string &line)
{
    std::string text;
    Renderer("unknown").Append(line, &text);
    return text.substr(0, text.find('\n'));
}

void RenderJournal(const TakeText &take)
{
    if (!inputs::JournalReader::HostsIsReadable())
        throw host::Error("cannot read the journal", "there is no entry in it that may be read",
                          "run this as root or as a member of the group systemd-journal, or name a "
                          "log");
    inputs::JournalReader reader({}, "");
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
