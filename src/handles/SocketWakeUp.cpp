#include "handles/SocketWakeUp.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace Tarnis {

namespace {

bool control(int events, int operation, int descriptor, std::uint32_t what) noexcept
{
    epoll_event event{};
    event.events = what;
    event.data.fd = descriptor;
    return ::epoll_ctl(events, operation, descriptor, &event) == 0;
}

int openedOrThrow(int descriptor)
{
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "no descriptor to wait on");
    }
    return descriptor;
}

} // namespace

SocketWakeUp::SocketWakeUp()
    : events_(openedOrThrow(::epoll_create1(EPOLL_CLOEXEC)))
    , signal_(openedOrThrow(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)))
    , timer_(openedOrThrow(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)))
{
    if (!control(events_.get(), EPOLL_CTL_ADD, signal_.get(), EPOLLIN) ||
        !control(events_.get(), EPOLL_CTL_ADD, timer_.get(), EPOLLIN)) {
        throw std::system_error(errno, std::generic_category(), "nothing to wait on");
    }
}

SocketWakeUp::~SocketWakeUp()
{
    forget();
}

void SocketWakeUp::watch(ssh_session session) noexcept
{
    const bool hasOutput = (ssh_get_poll_flags(session) & SSH_WRITE_PENDING) != 0;
    const std::uint32_t what = hasOutput ? EPOLLIN | EPOLLOUT : EPOLLIN;
    if (socket_.isOpen()) {
        if (what != watched_ && control(events_.get(), EPOLL_CTL_MOD, socket_.get(), what)) {
            watched_ = what;
        }
        return;
    }
    // Watches a duplicate, since another thread may close the original meanwhile.
    socket_.reset(::fcntl(ssh_get_fd(session), F_DUPFD_CLOEXEC, 0));
    if (socket_.isOpen() && control(events_.get(), EPOLL_CTL_ADD, socket_.get(), what)) {
        watched_ = what;
        return;
    }
    socket_.reset();
    // There is no descriptor left: what comes is looked for from time to time.
    lookAgainSoon(false);
}

void SocketWakeUp::forget() noexcept
{
    if (socket_.isOpen()) {
        // epoll would keep watching a descriptor that is only closed, since the original keeps the
        // socket open.
        static_cast<void>(::epoll_ctl(events_.get(), EPOLL_CTL_DEL, socket_.get(), nullptr));
        socket_.reset();
    }
}

std::size_t SocketWakeUp::unread() const noexcept
{
    int count = 0;
    return socket_.isOpen() && ::ioctl(socket_.get(), FIONREAD, &count) == 0
               ? static_cast<std::size_t>(std::max(count, 0))
               : 0;
}

void SocketWakeUp::signal() noexcept
{
    const std::lock_guard<std::mutex> lock(signalling_);
    if (!isSignalled_) {
        const std::uint64_t one = 1;
        isSignalled_ = ::write(signal_.get(), &one, sizeof one) == sizeof one;
    }
}

void SocketWakeUp::lookAgainSoon(bool hasMoved) noexcept
{
    if (hasMoved) {
        pause_ = shortestPause;
    }
    if (isTimed_) {
        return;
    }
    itimerspec when{};
    when.it_value.tv_nsec = std::chrono::nanoseconds(pause_).count();
    isTimed_ = ::timerfd_settime(timer_.get(), 0, &when, nullptr) == 0;
    pause_ = std::min(pause_ * 2, longestPause);
}

void SocketWakeUp::clear() noexcept
{
    std::uint64_t count = 0;
    if (isTimed_ && ::read(timer_.get(), &count, sizeof count) == sizeof count) {
        isTimed_ = false;
    }
    const std::lock_guard<std::mutex> lock(signalling_);
    if (isSignalled_) {
        isSignalled_ = ::read(signal_.get(), &count, sizeof count) != sizeof count;
    }
}

void SocketWakeUp::wait(std::chrono::milliseconds limit) noexcept
{
    constexpr std::chrono::milliseconds::rep longest = std::numeric_limits<int>::max();
    epoll_event event{};
    static_cast<void>(::epoll_wait(events_.get(), &event, 1,
                                   static_cast<int>(std::clamp(limit.count(), {}, longest))));
}

} // namespace Tarnis
