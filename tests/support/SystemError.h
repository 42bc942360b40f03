#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace TarnisTest {

/// Throws std::system_error for errno, with the operation that failed in its text.
[[noreturn]] inline void throwErrno(const std::string& operation)
{
    throw std::system_error(errno, std::generic_category(), operation);
}

} // namespace TarnisTest
