// HTTP requests for sinks, through libcurl. One client keeps its connection open from one request
// to the next. A client and its handle belong to the thread of their sink; libcurl itself is
// started once, before main.
#ifndef AGENT_SINKS_HTTP_H
#define AGENT_SINKS_HTTP_H

#include <memory>
#include <string>
#include <vector>

#include "agent/sinks/sink.h"

using CURL = void;
struct curl_slist;

namespace sinks {

// A list of texts for libcurl, which copies texts that are set and not lists.
struct FreeCurlList {
    void operator()(curl_slist *list) const;
};
using CurlList = std::unique_ptr<curl_slist, FreeCurlList>;
// Throws std::bad_alloc.
CurlList CurlListOf(const std::vector<std::string> &texts);

// An easy handle of libcurl with what all sinks want: no signals, time limits, an own CA file, an
// end when the interrupt is raised.
class CurlHandle {
  public:
    // Options of the sink that are used: ca-file, timeout. Throws host::Error when the file cannot
    // be read.
    explicit CurlHandle(const SinkConfig &config);
    ~CurlHandle();
    CurlHandle(const CurlHandle &) = delete;
    CurlHandle &operator=(const CurlHandle &) = delete;

    // For the options of a kind. What is set stays for all requests.
    [[nodiscard]] CURL *get() const { return handle_; }
    // Does what was set up. Empty, or why it failed.
    std::string Perform(const Interrupt &interrupt);

  private:
    CURL *handle_;
    // What libcurl writes about a failure. It keeps the address, so this object does not move.
    char error_[256] = {}; // CURL_ERROR_SIZE
};

// What came of a request.
struct HttpReply {
    long status = 0;       // 0: there was none
    std::string text;      // of the body, the first 64 KiB; or why there was none
    bool was_sent = false; // the request, or a part of it
    std::chrono::seconds retry_after{
        0}; // the header of that name, a day at most; 0: there was none
};

class HttpClient {
  public:
    // Options of the sink that are used: those of CurlHandle, cert, key, proxy, token-file, header.,
    // header-file.. `authorization` is what stands before the token.
    // Throws host::Error for a header that cannot be, and when a file cannot be read. Secrets are
    // read here and not again: a sink that fails is opened anew, and so takes new ones.
    HttpClient(const SinkConfig &config, Secrets &secrets,
               const std::string &content_type = "application/json",
               const std::string &authorization = "Bearer");

    // Posts JSON, with `headers` ("Name: value") beside those of the options. Throws nothing but
    // std::bad_alloc; what fails is in the reply.
    HttpReply Post(const std::string &url, const std::string &body,
                   const std::vector<std::string> &headers, const Interrupt &interrupt);

  private:
    CurlHandle curl_;
    // "Name: value", secrets included: never shown.
    std::vector<std::string> headers_;
};

// The options that HttpClient uses, for the table of a kind.
std::vector<SinkOption> HttpOptions();

// Does what is sent there leave this host without encryption?
bool IsPlainHttp(const std::string &url);

// What is unsafe about sending the secrets of a sink to these.
std::vector<std::string> PlainHttpWarnings(const SinkConfig &config,
                                           const std::vector<std::string> &urls);

// The beginning of its text, for people.
std::string ShownOf(const HttpReply &reply);

// What a reply means. 2xx: taken. A status that says nothing of the alert (redirections, 401, 404, 407,
// 429, 503), or a request that could not be sent: a failure. Anything else, a request without an answer
// included: refused.
Outcome Judge(const HttpReply &reply, std::span<const Message> messages);

} // namespace sinks

#endif // AGENT_SINKS_HTTP_H
