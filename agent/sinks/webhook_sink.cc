// Kind "webhook": an HTTP POST for each alert. The header Idempotency-Key lets the receiver tell a
// repeat from a new alert.
#include <optional>

#include "agent/host/error.h"
#include "agent/sinks/body_template.h"
#include "agent/sinks/http.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"
#include "agent/sinks/webhook_format.h"

namespace sinks {

namespace {

FormatSettings SettingsOf(const SinkConfig &config, Secrets &secrets)
{
    const std::string format = config.Get("format");
    if (config.Has("topic") != (format == "ntfy"))
        throw host::Error("cannot make a sink of kind webhook",
                          config.Has("topic") ? "a topic is for format=ntfy" : "it has no topic",
                          config.Has("topic") ? "leave it out" : "add topic=NAME");
    if (config.Has("routing-key-file") != (format == "pagerduty"))
        throw host::Error("cannot make a sink of kind webhook",
                          config.Has("routing-key-file") ? "a routing key is for format=pagerduty"
                                                         : "it has no routing key",
                          config.Has("routing-key-file") ? "leave it out"
                                                         : "add routing-key-file=FILE");
    FormatSettings settings;
    settings.topic = config.Get("topic");
    if (config.Has("routing-key-file"))
        settings.routing_key = secrets.Read(config.Get("routing-key-file"));
    return settings;
}

// Of a body of one's own; that of a format is known with it.
std::string TypeOfBody(const SinkConfig &config)
{
    return config.Has("content-type") ? config.Get("content-type") : "application/json";
}

// A body of one's own; nothing when the format says what it is.
std::optional<BodyTemplate> OwnTemplate(const SinkConfig &config)
{
    if (!config.Has("body-file")) {
        if (config.Has("content-type"))
            throw host::Error("cannot make a sink of kind webhook",
                              "a content type is for a body of one's own", "add body-file=FILE");
        return std::nullopt;
    }
    if (config.options.contains("format"))
        throw host::Error("cannot make a sink of kind webhook",
                          "it has both a format and a body of its own",
                          "leave out one of format and body-file");
    return BodyTemplate(config.Get("body-file"), TypeOfBody(config));
}

std::string CheckFormat(const std::string &value)
{
    return CheckWord(value, FormatNames().c_str());
}

// The URL may be a secret, so it is in no message: what libcurl or the receiver says goes through
// Secrets::Hide in the worker.
class WebhookSink : public Sink {
  public:
    WebhookSink(std::string url, const SinkConfig &config, Secrets &secrets)
        : url_(std::move(url)), format_(FindFormat(config.Get("format"))),
          settings_(SettingsOf(config, secrets)), template_(OwnTemplate(config)),
          client_(config, secrets, template_ ? TypeOfBody(config) : format_.content_type,
                  format_.authorization)
    {
    }
    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        // One at a time: batch() is 1, since a receiver could take some of many and refuse the
        // others.
        const Message &message = messages[0];
        std::string body;
        try {
            body = template_ ? template_->Render(message) : format_.body(message, settings_);
        } catch (const host::Error &error) {
            // This alert alone is the reason: others go on, and it waits among those put aside.
            return Refused(error.what());
        }
        const HttpReply reply =
            client_.Post(url_, body, {"Idempotency-Key: " + message.key}, interrupt);
        Outcome outcome = Judge(reply, messages.first(1));
        if (outcome.result == Outcome::Result::kTaken && format_.is_rejected != nullptr &&
            format_.is_rejected(reply.text))
            return Refused("it has left the alert out: " + ShownOf(reply));
        return outcome;
    }

  private:
    std::string url_;
    const WebhookFormat &format_;
    FormatSettings settings_;
    std::optional<BodyTemplate> template_; // in place of what the format makes
    HttpClient client_;
};

// What a server is asked for, and often names in its answer: "/services/T0?key=1". Empty for a URL of a host alone.
std::string TargetOf(const std::string &url)
{
    const size_t begin = url.find_first_of("/?#", url.find("//") + 2);
    return begin == std::string::npos ? "" : url.substr(begin);
}

// Some services have a secret in the URL itself, so it may come from a file as well.
std::string UrlOf(const SinkConfig &config, Secrets &secrets)
{
    if (config.Has("url") == config.Has("url-file"))
        throw host::Error("cannot make a sink of kind webhook",
                          config.Has("url") ? "it has both url and url-file"
                                            : "it has neither url nor url-file",
                          "add one of url=URL and url-file=FILE");
    if (config.Has("url"))
        return config.Get("url");
    std::string url = secrets.Read(config.Get("url-file"));
    const std::string allowed = CheckHttpUrl(url);
    if (!allowed.empty())
        throw host::Error("cannot use the URL in " + config.Get("url-file"), "it is not accepted",
                          "use " + allowed);
    const std::string target = TargetOf(url);
    secrets.AddPart(target, "/?&=#");
    secrets.AddPart(target.substr(0, target.find('?')), "/");
    return url;
}

// As PlainHttpWarnings, without showing the URL.
std::vector<std::string> SecretUrlWarnings(const SinkConfig &config)
{
    try {
        Secrets secrets;
        if (IsPlainHttp(UrlOf(config, secrets)))
            return {"the URL in " + config.Get("url-file") +
                    " and all that goes there can be read on the way: it is not encrypted; use "
                    "https://"};
    } catch (const host::Error &) {
        // that it cannot be read is told of with the other files
    }
    return {};
}

} // namespace

SinkKind WebhookKind()
{
    SinkKind kind;
    kind.name = "webhook";
    kind.help = "an HTTP POST with JSON for each alert";
    kind.options = {
        {"url", "URL", "", "where to post", CheckHttpUrl},
        {"url-file", "FILE", "", "a file with the URL, when that is a secret", CheckPath, true},
        {"format", "WORD", "json",
         "the body: json, or as a service wants it: slack, teams, google-chat, discord, "
         "mattermost, "
         "ntfy, pagerduty, opsgenie, cloudevents, otlp",
         CheckFormat},
        {"body-file", "FILE", "",
         "a template of the body instead, with {{host}}, {{message}} and all fields of an alert",
         CheckPath},
        {"content-type", "TYPE", "", "of body-file; application/json unless set", CheckContentType},
        {"topic", "NAME", "", "the topic of ntfy", CheckText},
        {"routing-key-file", "FILE", "", "a file with the routing key of PagerDuty", CheckPath,
         true},
    };
    for (const SinkOption &option : HttpOptions())
        kind.options.push_back(option);
    kind.open = [](const SinkConfig &config, const std::string &,
                   Secrets &secrets) -> std::unique_ptr<Sink> {
        return std::make_unique<WebhookSink>(UrlOf(config, secrets), config, secrets);
    };
    kind.warnings = [](const SinkConfig &config) {
        return config.Has("url-file") ? SecretUrlWarnings(config)
                                      : PlainHttpWarnings(config, {config.Get("url")});
    };
    return kind;
}

} // namespace sinks
