#include "transfer/Line.h"

#include "support/Interleaved.h"
#include "support/LoopbackSocket.h"
#include "support/Require.h"

#include <thread>
#include <vector>

#include <sys/socket.h>

namespace TarnisBench {

namespace {

using TarnisTest::TcpProxy;
using TarnisTest::UniqueFd;

constexpr int pings = 11;
constexpr std::size_t pieceSize = std::size_t{256} << 10U;
constexpr std::size_t pieces = 2048;

double secondsOf(Duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

void sendByte(const UniqueFd& socket)
{
    const char byte = 0;
    require(::send(socket.get(), &byte, 1, MSG_NOSIGNAL) == 1, "sending through the line");
}

void receiveByte(const UniqueFd& socket)
{
    char byte = 0;
    require(::recv(socket.get(), &byte, 1, MSG_WAITALL) == 1, "receiving through the line");
}

/// Sends the pings back, takes everything that follows, and says so.
void serve(const UniqueFd& listener)
{
    const UniqueFd socket = TarnisTest::acceptConnection(listener);
    std::vector<char> buffer(pieceSize);
    for (int ping = 0; ping < pings; ++ping) {
        receiveByte(socket);
        sendByte(socket);
    }
    ssize_t count = 0;
    do {
        count = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
    } while (count > 0);
    sendByte(socket);
}

double pingMilliseconds(const UniqueFd& socket)
{
    constexpr double millisecondsPerSecond = 1e3;
    std::vector<double> samples;
    while (samples.size() < pings) {
        samples.push_back(millisecondsPerSecond * secondsOf(timeOf([&socket] {
                              sendByte(socket);
                              receiveByte(socket);
                          })));
    }
    return quantile(samples, 0.5);
}

void sendPieces(const UniqueFd& socket)
{
    const std::vector<char> piece(pieceSize);
    for (std::size_t index = 0; index < pieces; ++index) {
        std::size_t sent = 0;
        while (sent < piece.size()) {
            const ssize_t count =
                ::send(socket.get(), piece.data() + sent, piece.size() - sent, MSG_NOSIGNAL);
            require(count > 0, "sending through the line");
            sent += static_cast<std::size_t>(count);
        }
    }
    ::shutdown(socket.get(), SHUT_WR);
}

} // namespace

Line::Line(std::uint16_t serverPort, std::chrono::milliseconds roundTrip)
    : serverPort_(serverPort)
    , roundTrip_(roundTrip)
{
    if (roundTrip.count() > 0) {
        proxy_ = std::make_unique<TcpProxy>(serverPort);
        proxy_->setDelay(TcpProxy::ToServer, roundTrip / 2);
        proxy_->setDelay(TcpProxy::ToClient, roundTrip / 2);
    }
}

std::uint16_t Line::port() const
{
    return proxy_ != nullptr ? proxy_->port() : serverPort_;
}

std::uint64_t Line::carriedBytes(TcpProxy::Direction direction) const
{
    return proxy_ != nullptr ? proxy_->forwardedBytes(direction) : 0;
}

LineQuality measureLine(std::chrono::milliseconds roundTrip)
{
    const UniqueFd listener = TarnisTest::listenOnLoopback(0);
    const Line line(TarnisTest::localPort(listener), roundTrip);
    const UniqueFd socket = TarnisTest::connectToLoopback(line.port());
    std::thread server([&listener] { serve(listener); });
    LineQuality quality;
    quality.roundTripMilliseconds = pingMilliseconds(socket);
    const auto time = timeOf([&socket] {
        sendPieces(socket);
        receiveByte(socket);
    });
    server.join();
    quality.bytesPerSecond = static_cast<double>(pieces * pieceSize) / secondsOf(time);
    return quality;
}

} // namespace TarnisBench
