#include "agent/sinks/http.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <new>
#include <unistd.h>

#include <curl/curl.h>

#include "agent/host/error.h"
#include "agent/sinks/option_checks.h"

namespace sinks {

namespace {

// Bytes of a reply's body that are kept, to be judged by; and of those, as many as somebody reads.
constexpr size_t kMaxReply = 64 * size_t{1024};
constexpr size_t kMaxShown = 1024;
// Within the time limit of the whole request. A host that is down mostly does not answer at all.
constexpr long kConnectSeconds = 10;
// What is kept of a wish for the next try: anybody can write any number.
constexpr curl_off_t kLongestRetrySeconds = curl_off_t{24} * 60 * 60;
// Who sends, where to, or when is wrong: any alert would be answered so.
constexpr long kOfReceiver[] = {401, 404, 407, 429, 503};

// libcurl wants to be started before the second thread of a process uses it.
struct CurlLibrary {
    CurlLibrary() { curl_global_init(CURL_GLOBAL_DEFAULT); }
    ~CurlLibrary() { curl_global_cleanup(); }
    CurlLibrary(const CurlLibrary &) = delete;
    CurlLibrary &operator=(const CurlLibrary &) = delete;
};
// libcurl wants to be started before the second thread of a process uses it: so with the objects of
// the program, before main.
const CurlLibrary library;

// Called by libcurl about once a second and with each piece of data; 1 ends the request.
int OnProgress(void *interrupt, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    return static_cast<const Interrupt *>(interrupt)->IsRaised() ? 1 : 0;
}

// What is beyond the limit is read and dropped: libcurl takes any other result than `size` for a
// failure, and the status is what counts.
size_t OnBody(const char *data, size_t, size_t size, void *text)
{
    auto *kept = static_cast<std::string *>(text);
    kept->append(data, std::min(size, kMaxReply - kept->size()));
    return size;
}

// "HTTP/1.1 200 OK": a version, and a status of three digits behind blanks. 0: it is something else.
long StatusIn(std::string_view line)
{
    const size_t digits = line.find_first_not_of("0123456789.", strlen("HTTP/"));
    const size_t status = line.find_first_not_of(' ', digits);
    const bool is_one = digits != std::string_view::npos && line[digits] == ' ' &&
                        status != std::string_view::npos &&
                        line.find_first_not_of("0123456789", status) == status + 3;
    return is_one ? std::stol(std::string(line.substr(status, 3))) : 0;
}

// libcurl takes a first line that it does not understand for one with the status 200.
size_t OnHeader(const char *data, size_t, size_t size, void *status)
{
    const std::string_view line(data, size);
    if (line.starts_with("HTTP/"))
        *static_cast<long *>(status) = StatusIn(line);
    return size;
}

// Both files or none. That they can be read is looked at here, for a better message than libcurl's.
void SetCertificate(CURL *handle, const SinkConfig &config, Secrets &secrets)
{
    if (config.Has("cert") != config.Has("key"))
        throw host::Error("cannot use a certificate of the client",
                          config.Has("cert") ? "it has no key" : "there is a key alone",
                          "add both cert=FILE and key=FILE");
    if (!config.Has("cert"))
        return;
    for (const char *option : {"cert", "key"}) {
        const std::string file = config.Get(option);
        const int failure = access(file.c_str(), R_OK) == 0 ? 0 : errno;
        const bool is_secret = strcmp(option, "key") == 0;
        if (failure != 0 && !(is_secret && secrets.Excuses(file, failure)))
            throw host::Error("cannot read the file " + file, strerror(failure),
                              "name a readable file in PEM form");
    }
    curl_easy_setopt(handle, CURLOPT_SSLCERT, config.Get("cert").c_str());
    curl_easy_setopt(handle, CURLOPT_SSLKEY, config.Get("key").c_str());
}

// A name with a line end in it would be a header of its own, and one with a blank passes for another
// name.
void CheckHeaderName(const std::string &option, const std::string &name)
{
    // The characters of a token, as HTTP has it.
    const bool ok = std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return isalnum(c) != 0 || (c < 0x80 && c != 0 && strchr("!#$%&'*+-.^_`|~", c) != nullptr);
    });
    if (ok)
        return;
    std::string shown = name;
    std::replace_if(
        shown.begin(), shown.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }, '?');
    throw host::Error("cannot use the option " + option + shown, "a header cannot have that name",
                      "use letters, digits and \"-\"");
}

