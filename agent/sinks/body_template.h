// The body of a request as the administrator has written it: a file with the names of an alert's fields.
//
//   {"title": "{{host}}: {{source}}", "hits": {{count}}, "team": "{{labels.team}}", "all": {{&json}}}
//
// The fields are those of the alert as JSON, under the same names; one within another has the name of both:
// labels.team, held_back.hits, digest.alerts. Beside them there are `text`, the alert in one line, and
// `json`, all of it. What is put in is escaped as the content type wants it, and nothing in it is taken for
// a template.
#ifndef AGENT_SINKS_BODY_TEMPLATE_H
#define AGENT_SINKS_BODY_TEMPLATE_H

#include <string>

#include "agent/sinks/sink.h"
#include "agent/text/template.h"

namespace sinks {

// The fields of a message, by name; empty ones are left out.
text::TemplateValues FieldsOf(const Message &message);

// Is it a content type of which a body can be made? Empty, or which are.
std::string CheckContentType(const std::string &value);

class BodyTemplate {
  public:
    // Reads the file. Throws host::Error, with the line, when it cannot be read, has a mistake or a name that
    // is no field, or when a content type of JSON is asked for and what it makes of an alert is none.
    BodyTemplate(const std::string &path, const std::string &content_type);

    // Throws host::Error when JSON is asked for and this is none, as a template can manage whose sections hold
    // but parts of it.
    [[nodiscard]] std::string Render(const Message &message) const;

  private:
    void CheckNames() const;

    std::string path_;
    std::string text_; // of the file
    bool is_json_;
    text::Template template_;
};

} // namespace sinks

#endif // AGENT_SINKS_BODY_TEMPLATE_H
