// From the bytes of a log, and from the fields of a journal, to the lines that the module gets. Input: how lines are joined,
// where the bytes are cut, and the bytes.
//
// In however many pieces the bytes come, they hold the same records. A rendered line holds no control characters but one,
// and no more bytes than the module looks at.
#include <string>
#include <vector>

#include "agent/inputs/protected_words.h"
#include "agent/inputs/records.h"
#include "agent/inputs/rendering.h"
#include "fuzz/fuzz.h"

namespace {

using Records = std::vector<std::string>;

constexpr size_t kLongestLine = 3328; // that the module looks at
constexpr int64_t kNow = 1'763'719'201;

// The records that end within the bytes, which are taken away.
void TakeRecords(inputs::RecordSplitter *splitter, inputs::Ending ending, bool *skipping,
                 std::string *bytes, Records *records)
{
    size_t used = 0;
    for (;;) {
        const auto cut = splitter->Take(std::string_view(*bytes).substr(used), ending, skipping);
        fuzz::Expect(cut.used <= bytes->size() - used, "more is used than there is");
        if (cut.has_record) {
            fuzz::Expect(cut.used > 0, "a record of nothing");
            fuzz::Expect(cut.record.size() <= inputs::kLongestRecord, "a record that is too long");
            records->emplace_back(cut.record);
        }
        if (cut.used == 0)
            break;
        used += cut.used;
    }
    bytes->erase(0, used);
}

// Of the bytes as they come: all but the last piece may go on.
Records RecordsOf(const std::vector<std::string> &pieces, const inputs::Joining &joining)
{
    inputs::RecordSplitter splitter(joining, std::make_shared<inputs::Charset>("", "UTF-8"));
    Records records;
    bool skipping = false;
    std::string bytes;
    for (size_t i = 0; i < pieces.size(); ++i) {
        bytes += pieces[i];
        const bool is_last = i + 1 == pieces.size();
        TakeRecords(&splitter, is_last ? inputs::Ending::kComplete : inputs::Ending::kGrowing,
                    &skipping, &bytes, &records);
    }
    return records;
}

void CheckLines(const std::string &text)
{
    size_t lines = 0;
    for (size_t at = 0; at < text.size(); ++lines) {
        const size_t end = text.find('\n', at);
        fuzz::Expect(end != std::string::npos, "a line without its end");
        fuzz::Expect(end - at <= kLongestLine, "a line that is too long");
        for (const char c : text.substr(at, end - at))
            fuzz::Expect(c == inputs::kBreak || static_cast<unsigned char>(c) >= ' ',
                         "a control character in a line");
        at = end + 1;
    }
    fuzz::Expect(lines <= 2, "an entry of more lines than one and its repeats");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    inputs::Joining joining;
    joining.by_indentation = (input.Byte() & 1U) != 0;
    std::vector<std::string> pieces;
    while (pieces.size() < 3)
        pieces.push_back(input.Bytes(300));
    const std::string rest = input.Rest();
    pieces.push_back(rest);
    std::string all;
    for (const std::string &piece : pieces)
        all += piece;
    const Records records = RecordsOf({all}, joining);
    fuzz::Expect(RecordsOf(pieces, joining) == records, "in pieces, the bytes hold other records");

    inputs::LocalClock clock;
    const inputs::ReadingTime reading(clock, kNow);
    for (const std::string &record : records) {
        std::string text;
        inputs::RenderRecord(record, {}, reading, &clock, &text);
        CheckLines(text);
    }
    std::string text;
    inputs::RenderEntry({kNow, pieces[0], pieces[1], pieces[2], rest}, reading, &clock, &text);
    CheckLines(text);
    return 0;
}
