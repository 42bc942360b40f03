#pragma once

#include "files/Cancellation.h"
#include "files/RemotePlace.h"
#include "terminal/ProgressBar.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace TarnisTool {

/// Copies standard input, to its end, into a file of a server, which appears complete or not at
/// all.
class InputCopy
{
public:
    InputCopy(RemotePlace& to, std::string target, bool isInPlace,
              const Cancellation& cancellation);

    /// Throws Failure.
    /// \return false: it is there, but for what was reported.
    bool run();

private:
    std::optional<std::size_t> read(char* buffer, std::size_t size) const;
    bool show(std::uint64_t done);

    RemotePlace& to_;
    std::string target_;
    bool isInPlace_;
    const Cancellation& cancellation_;
    ProgressBar bar_;
    std::uint64_t done_ = 0;
};

} // namespace TarnisTool
