// The socket on which the page is served.
#ifndef AGENT_WEB_LISTENER_H
#define AGENT_WEB_LISTENER_H

#include <string>

#include "agent/host/waitable.h"
#include "agent/settings/web_address.h"

namespace web {

class Listener {
  public:
    // Throws host::Error when the address cannot be had.
    explicit Listener(const settings::WebAddress &address);
    ~Listener(); // a Unix socket goes with it
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    [[nodiscard]] int fd() const { return fd_.get(); }
    // The descriptor is another one's to close.
    void Release() { fd_.Release(); }

  private:
    void BindSocket();
    void BindAddress();
    [[noreturn]] void Fail() const;

    settings::WebAddress address_;
    host::Fd fd_;
};

} // namespace web

#endif // AGENT_WEB_LISTENER_H
