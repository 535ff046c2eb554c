// The reading of .reg files. Input: the bytes of a file.
//
// Whatever they are, the file is read to its end, and what is wrong with it is told with its place. The keys
// and values that a file without faults sets are written out and read again, in both encodings: they must be
// the same.
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "agent/regfile/reg_text.h"
#include "fuzz/fuzz.h"
#include "fuzz/issues.h"

namespace {

using regfile::RegStep;

void ExpectUsable(const RegStep &step)
{
    fuzz::Expect(regfile::KeyLevels(step.path) <= regfile::kMaxKeyLevels, "a path without end");
    for (size_t begin = 0; begin < step.path.size();) {
        const size_t end = std::min(step.path.find('\\', begin), step.path.size());
        fuzz::Expect(end > begin && end - begin <= host::kMaxKeyName, "a key name of no use");
        begin = end + 1;
    }
    fuzz::Expect(step.value.name.size() <= host::kMaxValueName, "a value name that is too long");
    fuzz::Expect(step.value.data.size() <= host::kMaxValueSize, "a value that is too large");
}

// What the file creates and sets, without what it deletes.
std::vector<RegStep> Set(const std::vector<RegStep> &steps)
{
    std::vector<RegStep> set;
    for (const RegStep &step : steps) {
        if (step.kind == RegStep::Kind::kCreateKey || step.kind == RegStep::Kind::kSetValue)
            set.push_back(step);
    }
    return set;
}

// As keys, each with the values that follow it.
std::vector<regfile::RegKeyContent> AsKeys(const std::vector<RegStep> &set)
{
    std::vector<regfile::RegKeyContent> keys;
    for (const RegStep &step : set) {
        if (step.kind == RegStep::Kind::kCreateKey)
            keys.push_back({step.path, {}});
        else
            keys.back().values.push_back(step.value);
    }
    return keys;
}

bool IsSame(const RegStep &a, const RegStep &b)
{
    return a.kind == b.kind && a.path == b.path && a.value.name == b.value.name &&
           a.value.type == b.value.type && a.value.data == b.value.data;
}

void ExpectSame(const std::vector<RegStep> &want, const std::string &file)
{
    const regfile::ParsedRegText parsed = regfile::ParseRegText(file);
    fuzz::Expect(parsed.issues.empty(), "what was written cannot be read:\n" + file);
    fuzz::Expect(
        std::equal(want.begin(), want.end(), parsed.steps.begin(), parsed.steps.end(), IsSame),
        "what was written is read as something else:\n" + file);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string file(data, data + size);
    const regfile::ParsedRegText parsed = regfile::ParseRegText(file);
    fuzz::ExpectPlaced(parsed.issues, file);
    if (!parsed.issues.empty())
        return 0;
    std::for_each(parsed.steps.begin(), parsed.steps.end(), ExpectUsable);
    const std::vector<RegStep> set = Set(parsed.steps);
    const std::string text = regfile::FormatRegText(AsKeys(set));
    ExpectSame(set, text);
    ExpectSame(set, regfile::ToUtf16File(text));
    return 0;
}
