#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
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

/// The two ends of a pipe within this process, neither of which ever waits. Throws
/// std::system_error when there are no descriptors left.
struct Pipe
{
    Pipe()
    {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        readEnd = FileDescriptor(ends[0]);
        writeEnd = FileDescriptor(ends[1]);
    }

    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

/// Writes where nobody can be told that it did not work: to a user whose terminal or standard error
/// is gone, to a pipe that is full of the same already. May be called by a signal handler.
inline void tryWrite(int descriptor, std::string_view text) noexcept
{
    if (::write(descriptor, text.data(), text.size()) < 0) {
        return;
    }
}

// For writing without ever waiting inside of a write. Making a descriptor non-blocking instead
// would change it for every process that shares it.

/// How many bytes a descriptor takes at once without waiting, when it is ready: a pipe little, a
/// file anything.
std::size_t largestReadyWrite(int descriptor);

/// Whether a write would not wait: the other side takes something, or is gone. Waits for that so
/// long; negative: without an end. False also when a signal arrives meanwhile.
bool isReadyToWrite(int descriptor, int milliseconds);

} // namespace TarnisTool
