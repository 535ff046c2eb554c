// Kind "mail": a mail by SMTP, through libcurl. Alerts that wait together go in one mail.
#include <algorithm>
#include <ctime>
#include <memory>
#include <new>

#include <curl/curl.h>

#include "agent/host/error.h"
#include "agent/sinks/http.h"
#include "agent/sinks/mail_text.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"

namespace sinks {

namespace {

struct FreeMime {
    void operator()(curl_mime *mime) const { curl_mime_free(mime); }
};
using Mime = std::unique_ptr<curl_mime, FreeMime>;

// A mail of one part. libcurl copies the text.
Mime MimeOf(CURL *handle, const std::string &text)
{
    Mime mime(curl_mime_init(handle));
    curl_mimepart *part = mime ? curl_mime_addpart(mime.get()) : nullptr;
    if (part == nullptr || curl_mime_data(part, text.data(), text.size()) != CURLE_OK ||
        curl_mime_type(part, "text/plain; charset=utf-8") != CURLE_OK ||
        curl_mime_encoder(part, "quoted-printable") != CURLE_OK)
        throw std::bad_alloc();
    return mime;
}

// Keeps its connection from one mail to the next, as the other sinks of libcurl do. libcurl copies
// texts that are set and not lists: `receivers_` lives as long as the handle is used.
class MailSink : public Sink {
  public:
    MailSink(const SinkConfig &config, Secrets &secrets)
        : curl_(config), from_(config.Get("from")), to_(config.Get("to")),
          receivers_(CurlListOf(ReceiversIn(to_))),
          batch_(static_cast<size_t>(config.Number("digest")))
    {
        CURL *handle = curl_.get();
        curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "smtp,smtps");
        curl_easy_setopt(handle, CURLOPT_URL, config.Get("server").c_str());
        curl_easy_setopt(handle, CURLOPT_MAIL_FROM, from_.c_str());
        curl_easy_setopt(handle, CURLOPT_MAIL_RCPT, receivers_.get());
        const std::string tls = config.Get("tls");
        // With a user, nothing is sent without TLS. CheckTogether refuses tls=none for that, except
        // over smtps, which is encrypted from its beginning.
        const bool is_required = tls == "required" || (tls == "auto" && config.Has("user"));
        long use = is_required ? CURLUSESSL_ALL : CURLUSESSL_TRY;
        if (tls == "none")
            use = CURLUSESSL_NONE;
        curl_easy_setopt(handle, CURLOPT_USE_SSL, use);
        if (config.Has("user")) {
            curl_easy_setopt(handle, CURLOPT_USERNAME, config.Get("user").c_str());
            curl_easy_setopt(handle, CURLOPT_PASSWORD,
                             secrets.Read(config.Get("password-file")).c_str());
        }
    }

    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        CURL *handle = curl_.get();
        // Of this mail: both are taken away from the handle before they go.
        const CurlList headers = CurlListOf(MailHeaders(messages, from_, to_, time(nullptr)));
        const Mime mime = MimeOf(handle, MailBody(messages));
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
        curl_easy_setopt(handle, CURLOPT_MIMEPOST, mime.get());
        const std::string failure = curl_.Perform(interrupt);
        curl_easy_setopt(handle, CURLOPT_MIMEPOST, nullptr);
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, nullptr);
        if (failure.empty())
            return AllTaken(messages, "the mail server has taken it");
        long code = 0;
        curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &code);
        curl_off_t sent = 0; // bytes of the mail
        curl_easy_getinfo(handle, CURLINFO_SIZE_UPLOAD_T, &sent);
        const std::string answer =
            failure + (code > 0 ? " (SMTP " + std::to_string(code) + ")" : "");
        // 421: it takes none at present. 43x and 53x: it wants to know who we are. Neither has to do
        // with this mail.
        const bool is_of_server = code == 421 || code / 10 == 43 || code / 10 == 53;
        // An answer of 4xx or 5xx, or a part of the text was sent: the server has seen enough of
        // this mail for it to be the reason.
        const bool had_it = code >= 400 || sent > 0;
        return had_it && !is_of_server ? Refused(answer) : Failed(answer);
    }
    [[nodiscard]] size_t batch() const override { return batch_; }
    [[nodiscard]] bool IsBatchOneMessage() const override { return true; }

  private:
    CurlHandle curl_;
    std::string from_;
    std::string to_;
    CurlList receivers_;
    size_t batch_;
};

// No user and no password in it, since settings are shown.
std::string CheckServer(const std::string &value)
{
    const bool is_smtp = value.starts_with("smtp://") || value.starts_with("smtps://");
    const std::string rest = is_smtp ? value.substr(value.find("//") + 2) : "";
    return is_smtp && CheckText(value).empty() && !rest.empty() &&
                   rest.find_first_of("@/ ?#") == std::string::npos
               ? ""
               : "smtp://HOST[:PORT] or smtps://HOST[:PORT], without user and password in it";
}

// Not a check of what mail allows, only of what would break the protocol or the list.
bool IsAddress(const std::string &text)
{
    const size_t at = text.find('@');
    return CheckText(text).empty() && at != std::string::npos && at > 0 && at + 1 < text.size() &&
           text.find_first_of(" ,<>\"") == std::string::npos;
}

std::string CheckAddress(const std::string &value)
{
    return IsAddress(value) ? "" : "an address such as monitor@example.com";
}

std::string CheckAddresses(const std::string &value)
{
    const auto addresses = ReceiversIn(value);
    const bool ok =
        !addresses.empty() && std::all_of(addresses.begin(), addresses.end(), IsAddress);
    return ok ? "" : "addresses separated by commas, such as ops@example.com,boss@example.com";
}

std::string CheckTls(const std::string &value)
{
    return CheckWord(value, "auto required none");
}

std::string CheckDigest(const std::string &value)
{
    return CheckRange(value, 1, 500, "alerts");
}

void CheckTogether(const SinkConfig &config)
{
    if (config.Has("user") != config.Has("password-file"))
        throw host::Error("cannot make a sink of kind mail",
                          config.Has("user") ? "it has a user and no password"
                                             : "it has a password and no user",
                          "add both user=NAME and password-file=FILE");
    if (config.Has("user") && config.Get("tls") == "none" &&
        !config.Get("server").starts_with("smtps"))
        throw host::Error("cannot make a sink of kind mail",
                          "its password would be sent without encryption", "use tls=required");
}

} // namespace

SinkKind MailKind()
{
    SinkKind kind;
    kind.name = "mail";
    kind.help = "a mail by SMTP";
    kind.options = {
        {"server", "URL", nullptr, "smtp://HOST[:PORT] or smtps://HOST[:PORT]", CheckServer},
        {"from", "ADDRESS", nullptr, "the sender", CheckAddress},
        {"to", "ADDRESS,...", nullptr, "the receivers", CheckAddresses},
        {"user", "NAME", "", "the name to log in with", CheckText},
        {"password-file", "FILE", "", "a file with the password", CheckPath, true},
        {"tls", "WORD", "auto", "required, none, or auto: when offered, and always with a user",
         CheckTls},
        {"ca-file", "FILE", "", "certificates (PEM) to trust instead of the system's", CheckPath},
        {"digest", "NUMBER", "20", "the most alerts in one mail", CheckDigest},
        {"timeout", "SECONDS", "30", "time limit of a mail", CheckTimeout},
    };
    kind.open = [](const SinkConfig &config, const std::string &,
                   Secrets &secrets) -> std::unique_ptr<Sink> {
        CheckTogether(config);
        return std::make_unique<MailSink>(config, secrets);
    };
    return kind;
}

} // namespace sinks
