#include "files/Destination.h"

#include "files/Paths.h"

#include <FileSystem/Failure.h>

namespace TarnisTool {

namespace {

using FileSystem::FailureCode;

/// Whether a directory, or a link to one, stands where the system sees none. A server need not tell
/// the types of its entries; then an entry with a "." in it is a directory.
bool isUntoldDirectory(const FileSystem::FileSystem2& system, const std::string& path)
{
    const auto type = system.fileType(system.pathRemoveTrailingSlash(path));
    return type && type->isEmpty() && system.fileType(system.pathChildId(path, {"."}));
}

} // namespace

Destination::Destination(Endpoint& endpoint, const std::string& target, std::size_t sourceCount)
    : target_(fileIdOf(target))
{
    const auto& system = endpoint.system();
    const bool isSeen = target_ == "." || system.directoryExists(target_);
    const auto why = isSeen ? FileSystem::Failure() : FileSystem::Failure::last();
    isDirectory_ =
        isSeen ? target_ == "." || endpoint.isDirectoryItself(target_)
               : why.code() == FailureCode::NotDirectory && isUntoldDirectory(system, target_);
    const bool mustBeDirectory = sourceCount > 1 || target_.back() == '/';
    if (!mustBeDirectory || isDirectory_) {
        return;
    }
    // An endpoint that does not answer the question has not said that there is none.
    if (why && why.code() != FailureCode::NotFound && why.code() != FailureCode::NotDirectory) {
        endpoint.failBecause("cannot copy or move into", target_, why);
    }
    endpoint.refuse("cannot copy or move into", target_, "there is no such directory");
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
