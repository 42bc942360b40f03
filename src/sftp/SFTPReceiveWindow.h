#pragma once

#include "handles/SSHHandleSFTPSessionFile.h"

#include <cstdint>
#include <memory>

namespace Tarnis {

/// How many bytes the server may send ahead on the channel of an SFTP session. libssh lets it send
/// 1.25 MiB, and more again when half of that is used up: far from the server, that is the limit of
/// what arrives per round trip, however many requests are under way.
class SFTPReceiveWindow
{
public:
    /// To be called when more is asked for than libssh lets through by itself, each time, as the
    /// window shrinks with what arrives. Does not wait for the server.
    void keepWide(SSHHandleSFTPSessionFile& file);

    /// So many bytes have arrived.
    void shrink(std::uint64_t bytes) noexcept { arrived_ += bytes; }

private:
    static constexpr std::uint64_t step = std::uint64_t{1} << 20U;

    std::uint64_t arrived_ = step;
    std::unique_ptr<char[]> spare_;
};

} // namespace Tarnis
