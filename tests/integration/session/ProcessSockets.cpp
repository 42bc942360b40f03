#include "integration/session/ProcessSockets.h"

#include "support/LoopbackSocket.h"
#include "support/SystemError.h"

#include <algorithm>
#include <filesystem>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

namespace TarnisTest {

namespace {

std::vector<int> openDescriptors()
{
    std::vector<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        found.push_back(std::stoi(entry.path().filename().string()));
    }
    return found;
}

/// Port 0 when the descriptor is no connected IPv4 socket.
std::uint16_t peerPort(int descriptor)
{
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    if (::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0 ||
        peer.ss_family != AF_INET) {
        return 0;
    }
    return ntohs(reinterpret_cast<const sockaddr_in&>(peer).sin_port);
}

bool isInState(int descriptor, int state)
{
    tcp_info info{};
    socklen_t size = sizeof info;
    return ::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 &&
           info.tcpi_state == state;
}

/// A connection that has been asked for and perhaps not answered yet.
UniqueFd beginConnection(std::uint16_t port)
{
    UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_in peer = loopbackAddress(port);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0 &&
        errno != EINPROGRESS) {
        throwErrno("connect");
    }
    return socket;
}

/// On the loopback interface the answer comes within the call, if it comes at all.
bool isAnswered(const UniqueFd& socket)
{
    constexpr int patienceMilliseconds = 200;
    pollfd connection{socket.get(), POLLOUT, 0};
    return ::poll(&connection, 1, patienceMilliseconds) > 0;
}

} // namespace

std::size_t openDescriptorCount()
{
    return openDescriptors().size();
}

std::vector<int> socketsConnectedTo(std::uint16_t port)
{
    std::vector<int> found;
    for (const int descriptor : openDescriptors()) {
        if (peerPort(descriptor) == port) {
            found.push_back(descriptor);
        }
    }
    return found;
}

bool isWaitingForHandshake()
{
    const std::vector<int> descriptors = openDescriptors();
    return std::any_of(descriptors.begin(), descriptors.end(),
                       [](int descriptor) { return isInState(descriptor, TCP_SYN_SENT); });
}

RefusingPort::RefusingPort()
    : bound_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_in any = loopbackAddress(0);
    if (::bind(bound_.get(), reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
        throwErrno("bind");
    }
    port_ = localPort(bound_);
}

FullListener::FullListener()
    : listener_(listenOnLoopback())
    , port_(localPort(listener_))
{
    if (::listen(listener_.get(), 0) != 0) {
        throwErrno("listen");
    }
    UniqueFd next = beginConnection(port_);
    while (isAnswered(next)) {
        queued_.push_back(std::move(next));
        next = beginConnection(port_);
    }
}

} // namespace TarnisTest
