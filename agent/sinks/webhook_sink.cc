// Kind "webhook": an HTTP POST for each alert. The header Idempotency-Key lets the receiver tell a
// repeat from a new alert.
#include "agent/host/error.h"
#include "agent/sinks/alert_json.h"
#include "agent/sinks/http.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"

namespace sinks {

namespace {

// The URL may be a secret, so it is in no message: what libcurl or the receiver says goes through
// Secrets::Hide in the worker.
class WebhookSink : public Sink {
  public:
    WebhookSink(std::string url, const SinkConfig &config, Secrets &secrets)
        : url_(std::move(url)), client_(config, secrets)
    {
    }
    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        // One at a time: batch() is 1, since a receiver could take some of many and refuse the
        // others.
        const Message &message = messages[0];
        const HttpReply reply =
            client_.Post(url_, AlertJson(message), {"Idempotency-Key: " + message.key}, interrupt);
        return Judge(reply, messages.first(1));
    }

  private:
    std::string url_;
    HttpClient client_;
};

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
    const std::string url = secrets.Read(config.Get("url-file"));
    const std::string allowed = CheckHttpUrl(url);
    if (!allowed.empty())
        throw host::Error("cannot use the URL in " + config.Get("url-file"), "it is not accepted",
                          "use " + allowed);
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
