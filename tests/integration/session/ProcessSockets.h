#pragma once

#include "support/UniqueFd.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace TarnisTest {

/// How many descriptors this process has open.
std::size_t openDescriptorCount();

/// The descriptors of this process that are TCP sockets connected to a port of the loopback
/// interface. They belong to whoever opened them.
std::vector<int> socketsConnectedTo(std::uint16_t port);

/// Whether some TCP socket of this process waits for the answer to its first packet.
bool isWaitingForHandshake();

/// A port that refuses connections and that nobody else can take meanwhile.
class RefusingPort
{
public:
    RefusingPort();

    std::uint16_t port() const { return port_; }

private:
    UniqueFd bound_;
    std::uint16_t port_;
};

/// A listener whose queue of new connections is full: the kernel answers no further handshake.
class FullListener
{
public:
    FullListener();

    std::uint16_t port() const { return port_; }

private:
    UniqueFd listener_;
    std::uint16_t port_;
    std::vector<UniqueFd> queued_;
};

} // namespace TarnisTest
