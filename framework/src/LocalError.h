#pragma once

#include <cerrno>
#include <string>

namespace FileSystem {

/// Why the calling thread's last system call on files failed. What it asked (whether something is
/// there) does not count.
class LocalError
{
public:
    /// Keeps `error`, a value of errno.
    static void note(int error) noexcept;

    /// Passes on whether a system call succeeded, and keeps errno where it did not.
    static bool succeeded(bool result) noexcept
    {
        if (!result) {
            note(errno);
        }
        return result;
    }

    static void clear() noexcept { note(0); }

    /// The system's message; empty for none.
    static std::string message();
};

} // namespace FileSystem
