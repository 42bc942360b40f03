#pragma once

#include "files/Cancellation.h"
#include "files/Place.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// Something in a tree of directories.
struct TreeEntry
{
    /// Below the tree's root: "a/b"; empty for the root itself.
    std::string path;
    FileSystem::StorageSystemFileInfo info;
};

/// Everything in a directory and below it, found without following a symbolic link.
class TreeWalk
{
public:
    TreeWalk(Place& place, const Cancellation& cancellation);

    /// The entries below a directory, each directory before what it holds. What cannot be listed,
    /// or has a name that would lead elsewhere, is reported and left out. Ends early when it is
    /// cancelled. Throws Failure when the connection is lost.
    std::vector<TreeEntry> entriesBelow(const std::string& root);

    /// Whether something was left out.
    bool isIncomplete() const noexcept { return isIncomplete_; }

private:
    void listInto(std::vector<TreeEntry>& entries, const std::string& root,
                  const std::string& parent);
    void addEntry(std::vector<TreeEntry>& entries, const std::string& path, TreeEntry entry);
    void leaveOutOther(std::vector<TreeEntry>& entries, const std::string& root,
                       const std::string& path);
    void leaveOut(const std::string& why);

    Place& place_;
    const Cancellation& cancellation_;
    bool isIncomplete_ = false;
};

} // namespace TarnisTool
