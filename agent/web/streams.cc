#include "agent/web/streams.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

#include "agent/host/error.h"

namespace web {

namespace {

constexpr size_t kMostStreams = 16;
// Milliseconds. Between two that tell of news; and without any, until a comment is sent.
constexpr int kRest = 300;
constexpr int kSilence = 15'000;
// Of the response, in bytes: an event has few.
constexpr size_t kBlock = 512;

constexpr char kGreeting[] = "retry: 3000\n\n";
constexpr char kNews[] = "event: pass\ndata: {}\n\n";
constexpr char kComment[] = ":\n\n";

} // namespace

Streams::Streams() : bell_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)), text_(kGreeting)
{
    if (bell_.get() < 0)
        throw host::Error("cannot serve the page", strerror(errno),
                          "raise the limit of open files");
    thread_ = std::thread([this] { Run(); });
}

Streams::~Streams()
{
    stops_ = true;
    Ring();
    thread_.join();
}

void Streams::Ring() const
{
    host::Ring(bell_);
}

void Streams::Run()
{
    while (!stops_) {
        pollfd bell{bell_.get(), POLLIN, 0};
        const bool has_news = poll(&bell, 1, kSilence) > 0;
        uint64_t rings = 0;
        [[maybe_unused]] const ssize_t count = read(bell_.get(), &rings, sizeof rings);
        if (stops_)
            return;
        Tell(has_news ? kNews : kComment);
        poll(nullptr, 0, kRest);
    }
}

void Streams::Tell(const std::string &text)
{
    const std::lock_guard lock(mutex_);
    text_ = text;
    ++told_;
    for (Stream *stream : streams_) {
        if (std::exchange(stream->is_suspended, false))
            MHD_resume_connection(stream->connection);
    }
}

void Streams::Close()
{
    {
        const std::lock_guard lock(mutex_);
        is_closed_ = true;
    }
    Tell(kComment);
}

MHD_Response *Streams::Open(MHD_Connection *connection)
{
    const std::lock_guard lock(mutex_);
    if (is_closed_ || streams_.size() >= kMostStreams)
        return nullptr;
    auto stream = std::make_unique<Stream>(Stream{this, connection});
    // From here on the response has it, and Forget is called.
    MHD_Response *response =
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kBlock, Read, stream.get(), Forget);
    if (response != nullptr)
        streams_.insert(stream.release());
    return response;
}

void Streams::Forget(void *stream)
{
    const std::unique_ptr<Stream> gone(static_cast<Stream *>(stream));
    const std::lock_guard lock(gone->owner->mutex_);
    gone->owner->streams_.erase(gone.get());
}

ssize_t Streams::Read(void *stream, uint64_t /*position*/, char *buffer, size_t size)
{
    auto *one = static_cast<Stream *>(stream);
    return one->owner->Read(one, buffer, size);
}

ssize_t Streams::Read(Stream *stream, char *buffer, size_t size)
{
    const std::lock_guard lock(mutex_);
    if (is_closed_)
        return MHD_CONTENT_READER_END_OF_STREAM;
    if (stream->sent == told_) {
        stream->is_suspended = true;
        MHD_suspend_connection(stream->connection);
        return 0;
    }
    const std::string &text = stream->sent == 0 ? kGreeting : text_;
    if (text.size() > size)
        return MHD_CONTENT_READER_END_WITH_ERROR;
    stream->sent = told_;
    memcpy(buffer, text.data(), text.size());
    return static_cast<ssize_t>(text.size());
}

} // namespace web
