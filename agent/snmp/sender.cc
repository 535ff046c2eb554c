// Sends an inform, or a trap, through net-snmp. The notification and its objects are defined in
// packaging/SYSLOGMON-MIB.txt.
//
// An inform is acknowledged by the receiver, a trap is not: a trap that is lost stays lost.
//
// net-snmp keeps tables of its own that all sessions share, so its functions are called under one
// lock. No thread waits for a receiver while it holds it, but for a second at most when it asks one
// for its engine ID.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
#include <mutex>
#include <poll.h>
#include <stdexcept>

// clang-format off: the first one configures the second.
#include <net-snmp/library/large_fd_set.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// clang-format on

#include "agent/snmp/sender.h"

namespace snmp {

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

// Within this file: Send makes an answer of it.
[[noreturn]] void Fail(const std::string &thing, const std::string &cause,
                       const std::string &next_step)
{
    throw std::runtime_error(thing + ": " + cause + "; " + next_step);
}

// One open session. Made, used and closed under the lock of the library.
class Session {
  public:
    explicit Session(const Options &settings)
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
            Fail("cannot reach " + settings.receiver, "it is not an address, or has none now",
                 "check the name");
        handle_ = snmp_sess_add(&wanted, transport, nullptr, nullptr); // takes the transport
        if (handle_ == nullptr) {
            char *text = nullptr;
            snmp_error(&wanted, nullptr, nullptr, &text);
            const std::string cause = text != nullptr ? text : "it failed";
            free(text);
            Fail("cannot open a session with " + settings.receiver, cause,
                 "check its address, and user and keys if there are some");
        }
    }
    ~Session() { snmp_sess_close(handle_); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    [[nodiscard]] void *get() const { return handle_; }

  private:
    // The library copies what `wanted` points at when the session is added.
    static void SetUpV2c(netsnmp_session &session, const Options &settings)
    {
        session.version = SNMP_VERSION_2c;
        session.community = Bytes(settings.community);
        session.community_len = settings.community.size();
    }
    static void SetUpV3(netsnmp_session &session, const Options &settings)
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
            Fail("cannot use a key of SNMP v3", "it has fewer than 8 characters",
                 "write a longer one into its file");
    }
    // A trap is dated by the sender's clock, which must never go back: each start counts as a boot.
    static void BeAuthoritative(netsnmp_session &session, const Options &settings)
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

class NetSnmpSender : public Sender {
  public:
    explicit NetSnmpSender(Options settings) : settings_(std::move(settings)) {}
    ~NetSnmpSender() override
    {
        const std::lock_guard lock(library_lock);
        session_.reset();
    }
    NetSnmpSender(const NetSnmpSender &) = delete;
    NetSnmpSender &operator=(const NetSnmpSender &) = delete;

    Answer Send(const Notification &notification, const std::function<bool()> &is_ended) override
    {
        using Result = Answer::Result;
        // What an earlier request has left here is not the answer to this one.
        reply_ = {};
        try {
            const std::string failure = Post(notification);
            if (!failure.empty())
                return {Result::kFailed, settings_.receiver + ": " + failure};
        } catch (const std::runtime_error &error) {
            return {Result::kFailed, error.what()};
        }
        if (!settings_.is_inform)
            return {Result::kTaken,
                    "sent to " + settings_.receiver + ", which acknowledges no trap"};
        WaitForReply(is_ended);
        // Over UDP, one that does not answer to this alert looks like one that is down.
        if (!reply_.has_come)
            return {Result::kFailed, settings_.receiver + ": no answer"};
        if (!reply_.error.empty())
            return {reply_.is_refusal ? Result::kRefused : Result::kFailed,
                    settings_.receiver + ": " + reply_.error};
        return {Result::kTaken, settings_.receiver + " has acknowledged it"};
    }

  private:
    std::string Post(const Notification &notification)
    {
        const std::lock_guard lock(library_lock);
        if (!session_)
            session_ = std::make_unique<Session>(settings_);
        netsnmp_pdu *pdu = snmp_pdu_create(settings_.is_inform ? SNMP_MSG_INFORM : SNMP_MSG_TRAP2);
        AddObjects(pdu, notification);
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
    void WaitForReply(const std::function<bool()> &is_ended)
    {
        const auto deadline = Clock::now() + std::chrono::seconds(settings_.timeout_s);
        const int fd = snmp_sess_transport(session_->get())->sock;
        while (!reply_.has_come && Clock::now() < deadline && !is_ended()) {
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
    static void AddObjects(netsnmp_pdu *pdu, const Notification &notification)
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
        // More than its 32 bits can hold counts as the most of them.
        const auto count =
            static_cast<u_long>(std::clamp<int64_t>(notification.count, 0, UINT32_MAX));
        const long is_test = notification.is_test ? 1 : 2; // TruthValue
        AddText(pdu, 1, notification.key);
        AddTime(pdu, 2, notification.time_ms);
        AddText(pdu, 3, notification.host);
        AddText(pdu, 4, notification.source);
        AddText(pdu, 5, notification.event_id);
        AddObject(pdu, 6, ASN_UNSIGNED, &count, sizeof count);
        AddText(pdu, 7, notification.log_name);
        AddText(pdu, 8, notification.message);
        AddObject(pdu, 9, ASN_INTEGER, &is_test, sizeof is_test);
        AddText(pdu, 10, notification.monitor);
    }

    Options settings_;
    Reply reply_;
    std::unique_ptr<Session> session_;
};

} // namespace

} // namespace snmp

extern "C" __attribute__((visibility("default"))) const char SnmpSenderBuild[] = SNMP_BUILD;

extern "C" __attribute__((visibility("default"))) snmp::Sender *
MakeSnmpSender(const snmp::Options &options)
{
    return new snmp::NetSnmpSender(options);
}
