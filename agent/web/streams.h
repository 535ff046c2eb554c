// Connections that are told of news as server-sent events: "event: pass" whenever passes were stored, at most a few
// times a second, and a comment now and then, by which one that is gone is found out.
//
// A connection without news is suspended. A thread of its own wakes them, so whoever rings, which is the monitor's
// thread, waits for nothing.
#ifndef AGENT_WEB_STREAMS_H
#define AGENT_WEB_STREAMS_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include <microhttpd.h>

#include "agent/host/waitable.h"

namespace web {

class Streams {
  public:
    // Throws host::Error when no descriptor is left.
    Streams();
    ~Streams(); // behind the end of the server
    Streams(const Streams &) = delete;
    Streams &operator=(const Streams &) = delete;

    // There is news. From any thread; never waits.
    void Ring() const;

    // The response of a connection that wants to be told; null: there are too many. On the server's thread.
    MHD_Response *Open(MHD_Connection *connection);

    // Ends all, so that the server can end: none stays suspended, and no other is opened.
    void Close();

  private:
    struct Stream {
        Streams *owner;
        MHD_Connection *connection;
        uint64_t sent = 0;
        bool is_suspended = false;
    };
    static ssize_t Read(void *stream, uint64_t position, char *buffer, size_t size);
    static void Forget(void *stream);
    ssize_t Read(Stream *stream, char *buffer, size_t size);
    void Run();
    void Tell(const std::string &text);

    host::Fd bell_;
    std::atomic<bool> stops_ = false;
    std::mutex mutex_;
    std::set<Stream *> streams_;
    uint64_t told_ = 1;
    std::string text_; // what is told
    bool is_closed_ = false;
    std::thread thread_;
};

} // namespace web

#endif // AGENT_WEB_STREAMS_H
