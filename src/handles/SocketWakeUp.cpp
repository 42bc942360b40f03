#include "handles/SocketWakeUp.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <system_error>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Tarnis {

namespace {

int descriptorOrThrow(int descriptor)
{
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "no descriptor to wait on");
    }
    return descriptor;
}

bool add(int events, int operation, int descriptor, std::uint32_t what) noexcept
{
    epoll_event event{};
    event.events = what;
    event.data.fd = descriptor;
    return ::epoll_ctl(events, operation, descriptor, &event) == 0;
}

} // namespace

SocketWakeUp::SocketWakeUp()
    : events_(descriptorOrThrow(::epoll_create1(EPOLL_CLOEXEC)))
{
    signal_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (signal_ < 0 || !add(events_, EPOLL_CTL_ADD, signal_, EPOLLIN)) {
        const int reason = errno;
        ::close(events_);
        if (signal_ >= 0) {
            ::close(signal_);
        }
        throw std::system_error(reason, std::generic_category(), "no descriptor to wait on");
    }
}

SocketWakeUp::~SocketWakeUp()
{
    forget();
    ::close(signal_);
    ::close(events_);
}

void SocketWakeUp::watch(ssh_session session) noexcept
{
    const bool hasOutput = (ssh_get_poll_flags(session) & SSH_WRITE_PENDING) != 0;
    const std::uint32_t what = hasOutput ? EPOLLIN | EPOLLOUT : EPOLLIN;
    if (socket_ >= 0) {
        add(events_, EPOLL_CTL_MOD, socket_, what);
        return;
    }
    // Under a descriptor of its own, since another thread may close the original meanwhile.
    socket_ = ::fcntl(ssh_get_fd(session), F_DUPFD_CLOEXEC, 0);
    if (socket_ >= 0 && !add(events_, EPOLL_CTL_ADD, socket_, what)) {
        ::close(socket_);
        socket_ = -1;
    }
}

void SocketWakeUp::forget() noexcept
{
    if (socket_ >= 0) {
        // Closing it alone would not do: the original keeps it alive in there.
        static_cast<void>(::epoll_ctl(events_, EPOLL_CTL_DEL, socket_, nullptr));
        ::close(socket_);
        socket_ = -1;
    }
}

void SocketWakeUp::signal() noexcept
{
    const std::uint64_t one = 1;
    // A counter at its limit is a signal as well.
    static_cast<void>(::write(signal_, &one, sizeof one) == sizeof one);
}

void SocketWakeUp::wait(std::chrono::milliseconds limit) noexcept
{
    constexpr std::chrono::milliseconds::rep longest = std::numeric_limits<int>::max();
    epoll_event event{};
    static_cast<void>(
        ::epoll_wait(events_, &event, 1, static_cast<int>(std::clamp(limit.count(), {}, longest))));
    std::uint64_t signals = 0;
    static_cast<void>(::read(signal_, &signals, sizeof signals) == sizeof signals);
}

} // namespace Tarnis
