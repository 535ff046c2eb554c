// What an alert says in one line, made of a template and the line of the log: "disk of {{host}}".
//
// The names are host, program and message (the whole line). A section shows its text when its name
// has a value: {{#program}}of {{program}}{{/program}}. What is put in is text and stays as it is: no
// character of it is escaped, and nothing in it is taken for a template.
#ifndef AGENT_POLICY_SUMMARY_H
#define AGENT_POLICY_SUMMARY_H

#include <string>
#include <vector>

#include "agent/text/template.h"

namespace policy {

using text::TemplateValues;

// The names that every template knows.
extern const std::vector<std::string> kTemplateNames;

// Throws host::Error for a template that cannot be used: with a mistake, or with a name that is
// neither of kTemplateNames nor of `further`.
void CheckTemplate(const std::string &text, const std::vector<std::string> &further = {});

// A template, read once. One that CheckTemplate does not let pass stands for itself.
class Template {
  public:
    explicit Template(const std::string &text);

    // At most 4096 bytes of it, cut behind a whole character.
    [[nodiscard]] std::string Render(const TemplateValues &values) const;

  private:
    text::Template template_;
};

} // namespace policy

#endif // AGENT_POLICY_SUMMARY_H
