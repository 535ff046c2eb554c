// What a sink is: a place where alerts go. One file per kind implements it; the table of kinds is
// in sink_kinds.cc.
//
// A sink belongs to one thread. It blocks only as long as its time limits allow, and gives up soon
// after the interrupt was raised.
//
// A SinkConfig is what somebody has set up: texts under names. A SinkKind is what can be set up, as
// a row of a table. A Sink is an open one, made of both; it lives until a failure, and is then made
// anew. What it has sent is known to nobody but its caller.
#ifndef AGENT_SINKS_SINK_H
#define AGENT_SINKS_SINK_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "agent/alerts/alert_store.h"
#include "agent/sinks/digest.h"

namespace sinks {

struct Delivery;

// An alert on its way.
struct Message {
    alerts::Alert alert;
    std::string key;      // the alert's, or of the test; see Alert
    bool is_test = false; // of `sink test`: nothing has happened
    int64_t ends_ms = 0;  // until when it is active, for kinds that say so; since 1970, UTC
    Digest digest;        // of the alerts before it that the sink's rate has held back
    // That `alert` stands for: several when nothing but their sum is left of them.
    int64_t alerts = 1;
    // For receivers that know what they have: the alert that they had before it, and how many of those in between
    // have left the store.
    int64_t after = 0;
    int64_t lost = 0;
};

// What came of an attempt to send.
struct Outcome {
    enum class Result {
        kTaken,   // the receiver has all of them
        kFailed,  // it could not be reached, or takes nothing at present, whatever it is
        kRefused, // it was given this one and did not take it: the alert may be the reason
    };
    Result result = Result::kFailed;
    size_t taken = 0;   // so many, from the first on, were taken; those are never sent again
    std::string answer; // what the receiver said, or why it failed; one line
    std::chrono::milliseconds retry_after{
        0}; // what the receiver wishes for the next try; 0: nothing
};

// `taken` beside a failure: so many were taken before it.
Outcome AllTaken(std::span<const Message> messages, std::string answer);
Outcome Failed(std::string why, size_t taken = 0);
Outcome Refused(std::string why, size_t taken = 0);

// Tells a sink that its thread is to end. Raised by another thread; once raised it stays so.
class Interrupt {
  public:
    // What is under way may still end within the grace period.
    void Raise(std::chrono::milliseconds grace);
    // True once the grace period is over.
    [[nodiscard]] bool IsRaised() const;

  private:
    std::atomic<int64_t> deadline_ms_{INT64_MAX}; // steady clock
};

class Sink {
  public:
    Sink() = default;
    virtual ~Sink() = default;
    Sink(const Sink &) = delete;
    Sink &operator=(const Sink &) = delete;

    // Sends messages in order, at least one and at most batch() of them. Returns when the receiver
    // has answered, or when it is clear that it does not. May throw host::Error, which is a
    // failure.
    virtual Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) = 0;

    // Of a kind with `look`: the last alert that the receiver has, by its own account, which counts more than what
    // was noted of it here. Called before the first Send, and again from time to time. Throws host::Error when it
    // does not answer, or when it has what this store never had.
    virtual int64_t LastTaken(host::Database &database, const Delivery &noted);

    // The most that one Send is given.
    [[nodiscard]] virtual size_t batch() const { return 1; }
    // Does the receiver get them as one message, which it takes whole or not at all? Otherwise each is a message of
    // its own, for the sink's rate, too.
    [[nodiscard]] virtual bool IsBatchOneMessage() const { return false; }
};

// The text of a secret file, without the line end. Remembers what was read, so that it can be taken
// out of any text that is shown: a receiver may well send back what it was sent. Of one thread.
class Secrets {
  public:
    Secrets() = default;
    // Of a trial, in which a secret may be missing, or not for this user to read: `unread` gets a line about
    // it, and a text of no meaning, which passes for a URL or a password, stands for it.
    explicit Secrets(std::vector<std::string> *unread) : unread_(unread) {}

    // The first line of the file, of at most 64 KiB. Throws host::Error, which names the file and
    // never its content.
    std::string Read(const std::string &path);
    // Of a file that a library reads itself: may it be left unread, though `failure` (an errno) says that it
    // cannot be read? Only in a trial; it is noted.
    bool Excuses(const std::string &path, int failure);
    // A part of what was read that a receiver may send back alone, such as the path of a URL, is hidden, too. So is what
    // stands in it between any of these characters, when it is so long that its like is in no text by accident.
    void AddPart(const std::string &part, const char *separators);
    // The text with "***" in place of each secret, and of the beginning of one at its end: only so much of an answer may
    // have been kept.
    [[nodiscard]] std::string Hide(std::string text) const;

