#include "support/LoopbackSocket.h"

#include "support/SystemError.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace TarnisTest {

namespace {

UniqueFd newSocket()
{
    UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket.isOpen()) {
        throwErrno("socket");
    }
    return socket;
}

// The socket calls take every family's address through one generic type.
const sockaddr* generic(const sockaddr_in& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

void setOption(const UniqueFd& socket, int level, int name)
{
    const int on = 1;
    if (::setsockopt(socket.get(), level, name, &on, sizeof on) != 0) {
        throwErrno("setsockopt");
    }
}

} // namespace

sockaddr_in loopbackAddress(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

UniqueFd listenOnLoopback(std::uint16_t port)
{
    UniqueFd listener = newSocket();
    setOption(listener, SOL_SOCKET, SO_REUSEADDR);
    const sockaddr_in address = loopbackAddress(port);
    if (::bind(listener.get(), generic(address), sizeof address) != 0) {
        throwErrno("bind");
    }
    if (::listen(listener.get(), SOMAXCONN) != 0) {
        throwErrno("listen");
    }
    return listener;
}

std::uint16_t localPort(const UniqueFd& socket)
{
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throwErrno("getsockname");
    }
    return ntohs(address.sin_port);
}

UniqueFd connectToLoopback(std::uint16_t port)
{
    UniqueFd socket = newSocket();
    const sockaddr_in address = loopbackAddress(port);
    if (::connect(socket.get(), generic(address), sizeof address) != 0) {
        throwErrno("connect");
    }
    setOption(socket, IPPROTO_TCP, TCP_NODELAY);
    return socket;
}

UniqueFd acceptConnection(const UniqueFd& listener)
{
    UniqueFd socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (socket.isOpen()) {
        setOption(socket, IPPROTO_TCP, TCP_NODELAY);
    }
    return socket;
}

void setNonBlocking(const UniqueFd& socket)
{
    const int flags = ::fcntl(socket.get(), F_GETFL);
    if (flags < 0 || ::fcntl(socket.get(), F_SETFL, flags | O_NONBLOCK) < 0) {
        throwErrno("fcntl");
    }
}

WakeUp::WakeUp()
    : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!event_.isOpen()) {
        throwErrno("eventfd");
    }
}

void WakeUp::signal()
{
    (void)::eventfd_write(event_.get(), 1);
}

void WakeUp::clear()
{
    eventfd_t ignored = 0;
    (void)::eventfd_read(event_.get(), &ignored);
}

} // namespace TarnisTest
