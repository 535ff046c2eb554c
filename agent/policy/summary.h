// What an alert says in one line, made of a template and the line of the log: "disk of {{host}}".
//
// The names are host, program and message (the whole line). A section shows its text when its name
// has a value: {{#program}}of {{program}}{{/program}}. What is put in is text and stays as it is: no
// character of it is escaped, and nothing in it is taken for a template.
#ifndef AGENT_POLICY_SUMMARY_H
#define AGENT_POLICY_SUMMARY_H

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace policy {

// By name. One that is empty is as good as none.
using TemplateValues = std::map<std::string, std::string>;

// The names that every template knows.
extern const std::vector<std::string> kTemplateNames;

// Throws host::Error for a template that cannot be used: with a mistake, or with a name that is
// neither of kTemplateNames nor of `further`.
void CheckTemplate(const std::string &text, const std::vector<std::string> &further = {});

// A template, read once.
class Template {
  public:
    // One that CheckTemplate does not let pass stands for itself.
    explicit Template(const std::string &text);
    ~Template();
    Template(Template &&other) noexcept;

    // At most 4096 bytes of it, cut behind a whole character.
    [[nodiscard]] std::string Render(const TemplateValues &values) const;

  private:
    struct Parsed;
    std::string text_;
    std::unique_ptr<Parsed> parsed_; // null: it cannot be read
};

} // namespace policy

#endif // AGENT_POLICY_SUMMARY_H
