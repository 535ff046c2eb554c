// The source data of products that are not set up, beside a plain walk over its records. Input: the name of
// a source, then the data.
#include <cctype>
#include <cstring>
#include <optional>
#include <vector>

#include "fuzz/fuzz.h"
#include "platform/siblings.h"
#include "tests/support/module_test.h"
#include "tests/support/scripted_host.h"
#include "vkevmon/product_filter.h"

namespace {

constexpr size_t kRecordFieldSize = 4;
constexpr size_t kLongestData = 507;

// The text at an offset, which moves behind its zero byte. None: the data, and the zero byte that closes it, end
// before it. Where that zero byte stands alone, the text is empty.
std::optional<std::string> TakeText(const std::string &data, size_t *at)
{
    if (*at > data.size())
        return std::nullopt;
    const size_t end = std::min(data.find('\0', *at), data.size());
    std::string text = data.substr(*at, end - *at);
    *at = end + 1;
    return text;
}

// The source names of the records, in upper case.
std::vector<std::string> NamesIn(const std::string &data)
{
    std::vector<std::string> names;
    for (size_t at = 0; at < data.size();) {
        at += kRecordFieldSize;
        if (!TakeText(data, &at))
            break;
        auto name = TakeText(data, &at);
        if (!name)
            break;
        for (char &c : *name)
            c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
        names.push_back(*name);
    }
    return names;
}

std::vector<char> Product(const std::string &name)
{
    std::vector<char> record(kProductStateOffset + 8);
    memcpy(record.data() + kProductNameOffset, name.c_str(), name.size() + 1);
    return record; // its state is 0: not set up
}

bool Holds(const std::vector<std::string> &names, const std::string &name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    fuzz::StartOver();
    test::Host().record_trace = false;
    const std::string source = input.Text(40);
    const std::string stored = input.Rest();
    test::Host().registry.SetBytes(std::string(test::kAlertReportKey) + "\\product", "Source",
                                   REG_BINARY, stored);
    std::vector<char> product = Product("product");
    SrcNode *filter = nullptr;
    fuzz::Expect(GetSrcOfUnOpenProduct(product.data(), &filter) == 0, "no list");
    fuzz::Expect((filter != nullptr) == (stored.size() <= kLongestData), "the wrong data is read");
    if (filter == nullptr)
        return 0;
    const std::vector<std::string> names = NamesIn(stored);
    fuzz::Expect(SourceIsFiltered(filter, source.c_str()) == Holds(names, source), "by name");
    for (const std::string &name : names)
        fuzz::Expect(SourceIsFiltered(filter, name.c_str()), "not filtered: " + name);
    FreeSourceFilter(filter);
    return 0;
}
