#pragma once

#include "tree/CopyTask.h"
#include "tree/TreeScan.h"

#include <FileSystem/StorageSystemRecords.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>

namespace FileSystem {

/// What stands in a directory that is copied into.
class StandingEntries
{
public:
    /// Looks at them, for so many that are to be copied. Far from a server one listing costs less
    /// than a question for each.
    StandingEntries(const StorageSystem& system, const std::string& directory, std::size_t copied);

    /// What stands there under the name; empty for nothing.
    std::optional<StorageSystemFileInfo> find(const std::string& name) const;

private:
    const StorageSystem& system_;
    const std::string& directory_;
    bool isListed_ = false;
    std::map<std::string, StorageSystemFileInfo> entries_;
};

/// A directory that a tree's is copied into: made, or there before.
class TargetDirectory
{
public:
    /// \param source the directory that is copied; must stay.
    TargetDirectory(const CopyTask& task, std::string path, const TreeDirectory& source);

    /// Makes it, or finds it there. While it is filled, a new one is open to nobody to whom the
    /// source is not, nor is one that is to get the source's permissions.
    bool make();

    /// Whether it was not there before.
    bool isNew() const { return isNew_; }

    const std::string& path() const { return path_; }

    /// Gives it its permissions and its time, when everything is in it.
    bool finish() const;

private:
    using Permissions = Utilities::Flags<PosixFilePermissionFlag>;

    bool isThere() const;
    Permissions permissionsToPreserve() const;
    bool closeStanding();
    void adjustStickyBit(std::optional<bool> told);
    void lookAtNew(Permissions permissions);
    bool setTime() const;
    bool setPermissions() const;

    const CopyTask& task_;
    std::string path_;
    const std::string& sourcePath_;
    const StorageSystemFileInfo& source_;
    bool isNew_ = false;
    std::optional<Permissions> final_; ///< What is to be set in the end.
};

} // namespace FileSystem
