#pragma once

#include "terminal/FileDescriptor.h"

#include <array>
#include <cerrno>
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
        readEnd = FileDescriptor(ends[0]);
        writeEnd = FileDescriptor(ends[1]);
    }

    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

} // namespace TarnisTool
