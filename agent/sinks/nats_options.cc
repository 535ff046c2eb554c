#include "agent/sinks/nats_options.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/sinks/option_checks.h"
#include "agent/text/split.h"

namespace sinks {

namespace {

constexpr size_t kMaxStreamName = 64; // bytes; longer ones make longer subjects, with each message

bool IsServer(const std::string &url)
{
    const bool is_known = url.starts_with("nats://") || url.starts_with("tls://");
    const size_t host = url.find("//");
    return is_known && host + 2 < url.size() &&
           url.find_first_of(" @/?#", host + 2) == std::string::npos;
}

// Commas too many do no harm.
std::vector<std::string> ServersIn(const std::string &list)
{
    std::vector<std::string> servers = text::SplitAtCommas(list);
    std::erase(servers, "");
    return servers;
}

std::string CheckServers(const std::string &value)
{
    const std::vector<std::string> servers = ServersIn(value);
    const bool is_sound = CheckText(value).empty() && !servers.empty() &&
                          std::all_of(servers.begin(), servers.end(), IsServer);
    return is_sound ? ""
                    : "nats://HOST:PORT or tls://HOST:PORT, several with commas between, without "
                      "user and password in it";
}

// Only this host hears it.
bool IsLocal(const std::string &url)
{
    const std::string host = url.substr(url.find("//") + 2);
    return host.starts_with("127.") || host.starts_with("localhost") || host.starts_with("[::1]");
}

// One server that is asked for encryption, or a certificate, is meant for all of them.
bool IsEncrypted(const SinkConfig &config)
{
    const std::vector<std::string> servers = ServersIn(config.Get("servers"));
    return config.Has("ca-file") || config.Has("cert") ||
           std::any_of(servers.begin(), servers.end(),
                       [](const std::string &url) { return url.starts_with("tls://"); });
}

void CheckPairs(const SinkConfig &config)
{
    const auto both = [&](const char *one, const char *other) {
        if (config.Has(one) != config.Has(other))
            throw host::Error(std::string("cannot use the option ") +
                                  (config.Has(one) ? one : other),
                              std::string("it stands alone"),
                              std::string("add ") + (config.Has(one) ? other : one) + " as well");
    };
    both("cert", "key");
    both("user", "password-file");
    int ways = 0;
    for (const char *way : {"credentials-file", "user", "token-file"})
        ways += config.Has(way) ? 1 : 0;
    if (ways > 1)
        throw host::Error("cannot say who connects", "there is more than one way to say so",
                          "use one of credentials-file, token-file, and user with password-file");
}

} // namespace

std::vector<SinkOption> NatsOptions()
{
    return {
        {"servers", "URL,...", nullptr, "nats://HOST:PORT or tls://HOST:PORT of each server",
         CheckServers},
        {"credentials-file", "FILE", "", "a file with the credentials of this host", CheckPath,
         true},
        {"user", "NAME", "", "the user of this host", CheckText},
        {"password-file", "FILE", "", "a file with the password of that user", CheckPath, true},
        {"token-file", "FILE", "", "a file with a token that lets this host in", CheckPath, true},
        {"ca-file", "FILE", "", "certificates (PEM) to trust instead of the system's", CheckPath},
        {"cert", "FILE", "", "the client's certificate (PEM)", CheckPath},
        {"key", "FILE", "", "the private key of that certificate (PEM)", CheckPath, true},
        {"timeout", "SECONDS", "5", "time limit of a request", CheckTimeout},
    };
}

nats::Access AccessOf(const SinkConfig &config, Secrets &secrets)
{
    CheckPairs(config);
    nats::Access access;
    access.servers = ServersIn(config.Get("servers"));
    access.credentials = config.Get("credentials-file");
    access.user = config.Get("user");
    if (config.Has("password-file"))
        access.password = secrets.Read(config.Get("password-file"));
    if (config.Has("token-file"))
        access.token = secrets.Read(config.Get("token-file"));
    access.ca_file = config.Get("ca-file");
    access.cert = config.Get("cert");
    access.key = config.Get("key");
    // The library reads these itself, and does not say which of them it could not.
    for (const std::string &file : {access.credentials, access.ca_file, access.cert, access.key}) {
        if (file.empty() || ::access(file.c_str(), R_OK) == 0)
            continue;
        const int failure = errno;
        const bool is_secret = file == access.credentials || file == access.key;
        if (!is_secret || !secrets.Excuses(file, failure))
            throw host::Error("cannot read the file " + file, strerror(failure),
                              "name a file that the daemon's user can read");
    }
    access.encrypted = IsEncrypted(config);
    access.timeout = std::chrono::seconds(config.Number("timeout"));
    access.inbox = "_INBOX." + config.store_uuid;
    return access;
}

std::vector<std::string> PlainNatsWarnings(const SinkConfig &config)
{
    const std::vector<std::string> servers = ServersIn(config.Get("servers"));
    if (IsEncrypted(config) || std::all_of(servers.begin(), servers.end(), IsLocal))
        return {};
    return {"all that goes to the servers can be read on the way, unless they ask for encryption; "
            "use tls://"};
}

std::string CheckStreamName(const std::string &value)
{
    const bool is_sound = !value.empty() && value.size() <= kMaxStreamName &&
                          value.find_first_not_of(
                              "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-") ==
                              std::string::npos;
    return is_sound ? "" : "a name of 1 to 64 letters, digits, \"_\" and \"-\"";
}

} // namespace sinks
