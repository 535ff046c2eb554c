// Texts with names in them, such as "disk of {{host}}", and values put in their places.
//
// A section shows its text when its name has a value: {{#program}}of {{program}}{{/program}}; with ^ in
// place of #, when it has none. A value is text: nothing in it is taken for a template.
#ifndef AGENT_TEXT_TEMPLATE_H
#define AGENT_TEXT_TEMPLATE_H

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace text {

// By name. One that is empty is as good as none.
using TemplateValues = std::map<std::string, std::string>;

// Why a template cannot be read.
struct TemplateMistake {
    std::string what;  // "Unclosed tag at 2"
    size_t offset = 0; // where, in bytes from the head of the template
};

// A template, read once. Of one thread.
class Template {
  public:
    // What becomes of a value that is put in by {{name}}; one that {{&name}} or {{{name}}} puts in stays
    // as it is.
    using Escape = std::string (*)(const std::string &value);

    Template(const std::string &text, Escape escape);
    ~Template();
    Template(Template &&other) noexcept;

    // Nothing when it can be read.
    [[nodiscard]] std::optional<TemplateMistake> Mistake() const;
    // What it asks for, in whatever sections; ">name" is another template, of which there is none. None of one with a mistake.
    [[nodiscard]] std::set<std::string> Names() const;
    // Nothing but its text when it has a mistake.
    [[nodiscard]] std::string Render(const TemplateValues &values) const;

  private:
    struct Parsed;
    std::string text_;
    std::unique_ptr<Parsed> parsed_;
};

// As it is.
std::string NoEscape(const std::string &value);
// For HTML and XML: & < > and quotes as entities.
std::string MarkupEscape(const std::string &value);

} // namespace text

#endif // AGENT_TEXT_TEMPLATE_H
