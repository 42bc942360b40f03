#pragma once

#include <string_view>

#include <unistd.h>

namespace TarnisTool {

/// Writes where nobody can be told that it did not work: to a user whose terminal or standard error
/// is gone, to a pipe that is full of the same already. May be called by a signal handler.
inline void tryWrite(int descriptor, std::string_view text) noexcept
{
    if (::write(descriptor, text.data(), text.size()) < 0) {
        return;
    }
}

} // namespace TarnisTool
