#include "agent/nats/connection.h"

#include "agent/host/error.h"

namespace nats {

namespace {

// Of what the next step is, whatever has failed.
constexpr char kLookAtServers[] = "see whether the servers run, and what they log";
constexpr char kAllowIt[] =
    "see whether the servers give this host the rights that it needs: docs/fleet.md says which";

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
    if (access.encrypted)
        set(natsOptions_SetSecure, true);
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

// A server that wants another certificate of its client says so to its log alone, and closes the connection.
bool WasClosed(natsStatus status)
{
    return status == NATS_PROTOCOL_ERROR || status == NATS_IO_ERROR ||
           status == NATS_CONNECTION_CLOSED || status == NATS_CONNECTION_DISCONNECTED;
}

// What to do about a connection that was not made.
std::string NextStep(natsStatus status, const Access &access)
{
    if (status == NATS_CONNECTION_AUTH_FAILED)
        return "see whether the servers let in whom the credentials, the user with its password, "
               "or the token stand for, and whether that is over";
    if (status == NATS_SSL_ERROR)
        return "see whether ca-file= is of the authority that has signed the server's certificate, "
               "and whether that certificate is for this name and still good";
    if (status == NATS_SECURE_CONNECTION_WANTED)
        return "have all servers encrypt (tls in their configuration); nats:// without ca-file= "
               "and cert= does without it";
    if (status == NATS_SECURE_CONNECTION_REQUIRED)
        return "use tls:// with it";
    if (status == NATS_ERR && !access.credentials.empty())
        return "see whether that is a file of credentials";
    if (access.encrypted && WasClosed(status))
        return "see what the server logs: it may want another certificate of this host, which "
               "cert= and key= name";
    return kLookAtServers;
}

[[noreturn]] void TellOfNoConnection(natsStatus status, const Access &access)
{
    const std::string why = Connection::Why(status);
    throw host::Error("cannot connect at " + Joined(access.servers),
                      WasClosed(status) ? "the server has closed the connection: " + why : why,
                      NextStep(status, access));
}

} // namespace

Connection::Connection(const Access &access)
    : servers_(Joined(access.servers)), timeout_(access.timeout)
{
    const Owned<natsOptions> options = OptionsOf(access);
    natsConnection *connection = nullptr;
    const natsStatus status = natsConnection_Connect(&connection, options.get());
    if (status != NATS_OK)
        TellOfNoConnection(status, access);
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
    if (const std::string refused = Refused(); !refused.empty())
        TellOfRefusal("go on", refused);
}

// A server answers nothing to what a client may not do: it says so beside all requests, and the request goes on waiting.
std::string Connection::Refused() const
{
    const char *text = nullptr;
    const natsStatus last = natsConnection_GetLastError(connection_.get(), &text);
    return last == NATS_NOT_PERMITTED && text != nullptr ? text : "";
}

// The library keeps the last refusal for as long as the connection lasts.
bool Connection::IsRefused() const
{
    const std::string refused = Refused();
    return !refused.empty() && refused != refused_before_;
}

void Connection::TellOfRefusal(const std::string &doing, const std::string &refused) const
{
    throw host::Error("cannot " + doing + " at " + servers_,
                      "the servers do not allow it: " + refused, kAllowIt);
}

void Connection::Check(natsStatus status, const std::string &doing, int code) const
{
    if (status == NATS_OK) {
        refused_before_ = Refused();
        return;
    }
    if (status == NATS_TIMEOUT && IsRefused())
        TellOfRefusal(doing, Refused());
    throw host::Error("cannot " + doing + " at " + servers_, Why(status, code), kLookAtServers);
}

// The library's own words say more than the status, but only of the last failure of this thread; they begin with a place
// in its source, "(conn.c:733): ".
std::string Connection::Why(natsStatus status, int code)
{
    natsStatus last = NATS_OK;
    const char *text = nats_GetLastError(&last);
    std::string why = natsStatus_GetText(status);
    std::string words = last == status && text != nullptr ? text : "";
    if (const size_t place = words.find("): ");
        words.starts_with('(') && place != std::string::npos)
        words.erase(0, place + 3);
    if (!words.empty() && why != words)
        why += " (" + words + ")";
    if (code != 0)
        why += ", error " + std::to_string(code);
    return why;
}

} // namespace nats
