#pragma once

#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <cstdint>
#include <optional>
#include <string>

namespace FileSystem {

class StorageSystem;

/// What the operations that copy one file or one tree are asked for.
struct SlotCopyTask
{
    const StorageSystem& source;
    const std::string& sourcePath;
    const StorageSystemFileInfo& info; ///< Of what is to be copied.
    const StorageSystem& target;
    const std::string& targetPath;
    const StorageSystemProgress& progress;
    Utilities::Flags<StorageSystemCopyOptionFlag> options;
    std::optional<std::uint64_t> bufferSize;
};

/// Copies for these operations: all or, from the first failure on, nothing more. What cannot be
/// copied at all is found before anything is made.
bool copyForSlot(const SlotCopyTask& task);

} // namespace FileSystem
