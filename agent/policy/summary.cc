#include "agent/policy/summary.h"

#include <algorithm>

#include "agent/host/error.h"
#include "agent/text/suggestion.h"

namespace policy {

namespace {

// A line can be put in many times over.
constexpr size_t kMaxRendered = 4096;

std::string Cut(std::string text)
{
    if (text.size() <= kMaxRendered)
        return text;
    size_t end = kMaxRendered;
    // Not inside of a character: its further bytes begin with the bits 10.
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
        --end;
    text.resize(end);
    return text;
}

} // namespace

const std::vector<std::string> kTemplateNames = {"host", "program", "message"};

void CheckTemplate(const std::string &text, const std::vector<std::string> &further)
{
    const text::Template parsed(text, text::NoEscape);
    const std::string thing = "cannot use the template \"" + text.substr(0, 60) + "\"";
    if (const auto mistake = parsed.Mistake())
        throw host::Error(thing, "it has a mistake (" + mistake->what + ")",
                          "write names as {{host}}");
    std::vector<std::string> known = kTemplateNames;
    known.insert(known.end(), further.begin(), further.end());
    for (const std::string &name : parsed.Names()) {
        if (std::find(known.begin(), known.end(), name) != known.end())
            continue;
        std::string names;
        for (const std::string &other : known)
            names += (names.empty() ? "{{" : ", {{") + other + "}}";
        throw host::Error(thing, "there is no {{" + name + "}}",
                          text::Suggestion(name, known) + "use " + names);
    }
}

Template::Template(const std::string &text) : template_(text, text::NoEscape) {}

std::string Template::Render(const TemplateValues &values) const
{
    return Cut(template_.Render(values));
}

} // namespace policy
