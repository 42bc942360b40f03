#include "sftp/SFTPReceiveWindow.h"

namespace Tarnis {

namespace {

// More than copies have in flight at most, so that the window is never what they wait for: 100 ms
// away 6 MiB would be 60 MB per second. What arrives is handed over at once and takes no memory
// here.
constexpr std::uint32_t widest = std::uint32_t{64} << 20U;

} // namespace

void SFTPReceiveWindow::widen(ssh_channel channel)
{
    if (spare_ == nullptr) {
        // Never touched as a rule, so it costs an address range and no memory.
        spare_.reset(new char[widest]);
    }
    // libssh widens the window for a reader who wants more than fits into it. The error output of
    // the channel has the same window, and nothing in it belongs to SFTP. Where a version does not
    // do that, nothing has changed; and what is broken shows at the next reply.
    static_cast<void>(ssh_channel_read_timeout(channel, spare_.get(), widest, 1, 0));
}

} // namespace Tarnis
