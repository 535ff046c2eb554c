#include "agent/inputs/sample.h"

#include <algorithm>
#include <ctime>

#include "agent/host/error.h"
#include "agent/inputs/protected_words.h"

namespace inputs {

namespace {

constexpr size_t kLooked = size_t{64} * 1024; // bytes at the end of a file
constexpr uint64_t kWidestCharacter = 4;      // bytes

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

// The end of a file's content. Of a damaged archive, what can be read before the damage.
struct End {
    std::string bytes;
    bool has_more = false; // before it
    std::string problem;   // empty: it was read
};

// A compressed file has to be read from its beginning for that; no more than two blocks are held.
End EndOf(LogContent *content, uint64_t size)
{
    End end;
    const bool is_packed = content->IsPacked();
    uint64_t at = is_packed || size < kLooked ? 0 : size - kLooked;
    at -= at % kWidestCharacter;
    end.has_more = at > 0;
    std::string block(kLooked, '\0');
    try {
        size_t count = 0;
        do {
            count = content->Read(at, block.data(), block.size());
            at += count;
            end.bytes.append(block, 0, count);
            if (end.bytes.size() > kLooked) {
                end.bytes.erase(0, end.bytes.size() - kLooked);
                end.has_more = true;
            }
        } while (is_packed && count > 0);
    } catch (const host::Error &error) {
        end.problem = error.what();
    }
    return end;
}

// Renders what is there as it would be rendered now.
Batch Rendered(std::string_view bytes, const LineForm &form, RecordSplitter *splitter)
{
    Batch batch;
    LocalClock clock;
    const ReadingTime now(clock, time(nullptr));
    bool skipping = false;
    for (;;) {
        const auto cut = splitter->Take(bytes, Ending::kComplete, &skipping);
        if (cut.used == 0)
            return batch;
        bytes.remove_prefix(cut.used);
        if (!cut.has_record)
            continue;
        const size_t at = batch.text.size();
        Rendering rendering = RenderRecord(cut.record, form, now, &clock, &batch.text);
        if (!rendering.own_stamp.empty())
            batch.own_stamps.push_back({at, std::move(rendering.own_stamp)});
    }
}

// The first one that is whole.
size_t BeginOfLine(std::string_view bytes, const RecordSplitter &splitter)
{
    const size_t end = splitter.FindLineEnd(bytes, 0);
    return end == std::string_view::npos ? 0 : end + splitter.LineEnd().size();
}

Sample SampleFile(const std::string &path, uint64_t size, const FollowOptions &options,
                  RecordSplitter *splitter, size_t most)
{
    LogContent content(path);
    const End end = EndOf(&content, size);
    std::string_view rest = end.bytes;
    if (end.has_more)
        rest.remove_prefix(BeginOfLine(rest, *splitter));
    LineForm form = options.form;
    if (form.identifier.empty())
        form.identifier = IdentifierOf(path);
    Sample sample;
    TakeLines(Rendered(rest, form, splitter), most, &sample);
    if (!end.problem.empty())
        sample.problems.push_back(end.problem);
    return sample;
}

// Can it be read? Its beginning tells, and that costs little.
void TryToRead(const std::string &path)
{
    std::string block(kLooked, '\0');
    LogContent(path).Read(0, block.data(), block.size());
}

// The entries of the files that were written last; of the others, whether they can be read.
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
    std::sort(files.rbegin(), files.rend());
    RecordSplitter splitter(options.joining,
                            std::make_shared<Charset>(options.encoding, options.log_charset));
    for (const auto &[changed, path] : files) {
        try {
            if (sample->lines.size() >= most) {
                TryToRead(path);
                continue;
            }
            const Sample of_file = SampleFile(path, view.files.at(path).size, options, &splitter,
                                              most - sample->lines.size());
            sample->lines.insert(sample->lines.begin(), of_file.lines.begin(), of_file.lines.end());
            sample->problems.insert(sample->problems.end(), of_file.problems.begin(),
                                    of_file.problems.end());
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
