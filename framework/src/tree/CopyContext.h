#pragma once

#include "tree/FlightLimit.h"

#include <FileSystem/StorageSystemQueue.h>
#include <FileSystem/TreeOperations.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>

namespace FileSystem {

class StorageSystem;

/// What the transfers of one copy share.
struct CopyContext
{
    using Permissions = Utilities::Flags<PosixFilePermissionFlag>;

    StorageSystemQueue& source;
    StorageSystemQueue& target;
    const StorageSystem& sourceSystem;
    const StorageSystem& targetSystem;
    bool isSourceLocal;
    bool isTargetLocal;
    const TreeCopyOptions& options;

    /// One file can be at both ends.
    bool isOneSystem() const noexcept
    {
        return &sourceSystem == &targetSystem || (isSourceLocal && isTargetLocal);
    }

    /// The target's system copies by itself from one open file to the other: both are of one queue.
    bool copiesItself = false;
    /// What is to be preserved and cannot be is a failure: the entry is not copied.
    bool isStrict = false;
    /// Bytes that one operation moves.
    std::uint64_t pieceSize = sentPieceSize;
    /// The copy was stopped: what is not done yet is not to be done any more.
    bool isStopped = false;
    /// What every new file that was looked at had. A permission that has been missing once is given
    /// to those alone that are made with it.
    Permissions givenToAll{0777U};
    /// Whether new files have had no other permissions than they were made with, as far as they
    /// were looked at.
    bool keepsPermissions = true;
    std::uint64_t bytesHeld = 0; ///< Read and not written yet, or being read.
    std::uint64_t bytesDone = 0; ///< Written.
    /// Is told when bytes of an entry have been written, and may stop the copy.
    std::function<void(const TreeEntry& entry)> written = {};
    /// Is told what a transfer that resumes has, or leaves, beside the target.
    std::function<void(const TreeEntry& entry, const std::string& path, TreePart part)> kept = {};
    /// Where transfers that resume gather, in small letters: a system may not tell "a" from "A".
    std::set<std::string> parts = {};
};

/// Memory for bytes on their way, which count as held as long as it is. Not filled with zeros: that
/// is a twelfth of what a large file takes on this side.
using CopyBuffer = std::shared_ptr<char[]>;
CopyBuffer newBuffer(CopyContext& context, std::uint64_t size);

} // namespace FileSystem
