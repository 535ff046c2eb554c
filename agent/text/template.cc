#include "agent/text/template.h"

#include <algorithm>
#include <cstdlib>

#include <kainjow/mustache.hpp>

namespace text {

namespace {

namespace mustache = kainjow::mustache;

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
    // Each name has this value.
    explicit Lookup(mustache::data value) : any_(std::move(value)) {}
    void push(const mustache::data * /*data*/) override {}
    void pop() override {}
    [[nodiscard]] const mustache::data *get(const std::string &name) const override
    {
        asked_.insert(name);
        const auto found = values_.find(name);
        if (found != values_.end())
            return &found->second;
        return any_ ? &*any_ : nullptr;
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
    std::optional<mustache::data> any_;
    mutable std::set<std::string> asked_;
};

} // namespace

struct Template::Parsed {
    mustache::mustache text; // the library renders nothing that is constant
};

Template::Template(const std::string &text, Escape escape)
    : text_(text), parsed_(std::make_unique<Parsed>(Parsed{mustache::mustache(text)}))
{
    parsed_->text.set_custom_escape(escape);
}

Template::~Template() = default;
Template::Template(Template &&other) noexcept = default;

std::optional<TemplateMistake> Template::Mistake() const
{
    if (parsed_->text.is_valid())
        return std::nullopt;
    // The library has the place in its message alone, at the end.
    const std::string &what = parsed_->text.error_message();
    const size_t at = what.rfind(' ');
    return TemplateMistake{what, at == std::string::npos ? 0 : strtoul(&what[at], nullptr, 10)};
}

std::set<std::string> Template::Names() const
{
    std::set<std::string> names;
    if (Mistake())
        return names;
    // Those within sections that show when a name has a value, and then those of the others.
    for (Lookup lookup : {Lookup(mustache::data("x")), Lookup(TemplateValues())}) {
        parsed_->text.render(lookup);
        names.insert(lookup.asked().begin(), lookup.asked().end());
    }
    return names;
}

std::string Template::Render(const TemplateValues &values) const
{
    if (Mistake())
        return text_;
    Lookup lookup(values);
    return parsed_->text.render(lookup);
}

std::string NoEscape(const std::string &value)
{
    return value;
}

std::string MarkupEscape(const std::string &value)
{
    std::string text = value;
    // XML has no way to write them.
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < ' ' && c != '\t' && c != '\r' && c != '\n'; }, '?');
    return mustache::html_escape(text);
}

} // namespace text
