#pragma once

#include "files/Cancellation.h"
#include "files/RemotePlace.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace TarnisTool {

class Failure;

/// Removes a directory with everything below it, and goes on where something cannot be removed.
/// Never follows a symbolic link, one that takes a directory's place meanwhile included.
class TreeRemoval
{
public:
    /// \param note hears of everything that cannot be removed. What it throws ends the removal.
    TreeRemoval(RemotePlace& place, const Cancellation& cancellation,
                std::function<void(const Failure&)> note);

    /// Ends early when it is cancelled. Throws what `note` throws.
    void remove(const std::string& root);

    /// How much is gone, directories included.
    std::size_t removedCount() const noexcept { return removedCount_; }

private:
    struct Directory
    {
        std::string path;
        std::vector<FileSystem::StorageSystemFileInfo> entries;
        std::size_t next = 0;
        /// Something in it is left, so it cannot be removed itself.
        bool isKept = false;
    };

    void enter(const std::string& path);
    bool removeUnlisted(const std::string& path) const;
    std::vector<FileSystem::StorageSystemFileInfo> entriesOf(const std::string& path);
    void removeNextEntry();
    bool isToBeEntered(const std::string& path,
                       Utilities::Flags<FileSystem::StorageSystemFileTypeFlag> listed) const;
    void leave();
    void count(bool isGone, const std::string& path);
    void keep(const Failure& failure);
    void keepParent() noexcept;

    RemotePlace& place_;
    const Cancellation& cancellation_;
    std::function<void(const Failure&)> note_;
    std::vector<Directory> directories_; ///< Each in the one before.
    std::size_t removedCount_ = 0;
};

} // namespace TarnisTool
