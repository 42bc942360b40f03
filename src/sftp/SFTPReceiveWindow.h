#pragma once

#include "handles/SFTPFlow.h"

#include <libssh/sftp.h>

#include <memory>

namespace Tarnis {

/// How many bytes the server may send ahead on the channel of an SFTP session. libssh lets it send
/// 1.25 MiB, and more again when half of that is used up: far from the server, that is the limit of
/// what arrives per round trip, however many requests are under way. The test
/// QueueLanesTest.AServerMaySendFurtherAheadForOneFile notices where it cannot be widened.
class SFTPReceiveWindow
{
public:
    /// To be called under the lock when more is asked for than libssh lets through by itself, each
    /// time, as the window shrinks with what arrives. Does not wait for the server. From libssh
    /// 0.11 on the window stays at 2 MiB.
    void keepWide(sftp_file file, SFTPFlow& flow);

    /// Widens the window of a channel whose error output nobody wants. To be called under the lock
    /// again whenever SFTPFlow::arrivalStep bytes have come. Does not wait for the server.
    void widen(ssh_channel channel);

private:
    std::unique_ptr<char[]> spare_;
};

} // namespace Tarnis
