#include "agent/web/page_server.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include <microhttpd.h>

#include "agent/host/error.h"
#include "agent/host/here_and_now.h"
#include "agent/host/private_file.h"
#include "agent/host/schema.h"
#include "agent/text/base64.h"
#include "agent/web/answers.h"
#include "agent/web/deadlines.h"
#include "agent/web/guard.h"
#include "agent/web/listener.h"
#include "agent/web/own_names.h"
#include "agent/web/page_files.h"
#include "agent/web/streams.h"

namespace web {

namespace {

constexpr char kStreamPath[] = "/api/v1/stream";

// A few people and a collector; a browser takes up to six.
constexpr unsigned kMostConnections = 64;
static_assert(TimeLimits().request > TimeLimits().idle);
// Of a connection: request line and headers must fit.
constexpr size_t kConnectionBytes = size_t{32} * 1024;

// Nothing but this server's own files is loaded. Of what stands in the page itself, its own style sheet alone counts, known
// by its digest: fetching it would keep the first frame waiting.
std::string ContentPolicy()
{
    const std::span<const unsigned char> digest = PageStyleDigest();
    return "default-src 'none'; script-src 'self'; style-src 'self' 'sha256-" +
           text::EncodeBase64({reinterpret_cast<const char *>(digest.data()), digest.size()}) +
           "'; connect-src 'self'; img-src 'self'; base-uri 'none'; form-action 'none'; "
           "frame-ancestors 'none'";
}

constexpr std::pair<const char *, const char *> kHeaders[] = {
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
};

using ResponsePtr = std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)>;

ResponsePtr Owned(MHD_Response *response)
{
    return {response, &MHD_destroy_response};
}

void Add(const ResponsePtr &response, const char *name, const std::string &value)
{
    MHD_add_response_header(response.get(), name, value.c_str());
}

std::string Header(MHD_Connection *connection, const char *name)
{
    const char *value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value != nullptr ? value : "";
}

int SocketOf(MHD_Connection *connection)
{
    return MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
}

// A connection that gets no deadline, for want of memory, could stay for ever: it is ended.
void AwaitRequest(Deadlines *deadlines, int socket)
{
    try {
        deadlines->AwaitRequest(socket);
    } catch (const std::exception &) {
        shutdown(socket, SHUT_RDWR);
    }
}

MHD_Result TakeArgument(void *query, MHD_ValueKind /*kind*/, const char *key, const char *value)
{
    (*static_cast<Query *>(query))[key] = value != nullptr ? value : "";
    return MHD_YES;
}

Query QueryOf(MHD_Connection *connection)
{
    Query query;
    MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, TakeArgument, &query);
    return query;
}

MHD_Result Send(MHD_Connection *connection, unsigned status, const ResponsePtr &response)
{
    if (!response)
        return MHD_NO;
    Add(response, "Content-Security-Policy", ContentPolicy());
    for (const auto &[name, value] : kHeaders)
        MHD_add_response_header(response.get(), name, value);
    return MHD_queue_response(connection, status, response.get());
}

void FreeBody(void *body)
{
    delete static_cast<std::shared_ptr<const std::string> *>(body);
}

