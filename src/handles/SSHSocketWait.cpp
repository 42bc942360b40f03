#include "handles/SSHSocketWait.h"

#include "handles/Deadline.h"
#include "handles/SSHCall.h"
#include "handles/SSHHandleChannel.h"

#include <algorithm>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace Tarnis {

namespace {

/// The connection's socket, under a descriptor of its own, so that it can be waited for without the
/// lock while another thread closes the original.
pollfd duplicateSocket(ssh_channel channel)
{
    ssh_session session = ssh_channel_get_session(channel);
    pollfd socket{};
    socket.fd = ::fcntl(ssh_get_fd(session), F_DUPFD_CLOEXEC, 0);
    const bool hasOutput = (ssh_get_poll_flags(session) & SSH_WRITE_PENDING) != 0;
    socket.events = static_cast<short>(hasOutput ? POLLIN | POLLOUT : POLLIN);
    return socket;
}

} // namespace

SSHSocketWait::Clock::time_point SSHSocketWait::deadlineAfter(std::chrono::milliseconds timeout)
{
    return Tarnis::deadlineAfter(Clock::now(), timeout);
}

bool SSHSocketWait::wait(SSHHandleChannel& channel)
{
    const auto now = Clock::now();
    if (now >= deadline_) {
        return false;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - now);
    const auto pause = std::min(pause_, left);
    pause_ = std::min(pause_ * 2, longestPause);

    pollfd socket = callLocked(channel, duplicateSocket);
    if (socket.fd < 0) {
        std::this_thread::sleep_for(pause);
        return true;
    }
    ::poll(&socket, 1, static_cast<int>(pause.count()));
    ::close(socket.fd);
    return true;
}

} // namespace Tarnis
