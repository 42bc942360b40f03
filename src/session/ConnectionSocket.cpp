#include "session/ConnectionSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace Tarnis {

std::uint64_t ConnectionSocket::interruptCount() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return interrupts_;
}

void ConnectionSocket::expect(std::uint64_t interruptsBefore)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    socket_.reset();
    interruptsBefore_ = interruptsBefore;
}

void ConnectionSocket::attach(int socket)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (socket < 0 || socket_.isOpen()) {
        return;
    }
    // A child process of the host must not keep the connection open.
    static_cast<void>(::fcntl(socket, F_SETFD, FD_CLOEXEC));
    socket_.reset(::fcntl(socket, F_DUPFD_CLOEXEC, 0));
    if (interrupts_ != interruptsBefore_) {
        ::shutdown(socket, SHUT_RDWR);
    }
}

void ConnectionSocket::detach() noexcept
{
    const std::lock_guard<std::mutex> lock(mutex_);
    socket_.reset();
}

void ConnectionSocket::interrupt() noexcept
{
    const std::lock_guard<std::mutex> lock(mutex_);
    ++interrupts_;
    if (socket_.isOpen()) {
        ::shutdown(socket_.get(), SHUT_RDWR);
    }
}

bool ConnectionSocket::isInterrupted() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return interrupts_ != interruptsBefore_;
}

bool ConnectionSocket::isAtEnd() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!socket_.isOpen()) {
        return false;
    }
    pollfd socket{socket_.get(), POLLRDHUP, 0};
    return ::poll(&socket, 1, 0) > 0;
}

bool ConnectionSocket::hasUnread() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    // Asks by FIONREAD: a read would take the socket's error, which the system tells only once.
    int count = 0;
    return socket_.isOpen() && ::ioctl(socket_.get(), FIONREAD, &count) == 0 && count > 0;
}

int ConnectionSocket::takeError() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    int error = 0;
    socklen_t size = sizeof error;
    const bool told =
        socket_.isOpen() && ::getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0;
    return told ? error : 0;
}

} // namespace Tarnis
