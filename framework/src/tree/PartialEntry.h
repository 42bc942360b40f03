#pragma once

#include "tree/FileReplacement.h"

#include <FileSystem/StorageSystemFile.h>
#include <FileSystem/StorageSystemFlags.h>
#include <Utilities/Flags.h>

#include <memory>
#include <string>

namespace FileSystem {

class StorageSystem;

/// A file or a link in the making: it stands under a hidden name beside its final one, takes that
/// when it is complete, and is removed when it never is.
class PartialEntry
{
public:
    /// Creates nothing yet.
    PartialEntry(const StorageSystem& system, std::string directory, std::string name);
    PartialEntry(const PartialEntry&) = delete;
    PartialEntry& operator=(const PartialEntry&) = delete;

    /// Removes what was created and not published; where that fails, the failure at hand says what
    /// is left. Files of it must be closed by then.
    ~PartialEntry();

    /// Null: it cannot be created.
    /// \param isInPlace under its final name, where nothing may stand.
    std::unique_ptr<StorageSystemFile>
    createFile(Utilities::Flags<PosixFilePermissionFlag> permissions, bool isInPlace);

    /// False: it cannot be created.
    bool createLink(const std::string& target);

    /// The path that it has at the moment.
    const std::string& path() const { return path_; }

    /// Gives it its final name. Fails when something is there.
    bool publish();

    /// Gives it its final name, as FileReplacement::replace().
    bool publishReplacing(const FileReplacement::LeftTeller& tellLeft);

private:
    std::unique_ptr<StorageSystemFile>
    tryToCreate(const std::string& name, Utilities::Flags<PosixFilePermissionFlag> permissions);
    bool remove() const;
    void tellThatItIsLeft() const;
    bool removeRefused() const;
    bool takeFreeName();
    std::string finalPath() const;
    bool takesFinalName(bool isPublished);

    const StorageSystem& system_;
    std::string directory_;
    std::string name_;
    std::string path_;
    bool created_ = false;
};

} // namespace FileSystem
