#include "handles/SSHSocketWait.h"

#include "handles/Deadline.h"
#include "handles/LibsshStructures.h"
#include "handles/SSHCall.h"
#include "handles/SSHHandleChannel.h"
#include "handles/SSHHandleSFTPSessionFile.h"
#include "posix/FileDescriptor.h"

#include <algorithm>
#include <thread>

#include <fcntl.h>
#include <poll.h>

namespace Tarnis {

namespace {

/// The connection's socket, under a descriptor of its own, so that it can be waited for without the
/// lock while another thread closes the original.
pollfd duplicateSocket(ssh_session session)
{
    pollfd socket{};
    socket.fd = ::fcntl(ssh_get_fd(session), F_DUPFD_CLOEXEC, 0);
    const bool hasOutput = (ssh_get_poll_flags(session) & SSH_WRITE_PENDING) != 0;
    socket.events = static_cast<short>(hasOutput ? POLLIN | POLLOUT : POLLIN);
    return socket;
}

pollfd socketOf(ssh_channel channel)
{
    return duplicateSocket(ssh_channel_get_session(channel));
}

pollfd socketOf(sftp_file file)
{
    return duplicateSocket(sessionOf(sftpOf(file)));
}

} // namespace

SSHSocketWait::Clock::time_point SSHSocketWait::deadlineAfter(std::chrono::milliseconds timeout)
{
    return Tarnis::deadlineAfter(Clock::now(), timeout);
}

bool SSHSocketWait::wait(SSHHandleChannel& channel)
{
    return waitFor(channel);
}

bool SSHSocketWait::wait(SSHHandleSFTPSessionFile& file)
{
    return waitFor(file);
}

template <class Handle>
bool SSHSocketWait::waitFor(Handle& handle)
{
    const auto now = Clock::now();
    if (now >= deadline_) {
        return false;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - now);
    const auto pause = std::min(pause_, left);
    pause_ = std::min(pause_ * 2, longestPause);

    pollfd socket = callLocked(handle, [](auto native) { return socketOf(native); });
    if (socket.fd < 0) {
        std::this_thread::sleep_for(pause);
        return true;
    }
    const Posix::FileDescriptor duplicate(socket.fd);
    ::poll(&socket, 1, static_cast<int>(pause.count()));
    return true;
}

} // namespace Tarnis
