// Kind "snmp": an inform, or a trap, of SNMP v2c or v3. What sends it is a library of its own: see agent/snmp/sender.h.
#include <cstring>
#include <dlfcn.h>

#include "agent/events/events.h"
#include "agent/host/error.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"
#include "agent/snmp/sender.h"

namespace sinks {

namespace {

[[noreturn]] void Refuse(const std::string &cause, const std::string &next_step)
{
    throw host::Error("cannot make a sink of kind snmp", cause, next_step);
}

// Nothing of another build may be called: what it takes for a field may be another one. Which of the two packages is the
// older one is known by their versions.
void CheckBuild(void *library)
{
    const auto *build = static_cast<const char *>(dlsym(library, snmp::kBuild));
    const std::string theirs = build != nullptr ? build : "";
    if (theirs == SNMP_BUILD)
        return;
    const std::string ours = SNMP_BUILD;
    const std::string version = theirs.substr(0, theirs.find(' '));
    const std::string our_version = ours.substr(0, ours.find(' '));
    if (version.empty() || strverscmp(version.c_str(), our_version.c_str()) < 0)
        Refuse("snmp.so is older than this program, which is " + our_version,
               "upgrade the package syslogmon-snmp to " + our_version);
    if (version != our_version)
        Refuse("snmp.so is newer (" + version + ") than this program, which is " + our_version,
               "upgrade the package syslogmon to " + version + " and restart syslogmond");
    Refuse(
        "snmp.so is of another build (" + theirs + ") than this program (" + ours + ")",
        "install the packages syslogmon and syslogmon-snmp of one build, and restart syslogmond");
}

// By its name alone: it lies where the program looks for the host library. It stays loaded, since net-snmp leaves
// tables behind.
std::unique_ptr<snmp::Sender> MakeSender(const snmp::Options &options)
{
    void *library = dlopen(snmp::kLibrary, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        Refuse(dlerror(), "install the package syslogmon-snmp");
    try {
        CheckBuild(library);
    } catch (const host::Error &) {
        dlclose(library); // so that the one that is installed next is found under the same name
        throw;
    }
    const auto make = reinterpret_cast<snmp::MakeSenderFn>(dlsym(library, snmp::kMakeSender));
    if (make == nullptr)
        Refuse(dlerror(), "install the package syslogmon-snmp anew");
    return std::unique_ptr<snmp::Sender>(make(options));
}

class SnmpSink : public Sink {
  public:
    explicit SnmpSink(const snmp::Options &options) : sender_(MakeSender(options)) {}

    // One at a time: each needs its own answer.
    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        const alerts::Alert &alert = messages[0].alert;
        const snmp::Answer answer =
            sender_->Send({messages[0].key, alert.time_ms, alert.HostOfLine(), alert.source,
                           events::FormatEventId(alert.event_id), alert.count, alert.log_name,
                           alert.message, messages[0].is_test, alert.host},
                          [&] { return interrupt.IsRaised(); });
        switch (answer.result) {
        case snmp::Answer::Result::kTaken:
            return AllTaken(messages.first(1), answer.text);
        case snmp::Answer::Result::kRefused:
            return Refused(answer.text);
        case snmp::Answer::Result::kFailed:
            break;
        }
        return Failed(answer.text);
    }

  private:
    std::unique_ptr<snmp::Sender> sender_;
};

// ---- options ----

std::string CheckNotify(const std::string &value)
{
    return CheckWord(value, "inform trap");
}

std::string CheckVersion(const std::string &value)
{
    return CheckWord(value, "2c 3");
}

std::string CheckAuth(const std::string &value)
{
    return CheckWord(value, "SHA SHA-256 SHA-512 MD5");
}

std::string CheckPriv(const std::string &value)
{
    return CheckWord(value, "AES DES");
}

std::string CheckEngineId(const std::string &value)
{
    const bool ok = value.size() >= 10 && value.size() <= 64 && value.size() % 2 == 0 &&
                    value.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    return ok ? "" : "10 to 64 hexadecimal digits without a prefix, such as 8000000001020304";
}

std::string CheckReceiver(const std::string &value)
{
    return CheckText(value).empty() && value.find(' ') == std::string::npos
               ? ""
               : "HOST, HOST:PORT, udp6:[ADDRESS]:PORT or tcp:HOST:PORT";
}

void CheckTogether(const SinkConfig &config)
{
    const bool is_v3 = config.Get("version") == "3";
    if (is_v3 != config.Has("user"))
        Refuse(is_v3 ? "version 3 needs a user" : "a user belongs to version 3",
               "use version=3 together with user=NAME");
    if (is_v3 && config.Has("community-file"))
        Refuse("a community belongs to version 2c", "leave one of them away");
    if (!is_v3 && !config.Has("community-file"))
        Refuse("it has no community", "write it into a file and add community-file=FILE");
    if (config.Has("auth") != config.Has("auth-file") ||
        config.Has("priv") != config.Has("priv-file"))
        Refuse("a protocol and the file with its key belong together",
               "use auth=SHA with auth-file=FILE, priv=AES with priv-file=FILE");
    if (config.Has("priv") && !config.Has("auth"))
        Refuse("it encrypts without knowing to whom", "add auth=SHA and auth-file=FILE");
    if (is_v3 && config.Get("notify") == "trap" && !config.Has("engine-id"))
        Refuse("a trap of version 3 needs an engine ID, which the receiver has to know",
               "add engine-id=HEX, or use notify=inform");
}

// A secret of an option's file, or nothing when there is none.
std::string SecretOf(const SinkConfig &config, const char *option, Secrets &secrets)
{
    return config.Has(option) ? secrets.Read(config.Get(option)) : "";
}

snmp::Options SettingsOf(const SinkConfig &config, Secrets &secrets)
{
    CheckTogether(config);
    snmp::Options settings;
    settings.receiver = config.Get("receiver");
    settings.is_inform = config.Get("notify") == "inform";
    settings.is_v3 = config.Get("version") == "3";
    settings.community = SecretOf(config, "community-file", secrets);
    settings.user = config.Get("user");
    settings.auth = config.Get("auth");
    settings.auth_key = SecretOf(config, "auth-file", secrets);
    settings.priv = config.Get("priv");
    settings.priv_key = SecretOf(config, "priv-file", secrets);
    settings.timeout_s = static_cast<long>(config.Number("timeout"));
    const std::string id = config.Get("engine-id");
    for (size_t i = 0; i < id.size(); i += 2)
        settings.engine_id.push_back(
            static_cast<unsigned char>(std::stoul(id.substr(i, 2), nullptr, 16)));
    return settings;
}

} // namespace

SinkKind SnmpKind()
{
    SinkKind kind;
    kind.name = "snmp";
    kind.help = "an inform or a trap of SNMP";
    kind.options = {
        {"receiver", "HOST", nullptr, "the receiver; port 162 unless HOST:PORT names another",
         CheckReceiver},
        {"notify", "WORD", "inform", "inform, which is acknowledged, or trap", CheckNotify},
        {"version", "WORD", "2c", "2c or 3", CheckVersion},
        {"community-file", "FILE", "", "a file with the community, for version 2c", CheckPath,
         true},
        {"user", "NAME", "", "the user, for version 3", CheckText},
        {"auth", "NAME", "", "how messages are authenticated, for version 3", CheckAuth},
        {"auth-file", "FILE", "", "a file with the key for that", CheckPath, true},
        {"priv", "NAME", "", "how messages are encrypted, for version 3", CheckPriv},
        {"priv-file", "FILE", "", "a file with the key for that", CheckPath, true},
        {"engine-id", "HEX", "", "the sender's engine ID, for traps of version 3", CheckEngineId},
        {"timeout", "SECONDS", "5", "how long an inform waits for its answer", CheckTimeout},
    };
    kind.open = [](const SinkConfig &config, const std::string &,
                   Secrets &secrets) -> std::unique_ptr<Sink> {
        return std::make_unique<SnmpSink>(SettingsOf(config, secrets));
    };
    return kind;
}

} // namespace sinks
