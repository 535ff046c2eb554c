#include "agent/text/template.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

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

constexpr char kBlanks[] = " \t\r\n";

// "{{=<% %>=}}" changes by what tags begin and end; `words` is what stands between the signs of equality.
void SetDelimiters(const std::string &words, std::string *begin, std::string *end)
{
    std::istringstream(words) >> *begin >> *end;
}

// The same template with each {{^name}} as {{#name}}: with a value for every name all of it is shown. Of
// one without a mistake.
std::string WithoutInverted(std::string text)
{
    std::string begin = "{{";
    std::string end = "}}";
    for (size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at)) {
        at += begin.size();
        const bool is_triple = begin == "{{" && at < text.size() && text[at] == '{';
        const std::string closing = is_triple ? "}}}" : end;
        const size_t stop = text.find(closing, at + (is_triple ? 1 : 0));
        if (stop == std::string::npos)
            break;
        const size_t sign = text.find_first_not_of(kBlanks, at);
        if (text[sign] == '^')
            text[sign] = '#';
        else if (text[sign] == '=' && sign < stop)
            SetDelimiters(text.substr(sign + 1, text.rfind('=', stop) - sign - 1), &begin, &end);
        at = stop + closing.size();
    }
    return text;
}

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
    if (Mistake())
        return {};
    Lookup lookup(mustache::data("x"));
    mustache::mustache(WithoutInverted(text_)).render(lookup);
    return lookup.asked();
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