std::string HeaderLine(const std::string &name, const std::string &value)
{
    return name + ": " + value;
}

// The values of some headers are secrets, which would be shown with the settings.
void CheckIsNoSecret(const std::string &name)
{
    std::string letters;
    for (const char c : name) {
        if (isalpha(static_cast<unsigned char>(c)) != 0)
            letters += static_cast<char>(tolower(static_cast<unsigned char>(c)));
    }
    // By its letters alone, so that X-Api-Key and apikey are one.
    for (const char *secret :
         {"authorization", "cookie", "token", "apikey", "secret", "password", "credential"}) {
        if (letters.find(secret) != std::string::npos)
            throw host::Error("cannot use the option header." + name,
                              "its value is a secret, and settings are shown",
                              "write it into a file and use token-file=FILE or header-file." +
                                  name + "=FILE");
    }
}

} // namespace

void FreeCurlList::operator()(curl_slist *list) const
{
    curl_slist_free_all(list);
}

CurlList CurlListOf(const std::vector<std::string> &texts)
{
    CurlList list;
    for (const std::string &text : texts) {
        // The new head of the list, or null, which leaves the old one.
        curl_slist *longer = curl_slist_append(list.get(), text.c_str());
        if (longer == nullptr)
            throw std::bad_alloc();
        (void)list.release();
        list.reset(longer);
    }
    return list;
}

CurlHandle::CurlHandle(const SinkConfig &config) : handle_(curl_easy_init())
{
    if (handle_ == nullptr)
        throw host::Error("cannot use libcurl", "it cannot be started", "free some memory");
    const std::string ca_file = config.Get("ca-file");
    if (!ca_file.empty() && access(ca_file.c_str(), R_OK) != 0) {
        // The destructor does not run for an object whose constructor throws.
        curl_easy_cleanup(handle_);
        throw host::Error("cannot read the CA file " + ca_file, strerror(errno),
                          "name a readable file with certificates in PEM form");
    }
    // NOSIGNAL: a library in a program with threads must not set alarms. Below TLS 1.2 nothing is
    // spoken. That the CA file can be read was looked at above, for a better message.
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
    // libcurl does not fill the buffer for each failure.
    return error_[0] != '\0' ? error_ : curl_easy_strerror(result);
}

HttpClient::HttpClient(const SinkConfig &config, Secrets &secrets, const std::string &content_type,
                       const std::string &authorization)
    : curl_(config)
{
    // An address that comes from a file must not be file:/// or another of libcurl's many.
    // Redirections are not followed, which is the standard: they would take the secrets elsewhere.
    curl_easy_setopt(curl_.get(), CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl_.get(), CURLOPT_FOLLOWLOCATION, 0L);
    SetCertificate(curl_.get(), config, secrets);
    if (config.Has("proxy"))
        curl_easy_setopt(curl_.get(), CURLOPT_PROXY, config.Get("proxy").c_str());
    curl_easy_setopt(curl_.get(), CURLOPT_WRITEFUNCTION, OnBody);
    curl_easy_setopt(curl_.get(), CURLOPT_HEADERFUNCTION, OnHeader);
    curl_easy_setopt(curl_.get(), CURLOPT_USERAGENT, "syslogmon");
    headers_.push_back("Content-Type: " + content_type);
    headers_.emplace_back("Expect:"); // no "100-continue", which many receivers do not know
    for (const auto &[name, value] : config.All("header.")) {
        CheckHeaderName("header.", name);
        CheckIsNoSecret(name);
        headers_.push_back(HeaderLine(name, value));
    }
    for (const auto &[name, file] : config.All("header-file.")) {
        CheckHeaderName("header-file.", name);
        const std::string value = secrets.Read(file);
        secrets.AddPart(value, " ,;=:\""); // of "Splunk TOKEN", the token
        headers_.push_back(HeaderLine(name, value));
    }
    if (config.Has("token-file"))
        headers_.push_back("Authorization: " + authorization + " " +
                           secrets.Read(config.Get("token-file")));
}

