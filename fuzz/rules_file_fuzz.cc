// The reading of rules files. Input: the bytes of a file.
//
// Whatever they are, what is wrong with the file is told with its place. The events of a file without faults
// can be registered; written out and read again, they are the same.
#include <string>
#include <vector>

#include "agent/rules/rules_file.h"
#include "fuzz/fuzz.h"
#include "fuzz/issues.h"

namespace {

std::vector<events::EventRecord> EventsOf(const rules::ParsedRules &parsed)
{
    std::vector<events::EventRecord> list;
    for (const rules::Rule &rule : parsed.rules)
        list.push_back(rule.event);
    return list;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string file(data, data + size);
    const rules::ParsedRules parsed = rules::ParseRules(file);
    fuzz::ExpectPlaced(parsed.issues, file);
    if (!parsed.issues.empty())
        return 0;
    const std::vector<events::EventRecord> list = EventsOf(parsed);
    for (const events::EventRecord &event : list)
        events::CheckEvent(event); // throws when it cannot be registered
    const std::string text = rules::FormatRules(list, {});
    const rules::ParsedRules again = rules::ParseRules(text);
    fuzz::Expect(again.issues.empty(), "what was written cannot be read:\n" + text);
    fuzz::Expect(EventsOf(again) == list, "what was written is read as something else:\n" + text);
    return 0;
}
