#include "agent/policy/summary.h"

#include <algorithm>
#include <set>

#include <kainjow/mustache.hpp>

#include "agent/host/error.h"
#include "agent/text/suggestion.h"

namespace policy {

namespace {

namespace mustache = kainjow::mustache;

// A line can be put in many times over.
constexpr size_t kMaxRendered = 4096;

// Where the names of a template are looked up. The library's own context would take a value for a
// template of its own ({{>message}}), and a line of the log must never be one.
class Lookup : public mustache::basic_context<std::string> {
  public:
    explicit Lookup(const TemplateValues &values)
    {
        for (const auto &[name, value] : values) {
            if (!value.empty())
                values_.emplace(name, mustache::data(value));
        }
    }
    void push(const mustache::data * /*data*/) override {}
    void pop() override {}
    [[nodiscard]] const mustache::data *get(const std::string &name) const override
    {
        asked_.insert(name);
        const auto found = values_.find(name);
        return found != values_.end() ? &found->second : nullptr;
    }
    [[nodiscard]] const mustache::data *get_partial(const std::string &name) const override
    {
        asked_.insert(">" + name);
        return nullptr;
    }
    // What the template wanted to know.
    [[nodiscard]] const std::set<std::string> &asked() const { return asked_; }

  private:
    std::map<std::string, mustache::data> values_;
    mutable std::set<std::string> asked_;
};

// All names of a template: those that it asks for when every name has a value, and when none has.
std::set<std::string> NamesIn(mustache::mustache *parsed, const std::vector<std::string> &known)
{
    TemplateValues all;
    for (const std::string &name : known)
        all[name] = "x";
    std::set<std::string> names;
    for (const TemplateValues &values : {all, TemplateValues()}) {
        Lookup lookup(values);
        parsed->render(lookup);
        names.insert(lookup.asked().begin(), lookup.asked().end());
    }
    return names;
}

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
    mustache::mustache parsed(text);
    const std::string thing = "cannot use the template \"" + text.substr(0, 60) + "\"";
    if (!parsed.is_valid())
        throw host::Error(thing, "it has a mistake (" + parsed.error_message() + ")",
                          "write names as {{host}}");
    std::vector<std::string> known = kTemplateNames;
    known.insert(known.end(), further.begin(), further.end());
    for (const std::string &name : NamesIn(&parsed, known)) {
        if (std::find(known.begin(), known.end(), name) != known.end())
            continue;
        std::string names;
        for (const std::string &other : known)
            names += (names.empty() ? "{{" : ", {{") + other + "}}";
        throw host::Error(thing, "there is no {{" + name + "}}",
                          text::Suggestion(name, known) + "use " + names);
    }
}

struct Template::Parsed {
    mutable mustache::mustache text; // the library renders nothing that is constant
};

Template::Template(const std::string &text) : text_(text)
{
    mustache::mustache parsed(text);
    if (!parsed.is_valid())
        return;
    parsed.set_custom_escape([](const std::string &value) { return value; });
    parsed_ = std::make_unique<Parsed>(Parsed{std::move(parsed)});
}

Template::~Template() = default;
Template::Template(Template &&other) noexcept = default;

std::string Template::Render(const TemplateValues &values) const
{
    if (!parsed_)
        return Cut(text_);
    Lookup lookup(values);
    return Cut(parsed_->text.render(lookup));
}

} // namespace policy
