#pragma once

#include "files/Endpoint.h"

#include <cstddef>
#include <string>

namespace TarnisTool {

/// Where copied or moved things end up: in the target when it is a directory, or a link to one,
/// under their own names; otherwise in its place.
class Destination
{
public:
    /// \param target      as the user wrote it, without a server.
    /// \param sourceCount several can only go into a directory: throws Failure otherwise.
    Destination(Endpoint& endpoint, const std::string& target, std::size_t sourceCount);

    /// Whether things go into the target.
    bool isDirectory() const noexcept { return isDirectory_; }

    /// The path for one source. What has no name of its own ("/", "..") brings what it holds into
    /// the directory itself.
    std::string pathFor(const std::string& source) const;

private:
    std::string target_;
    bool isDirectory_ = false;
};

/// Whether a path is another one or below it, as far as their texts tell: nothing can be copied or
/// moved into itself.
bool isWithin(const FileSystem::FileSystem2& system, const std::string& path,
              const std::string& directory);

} // namespace TarnisTool
