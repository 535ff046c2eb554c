// Kind "snmp": an inform, or a trap, of SNMP v2c or v3 through net-snmp. The notification and its
// objects are defined in packaging/SYSLOGMON-MIB.txt.
//
// An inform is acknowledged by the receiver, a trap is not: a trap that is lost stays lost.
//
// net-snmp keeps tables of its own that all sessions share, so its functions are called under one
// lock. No thread waits for a receiver while it holds it, but for a second at most when it asks one
// for its engine ID.
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <poll.h>

// clang-format off: the first one configures the second.
#include <net-snmp/library/large_fd_set.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// clang-format on

#include "agent/events/events.h"
#include "agent/host/error.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"

namespace sinks {

namespace {

using Clock = std::chrono::steady_clock;

std::mutex library_lock;         // around each call of the library
bool library_is_started = false; // guarded by it

constexpr int kSliceMs = 100;        // between two looks whether the thread is to end
constexpr long kRetryUs = 1'000'000; // an inform is sent again after this, until its time is over
constexpr size_t kMaxObject = 1024;  // bytes of an object, as the MIB says

// The objects of a notification: the two that each has, and those of the MIB.
constexpr oid kUpTime[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};
constexpr oid kTrapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
constexpr oid kReported[] = {1, 3, 6, 1, 4, 1, 8072, 9999, 9999, 514, 0, 1};
constexpr oid kObjects[] = {1, 3, 6, 1, 4, 1, 8072, 9999, 9999, 514, 1}; // then column, 0

// Starts as much of the library as sending needs, once. init_snmp would do more: read files of other
// programs, make folders and set the locale, which changes how the monitor matches lines.
void StartLibrary()
{
    if (library_is_started)
        return;
    library_is_started = true;
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE, "syslogmon");
    snmp_disable_log();
    netsnmp_init_mib_internals();
    init_snmpv3("syslogmon");
    // As if files had been read: the tables of v3 are filled. The transports come after it, because
    // one of them would make folders for certificates now.
    snmp_call_callbacks(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_PREMIB_READ_CONFIG, nullptr);
    snmp_call_callbacks(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, nullptr);
    netsnmp_tdomain_init();
}

// What a receiver has said to an inform.
struct Reply {
    bool has_come = false;
    std::string error;       // empty: it has it
    bool is_refusal = false; // the error is about this notification
};

// Called by the library, for the reply to what this session has sent. An error in a response is about
// the notification; a report, which v3 answers with, is about the user or the clocks, and a failure.
int OnReply(int operation, netsnmp_session *, int, netsnmp_pdu *pdu, void *reply_of_sink)
{
    auto *reply = static_cast<Reply *>(reply_of_sink);
    reply->has_come = true;
    if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE && pdu->command == SNMP_MSG_RESPONSE) {
        reply->error = pdu->errstat == 0 ? "" : snmp_errstring(static_cast<int>(pdu->errstat));
        reply->is_refusal = pdu->errstat != 0;
    } else if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE)
        reply->error = "it knows no such user, or the keys differ";
    else
        reply->error = "no answer";
    return 1;
}

