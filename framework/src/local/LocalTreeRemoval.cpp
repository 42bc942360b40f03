#include "local/LocalTreeRemoval.h"

#include "SystemCall.h"
#include "local/LocalDirectory.h"
#include "local/LocalError.h"
#include "path/NameCheck.h"
#include "path/PathText.h"
#include "posix/FileDescriptor.h"

#include <cerrno>
#include <cstddef>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FileSystem {

namespace {

Posix::FileDescriptor openDirectory(int parent, const char* name)
{
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    return Posix::FileDescriptor(retryInterrupted([&] { return ::openat(parent, name, flags); }));
}

/// A walk that holds one directory open at a time: how deep a tree goes is not for us to say.
class LocalTreeRemoval
{
public:
    /// \param path of the root, for telling where a failure was.
    LocalTreeRemoval(Posix::FileDescriptor&& root, const std::string& path)
        : current_(std::move(root))
        , path_(path)
    {}

    /// Removes what is in the root, and leaves it there.
    bool empty()
    {
        if (!enter(std::string())) {
            return false;
        }
        for (;;) {
            auto& level = levels_.back();
            if (level.next < level.entries.size()) {
                if (!removeNextEntry()) {
                    return false;
                }
            } else if (levels_.size() == 1) {
                return true;
            } else if (!leave()) {
                return false;
            }
        }
    }

private:
    struct Entry
    {
        std::string name;
        bool isDirectory;
    };

    struct Level
    {
        std::string name;
        dev_t device;
        ino_t node;
        std::vector<Entry> entries;
        std::size_t next = 0;
    };

    /// Takes stock of the directory that is open.
    bool enter(const std::string& name)
    {
        struct stat attributes = {};
        if (!LocalError::succeeded(::fstat(current_.get(), &attributes) == 0, pathOf(name))) {
            return false;
        }
        Level level{name, attributes.st_dev, attributes.st_ino, {}, 0};
        LocalDirectory directory(current_);
        while (const dirent* const entry = directory.next()) {
            level.entries.push_back(
                {entry->d_name, FileSystem::isDirectory(directory.typeOf(*entry))});
        }
        levels_.push_back(std::move(level));
        return directory.isComplete();
    }

    bool removeNextEntry()
    {
        auto& level = levels_.back();
        const auto& entry = level.entries[level.next++];
        if (!entry.isDirectory) {
            return unlink(entry.name, 0);
        }
        Posix::FileDescriptor below = openDirectory(current_.get(), entry.name.c_str());
        if (below.get() == -1) {
            // One that may not be read can still be removed, as long as it is empty.
            const int whyClosed = errno;
            if (unlink(entry.name, AT_REMOVEDIR)) {
                return true;
            }
            LocalError::note(whyClosed, pathOf(entry.name));
            return false;
        }
        current_ = std::move(below);
        return enter(std::string(entry.name));
    }

    bool leave()
    {
        const std::string name = std::move(levels_.back().name);
        levels_.pop_back();
        Posix::FileDescriptor above = openDirectory(current_.get(), "..");
        current_ = std::move(above);
        return (isAt(levels_.back()) || fail(FailureCode::Changed, {}, pathOf(name))) &&
               unlink(name, AT_REMOVEDIR);
    }

    /// A directory that was moved meanwhile has another one above it.
    bool isAt(const Level& level) const
    {
        struct stat attributes = {};
        return ::fstat(current_.get(), &attributes) == 0 && attributes.st_dev == level.device &&
               attributes.st_ino == level.node;
    }

    bool unlink(const std::string& name, int flags) const
    {
        return LocalError::succeeded(::unlinkat(current_.get(), name.c_str(), flags) == 0,
                                     pathOf(name));
    }

    /// The path of an entry of the directory that is open; of the root for no name.
    std::string pathOf(const std::string& name) const
    {
        std::vector<std::string> names;
        for (const auto& level : levels_) {
            names.push_back(level.name);
        }
        names.push_back(name);
        return PathText::childId(path_, names);
    }

    Posix::FileDescriptor current_;
    std::string path_;
    std::vector<Level> levels_;
};

} // namespace

bool removeLocalTree(const std::string& path)
{
    const std::string place = PathText::removeTrailingSlash(path);
    if (!isName(PathText::fileName(place)) || !isPath(place)) {
        return false;
    }
    Posix::FileDescriptor root = openDirectory(AT_FDCWD, place.c_str());
    const int whyClosed = root.get() == -1 ? errno : 0;
    if (whyClosed == 0 && !LocalTreeRemoval(std::move(root), place).empty()) {
        return false;
    }
    if (::rmdir(place.c_str()) == 0) {
        return true;
    }
    LocalError::note(errno == ENOTEMPTY && whyClosed != 0 ? whyClosed : errno);
    return false;
}

} // namespace FileSystem
