// Notifications of SNMP v2c and v3. What sends them is a library of its own (snmp.so), since it needs net-snmp, which few
// hosts want: it is loaded when the first sink of this kind is opened. Both sides are of one build, so C++ may pass
// between them; exceptions do not. Each side has the text SNMP_BUILD (cmake/Snmp.cmake), and nothing else is called of a
// library that says another one.
#ifndef AGENT_SNMP_SENDER_H
#define AGENT_SNMP_SENDER_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace snmp {

// Secrets included.
struct Options {
    std::string receiver;
    bool is_inform = true;
    bool is_v3 = false;
    std::string community;
    std::string user;
    std::string auth; // SHA and so on; empty: none
    std::string auth_key;
    std::string priv;
    std::string priv_key;
    std::vector<unsigned char> engine_id; // ours, for traps of v3
    long timeout_s = 5;
};

// The objects of packaging/SYSLOGMON-MIB.txt.
struct Notification {
    std::string key;
    int64_t time_ms = 0; // since 1970, UTC
    std::string host;
    std::string source;
    std::string event_id;
    int64_t count = 0;
    std::string log_name;
    std::string message;
    bool is_test = false;
    std::string monitor;
};

struct Answer {
    enum class Result {
        kTaken,
        kFailed,  // nobody was reached
        kRefused, // the receiver has answered that it does not take this one
    };
    Result result = Result::kFailed;
    std::string text; // one line
};

// Of one thread, as its sink is.
class Sender {
  public:
    virtual ~Sender() = default;
    // Returns when there is an answer, after the time limit of the options, or soon after `is_ended` says so. Throws
    // nothing but std::bad_alloc.
    virtual Answer Send(const Notification &notification,
                        const std::function<bool()> &is_ended) = 0;
};

// What the library exports, under these names. The build is "1.0.0 0123456789ab GNU-12.2.0": the version, what this header
// says, the compiler. The caller deletes the sender that it gets.
inline constexpr char kBuild[] = "SnmpSenderBuild"; // const char[]
using MakeSenderFn = Sender *(*)(const Options &options);
inline constexpr char kMakeSender[] = "MakeSnmpSender";
inline constexpr char kLibrary[] = "snmp.so";

} // namespace snmp

#endif // AGENT_SNMP_SENDER_H
