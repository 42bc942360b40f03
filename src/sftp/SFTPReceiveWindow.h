#pragma once

#include <libssh/libssh.h>

#include <cstdint>
#include <memory>

namespace Tarnis {

/// How many bytes the server may send ahead on the channel of an SFTP session. libssh lets it send
/// 1.25 MiB, and more again when half of that is used up: far from the server, that is the limit of
/// what arrives per round trip, however many requests are in flight. The test
/// LargeReadTest.IsSentFurtherAheadThanTheWindowAllowsByItself notices where it cannot be widened.
class SFTPReceiveWindow
{
public:
    /// What may arrive before it is widened again.
    static constexpr std::uint64_t arrivalStep = std::uint64_t{1} << 20U;

    /// Widens the window of a channel whose error output nobody wants. To be called under the lock
    /// again whenever `arrivalStep` bytes have come, as the window shrinks with what arrives. Does
    /// not wait for the server. From libssh 0.11 on the window stays at 2 MiB.
    void widen(ssh_channel channel);

private:
    std::unique_ptr<char[]> spare_;
};

} // namespace Tarnis