HttpReply HttpClient::Post(const std::string &url, const std::string &body,
                           const std::vector<std::string> &headers, const Interrupt &interrupt)
{
    // libcurl copies neither this list nor the body: both live until the request is over, and the
    // list is taken away from the handle before it goes.
    std::vector<std::string> all = headers_;
    all.insert(all.end(), headers.begin(), headers.end());
    const CurlList list = CurlListOf(all);
    std::string text;
    long status = 0; // as it was sent
    CURL *handle = curl_.get();
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list.get());
    curl_easy_setopt(handle, CURLOPT_POST, 1L);
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &text);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &status);
    const std::string failure = curl_.Perform(interrupt);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, nullptr);
    HttpReply reply;
    // A request that was begun and not answered may have been too much for the receiver: then the
    // alert can be the reason. One that the daemon's end has cut off says nothing about it.
    long sent = 0; // bytes
    curl_easy_getinfo(handle, CURLINFO_REQUEST_SIZE, &sent);
    reply.was_sent = sent > 0 && !interrupt.IsRaised();
    long understood = 0;
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &understood);
    if (!failure.empty() || status == 0 || status != understood) {
        reply.text = !failure.empty() ? failure : "its answer is not HTTP";
        return reply;
    }
    reply.status = status;
    curl_off_t retry_after = 0; // of a number, or of a date, which libcurl understands as well
    curl_easy_getinfo(handle, CURLINFO_RETRY_AFTER, &retry_after);
    reply.retry_after =
        std::chrono::seconds(std::clamp<curl_off_t>(retry_after, 0, kLongestRetrySeconds));
    reply.text = text;
    return reply;
}

std::vector<SinkOption> HttpOptions()
{
    return {
        {"ca-file", "FILE", "", "certificates (PEM) to trust instead of the system's", CheckPath},
        {"cert", "FILE", "", "the client's certificate (PEM)", CheckPath},
        {"key", "FILE", "", "the private key of that certificate (PEM)", CheckPath, true},
        {"proxy", "URL", "", "http://HOST:PORT, through which requests go", CheckHttpUrl},
        {"token-file", "FILE", "", "a file with a token: Authorization: Bearer", CheckPath, true},
        {"header.", "TEXT", "", "a header of the request, such as header.X-Team=ops", CheckText},
        {"header-file.", "FILE", "", "a header whose value is in a file", CheckPath, true},
        {"timeout", "SECONDS", "10", "time limit of a request", CheckTimeout},
    };
}

bool IsPlainHttp(const std::string &url)
{
    // Scheme, then the name up to the port. What stays on this host needs no encryption.
    if (!url.starts_with("http://"))
        return false;
    const size_t begin = url.find("//") + 2;
    const std::string host = url.substr(begin, url.find_first_of("/?#", begin) - begin);
    const std::string name =
        host.substr(0, host.starts_with('[') ? host.find(']') + 1 : host.find(':'));
    return name != "localhost" && name != "[::1]" && !name.starts_with("127.");
}

std::vector<std::string> PlainHttpWarnings(const SinkConfig &config,
                                           const std::vector<std::string> &urls)
{
    std::vector<std::string> warnings;
    const bool has_secret = config.Has("token-file") || !config.All("header-file.").empty();
    for (const std::string &url : urls) {
        if (has_secret && IsPlainHttp(url))
            warnings.push_back(
                "its secret goes to " + url +
                " without encryption, for everybody on the way to read; use https://");
    }
    return warnings;
}

std::string ShownOf(const HttpReply &reply)
{
    return reply.text.substr(0, kMaxShown);
}

Outcome Judge(const HttpReply &reply, std::span<const Message> messages)
{
    // No answer at all; see HttpReply::was_sent.
    if (reply.status == 0)
        return reply.was_sent ? Refused(reply.text) : Failed(reply.text);
    const std::string answer =
        "HTTP " + std::to_string(reply.status) + (reply.text.empty() ? "" : " " + ShownOf(reply));
    if (reply.status >= 200 && reply.status < 300)
        return AllTaken(messages, answer);
    const bool is_of_receiver =
        reply.status < 400 || std::find(std::begin(kOfReceiver), std::end(kOfReceiver),
                                        reply.status) != std::end(kOfReceiver);
    Outcome outcome = is_of_receiver ? Failed(answer) : Refused(answer);
    outcome.retry_after = reply.retry_after;
    return outcome;
}

} // namespace sinks
