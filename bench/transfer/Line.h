#pragma once

#include "support/TcpProxy.h"

#include <chrono>
#include <cstdint>
#include <memory>

namespace TarnisBench {

/// The way from the clients to the server.
class Line
{
public:
    /// \param roundTrip zero: straight to the server. Otherwise through a proxy that holds each
    ///                  byte back for half of it in either direction.
    Line(std::uint16_t serverPort, std::chrono::milliseconds roundTrip);

    std::uint16_t port() const;

    std::chrono::milliseconds roundTrip() const { return roundTrip_; }

    bool isDelayed() const { return proxy_ != nullptr; }

    /// Bytes that have come through in this direction, over all connections; 0 without a delay.
    std::uint64_t carriedBytes(TarnisTest::TcpProxy::Direction direction) const;

private:
    std::uint16_t serverPort_;
    std::chrono::milliseconds roundTrip_;
    std::unique_ptr<TarnisTest::TcpProxy> proxy_;
};

/// What a line does to one connection.
struct LineQuality
{
    double roundTripMilliseconds = 0;
    double bytesPerSecond = 0;
};

/// Measured with sockets alone.
LineQuality measureLine(std::chrono::milliseconds roundTrip);

} // namespace TarnisBench
