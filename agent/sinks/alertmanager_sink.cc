// Kind "alertmanager": the API v2 of Prometheus Alertmanager, for one or more peers of a cluster.
//
// As its users expect, each peer is sent every alert, and active alerts are sent again and again:
// a peer keeps them in memory only. Alerts with the same labels are one alert to it; a new report of
// the same event extends it.
#include <algorithm>
#include <cctype>

#include <nlohmann/json.hpp>

#include "agent/events/events.h"
#include "agent/host/error.h"
#include "agent/sinks/alert_json.h"
#include "agent/sinks/http.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"
#include "agent/text/split.h"
#include "agent/text/times.h"

namespace sinks {

namespace {

constexpr char kPath[] = "/api/v2/alerts";
constexpr char kTestName[] = "SyslogmonTest"; // the label alertname of a test, which ends at once

class AlertmanagerSink : public Sink {
  public:
    AlertmanagerSink(std::string peer, const SinkConfig &config, Secrets &secrets)
        : url_(std::move(peer) + kPath), client_(config, secrets), labels_(config.All("label."))
    {
        // No label of the options has one of these names: see CheckLabels.
        labels_.emplace("alertname", config.Get("alertname"));
        labels_.emplace("severity", config.Get("severity"));
    }
    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        nlohmann::json list = nlohmann::json::array();
        for (const Message &message : messages)
            list.push_back(ToJson(message));
        const std::string body =
            list.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        return Judge(client_.Post(url_, body, {}, interrupt), messages);
    }
    // At half a kilobyte each well below any limit of a request.
    [[nodiscard]] size_t batch() const override { return 200; }

  private:
    [[nodiscard]] nlohmann::json ToJson(const Message &message) const
    {
        const alerts::Alert &alert = message.alert;
        // The labels say what the alert is, and must be the same for each report of an event: what
        // differs from report to report is an annotation.
        nlohmann::json labels = labels_;
        labels["source"] = alert.source;
        labels["event_id"] = events::FormatEventId(alert.event_id);
        labels["host"] = alert.HostOfLine();
        // One that the options give this name was there before, and stays.
        labels.emplace("monitor", alert.host);
        // What the sink says of all alerts, the event says better of its own.
        for (const auto &[name, value] : alert.labels)
            labels[name] = value;
        if (!alert.severity.empty())
            labels["severity"] = alert.severity;
        // Whoever routes by it is not called for a test.
        if (message.is_test)
            labels["alertname"] = kTestName;
        // Annotations are texts, numbers included: that is how the API has them.
        nlohmann::json annotations = {{"summary", AlertSummary(message)},
                                      {"key", message.key},
                                      {"count", std::to_string(alert.count)},
                                      {"reports", std::to_string(alert.reports)}};
        if (!alert.runbook_url.empty())
            annotations["runbook_url"] = alert.runbook_url;
        return {{"labels", labels},
                {"annotations", annotations},
                {"startsAt", text::UtcTime(alert.time_ms)},
                {"endsAt", text::UtcTime(message.is_test ? alert.time_ms : message.ends_ms)}};
    }

    std::string url_;
    HttpClient client_;
    std::map<std::string, std::string> labels_;
};

// The URLs in a list separated by commas.
std::vector<std::string> Split(const std::string &list)
{
    std::vector<std::string> urls = text::SplitAtCommas(list);
    // The path of the API is added, with its own slash. So an address with one and without is the
    // same peer.
    for (std::string &url : urls)
        url.erase(url.find_last_not_of('/') + 1);
    return urls;
}

// One that is named twice would be told everything twice, and be one row in the store.
std::string CheckPeers(const std::string &value)
{
    std::vector<std::string> seen;
    for (const std::string &url : Split(value)) {
        const bool is_repeated = std::find(seen.begin(), seen.end(), url) != seen.end();
        if (!CheckHttpUrl(url).empty() || is_repeated || url.find('?') != std::string::npos ||
            url.ends_with(kPath))
            return "the addresses of the peers, such as http://am1:9093,http://am2:9093, without "
                   "user, password and " +
                   std::string(kPath);
        seen.push_back(url);
    }
    return "";
}

void CheckLabels(const SinkConfig &config)
{
    for (const auto &[name, value] : config.All("label.")) {
        const bool ok =
            name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                   "0123456789_") == std::string::npos &&
            isdigit(static_cast<unsigned char>(name[0])) == 0;
        if (!ok)
            throw host::Error("cannot use the label \"" + name + "\"", "the name is not accepted",
                              "use letters, digits and \"_\", with no digit in front");
        for (const char *own : {"alertname", "severity", "source", "event_id", "host"}) {
            if (name == own)
                throw host::Error("cannot use the label \"" + name + "\"",
                                  "the agent sets it itself", "choose another name");
        }
    }
}

} // namespace

SinkKind AlertmanagerKind()
{
    SinkKind kind;
    kind.name = "alertmanager";
    kind.help = "the peers of a Prometheus Alertmanager cluster (API v2)";
    kind.options = {
        {"peers", "URL,...", nullptr, "all peers of the cluster: http://am1:9093,http://am2:9093",
         CheckPeers},
        {"alertname", "TEXT", "SyslogEvent", "the label alertname", CheckText},
        {"severity", "TEXT", "warning", "the label severity", CheckText},
        {"label.", "TEXT", "", "one more label, such as label.team=ops", CheckText},
        {"active", "SECONDS", "300", "how long after its last report an alert ends",
         CheckSeconds<10, 604800>},
        {"resend", "SECONDS", "60", "how often active alerts are sent again",
         CheckSeconds<1, 86400>},
    };
    for (const SinkOption &option : HttpOptions())
        kind.options.push_back(option);
    kind.open = [](const SinkConfig &config, const std::string &peer,
                   Secrets &secrets) -> std::unique_ptr<Sink> {
        CheckLabels(config);
        return std::make_unique<AlertmanagerSink>(peer, config, secrets);
    };
    kind.peers = [](const SinkConfig &config) { return Split(config.Get("peers")); };
    kind.warnings = [](const SinkConfig &config) {
        return PlainHttpWarnings(config, config.Peers());
    };
    kind.active = [](const SinkConfig &config) {
        return std::chrono::milliseconds(config.Number("active") * 1000);
    };
    kind.resend = [](const SinkConfig &config) {
        return std::chrono::milliseconds(config.Number("resend") * 1000);
    };
    return kind;
}

} // namespace sinks
