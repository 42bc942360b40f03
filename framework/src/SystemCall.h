#pragma once

#include <cerrno>
#include <string>

namespace FileSystem {

/// Makes a system call again for as long as signals interrupt it.
template <class Call>
auto retryInterrupted(const Call& call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// The path for a system call. One with a NUL byte names nothing, as the empty path does, and must
/// not be mistaken for what stands before the NUL byte.
inline const char* systemPath(const std::string& path) noexcept
{
    return path.find('\0') == std::string::npos ? path.c_str() : "";
}

} // namespace FileSystem