  private:
    void Add(const std::string &secret);

    std::vector<std::string> known_;             // the longest first: one may be a part of another
    std::vector<std::string> *unread_ = nullptr; // null: it is no trial
};

struct SinkConfig;

// An option of a kind of sink: a row of its table, from which the help, the checks and the messages
// are made.
struct SinkOption {
    const char *name;     // "ca-file"; "header." stands for all options that begin so
    const char *form;     // "FILE", for the help
    const char *standard; // its value when it is not given; null: it must be given
    const char *help;
    // Empty when the value is accepted, otherwise what is: "an absolute path".
    std::string (*check)(const std::string &value);
    bool is_secret_file = false; // it names a file with a secret
};

// Options that every kind has, and most kinds: see route.h, heartbeat.h and rate.h.
inline constexpr char kOnlyOption[] = "only";
inline constexpr char kHeartbeatOption[] = "heartbeat";
inline constexpr char kRateOption[] = "rate";

// A kind of sink. Functions, not classes: a kind has no state.
struct SinkKind {
    const char *name;
    const char *help;
    std::vector<SinkOption> options;
    // Makes a sink and does not connect yet. Throws host::Error when the options do not go
    // together or a file cannot be read.
    std::unique_ptr<Sink> (*open)(const SinkConfig &config, const std::string &peer,
                                  Secrets &secrets) = nullptr;
    // The receivers that each get all alerts; null: there is one, whose name is empty.
    std::vector<std::string> (*peers)(const SinkConfig &config) = nullptr;
    // How long an alert is active at the receiver, and how often it is told so again; null: the
    // receiver knows of no such thing.
    std::chrono::milliseconds (*active)(const SinkConfig &config) = nullptr;
    std::chrono::milliseconds (*resend)(const SinkConfig &config) = nullptr;
    // How often the receiver is asked what it has, see Sink::LastTaken; null: it cannot say.
    std::chrono::milliseconds (*look)(const SinkConfig &config) = nullptr;
    // The option that names the file that it writes; null: it writes none.
    const char *written = nullptr;
    // What is unsafe about the way of its secrets; null: nothing is.
    std::vector<std::string> (*warnings)(const SinkConfig &config) = nullptr;
};

// A configured sink. A value: a worker has a copy, which a change in the registry leaves alone.
struct SinkConfig {
    int64_t key = 0; // number of its registry key
    std::string name;
    const SinkKind *kind = nullptr;
    std::map<std::string, std::string> options; // those that were given
    std::string store_uuid = {};                // of the store in which it is set up

    // The value of an option, or its standard one.
    [[nodiscard]] std::string Get(const std::string &option) const;
    // Of an option whose check takes only numbers; 0 when it is empty.
    [[nodiscard]] int64_t Number(const std::string &option) const;
    [[nodiscard]] bool Has(const std::string &option) const { return !Get(option).empty(); }
    // What was given for "header.": {"X-Team", "ops"}. By name.
    [[nodiscard]] std::map<std::string, std::string> All(const std::string &prefix) const;
    // The file that it writes alerts to; empty: none.
    [[nodiscard]] std::string WrittenFile() const;
    // At least one: see SinkKind::peers.
    [[nodiscard]] std::vector<std::string> Peers() const;

    bool operator==(const SinkConfig &) const = default;
};

// In the order in which the help shows them. Lives as long as the process.
const std::vector<SinkKind> &AllKinds();
// Throws host::Error, which names all kinds, for one that is not known.
const SinkKind &FindKind(const std::string &name);
// The option that a given name belongs to. Throws host::Error, which names all options.
const SinkOption &FindOption(const SinkKind &kind, const std::string &name);

// Throws host::Error, which says what is allowed, unless each option is one of the kind and what must be given is.
void CheckOptions(const SinkConfig &config);

// Throws host::Error, which says what is allowed, unless a sink can be made of this. Reads the
// files that the options name, and connects to nothing. With `unread`, secrets may be missing, or not for this user
// to read: it gets a line about each.
void CheckSink(const SinkConfig &config, std::vector<std::string> *unread = nullptr);

// What is unsafe about its secrets, such as that everybody can read the file of one. One line each.
std::vector<std::string> SecretWarnings(const SinkConfig &config);

} // namespace sinks

#endif // AGENT_SINKS_SINK_H
