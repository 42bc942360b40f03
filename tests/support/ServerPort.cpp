#include "support/ServerPort.h"

#include "support/LoopbackSocket.h"

#include <random>
#include <stdexcept>
#include <system_error>

namespace TarnisTest {

namespace {

bool isFree(std::uint16_t port)
{
    try {
        listenOnLoopback(port);
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

} // namespace

std::uint16_t pickPort()
{
    // Linux takes the ports of outgoing connections from 32768 upwards.
    constexpr std::uint16_t kFirst = 15000;
    constexpr std::uint16_t kLast = 32000;
    constexpr int kAttempts = 100;
    thread_local std::mt19937 generator{std::random_device{}()};
    std::uniform_int_distribution<std::uint16_t> distribution(kFirst, kLast);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::uint16_t port = distribution(generator);
        if (isFree(port)) {
            return port;
        }
    }
    throw std::runtime_error("no free port");
}

} // namespace TarnisTest