// The options of a sink, as the library wants them.
// Made once when the sink is opened, secrets included; sessions are made of it again and again.
struct SnmpOptions {
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

// The library takes what it only reads as something that it could write.
unsigned char *Bytes(const std::string &text)
{
    return reinterpret_cast<unsigned char *>(const_cast<char *>(text.data()));
}

// What the library says of the last failure of a session.
// Its text is to be freed; it can be missing.
std::string SnmpError(void *session)
{
    char *text = nullptr;
    int library_error = 0;
    int system_error = 0;
    snmp_sess_error(session, &system_error, &library_error, &text);
    std::string error = text != nullptr ? text : "it failed";
    free(text);
    return error;
}

// One open session. Made, used and closed under the lock of the library.
class Session {
  public:
    explicit Session(const SnmpOptions &settings)
    {
        StartLibrary();
        netsnmp_session wanted;
        snmp_sess_init(&wanted);
        wanted.timeout = kRetryUs;
        wanted.retries = 0;
        if (settings.is_v3)
            SetUpV3(wanted, settings);
        else
            SetUpV2c(wanted, settings);
        netsnmp_transport *transport =
            netsnmp_transport_open_client("snmptrap", settings.receiver.c_str());
        if (transport == nullptr)
            throw host::Error("cannot reach " + settings.receiver,
                              "it is not an address, or has none now", "check the name");
        handle_ = snmp_sess_add(&wanted, transport, nullptr, nullptr); // takes the transport
        if (handle_ == nullptr) {
            char *text = nullptr;
            snmp_error(&wanted, nullptr, nullptr, &text);
            const std::string cause = text != nullptr ? text : "it failed";
            free(text);
            throw host::Error("cannot open a session with " + settings.receiver, cause,
                              "check its address, and user and keys if there are some");
        }
    }
    ~Session() { snmp_sess_close(handle_); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    [[nodiscard]] void *get() const { return handle_; }

  private:
    // The library copies what `wanted` points at when the session is added.
    static void SetUpV2c(netsnmp_session &session, const SnmpOptions &settings)
    {
        session.version = SNMP_VERSION_2c;
        session.community = Bytes(settings.community);
        session.community_len = settings.community.size();
    }
    static void SetUpV3(netsnmp_session &session, const SnmpOptions &settings)
    {
        session.version = SNMP_VERSION_3;
        session.securityModel = SNMP_SEC_MODEL_USM;
        session.securityName = const_cast<char *>(settings.user.c_str());
        session.securityNameLen = settings.user.size();
        session.securityLevel = SNMP_SEC_LEVEL_NOAUTH;
        if (!settings.auth.empty()) {
            session.securityLevel = SNMP_SEC_LEVEL_AUTHNOPRIV;
            const int type = usm_lookup_auth_type(settings.auth.c_str());
            session.securityAuthProto = sc_get_auth_oid(type, &session.securityAuthProtoLen);
            // In: the room for the key. Out: its length.
            session.securityAuthKeyLen = USM_AUTH_KU_LEN;
            MakeKey(session.securityAuthProto, session.securityAuthProtoLen, settings.auth_key,
                    session.securityAuthKey, &session.securityAuthKeyLen);
        }
        if (!settings.priv.empty()) {
            session.securityLevel = SNMP_SEC_LEVEL_AUTHPRIV;
            const int type = usm_lookup_priv_type(settings.priv.c_str());
            session.securityPrivProto = sc_get_priv_oid(type, &session.securityPrivProtoLen);
            session.securityPrivKeyLen = USM_PRIV_KU_LEN;
            MakeKey(session.securityAuthProto, session.securityAuthProtoLen, settings.priv_key,
                    session.securityPrivKey, &session.securityPrivKeyLen);
        }
        if (!settings.is_inform)
            BeAuthoritative(session, settings);
    }
    // The key from the pass phrase. The library makes the one of the receiver from it, with the
    // receiver's engine ID.
    static void MakeKey(const oid *auth, size_t auth_size, const std::string &secret,
                        unsigned char *key, size_t *key_size)
    {
        if (generate_Ku(auth, static_cast<u_int>(auth_size), Bytes(secret), secret.size(), key,
                        key_size) != SNMPERR_SUCCESS)
            throw host::Error("cannot use a key of SNMP v3", "it has fewer than 8 characters",
                              "write a longer one into its file");
    }
    // A trap is dated by the sender's clock, which must never go back: each start counts as a boot.
    static void BeAuthoritative(netsnmp_session &session, const SnmpOptions &settings)
    {
        // A count of boots has 31 bits: seconds since then fit until 2088.
        constexpr time_t kBegin = 1577836800; // 2020-01-01
        auto *id = const_cast<unsigned char *>(settings.engine_id.data());
        session.securityEngineID = id;
        session.securityEngineIDLen = settings.engine_id.size();
        session.contextEngineID = id;
        session.contextEngineIDLen = settings.engine_id.size();
        session.engineBoots = static_cast<u_int>(time(nullptr) - kBegin);
        session.engineTime = 1;
        set_enginetime(id, static_cast<u_int>(settings.engine_id.size()), session.engineBoots,
                       session.engineTime, TRUE);
    }

    void *handle_ = nullptr;
};

class SnmpSink : public Sink {
  public:
    explicit SnmpSink(SnmpOptions settings) : settings_(std::move(settings)) {}
    ~SnmpSink() override
    {
        const std::lock_guard lock(library_lock);
        session_.reset();
    }
    SnmpSink(const SnmpSink &) = delete;
    SnmpSink &operator=(const SnmpSink &) = delete;

    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        // What an earlier request has left here is not the answer to this one.
        reply_ = {};
        // One at a time: each needs its own answer.
        const std::string failure = Post(messages[0]);
        if (!failure.empty())
            return Failed(settings_.receiver + ": " + failure);
        if (!settings_.is_inform)
            return AllTaken(messages.first(1),
                            "sent to " + settings_.receiver + ", which acknowledges no trap");
        WaitForReply(interrupt);
        // Over UDP, one that does not answer to this alert looks like one that is down.
        if (!reply_.has_come)
            return Failed(settings_.receiver + ": no answer");
        const std::string text = settings_.receiver + ": " + reply_.error;
        if (!reply_.error.empty())
            return reply_.is_refusal ? Refused(text) : Failed(text);
        return AllTaken(messages.first(1), settings_.receiver + " has acknowledged it");
    }

