// A connection to the servers of a fleet, which are NATS servers with JetStream.
//
// The client's library makes threads of its own for it. It never connects again by itself: whoever has lost his
// connection makes a new one, and begins with asking where he stands. So what was under way when it was lost is
// never guessed at.
//
// One thread at a time uses a connection. What fails throws host::Error, which names the servers and never a secret.
#ifndef AGENT_NATS_CONNECTION_H
#define AGENT_NATS_CONNECTION_H

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <nats/nats.h>

namespace nats {

// How the servers are reached, with the secrets already read from their files. Empty: not used.
struct Access {
    std::vector<std::string>
        servers;             // "nats://HOST:PORT" or "tls://HOST:PORT"; tried one after the other
    std::string credentials; // a file, as the servers' tools make it
    std::string user;
    std::string password;
    std::string token;
    std::string ca_file; // certificates (PEM) to trust instead of the system's
    std::string cert;    // of this client (PEM), and its key
    std::string key;
    // Of all servers: one that does not encrypt is told nothing. Left to the library, "tls://" is a wish, and a password
    // goes in plain to a server that says it cannot.
    bool encrypted = false;
    std::chrono::milliseconds timeout{5000}; // of each request, and of connecting to each server
    // What its answers are addressed to begins so; empty: "_INBOX". With it, one client's answers can be kept from
    // the others.
    std::string inbox;
};

// What the library gives out, and what gives it back.
struct Giver {
    void operator()(natsOptions *options) const { natsOptions_Destroy(options); }
    void operator()(natsConnection *connection) const { natsConnection_Destroy(connection); }
    void operator()(jsCtx *context) const { jsCtx_Destroy(context); }
    void operator()(natsMsg *message) const { natsMsg_Destroy(message); }
    void operator()(jsPubAck *answer) const { jsPubAck_Destroy(answer); }
    void operator()(jsStreamInfo *info) const { jsStreamInfo_Destroy(info); }
    void operator()(jsConsumerInfo *info) const { jsConsumerInfo_Destroy(info); }
    void operator()(natsSubscription *subscription) const
    {
        natsSubscription_Destroy(subscription);
    }
    void operator()(kvStore *store) const { kvStore_Destroy(store); }
    void operator()(kvEntry *entry) const { kvEntry_Destroy(entry); }
    void operator()(kvWatcher *watcher) const { kvWatcher_Destroy(watcher); }
};
template <typename Thing>
using Owned = std::unique_ptr<Thing, Giver>;

class Connection {
  public:
    // Connects to the first server that answers. Throws host::Error with what is to be done, as far as the library says
    // what was wrong: with the certificates, with who connects, or with the server.
    explicit Connection(const Access &access);

    // For the calls of the library.
    [[nodiscard]] natsConnection *raw() const { return connection_.get(); }
    [[nodiscard]] jsCtx *stream() const { return stream_.get(); }

    [[nodiscard]] std::chrono::milliseconds timeout() const { return timeout_; }

    // A server is connected at this moment, as far as is known.
    [[nodiscard]] bool IsOpen() const;
    // Returns when all that was published has reached the server. Throws also when it has refused something of it, or of
    // what this client wanted to hear.
    void Flush() const;

    // The server has said, since the last call that went well, that this client may not do something.
    [[nodiscard]] bool IsRefused() const;
    // Throws host::Error unless the call went well: "cannot DO: WHY; ...". `code` is what JetStream said, 0: nothing. A
    // request that nobody has answered is explained by what the server has refused since the last call that went well.
    void Check(natsStatus status, const std::string &doing, int code = 0) const;
    // Why a call has failed, in words.
    [[nodiscard]] static std::string Why(natsStatus status, int code = 0);

  private:
    // What the server has not allowed last, in its words; empty: nothing.
    [[nodiscard]] std::string Refused() const;
    [[noreturn]] void TellOfRefusal(const std::string &doing, const std::string &refused) const;

    std::string servers_;
    std::chrono::milliseconds timeout_;
    mutable std::string refused_before_; // when a call went well for the last time
    Owned<natsConnection> connection_;
    Owned<jsCtx> stream_; // goes before its connection
};

} // namespace nats

#endif // AGENT_NATS_CONNECTION_H
