#include "local/PathResolver.h"

#include "SystemCall.h"
#include "local/LocalError.h"
#include "path/PathText.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include <fcntl.h>

namespace FileSystem {

namespace {

// A tree is worked on in a few directories at a time.
constexpr std::size_t mostOpen = 64;

constexpr int asDirectory = O_PATH | O_DIRECTORY | O_CLOEXEC;

Posix::FileDescriptor openDirectory(int parent, const std::string& name, int flags)
{
    return Posix::FileDescriptor(
        retryInterrupted([&] { return ::openat(parent, systemPath(name), flags); }));
}

} // namespace

int ResolvedPath::descriptor() const noexcept
{
    return directory != nullptr ? directory->get() : AT_FDCWD;
}

void PathResolver::confine(const std::string& directory)
{
    auto root = PathText::removeTrailingSlash(directory);
    if (std::find(roots_.begin(), roots_.end(), root) == roots_.end()) {
        roots_.push_back(std::move(root));
    }
}

/// Null: the path is not confined.
const std::string* PathResolver::rootOf(const std::string& path) const
{
    const auto isAbove = [&path](const std::string& root) {
        return path.compare(0, root.size(), root) == 0 &&
               (path.size() == root.size() || root == "/" || path[root.size()] == '/');
    };
    const auto root = std::find_if(roots_.begin(), roots_.end(), isAbove);
    return root != roots_.end() ? &*root : nullptr;
}

std::optional<ResolvedPath> PathResolver::find(const std::string& path)
{
    const auto place = PathText::removeTrailingSlash(path);
    const auto* const root = rootOf(place);
    auto name = PathText::fileName(place);
    const bool isConfined = root != nullptr && PathText::isEntryName(name);
    if (!isConfined || place == *root) {
        return ResolvedPath{nullptr, isConfined ? place : systemPath(path), isConfined};
    }
    auto directory = open(*root, PathText::parentId(place));
    return directory != nullptr
               ? std::make_optional(ResolvedPath{std::move(directory), std::move(name), true})
               : std::nullopt;
}

PathResolver::Directory PathResolver::open(const std::string& root, const std::string& directory)
{
    const auto known = open_.find(directory);
    if (known != open_.end()) {
        return known->second;
    }
    const auto name = PathText::fileName(directory);
    const int flags = PathText::isEntryName(name) ? asDirectory | O_NOFOLLOW : asDirectory;
    if (directory.size() <= root.size()) {
        return keep(directory,
                    openWithRoom([&] { return openDirectory(AT_FDCWD, directory, flags); }));
    }
    const auto parent = open(root, PathText::parentId(directory));
    return parent != nullptr
               ? keep(directory,
                      openWithRoom([&] { return openDirectory(parent->get(), name, flags); }))
               : nullptr;
}

PathResolver::Directory PathResolver::keep(const std::string& path,
                                           Posix::FileDescriptor&& directory)
{
    if (directory.get() == -1) {
        const bool isOther = errno == ENOTDIR || errno == ELOOP;
        isOther ? fail(FailureCode::Changed, "no directory is there any more", path)
                : LocalError::succeeded(false, path);
        return nullptr;
    }
    if (open_.size() >= mostOpen) {
        open_.clear();
    }
    auto kept = std::make_shared<const Posix::FileDescriptor>(std::move(directory));
    open_.emplace(path, kept);
    return kept;
}

void PathResolver::forget(const std::string& path)
{
    const auto place = PathText::removeTrailingSlash(path);
    auto known = open_.lower_bound(place);
    while (known != open_.end() && known->first.compare(0, place.size(), place) == 0) {
        known = PathText::isWithin(place, known->first) ? open_.erase(known) : std::next(known);
    }
}

} // namespace FileSystem