// The body is shared with the answers that are kept.
MHD_Result Send(MHD_Connection *connection, const Answer &answer)
{
    auto body = std::make_unique<std::shared_ptr<const std::string>>(answer.body);
    const std::string &text = **body;
    // The library takes a pointer to what it will only read.
    const ResponsePtr response = Owned(MHD_create_response_from_buffer_with_free_callback_cls(
        text.size(), const_cast<char *>(text.data()), FreeBody, body.get()));
    if (response)
        static_cast<void>(body.release());
    else
        return MHD_NO;
    Add(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type);
    Add(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    return Send(connection, answer.status, response);
}

MHD_Result SendText(MHD_Connection *connection, unsigned status, const std::string &text)
{
    return Send(connection, {status, "text/plain; charset=utf-8",
                             std::make_shared<const std::string>(text + "\n")});
}

MHD_Result SendFile(MHD_Connection *connection, const PageFile &file, const std::string &tag)
{
    const bool is_known = Header(connection, MHD_HTTP_HEADER_IF_NONE_MATCH) == tag;
    const ResponsePtr response = Owned(MHD_create_response_from_buffer(
        is_known ? 0 : file.content.size(), const_cast<unsigned char *>(file.content.data()),
        MHD_RESPMEM_PERSISTENT));
    if (!response)
        return MHD_NO;
    Add(response, MHD_HTTP_HEADER_CONTENT_TYPE, file.type);
    Add(response, MHD_HTTP_HEADER_ETAG, tag);
    Add(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-cache"); // asked for each time, by its tag
    return Send(connection, is_known ? MHD_HTTP_NOT_MODIFIED : MHD_HTTP_OK, response);
}

// Another one for another version of the file.
std::string TagOf(const PageFile &file)
{
    const std::string_view content(reinterpret_cast<const char *>(file.content.data()),
                                   file.content.size());
    return "\"" + std::to_string(std::hash<std::string_view>()(content)) + "\"";
}

// As many characters as a token that the daemon makes has without its dashes. A shorter one could be tried out.
constexpr size_t kFewestOfToken = 32;

// Made at the first time, for this user alone. What somebody else has put there must be as hard to guess.
std::string TokenOf(const host::Layout &layout)
{
    const auto path = layout.state / "web-token";
    const host::Fd file = host::OpenPrivateFile(path, O_RDWR | O_CREAT);
    char text[128] = "";
    const ssize_t size = file.get() < 0 ? -1 : read(file.get(), text, sizeof text - 1);
    if (size > 0) {
        const std::string there(text, strcspn(text, "\n"));
        const bool is_cut = there.size() == sizeof text - 1;
        if (there.size() < kFewestOfToken || is_cut)
            throw host::Error("cannot serve the page to other machines",
                              "the token in " + path.string() + " has " +
                                  std::to_string(there.size()) + " characters" +
                                  (is_cut ? " or more" : ""),
                              "write one line of " + std::to_string(kFewestOfToken) + " to " +
                                  std::to_string(sizeof text - 2) +
                                  ", or remove the file, and the daemon makes it anew");
        return there;
    }
    const std::string token = host::NewUuid(path);
    if (size < 0 || write(file.get(), (token + "\n").data(), token.size() + 1) < 0)
        throw host::Error("cannot serve the page to other machines: its token " + path.string(),
                          strerror(errno), "make the file readable and writable for the daemon");
    return token;
}

GuardTerms TermsFor(const settings::WebAddress &address, const host::Layout &layout)
{
    GuardTerms terms;
    terms.is_socket = !address.socket.empty();
    terms.is_loopback = address.is_loopback;
    if (address.is_loopback)
        return terms;
    terms.own_names = OwnNames();
    terms.token = TokenOf(layout);
    return terms;
}

} // namespace

struct PageServer::Parts {
    Parts(const host::Layout &layout, const settings::WebAddress &address,
          const std::string &version, const TimeLimits &limits)
        : terms(TermsFor(address, layout)), listener(address), answers(layout, version),
          deadlines(limits)
    {
        for (const PageFile &file : AllPageFiles())
            tags[file.path] = TagOf(file);
    }

    GuardTerms terms;
    Listener listener;
    Answers answers; // of the server's thread
    std::map<std::string, std::string> tags;
    Streams streams;
    Deadlines deadlines;
    MHD_Daemon *server = nullptr;

    MHD_Result Handle(MHD_Connection *connection, const char *url, const char *method);
    MHD_Result Serve(MHD_Connection *connection, const std::string &path, const Query &query);
    MHD_Result ServeStream(MHD_Connection *connection);
    MHD_Result SetCookie(MHD_Connection *connection) const;
};

// ---- a request ----

MHD_Result PageServer::Parts::Handle(MHD_Connection *connection, const char *url,
                                     const char *method)
{
    deadlines.AwaitAnswer(SocketOf(connection));
    const Query query = QueryOf(connection);
    Request request{method,
                    url,
                    Header(connection, MHD_HTTP_HEADER_HOST),
                    Header(connection, MHD_HTTP_HEADER_ORIGIN),
                    Header(connection, "Sec-Fetch-Site"),
                    Header(connection, MHD_HTTP_HEADER_AUTHORIZATION),
                    Header(connection, MHD_HTTP_HEADER_COOKIE),
                    query.contains("token") ? query.at("token") : ""};
    switch (Judge(request, terms)) {
    case Verdict::kServe:
        return Serve(connection, request.path, query);
    case Verdict::kSetCookie:
        return SetCookie(connection);
    case Verdict::kNotAllowed:
        return SendText(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET and HEAD are answered");
    case Verdict::kMisdirected:
        return SendText(connection, MHD_HTTP_MISDIRECTED_REQUEST,
                        "this is not a name of this server: ask by its address");
    case Verdict::kForbidden:
        return SendText(connection, MHD_HTTP_FORBIDDEN, "another page may not ask here");
    case Verdict::kNoToken:
        break;
    }
    return SendText(connection, MHD_HTTP_UNAUTHORIZED,
                    "a token is needed: open /?token=TOKEN, or send it as Authorization: Bearer "
                    "TOKEN; it stands in the file web-token beside the store");
}

MHD_Result PageServer::Parts::Serve(MHD_Connection *connection, const std::string &path,
                                    const Query &query)
{
    if (path == kStreamPath)
        return ServeStream(connection);
    for (const PageFile &file : AllPageFiles()) {
        if (path == file.path)
            return SendFile(connection, file, tags[file.path]);
    }
    return Send(connection, answers.Get(path, query));
}

MHD_Result PageServer::Parts::ServeStream(MHD_Connection *connection)
{
    const ResponsePtr response = Owned(streams.Open(connection));
    if (!response)
        return SendText(connection, MHD_HTTP_SERVICE_UNAVAILABLE,
                        "too many are told of news already: try again later");
    deadlines.AwaitNews(SocketOf(connection));
    Add(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/event-stream");
    Add(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    return Send(connection, MHD_HTTP_OK, response);
}

MHD_Result PageServer::Parts::SetCookie(MHD_Connection *connection) const
{
    const ResponsePtr response =
        Owned(MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT));
    if (!response)
        return MHD_NO;
    Add(response, MHD_HTTP_HEADER_LOCATION, "/");
    Add(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    Add(response, MHD_HTTP_HEADER_SET_COOKIE,
        std::string(kTokenCookie) + "=" + terms.token + "; HttpOnly; SameSite=Strict; Path=/");
    return Send(connection, MHD_HTTP_SEE_OTHER, response);
}

// ---- the server ----

namespace {

// What it has to say is of connections that misbehave.
void SayNothing(void * /*none*/, const char * /*format*/, va_list /*arguments*/) {}

} // namespace

PageServer::PageServer(const host::Layout &layout, const settings::WebAddress &address,
                       const std::string &version, const TimeLimits &limits)
    : parts_(std::make_unique<Parts>(layout, address, version, limits))
{
    // No exception crosses the library. A request is answered at its second call, when its headers were taken: the
    // connection is good for another one then. One that is not just reading is refused at once, and closed.
    const auto handle = [](void *parts, MHD_Connection *connection, const char *url,
                           const char *method, const char * /*version*/, const char * /*body*/,
                           size_t *size, void **own) -> MHD_Result {
        const bool is_first = std::exchange(*own, parts) == nullptr;
        const bool reads =
            strcmp(method, MHD_HTTP_METHOD_GET) == 0 || strcmp(method, MHD_HTTP_METHOD_HEAD) == 0;
        if (reads && (is_first || *size != 0)) {
            *size = 0; // a body says nothing here
            return MHD_YES;
        }
        try {
            return static_cast<Parts *>(parts)->Handle(connection, url, method);
        } catch (const std::exception &) {
            return MHD_NO; // closes the connection
        }
    };
    const auto connection_changes = [](void *parts, MHD_Connection *connection, void ** /*own*/,
                                       MHD_ConnectionNotificationCode what) {
        Deadlines &deadlines = static_cast<Parts *>(parts)->deadlines;
        if (what == MHD_CONNECTION_NOTIFY_STARTED)
            AwaitRequest(&deadlines, SocketOf(connection));
        else
            deadlines.End(SocketOf(connection));
    };
    const auto answer_ends = [](void *parts, MHD_Connection *connection, void ** /*own*/,
                                MHD_RequestTerminationCode /*how*/) {
        AwaitRequest(&static_cast<Parts *>(parts)->deadlines, SocketOf(connection));
    };
    parts_->server = MHD_start_daemon(
        MHD_USE_AUTO_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, 0, nullptr,
        nullptr, handle, parts_.get(), MHD_OPTION_EXTERNAL_LOGGER, SayNothing, nullptr,
        MHD_OPTION_LISTEN_SOCKET, parts_->listener.fd(), MHD_OPTION_CONNECTION_LIMIT,
        kMostConnections, MHD_OPTION_CONNECTION_TIMEOUT, static_cast<unsigned>(limits.idle.count()),
        MHD_OPTION_NOTIFY_CONNECTION, +connection_changes, parts_.get(),
        MHD_OPTION_NOTIFY_COMPLETED, +answer_ends, parts_.get(), MHD_OPTION_CONNECTION_MEMORY_LIMIT,
        kConnectionBytes, MHD_OPTION_END);
    if (parts_->server == nullptr)
        throw host::Error("cannot serve the page", "the server does not start",
                          "raise the limits of threads and open files");
    parts_->listener.Release(); // the server closes it
}

// Connections that wait for news end first, and only then the server: it does not end while one is suspended.
PageServer::~PageServer()
{
    parts_->streams.Close();
    MHD_stop_daemon(parts_->server);
}

void PageServer::Wake(bool events_changed) const
{
    if (events_changed)
        parts_->answers.EventsChanged();
    else
        parts_->answers.NewsCame();
    parts_->streams.Ring();
}

} // namespace web
