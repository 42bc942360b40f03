#include "files/Destination.h"

#include "files/EntryNames.h"

namespace TarnisTool {

Destination::Destination(Place& place, const std::string& target, std::size_t sourceCount)
    : target_(fileIdOf(target))
    , isDirectory_(target_ == "." ||
                   (place.system().directoryExists(target_) && place.isDirectoryItself(target_)))
{
    const bool mustBeDirectory = sourceCount > 1 || target_.back() == '/';
    if (mustBeDirectory && !isDirectory_) {
        place.refuse("cannot copy or move into", target_, "there is no such directory");
    }
}

std::string Destination::pathFor(const std::string& source) const
{
    if (!isDirectory_) {
        return target_;
    }
    const std::string name = nameOf(source);
    return joinPath(target_, name.empty() ? "." : name);
}

bool isWithin(const FileSystem::FileSystem2& system, const std::string& path,
              const std::string& directory)
{
    const std::string inner = system.pathEnsureTrailingSlash(system.pathCanonize(path));
    const std::string outer = system.pathEnsureTrailingSlash(system.pathCanonize(directory));
    return inner.compare(0, outer.size(), outer) == 0;
}

} // namespace TarnisTool
