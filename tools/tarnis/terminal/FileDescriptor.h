#pragma once

#include <utility>

#include <unistd.h>

namespace TarnisTool {

/// Owns a file descriptor and closes it.
class FileDescriptor
{
public:
    FileDescriptor() noexcept = default;

    explicit FileDescriptor(int descriptor) noexcept
        : descriptor_(descriptor)
    {}

    FileDescriptor(FileDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1))
    {}

    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    ~FileDescriptor()
    {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

    int get() const noexcept { return descriptor_; }

    bool isOpen() const noexcept { return descriptor_ >= 0; }

private:
    int descriptor_ = -1;
};

} // namespace TarnisTool
