#pragma once

#include "support/UniqueFd.h"

#include <cstdint>

#include <netinet/in.h>

namespace TarnisTest {

/// 127.0.0.1, for the calls of sockets.
sockaddr_in loopbackAddress(std::uint16_t port);

/// A TCP socket listening on 127.0.0.1. Port 0 lets the system choose a free one. Throws
/// std::system_error when the port is taken.
UniqueFd listenOnLoopback(std::uint16_t port = 0);

/// The port that a listening or connected socket is bound to on this side.
std::uint16_t localPort(const UniqueFd& socket);

/// A connection to 127.0.0.1 that sends small pieces at once (TCP_NODELAY). Throws
/// std::system_error when it is refused.
UniqueFd connectToLoopback(std::uint16_t port);

/// Takes the next waiting connection, with TCP_NODELAY; not open when there is none.
UniqueFd acceptConnection(const UniqueFd& listener);

/// Makes reads and writes return at once when they would wait.
void setNonBlocking(const UniqueFd& socket);

/// Wakes a thread out of poll(): readable from signal() until clear().
class WakeUp
{
public:
    WakeUp();

    int fd() const { return event_.get(); }

    void signal();
    void clear();

private:
    UniqueFd event_;
};

} // namespace TarnisTest
