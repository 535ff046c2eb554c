#include "agent/nats/connection.h"

#include "agent/host/error.h"

namespace nats {

namespace {

// Of what the next step is, whatever has failed.
constexpr char kLookAtServers[] = "see whether the servers run, and what they log";

Owned<natsOptions> OptionsOf(const Access &access)
{
    natsOptions *made = nullptr;
    natsStatus status = natsOptions_Create(&made);
    Owned<natsOptions> options(made);
    const auto set = [&](auto call, auto... arguments) {
        if (status == NATS_OK)
            status = call(made, arguments...);
    };
    std::vector<const char *> servers;
    for (const std::string &server : access.servers)
        servers.push_back(server.c_str());
    set(natsOptions_SetServers, servers.data(), static_cast<int>(servers.size()));
    set(natsOptions_SetTimeout, access.timeout.count());
    set(natsOptions_SetName, "syslogmon");
    set(natsOptions_SetAllowReconnect, false);
    // What is published leaves at once: each waits for its answer.
    set(natsOptions_SetSendAsap, true);
    if (!access.credentials.empty())
        set(natsOptions_SetUserCredentialsFromFiles, access.credentials.c_str(),
            static_cast<const char *>(nullptr));
    if (!access.user.empty())
        set(natsOptions_SetUserInfo, access.user.c_str(), access.password.c_str());
    if (!access.token.empty())
        set(natsOptions_SetToken, access.token.c_str());
    if (!access.ca_file.empty())
        set(natsOptions_LoadCATrustedCertificates, access.ca_file.c_str());
    if (!access.cert.empty())
        set(natsOptions_LoadCertificatesChain, access.cert.c_str(), access.key.c_str());
    if (!access.inbox.empty())
        set(natsOptions_SetCustomInboxPrefix, access.inbox.c_str());
    if (status != NATS_OK)
        throw host::Error("cannot connect to the servers of the fleet", Connection::Why(status),
                          "see whether the files of certificates and credentials are sound");
    return options;
}

std::string Joined(const std::vector<std::string> &words)
{
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : ",") + word;
    return text;
}

} // namespace

Connection::Connection(const Access &access)
    : servers_(Joined(access.servers)), timeout_(access.timeout)
{
    const Owned<natsOptions> options = OptionsOf(access);
    natsConnection *connection = nullptr;
    Check(natsConnection_Connect(&connection, options.get()), "connect");
    connection_.reset(connection);
    jsOptions wanted;
    jsOptions_Init(&wanted);
    wanted.Wait = timeout_.count();
    jsCtx *stream = nullptr;
    Check(natsConnection_JetStream(&stream, connection, &wanted), "use JetStream");
    stream_.reset(stream);
}

bool Connection::IsOpen() const
{
    return natsConnection_Status(connection_.get()) == NATS_CONN_STATUS_CONNECTED;
}

void Connection::Flush() const
{
    Check(natsConnection_FlushTimeout(connection_.get(), timeout_.count()), "reach the server");
}

void Connection::Check(natsStatus status, const std::string &doing, int code) const
{
    if (status != NATS_OK)
        throw host::Error("cannot " + doing + " at " + servers_, Why(status, code), kLookAtServers);
}

// The library's own words say more than the status, but only of the last failure of this thread.
std::string Connection::Why(natsStatus status, int code)
{
    natsStatus last = NATS_OK;
    const char *text = nats_GetLastError(&last);
    std::string why = natsStatus_GetText(status);
    if (last == status && text != nullptr && *text != '\0' && why != text)
        why += " (" + std::string(text) + ")";
    if (code != 0)
        why += ", error " + std::to_string(code);
    return why;
}

} // namespace nats