  private:
    std::string Post(const Message &message)
    {
        const std::lock_guard lock(library_lock);
        if (!session_)
            session_ = std::make_unique<Session>(settings_);
        netsnmp_pdu *pdu = snmp_pdu_create(settings_.is_inform ? SNMP_MSG_INFORM : SNMP_MSG_TRAP2);
        AddObjects(pdu, message);
        // The first time, the library asks a receiver of v3 for its engine ID, and waits for the
        // answer under the lock: once only.
        netsnmp_session *session = snmp_sess_session(session_->get());
        session->retries = 0;
        const int sent = settings_.is_inform
                             ? snmp_sess_async_send(session_->get(), pdu, OnReply, &reply_)
                             : snmp_sess_send(session_->get(), pdu);
        // With a try a second, its time limit. The library sends again by itself, in
        // snmp_sess_timeout.
        session->retries = static_cast<int>(settings_.timeout_s);
        if (sent != 0)
            return {};
        // Only one that was not sent is ours to free.
        snmp_free_pdu(pdu);
        return SnmpError(session_->get());
    }
    void WaitForReply(const Interrupt &interrupt)
    {
        const auto deadline = Clock::now() + std::chrono::seconds(settings_.timeout_s);
        const int fd = snmp_sess_transport(session_->get())->sock;
        while (!reply_.has_come && Clock::now() < deadline && !interrupt.IsRaised()) {
            // Without the lock: other sinks may send meanwhile.
            pollfd waiting{fd, POLLIN, 0};
            const int ready = poll(&waiting, 1, kSliceMs);
            const std::lock_guard lock(library_lock);
            if (ready > 0)
                Read(fd);
            else
                snmp_sess_timeout(session_->get());
        }
        if (!reply_.has_come) {
            const std::lock_guard lock(library_lock);
            session_.reset(); // with it goes the request that would still write the reply
        }
    }
    void Read(int fd) const
    {
        // The usual set holds descriptors up to 1023 only, and this one may be above.
        netsnmp_large_fd_set readable;
        netsnmp_large_fd_set_init(&readable, fd + 1);
        netsnmp_large_fd_setfd(fd, &readable);
        snmp_sess_read2(session_->get(), &readable);
        netsnmp_large_fd_set_cleanup(&readable);
    }

