#pragma once

#include <utility>

#include <unistd.h>

namespace Posix {

/// Owns an open file descriptor, or none, and closes it.
class FileDescriptor
{
public:
    FileDescriptor() noexcept = default;

    /// \param descriptor negative for none.
    explicit FileDescriptor(int descriptor) noexcept
        : descriptor_(descriptor)
    {}

    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(other.release())
    {}

    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        reset(other.release());
        return *this;
    }

    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    ~FileDescriptor() { reset(); }

    int get() const noexcept { return descriptor_; }

    bool isOpen() const noexcept { return descriptor_ >= 0; }

    /// Gives it to the caller.
    int release() noexcept { return std::exchange(descriptor_, -1); }

    /// Closes it and owns another one, or none.
    void reset(int descriptor = -1) noexcept
    {
        const int old = std::exchange(descriptor_, descriptor);
        if (old >= 0) {
            // Not again after EINTR: the descriptor is gone then, too.
            static_cast<void>(::close(old));
        }
    }

private:
    int descriptor_ = -1;
};

} // namespace Posix
