#include "sftp/SFTPReceiveWindow.h"

#include "handles/SSHCall.h"

#include <libssh/sftp.h>

namespace Tarnis {

namespace {

// What a file has under way at most, and what may arrive before the window is widened again.
constexpr std::uint32_t widest = std::uint32_t{6} << 20U;

} // namespace

void SFTPReceiveWindow::keepWide(SSHHandleSFTPSessionFile& file)
{
    if (arrived_ < step) {
        return;
    }
    arrived_ = 0;
    if (spare_ == nullptr) {
        // Never touched as a rule, so it costs an address range and no memory.
        spare_.reset(new char[widest]);
    }
    callLocked(file, [this](sftp_file native) {
        // libssh widens the window for a reader who wants more than fits into it. The error output
        // of the channel has the same window, and nothing in it belongs to SFTP. Where a version
        // does not do that, nothing has changed; and what is broken shows at the next reply.
        return ssh_channel_read_timeout(native->sftp->channel, spare_.get(), widest, 1, 0);
    });
}

} // namespace Tarnis
