#include "agent/inputs/sample.h"

#include <algorithm>
#include <ctime>

#include "agent/host/error.h"
#include "agent/inputs/protected_words.h"

namespace inputs {

namespace {

constexpr size_t kLooked = size_t{64} * 1024; // bytes at the end of a file

void TakeLines(const Batch &batch, size_t most, Sample *sample)
{
    std::vector<std::string> lines;
    size_t begin = 0;
    while (begin < batch.text.size()) {
        const size_t end = batch.text.find('\n', begin);
        lines.push_back(WithWholeWords(batch.text.substr(begin, end - begin)));
        begin = end + 1;
    }
    const size_t first = lines.size() > most ? lines.size() - most : 0;
    sample->lines.insert(sample->lines.end(), lines.begin() + static_cast<std::ptrdiff_t>(first),
                         lines.end());
    if (!batch.own_stamps.empty())
        sample->problems.push_back("entries get the time of reading, because their own is of "
                                   "neither this month nor the last one: " +
                                   batch.own_stamps.back().stamp);
}

void SampleFile(const std::string &path, uint64_t size, const FollowOptions &options,
                EntryReader *reader, size_t most, Sample *sample)
{
    LogContent content(path);
    const uint64_t from = content.IsPacked() || size < kLooked ? 0 : size - kLooked;
    std::string bytes(kLooked, '\0');
    bytes.resize(content.Read(from, bytes.data(), bytes.size()));
    std::string_view rest = bytes;
    if (from > 0)
        rest.remove_prefix(std::min(rest.size(), rest.find('\n') + 1));
    LineForm form = options.form;
    if (form.identifier.empty())
        form.identifier = IdentifierOf(path);
    Batch batch;
    LocalClock clock;
    const ReadingTime now(clock, time(nullptr));
    bool skipping = false;
    for (;;) {
        const auto cut = reader->splitter.Take(rest, Ending::kComplete, &skipping);
        if (cut.used == 0)
            break;
        rest.remove_prefix(cut.used);
        if (!cut.has_record)
            continue;
        const size_t at = batch.text.size();
        Rendering rendering = RenderRecord(cut.record, form, now, &clock, &batch.text);
        if (!rendering.own_stamp.empty())
            batch.own_stamps.push_back({at, std::move(rendering.own_stamp)});
    }
    TakeLines(batch, most, sample);
}

void SampleFiles(const FollowOptions &options, size_t most, Sample *sample)
{
    const FolderView view = ViewFolders(options.rules.Folders());
    sample->problems = view.problems;
    std::vector<std::pair<int64_t, std::string>> files;
    for (const auto &[path, look] : view.files) {
        if (options.rules.Match(path))
            files.emplace_back(look.changed_ns, path);
    }
    if (files.empty())
        sample->problems.emplace_back(kNothingMatches);
    std::sort(files.begin(), files.end());
    LocalClock clock;
    EntryReader reader{options.name, options.form,
                       RecordSplitter(options.joining, std::make_shared<Charset>(
                                                           options.encoding, options.log_charset)),
                       false, &clock};
    for (const auto &[changed, path] : files) {
        try {
            SampleFile(path, view.files.at(path).size, options, &reader, most, sample);
        } catch (const host::Error &error) {
            sample->problems.push_back(error.what());
        }
    }
}

void SampleJournal(const JournalOptions &options, size_t most, Sample *sample)
{
    JournalReader reader(options, JournalReader::CursorBeforeLast(options, most));
    Batch batch;
    reader.Read(time(nullptr), SteadyTime(std::chrono::hours(1)), &batch);
    if (!reader.problem().empty())
        sample->problems.push_back(reader.problem());
    else if (batch.text.empty())
        sample->problems.push_back("the journal holds no entry that the input wants");
    TakeLines(batch, most, sample);
}

} // namespace

Sample TakeSample(const InputConfig &input, const std::string &log_charset, size_t entries)
{
    CheckInput(input);
    Sample sample;
    if (input.kind == kFilesKind)
        SampleFiles(FollowOptionsOf(input, log_charset), entries, &sample);
    else
        SampleJournal(JournalOptionsOf(input, log_charset, ""), entries, &sample);
    if (sample.lines.size() > entries)
        sample.lines.erase(sample.lines.begin(),
                           sample.lines.end() - static_cast<std::ptrdiff_t>(entries));
    return sample;
}

} // namespace inputs
