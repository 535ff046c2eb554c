#include "agent/alerts/http.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <strings.h>
#include <unistd.h>

#include <curl/curl.h>

#include "agent/alerts/option_checks.h"
#include "agent/libtarsk/error.h"

namespace alerts {

namespace {

constexpr size_t kMaxReply = 1024; // bytes of a reply's body that are kept
constexpr long kConnectSeconds = 10;

// libcurl wants to be started before the second thread of a process uses it.
struct CurlLibrary {
    CurlLibrary() { curl_global_init(CURL_GLOBAL_DEFAULT); }
    ~CurlLibrary() { curl_global_cleanup(); }
    CurlLibrary(const CurlLibrary &) = delete;
    CurlLibrary &operator=(const CurlLibrary &) = delete;
};
const CurlLibrary library;

int OnProgress(void *interrupt, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    return static_cast<const Interrupt *>(interrupt)->IsRaised() ? 1 : 0;
}

size_t OnBody(const char *data, size_t, size_t size, void *text)
{
    auto *kept = static_cast<std::string *>(text);
    kept->append(data, std::min(size, kMaxReply - kept->size()));
    return size;
}

struct FreeList {
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
};
using HeaderList = std::unique_ptr<curl_slist, FreeList>;

void Append(HeaderList &list, const std::string &header)
{
    curl_slist *longer = curl_slist_append(list.get(), header.c_str());
    if (longer == nullptr)
        throw std::bad_alloc();
    list.release();
    list.reset(longer);
}

// Some headers would show a secret in the registry.
void CheckHeader(const std::string &name)
{
    for (const char *secret : {"Authorization", "Proxy-Authorization", "Cookie", "X-Api-Key"}) {
        if (strcasecmp(name.c_str(), secret) == 0)
            throw tarsk::Error("cannot use the option header." + name,
                               "its value is a secret, and settings are shown",
                               "write it into a file and use token-file=FILE or header-file." +
                                   name + "=FILE");
    }
}

} // namespace

CurlHandle::CurlHandle(const SinkConfig &config) : handle_(curl_easy_init())
{
    if (handle_ == nullptr)
        throw tarsk::Error("cannot use libcurl", "it cannot be started", "free some memory");
    const std::string ca_file = config.Get("ca-file");
    if (!ca_file.empty() && access(ca_file.c_str(), R_OK) != 0) {
        curl_easy_cleanup(handle_);
        throw tarsk::Error("cannot read the CA file " + ca_file, strerror(errno),
                           "name a readable file with certificates in PEM form");
    }
    curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle_, CURLOPT_TIMEOUT, static_cast<long>(config.Number("timeout")));
    curl_easy_setopt(handle_, CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
    curl_easy_setopt(handle_, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle_, CURLOPT_XFERINFOFUNCTION, OnProgress);
    curl_easy_setopt(handle_, CURLOPT_ERRORBUFFER, error_);
    curl_easy_setopt(handle_, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (!ca_file.empty())
        curl_easy_setopt(handle_, CURLOPT_CAINFO, ca_file.c_str());
}

CurlHandle::~CurlHandle()
{
    curl_easy_cleanup(handle_);
}

std::string CurlHandle::Perform(const Interrupt &interrupt)
{
    error_[0] = '\0';
    curl_easy_setopt(handle_, CURLOPT_XFERINFODATA, &interrupt);
    const CURLcode result = curl_easy_perform(handle_);
    if (result == CURLE_OK)
        return {};
    return error_[0] != '\0' ? error_ : curl_easy_strerror(result);
}

HttpClient::HttpClient(const SinkConfig &config, Secrets &secrets) : curl_(config)
{
    curl_easy_setopt(curl_.get(), CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl_.get(), CURLOPT_WRITEFUNCTION, OnBody);
    curl_easy_setopt(curl_.get(), CURLOPT_USERAGENT, "syslogmon");
    headers_.emplace_back("Content-Type: application/json");
    headers_.emplace_back("Expect:"); // no "100-continue", which many receivers do not know
    for (const auto &[name, value] : config.All("header.")) {
        CheckHeader(name);
        headers_.push_back(name + ": " + value);
    }
    for (const auto &[name, file] : config.All("header-file."))
        headers_.push_back(name + ": " + secrets.Read(file));
    if (config.Has("token-file"))
        headers_.push_back("Authorization: Bearer " + secrets.Read(config.Get("token-file")));
}

HttpReply HttpClient::Post(const std::string &url, const std::string &body,
                           const std::vector<std::string> &headers, const Interrupt &interrupt)
{
    HeaderList list;
    for (const std::string &header : headers_)
        Append(list, header);
    for (const std::string &header : headers)
        Append(list, header);
    std::string text;
    CURL *handle = curl_.get();
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list.get());
    curl_easy_setopt(handle, CURLOPT_POST, 1L);
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &text);
    const std::string failure = curl_.Perform(interrupt);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, nullptr);
    HttpReply reply;
    if (!failure.empty()) {
        reply.text = failure;
        return reply;
    }
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &reply.status);
    reply.text = text;
    return reply;
}

std::vector<SinkOption> HttpOptions()
{
    return {
        {"ca-file", "FILE", "", "certificates (PEM) to trust instead of the system's", CheckPath},
        {"token-file", "FILE", "", "a file with a token: Authorization: Bearer", CheckPath, true},
        {"header.", "TEXT", "", "a header of the request, such as header.X-Team=ops", CheckText},
        {"header-file.", "FILE", "", "a header whose value is in a file", CheckPath, true},
        {"timeout", "SECONDS", "10", "time limit of a request", CheckTimeout},
    };
}

Outcome Judge(const HttpReply &reply, std::span<const Message> messages)
{
    if (reply.status == 0)
        return Failed(reply.text);
    const std::string answer =
        "HTTP " + std::to_string(reply.status) + (reply.text.empty() ? "" : " " + reply.text);
    if (reply.status >= 200 && reply.status < 300)
        return AllTaken(messages, answer);
    const bool is_refusal = reply.status == 400 || reply.status == 413 || reply.status == 422;
    return is_refusal ? Refused(answer) : Failed(answer);
}

} // namespace alerts