    static void AddText(netsnmp_pdu *pdu, oid column, const std::string &text)
    {
        size_t size = std::min(text.size(), kMaxObject);
        while (size < text.size() && size > 0 && (text[size] & 0xC0) == 0x80)
            --size; // not inside a character
        AddObject(pdu, column, ASN_OCTET_STR, text.data(), size);
    }
    static void AddObject(netsnmp_pdu *pdu, oid column, u_char type, const void *data, size_t size)
    {
        oid name[std::size(kObjects) + 2];
        std::copy(std::begin(kObjects), std::end(kObjects), name);
        name[std::size(kObjects)] = column;
        name[std::size(kObjects) + 1] = 0;
        snmp_pdu_add_variable(pdu, name, std::size(name), type, data, size);
    }
    // DateAndTime of SNMPv2-TC, in UTC.
    static void AddTime(netsnmp_pdu *pdu, oid column, int64_t time_ms)
    {
        const auto seconds = static_cast<time_t>(time_ms / 1000);
        struct tm utc {};
        gmtime_r(&seconds, &utc);
        const int year = utc.tm_year + 1900;
        const int fields[] = {year >> 8,
                              year & 0xFF,
                              utc.tm_mon + 1,
                              utc.tm_mday,
                              utc.tm_hour,
                              utc.tm_min,
                              utc.tm_sec,
                              static_cast<int>(time_ms / 100 % 10),
                              '+',
                              0,
                              0};
        u_char bytes[std::size(fields)];
        std::transform(std::begin(fields), std::end(fields), bytes,
                       [](int field) { return static_cast<u_char>(field); });
        AddObject(pdu, column, ASN_OCTET_STR, bytes, sizeof bytes);
    }
    static void AddObjects(netsnmp_pdu *pdu, const Message &message)
    {
        timespec up{};
        clock_gettime(CLOCK_BOOTTIME, &up);
        // Hundredths of a second since this host was started, in 32 bits: they begin again after
        // 497 days, as the type is meant.
        const u_long ticks = static_cast<uint32_t>(up.tv_sec * 100 + up.tv_nsec / 10'000'000);
        snmp_pdu_add_variable(pdu, kUpTime, std::size(kUpTime), ASN_TIMETICKS, &ticks,
                              sizeof ticks);
        snmp_pdu_add_variable(pdu, kTrapOid, std::size(kTrapOid), ASN_OBJECT_ID, kReported,
                              sizeof kReported);
        const alerts::Alert &alert = message.alert;
        // More than its 32 bits can hold counts as the most of them.
        const auto count = static_cast<u_long>(std::clamp<int64_t>(alert.count, 0, UINT32_MAX));
        const long is_test = message.is_test ? 1 : 2; // TruthValue
        AddText(pdu, 1, message.key);
        AddTime(pdu, 2, alert.time_ms);
        AddText(pdu, 3, alert.host);
        AddText(pdu, 4, alert.source);
        AddText(pdu, 5, events::FormatEventId(alert.event_id));
        AddObject(pdu, 6, ASN_UNSIGNED, &count, sizeof count);
        AddText(pdu, 7, alert.log_name);
        AddText(pdu, 8, alert.message);
        AddObject(pdu, 9, ASN_INTEGER, &is_test, sizeof is_test);
    }

    SnmpOptions settings_;
    Reply reply_;
    std::unique_ptr<Session> session_;
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

[[noreturn]] void Refuse(const std::string &cause, const std::string &next_step)
{
    throw host::Error("cannot make a sink of kind snmp", cause, next_step);
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

SnmpOptions SettingsOf(const SinkConfig &config, Secrets &secrets)
{
    CheckTogether(config);
    SnmpOptions settings;
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
