// Kind "mail": a mail by SMTP, through libcurl. Alerts that wait together go in one mail.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <memory>
#include <sstream>

#include <curl/curl.h>

#include "agent/host/error.h"
#include "agent/sinks/http.h"
#include "agent/sinks/mail_text.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"

namespace sinks {

namespace {

// A list with commas, blanks around each part taken away. An empty part between two commas stays,
// and is no address.
std::vector<std::string> Split(const std::string &list)
{
    std::vector<std::string> parts;
    std::istringstream text(list);
    for (std::string part; std::getline(text, part, ',');) {
        part.erase(0, part.find_first_not_of(' '));
        part.erase(part.find_last_not_of(' ') + 1);
        parts.push_back(part);
    }
    return parts;
}

// What is left to be sent of a text.
size_t OnRead(char *buffer, size_t, size_t size, void *left)
{
    auto *text = static_cast<std::string_view *>(left);
    const size_t count = text->copy(buffer, size);
    text->remove_prefix(count);
    return count;
}

// Keeps its connection from one mail to the next, as the other sinks of libcurl do. libcurl copies
// texts that are set and not lists: `receivers_` lives as long as the handle is used.
class MailSink : public Sink {
  public:
    MailSink(const SinkConfig &config, Secrets &secrets)
        : curl_(config), from_(config.Get("from")), to_(config.Get("to")),
          batch_(static_cast<size_t>(config.Number("digest")))
    {
        CURL *handle = curl_.get();
        curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "smtp,smtps");
        curl_easy_setopt(handle, CURLOPT_URL, config.Get("server").c_str());
        curl_easy_setopt(handle, CURLOPT_MAIL_FROM, from_.c_str());
        for (const std::string &receiver : Split(to_))
            receivers_ = curl_slist_append(receivers_, receiver.c_str());
        curl_easy_setopt(handle, CURLOPT_MAIL_RCPT, receivers_);
        curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(handle, CURLOPT_READFUNCTION, OnRead);
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
    ~MailSink() override { curl_slist_free_all(receivers_); }
    MailSink(const MailSink &) = delete;
    MailSink &operator=(const MailSink &) = delete;

    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override
    {
        const std::string text = MailText(messages, from_, to_, time(nullptr));
        // Of this mail; OnRead takes from it. Both end with this call, and each call sets its own.
        std::string_view left = text;
        curl_easy_setopt(curl_.get(), CURLOPT_READDATA, &left);
        const std::string failure = curl_.Perform(interrupt);
        if (failure.empty())
            return AllTaken(messages, "the mail server has taken it");
        long code = 0;
        curl_easy_getinfo(curl_.get(), CURLINFO_RESPONSE_CODE, &code);
        const std::string answer =
            failure + (code > 0 ? " (SMTP " + std::to_string(code) + ")" : "");
        // 421: it takes none at present. 43x and 53x: it wants to know who we are. Neither has to do
        // with this mail.
        const bool is_of_server = code == 421 || code / 10 == 43 || code / 10 == 53;
        // An answer of 4xx or 5xx, or a part of the text was read: the server has seen enough of
        // this mail for it to be the reason.
        const bool had_it = code >= 400 || left.size() < text.size();
        return had_it && !is_of_server ? Refused(answer) : Failed(answer);
    }
    [[nodiscard]] size_t batch() const override { return batch_; }

  private:
    CurlHandle curl_;
    std::string from_;
    std::string to_;
    size_t batch_;
    curl_slist *receivers_ = nullptr;
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
    const auto addresses = Split(value);
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
