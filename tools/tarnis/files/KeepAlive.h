#pragma once

#include "files/Endpoint.h"

#include <chrono>

namespace TarnisTool {

/// Keeps a connection while the program waits for somebody else, such as whoever fills a pipe:
/// many servers ask a client that sends nothing for a while whether it is there, and the library
/// answers in its operations alone.
class KeepAlive
{
public:
    /// \param endpoint must outlive this.
    explicit KeepAlive(Endpoint& endpoint);

    /// To be called again and again while nothing is to be done. Asks the endpoint something, and
    /// waits for the answer, once a second. Throws Failure where the connection is lost.
    void wait();

private:
    using Clock = std::chrono::steady_clock;

    Endpoint& endpoint_;
    Clock::time_point next_;
};

} // namespace TarnisTool
