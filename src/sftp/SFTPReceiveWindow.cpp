#include "sftp/SFTPReceiveWindow.h"

namespace Tarnis {

namespace {

// What the files of an SFTP session have under way at most, and what may arrive before the window
// is widened again.
constexpr std::uint32_t widest = std::uint32_t{6} << 20U;

} // namespace

void SFTPReceiveWindow::keepWide(sftp_file file, SFTPFlow& flow)
{
    if (flow.takeArrived()) {
        widen(file->sftp->channel);
    }
}

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
