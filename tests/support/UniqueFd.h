#pragma once

#include <utility>

#include <unistd.h>

namespace TarnisTest {

/// Owns a file descriptor and closes it.
class UniqueFd
{
public:
    UniqueFd() noexcept = default;

    explicit UniqueFd(int fd) noexcept
        : fd_(fd)
    {}

    UniqueFd(UniqueFd&& other) noexcept
        : fd_(other.release())
    {}

    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        reset(other.release());
        return *this;
    }

    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    ~UniqueFd() { reset(); }

    int get() const noexcept { return fd_; }

    bool isOpen() const noexcept { return fd_ >= 0; }

    int release() noexcept { return std::exchange(fd_, -1); }

    void reset(int fd = -1) noexcept
    {
        const int old = std::exchange(fd_, fd);
        if (old >= 0) {
            ::close(old);
        }
    }

private:
    int fd_ = -1;
};

} // namespace TarnisTest
