#pragma once

#include "files/Cancellation.h"
#include "files/RemotePlace.h"
#include "files/TreeWalk.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace TarnisTool {

class ProgressBar;

/// Moves a file, a link or a tree that the server does not rename, as it does not to another
/// volume: copies it through this machine, permissions and times included, and then removes the
/// original.
///
/// Until the copy is complete the original is whole, and a failure or a cancellation leaves nothing
/// at the target. What was changed or added meanwhile is not removed.
class MoveByCopy
{
public:
    /// \param info what stands at the source.
    MoveByCopy(RemotePlace& place, const Cancellation& cancellation, std::string source,
               FileSystem::StorageSystemFileInfo info, std::string target);

    /// Throws Failure.
    void run();

private:
    bool isTree() const;
    std::uint64_t findEntries();
    void copy(std::uint64_t totalBytes);
    bool copyTree(ProgressBar& bar);
    bool copyEntry(const std::string& source, const std::string& target, ProgressBar& bar);
    void makeTarget();
    void removeSource();
    void removeTree();
    bool attempt(const std::function<bool()>& step);
    [[noreturn]] void failToRemove(const std::string& what, const std::string& rest);
    bool removeEntry(const std::string& root, const TreeEntry& entry);
    bool isUnchanged(const std::string& path, const TreeEntry& entry) const;
    [[noreturn]] void giveUp(const std::string& hint);
    bool takeBack() const;
    [[noreturn]] void fail(const std::string& hint, bool isClean = true);

    RemotePlace& place_;
    const Cancellation& cancellation_;
    std::string source_;
    FileSystem::StorageSystemFileInfo info_;
    std::string target_;
    /// What is to be copied, and nothing else is to be removed. Directories before what they hold.
    std::vector<TreeEntry> entries_;
    std::uint64_t doneBytes_ = 0;
    FileSystem::Failure why_; ///< What was said of the last step of the removal.
};

} // namespace TarnisTool
