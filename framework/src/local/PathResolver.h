#pragma once

#include "posix/FileDescriptor.h"

#include <cerrno>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

/// Where a path is, for system calls: a name below an open directory, or the path as it stands.
struct ResolvedPath
{
    /// For the calls whose names end in "at".
    int descriptor() const noexcept;

    const char* path() const noexcept { return name.c_str(); }

    std::shared_ptr<const Posix::FileDescriptor> directory; ///< Null for a path as it stands.
    std::string name;
    bool isConfined; ///< A link in the last component is not to be followed either.
};

/// Finds what is below certain directories without following a symbolic link on the way: each
/// directory on it is opened by its name alone, and kept open for those that come next.
class PathResolver
{
public:
    /// \param directory below which no link is followed; where the way to it leads is left to its
    ///                  path.
    void confine(const std::string& directory);

    /// Empty, and a failure is noted: there is no way to the path, or a link stands on it.
    std::optional<ResolvedPath> find(const std::string& path);

    /// To be called when another directory may stand at a path from now on.
    void forget(const std::string& path);

    /// Opens something; where there are no descriptors left, without the directories that are kept
    /// open for those that come next.
    /// \param open gives a descriptor, or none and errno.
    template <class Open>
    Posix::FileDescriptor openWithRoom(Open open)
    {
        auto opened = open();
        const bool isShort = !opened.isOpen() && (errno == EMFILE || errno == ENFILE);
        if (isShort && !open_.empty()) {
            open_.clear();
            opened = open();
        }
        return opened;
    }

private:
    const std::string* rootOf(const std::string& path) const;
    using Directory = std::shared_ptr<const Posix::FileDescriptor>;

    Directory open(const std::string& root, const std::string& directory);
    Directory keep(const std::string& path, Posix::FileDescriptor&& directory);

    std::vector<std::string> roots_;
    std::map<std::string, Directory> open_;
};

} // namespace FileSystem
