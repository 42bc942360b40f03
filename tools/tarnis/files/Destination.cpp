#include "files/Destination.h"

#include "files/EntryNames.h"

namespace TarnisTool {

Destination::Destination(Place& place, const std::string& target, std::size_t sourceCount)
    : target_(fileIdOf(target))
    , isDirectory_(place.system().directoryExists(target_))
{
    const bool mustBeDirectory = sourceCount > 1 || target_.back() == '/';
    if (mustBeDirectory && !isDirectory_) {
        place.forgetFailures();
        place.fail("cannot copy or move into", target_, "there is no such directory");
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

} // namespace TarnisTool
