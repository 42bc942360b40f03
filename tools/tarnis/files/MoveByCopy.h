#pragma once

#include "files/Cancellation.h"
#include "files/Endpoint.h"

#include <FileSystem/Failure.h>
#include <FileSystem/TreeOperations.h>

#include <functional>
#include <string>
#include <unordered_map>

namespace TarnisTool {

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
    MoveByCopy(RemoteEndpoint& place, const Cancellation& cancellation, std::string source,
               FileSystem::StorageSystemFileInfo info, std::string target);

    /// Throws Failure.
    void run();

private:
    class Copy;
    class Removal;

    bool isTree() const;
    void copy();
    void makeTarget();
    void removeSource();
    void removeTreeAside();
    bool removeCopied(const std::string& root);
    bool attempt(const std::function<bool()>& step);
    [[noreturn]] void failToRemove(const std::string& what, const std::string& rest);
    [[noreturn]] void giveUp(const std::string& hint);
    bool takeBack() const;
    [[noreturn]] void fail(const std::string& hint, bool isClean = true);

    RemoteEndpoint& place_;
    const Cancellation& cancellation_;
    std::string source_;
    FileSystem::StorageSystemFileInfo info_;
    std::string target_;
    /// What was copied, by its path below the source; nothing else is to be removed.
    std::unordered_map<std::string, FileSystem::StorageSystemAttributes> copied_;
    bool isLost_ = false; ///< The server was, during the removal.
    std::string why_;     ///< What was said of the last step of the removal.
};

} // namespace TarnisTool
