#pragma once

#include "CopyTask.h"

#include <cstdint>
#include <string>

namespace FileSystem {

class PartialEntry;
class StorageSystemFile;

/// Copies one file or one link, so that it appears at its target complete or not at all.
class FileCopy
{
public:
    /// \param source    what is known of what is to be copied; its size is told as the total.
    /// \param directory of the target; must exist.
    /// \param name      in it, a single component.
    FileCopy(const CopyTask& task, const StorageSystemFileInfo& source, std::string sourcePath,
             std::string directory, std::string name);

    /// False: a failure, or the progress said stop. What an exception leaves is the same.
    bool copyFile() const;
    bool copyLink() const;

private:
    bool isWhole(std::uint64_t bytes) const;
    bool fill(PartialEntry& partial, std::uint64_t& bytes) const;
    bool setAttributes(const std::string& path) const;
    bool replaces() const;

    const CopyTask& task_;
    const StorageSystemFileInfo& source_;
    std::string sourcePath_;
    std::string directory_;
    std::string name_;
};

} // namespace FileSystem
