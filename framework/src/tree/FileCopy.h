#pragma once

#include "tree/CopyTask.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace FileSystem {

class PartialEntry;
class StorageSystemFile;

/// Copies one file or one link, so that it appears at its target complete or not at all, unless the
/// task says that files are to be written in place.
///
/// Permissions that are not to be preserved: a new file gets the source's, less the umask; one that
/// is replaced keeps its own, and its owner and group where the system lets us. What the bytes go
/// to is never open to more people than the source is and the file that it becomes.
class FileCopy
{
public:
    /// \param source    what is known of what is to be copied; its size is told as the total.
    /// \param directory of the target; must exist.
    /// \param name      in it, a single component.
    /// \param standing  what stands at the target; empty for nothing.
    FileCopy(const CopyTask& task, const StorageSystemFileInfo& source, std::string sourcePath,
             const std::string& directory, std::string name,
             std::optional<StorageSystemFileInfo> standing);

    /// Whichever of the two the source is. False: a failure, or the progress said stop. What an
    /// exception leaves is the same.
    bool copy();

private:
    using Permissions = Utilities::Flags<PosixFilePermissionFlag>;

    /// What became of the bytes.
    struct Outcome
    {
        std::uint64_t bytes = 0;
        bool hasPermissions = false; ///< The final ones.
    };

    bool mayTakeItsPlace() const;
    bool mayStillTakeItsPlace();
    bool copyFile();
    bool copyLink();
    bool publish(PartialEntry& partial) const;
    bool mayHelpToWriteInPlace() const;
    bool isForItsName(const Failure& why) const;
    void failOnlyInPlace(const Failure& why) const;
    bool writeInPlace();
    bool isWhole(const std::string& path, std::uint64_t bytes,
                 const std::optional<StorageSystemFileInfo>& made) const;
    bool isReadToItsEnd(std::uint64_t bytes) const;
    std::unique_ptr<StorageSystemFile> openSource();
    bool isAsScanned(StorageSystemFile& source);
    std::unique_ptr<StorageSystemFile> createTarget(PartialEntry& partial) const;
    bool mayBeItself() const;
    bool looksLikeItself() const;
    bool overwrite(Outcome& outcome);
    std::unique_ptr<StorageSystemFile> openStanding(StorageSystemFile& source) const;
    bool isAnother(StorageSystemFile& source, StorageSystemFile& target) const;
    bool isUncut(StorageSystemFile& source) const;
    std::optional<std::uint64_t> sizeNow(StorageSystemFile& source) const;
    bool closeToOthers(StorageSystemFile& standing) const;
    bool cut(StorageSystemFile& file, std::uint64_t size) const;
    bool fill(PartialEntry& partial, Outcome& outcome);
    bool move(StorageSystemFile& source, StorageSystemFile& target, Outcome& outcome) const;
    void hide(StorageSystemFile& file, const std::string& path, Permissions permissions) const;
    bool narrow(StorageSystemFile& file, const std::string& path, Permissions permissions) const;
    bool takePlaceOfStanding(StorageSystemFile& file) const;
    bool preservePermissions(StorageSystemFile& file, Outcome& outcome) const;
    bool setAttributes(const std::string& path, const StorageSystemFileInfo& made,
                       bool hasPermissions) const;
    Permissions permissionsWhileFilled() const;
    Permissions finalPermissions(Permissions made) const;
    bool replacesFile() const;
    void lookAtOwner();

    bool has(StorageSystemCopyOptionFlag option) const { return task_.options.has(option); }

    const CopyTask& task_;
    const StorageSystemFileInfo& source_;
    Permissions permissions_; ///< The source's; when it is open, no more than it has then.
    std::string sourcePath_;
    std::string directory_;
    std::string name_;
    std::string targetPath_;
    std::optional<StorageSystemFileInfo> standing_;
    std::optional<StorageSystemOwner> owner_; ///< Of what stands there, as far as it is told.
    bool standsStill_ = false; ///< What stood there was a file when it was looked at again.
};

} // namespace FileSystem
