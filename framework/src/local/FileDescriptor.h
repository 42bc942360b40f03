#pragma once

#include <utility>

#include <unistd.h>

namespace FileSystem {

/// Owns an open file descriptor; -1 for none.
class FileDescriptor
{
public:
    explicit FileDescriptor(int descriptor) noexcept
        : descriptor_(descriptor)
    {}

    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1))
    {}

    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        // The one that was owned goes with `other`.
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    ~FileDescriptor()
    {
        if (descriptor_ != -1) {
            // Not again after EINTR: the descriptor is gone then, too.
            static_cast<void>(::close(descriptor_));
        }
    }

    int get() const noexcept { return descriptor_; }

    /// Gives it to the caller.
    int release() noexcept { return std::exchange(descriptor_, -1); }

private:
    int descriptor_;
};

} // namespace FileSystem
