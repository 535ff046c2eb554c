// The bodies that receivers of webhooks want: chats, pagers and collectors each have a form of their own.
#ifndef AGENT_SINKS_WEBHOOK_FORMAT_H
#define AGENT_SINKS_WEBHOOK_FORMAT_H

#include <string>

#include "agent/sinks/http.h"
#include "agent/sinks/sink.h"

namespace sinks {

// What a form needs beside the alert.
struct FormatSettings {
    std::string topic;       // of ntfy
    std::string routing_key; // of PagerDuty: a secret
};

struct WebhookFormat {
    const char *name;
    const char *content_type;
    std::string (*body)(const Message &message, const FormatSettings &settings);
    const char *authorization; // what stands before the token: "Bearer"
    // Has the receiver, which has answered well, left the alert out? Null: it has not.
    bool (*is_rejected)(const std::string &reply) = nullptr;
};

// Their names, with blanks between.
std::string FormatNames();

// Of a name out of FormatNames.
const WebhookFormat &FindFormat(const std::string &name);

} // namespace sinks

#endif // AGENT_SINKS_WEBHOOK_FORMAT_H
