// The loading of the monitoring table from a registry of any content. Input: events, each with a source, an
// ID and five values of any type and size, or none.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/fuzz.h"
#include "match/table_data.h"
#include "tests/support/module_test.h"
#include "tests/support/random_log.h"
#include "tests/support/scripted_host.h"
#include "vkevmon/table.h"

namespace {

constexpr const char *kValues[] = {"KeyWord", "KeyWord2", "KeyWord3", "ReportCount", "WatchTime"};

std::string KeyName(fuzz::Input *input)
{
    std::string name = input->Text(255);
    std::replace(name.begin(), name.end(), '\\', '/');
    return name.empty() ? "0" : name;
}

// Returns the path of the event's settings.
std::string RegisterEvent(fuzz::Input *input)
{
    const std::string source = KeyName(input);
    const std::string id = KeyName(input);
    const std::string path =
        std::string(test::kApplicationKey) + "\\" + source + "\\" + id + "\\WATCHSETTING";
    const uint8_t kind = input->Byte();
    auto &registry = test::Host().registry;
    for (size_t i = 0; i < 5; ++i) {
        const bool is_number = i >= 3;
        const DWORD type = input->Byte() % 5;
        std::string bytes = input->Bytes(300);
        if ((kind >> i & 1U) != 0) // as it should be
            bytes = is_number ? std::string("\1\0\0\0", 4) : bytes.substr(0, 256) + '\0';
        if (type != 0)
            registry.SetBytes(path, kValues[i], type, bytes);
    }
    if ((kind & 0xC0U) == 0xC0U)
        registry.SetNumber(std::string(test::kApplicationKey) + "\\" + source, "NEWAPPLICATIONTYPE",
                           1);
    return path;
}

// The value as a keyword of the table: a zero byte ends it, as does the room for it.
std::string AsKeyword(const std::string &path, const char *name)
{
    const auto value = test::Host().registry.Get(path, name);
    return value ? std::string(value->data.substr(0, kKeywordSize - 1).c_str()) : "";
}

// The value as a number: bytes that are missing are zero.
uint32_t AsNumber(const std::string &path, const char *name)
{
    uint32_t number = 0;
    const auto value = test::Host().registry.Get(path, name);
    if (value)
        memcpy(&number, value->data.data(), std::min(value->data.size(), sizeof number));
    return number;
}

void ExpectAsStored(const VKVMon &entry, const std::string &path)
{
    fuzz::Expect(entry.Keyword1 == AsKeyword(path, "KeyWord") &&
                     entry.Keyword2 == AsKeyword(path, "KeyWord2") &&
                     entry.Keyword3 == AsKeyword(path, "KeyWord3"),
                 "other keywords than stored");
    fuzz::Expect(static_cast<uint32_t>(entry.ReportCount) == AsNumber(path, "ReportCount") &&
                     entry.WatchTime == AsNumber(path, "WatchTime"),
                 "other numbers than stored");
}

void ExpectWhole(const VKVMon &entry)
{
    for (const char *keyword : {entry.Keyword1, entry.Keyword2, entry.Keyword3})
        fuzz::Expect(memchr(keyword, '\0', kKeywordSize) != nullptr, "a keyword without end");
    fuzz::Expect(memchr(entry.Source, '\0', kSourceNameSize) != nullptr, "a source without end");
    fuzz::Expect(entry.Keyword1[0] != '\0' || entry.Keyword2[0] != '\0' ||
                     entry.Keyword3[0] != '\0',
                 "an entry without keywords");
    fuzz::Expect(entry.CurrentCount == 0, "an entry that begins with hits");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    fuzz::StartOver();
    test::Host().record_trace = false;
    test::Host().registry.CreateKey(test::kApplicationKey);
    int events = 0;
    std::string path;
    for (int left = 1 + (input.Byte() % 8); left > 0 && !input.IsUsedUp(); --left, ++events)
        path = RegisterEvent(&input);

    const int result = VKVMonQueGet();
    fuzz::Expect(result == 0 || (result == -1 && nCnt == 0), "a table that failed is not empty");
    for (int i = 0; i < nCnt; ++i)
        ExpectWhole(*lpVKVMon[i]);
    for (int i = nCnt; i < kMaxEntries; ++i)
        fuzz::Expect(lpVKVMon[i] == nullptr, "an entry behind the last");
    if (events == 1 && nCnt == 1)
        ExpectAsStored(*lpVKVMon[0], path);
    test::EmptyTable();
    return 0;
}
