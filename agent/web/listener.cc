#include "agent/web/listener.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "agent/host/error.h"

namespace web {

namespace {

// Connections that the system keeps until they are taken.
constexpr int kBacklog = 64;

host::Fd NewSocket(int family)
{
    return host::Fd(socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// A name that nobody listens on was left behind by a process that was killed.
bool IsLeftBehind(const std::string &path, const sockaddr_un &address)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode))
        return false;
    const host::Fd probe = NewSocket(AF_UNIX);
    return connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) !=
               0 &&
           errno == ECONNREFUSED;
}

} // namespace

Listener::Listener(const settings::WebAddress &address) : address_(address)
{
    if (address_.socket.empty())
        BindAddress();
    else
        BindSocket();
    if (listen(fd_.get(), kBacklog) != 0)
        Fail();
}

Listener::~Listener()
{
    if (!address_.socket.empty())
        unlink(address_.socket.c_str());
}

void Listener::Fail() const
{
    const std::string where = !address_.socket.empty()
                                  ? address_.socket
                                  : address_.ip + " port " + std::to_string(address_.port);
    throw host::Error("cannot serve the page on " + where, strerror(errno),
                      "end what has it, or name another place with syslogmon set web");
}

// For this user alone: whoever may connect sees what the logs say.
void Listener::BindSocket()
{
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    memcpy(name.sun_path, address_.socket.c_str(), address_.socket.size() + 1);
    if (IsLeftBehind(address_.socket, name))
        unlink(address_.socket.c_str());
    fd_ = NewSocket(AF_UNIX);
    if (fd_.get() < 0 || fchmod(fd_.get(), 0600) != 0 ||
        bind(fd_.get(), reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0) {
        const int why = errno;
        address_.socket.clear(); // it is another one's
        errno = why;
        Fail();
    }
}

void Listener::BindAddress()
{
    sockaddr_storage name{};
    auto *v4 = reinterpret_cast<sockaddr_in *>(&name);
    auto *v6 = reinterpret_cast<sockaddr_in6 *>(&name);
    socklen_t size = sizeof *v4;
    if (inet_pton(AF_INET, address_.ip.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(address_.port);
    } else {
        size = sizeof *v6;
        inet_pton(AF_INET6, address_.ip.c_str(), &v6->sin6_addr);
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(address_.port);
    }
    fd_ = NewSocket(name.ss_family);
    // A daemon that starts again must not wait for the connections of the one before.
    const int yes = 1;
    setsockopt(fd_.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (fd_.get() < 0 || bind(fd_.get(), reinterpret_cast<const sockaddr *>(&name), size) != 0)
        Fail();
}

} // namespace web
