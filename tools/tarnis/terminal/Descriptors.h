#pragma once

#include "posix/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace TarnisTool {

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
        readEnd = Posix::FileDescriptor(ends[0]);
        writeEnd = Posix::FileDescriptor(ends[1]);
    }

    Posix::FileDescriptor readEnd;
    Posix::FileDescriptor writeEnd;
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
