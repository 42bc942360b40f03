#pragma once

#include <cstddef>

namespace Tarnis {

/// What one SSHChannel::readSome or SSHChannel::writeSome did.
struct SSHChannelTransfer
{
    enum class Status
    {
        Transferred, ///< `count` bytes, at least one, were moved.
        TimedOut,    ///< Nothing could be moved within the time; trying again may succeed.
        EndOfStream, ///< Read: the stream has ended, and everything before its end was read.
                     ///< Write: the other side takes no more input.
        Error,       ///< The connection is lost, or libssh failed: see SSHSession::getLastError().
    };

    Status status = Status::Error;

    /// Bytes moved; 0 unless `status` is Transferred.
    std::size_t count = 0;
};

} // namespace Tarnis
