#pragma once

#include <FileSystem/FailureScope.h>

#include <cerrno>
#include <string>

namespace FileSystem {

/// Why the calling thread's last system call on files failed: told as the failure of the public
/// operation, and kept for LocalFileSystem::getLastError().
class LocalError
{
public:
    /// Keeps `error`, a value of errno. \param entry the path that it is about, where it is not
    /// that of the operation.
    static void note(int error, const std::string& entry = {});

    /// Passes on whether a system call succeeded, and keeps errno where it did not.
    static bool succeeded(bool result, const std::string& entry = {})
    {
        if (!result) {
            note(errno, entry);
        }
        return result;
    }

    /// The same for a call that only asks: getLastError() does not count what is not there.
    static bool answered(bool result)
    {
        if (!result) {
            failBySystem(errno);
        }
        return result;
    }

    static void clear() noexcept;

    /// The system's message; empty for none.
    static std::string message();
};

} // namespace FileSystem
