#include "agent/sinks/body_template.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "agent/host/error.h"
#include "agent/sinks/alert_json.h"
#include "agent/sinks/option_checks.h"
#include "agent/text/printable.h"
#include "agent/text/suggestion.h"
#include "agent/text/text_file.h"

namespace sinks {

namespace {

using nlohmann::ordered_json;

// A wrong name, such as that of a log, shows here.
constexpr size_t kMaxFile = 1024 * size_t{1024}; // bytes

constexpr char kLabels[] = "labels.";

std::string JsonEscape(const std::string &value)
{
    const std::string quoted =
        ordered_json(value).dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    return quoted.substr(1, quoted.size() - 2);
}

struct Content {
    bool is_json;
    text::Template::Escape escape;
};

// By what stands before the parameters. Of another type it is not known how a line of a log is kept from
// breaking out of its place.
std::optional<Content> ContentOf(const std::string &content_type)
{
    const std::string type = content_type.substr(0, content_type.find_first_of("; "));
    if (type == "application/json" || type.ends_with("+json"))
        return Content{true, JsonEscape};
    if (type == "text/html" || type == "text/xml" || type == "application/xml" ||
        type.ends_with("+xml"))
        return Content{false, text::MarkupEscape};
    if (type == "text/plain")
        return Content{false, text::NoEscape};
    return std::nullopt;
}

// Of strings, numbers, truths and objects of them; lists have no name.
void AddFields(const ordered_json &object, const std::string &prefix, text::TemplateValues *fields)
{
    for (const auto &[name, value] : object.items()) {
        if (value.is_object())
            AddFields(value, prefix + name + ".", fields);
        else if (!value.is_array())
            fields->emplace(prefix + name,
                            value.is_string() ? value.get<std::string>() : value.dump());
    }
}

// Of everything that is text, the worst.
constexpr char kUgly[] = "a \"quoted\" </line> \\ with {{braces}},\nand another";

Message PlainSample()
{
    Message message;
    message.key = "00000000-0000-0000-0000-000000000000/1";
    alerts::Alert &alert = message.alert;
    alert.id = 1;
    alert.host = alert.source = alert.message = kUgly;
    alert.log_name = "/var/log/messages";
    alert.event_id = 1;
    alert.count = 1;
    return message;
}

// With all that an alert can have, but for the labels that a template may want.
Message FullSample()
{
    Message message = PlainSample();
    alerts::Alert &alert = message.alert;
    alert.line_host = alert.program = alert.own_time = alert.summary = alert.runbook_url = kUgly;
    alert.value = alert.last_message = alert.held_back.first = alert.held_back.last = kUgly;
    alert.severity = "err";
    alert.reports = alert.held_back.reports = alert.held_back.hits = 2;
    message.digest.Add(alert);
    message.is_test = true;
    return message;
}

// Where a name stands first, from 1.
size_t LineOf(const std::string &text, size_t offset)
{
    return 1 +
           static_cast<size_t>(std::count(
               text.begin(),
               text.begin() + static_cast<std::ptrdiff_t>(std::min(offset, text.size())), '\n'));
}

size_t LineOfName(const std::string &text, const std::string &name)
{
    for (size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
        const size_t before = text.find_last_not_of(" #^&/>{", at == 0 ? 0 : at - 1);
        const size_t braces = before == std::string::npos ? 0 : before + 1;
        if (text.compare(braces, 2, "{{") == 0)
            return LineOf(text, at);
    }
    return 1;
}

[[noreturn]] void Refuse(const std::string &path, const std::string &why, const std::string &next)
{
    throw host::Error("cannot use the template " + path, why, next);
}

std::string ReadTemplate(const std::string &path)
{
    std::error_code failed;
    // A pipe would hold up the sink until somebody writes into it.
    if (std::filesystem::exists(path, failed) && !std::filesystem::is_regular_file(path, failed))
        Refuse(path, "it is no ordinary file", "name a file with the body's template");
    text::DecodedText decoded = text::DecodeText(text::ReadWholeFile(path, kMaxFile));
    if (!decoded.issues.empty())
        Refuse(path + ", line " + std::to_string(decoded.issues[0].at.line), decoded.issues[0].what,
               "mend the file");
    return std::move(decoded.text);
}

// What nlohmann says about a mistake, without its own name: "line 1, column 9: syntax error ...". Empty: none.
std::string JsonMistake(const std::string &text)
{
    try {
        const ordered_json parsed = ordered_json::parse(text);
        return {};
    } catch (const ordered_json::exception &mistake) {
        const std::string what = mistake.what();
        const size_t place = what.find("line ");
        return place == std::string::npos ? what : what.substr(place);
    }
}

} // namespace

text::TemplateValues FieldsOf(const Message &message)
{
    text::TemplateValues fields;
    const std::string json = AlertJson(message);
    AddFields(ordered_json::parse(json), "", &fields);
    fields["json"] = json;
    fields["host_of_line"] = fields[message.alert.line_host.empty() ? "host" : "line_host"];
    fields["text"] =
        text::Printable(AlertSummary(message)); // what is no UTF-8 would be none here either
    return fields;
}

std::string CheckContentType(const std::string &value)
{
    return CheckText(value).empty() && ContentOf(value)
               ? ""
               : "application/json, text/plain, text/html, application/xml, or a type that ends "
                 "with "
                 "+json or +xml";
}

BodyTemplate::BodyTemplate(const std::string &path, const std::string &content_type)
    : path_(path), text_(ReadTemplate(path)), is_json_(ContentOf(content_type)->is_json),
      template_(text_, ContentOf(content_type)->escape)
{
    if (const auto mistake = template_.Mistake())
        Refuse(path + ", line " + std::to_string(LineOf(text_, mistake->offset)),
               "it has a mistake (" + mistake->what + ")", "write fields as {{host}}");
    CheckNames();
    for (const Message &sample : {PlainSample(), FullSample()})
        (void)Render(sample);
}

void BodyTemplate::CheckNames() const
{
    const text::TemplateValues fields = FieldsOf(FullSample());
    for (const std::string &name : template_.Names()) {
        if (fields.contains(name) || (name.starts_with(kLabels) && name != kLabels))
            continue;
        std::vector<std::string> known;
        std::string names;
        for (const auto &[field, value] : fields) {
            known.push_back(field);
            names += field + ", ";
        }
        Refuse(path_ + ", line " + std::to_string(LineOfName(text_, name)),
               "there is no field " + name,
               text::Suggestion(name, known) + "use " + names + kLabels + "NAME");
    }
}

std::string BodyTemplate::Render(const Message &message) const
{
    std::string body = template_.Render(FieldsOf(message));
    if (!is_json_)
        return body;
    const std::string mistake = JsonMistake(body);
    if (!mistake.empty())
        Refuse(path_, "what it makes of an alert is no JSON (" + mistake + ")",
               "write texts as \"{{message}}\" and numbers as {{count}}");
    return body;
}

} // namespace sinks
