#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemQueue.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

class StorageSystem;
class StorageSystemFile;

/// What a storage system can do beyond its operations, for those who write one: it hands an object
/// to its base by StorageSystem::setServices(), with the functions overridden that it is able to
/// do. The others do what they say here with the system's operations.
///
/// The functions are called within operations, by as many threads as those are, and leave a failure
/// as those do.
class FILESYSTEM_EXPORT StorageSystemServices
{
public:
    using OpenMode = Utilities::Flags<StorageSystemFileOpenModeFlag>;

    /// \param system owns this.
    explicit StorageSystemServices(const StorageSystem& system);
    StorageSystemServices(const StorageSystemServices&) = delete;
    StorageSystemServices& operator=(const StorageSystemServices&) = delete;
    virtual ~StorageSystemServices();

    /// Makes a queue with many operations in flight, which may outlive the system and is told
    /// whether that is still there. Null where it cannot just now: the operations are done one
    /// after the other then. Here it never can.
    /// \param goesOn as for StorageSystem::createQueue().
    virtual std::unique_ptr<StorageSystemQueue>
    createQueue(const std::shared_ptr<const std::atomic<bool>>& isAlive,
                const std::function<bool()>& goesOn) const;

    /// As StorageSystem::directoryReadFully(), for a system that can tell whether a listing broke
    /// off. Here a list without a failure of a directory that is there afterwards is whole.
    virtual std::optional<std::vector<StorageSystemFileInfo>>
    readDirectory(const std::string& path) const;

    /// The absolute path of the directory in which the system starts relative ones; empty where it
    /// cannot tell, as here.
    virtual std::optional<std::string> startDirectory() const;

    /// Renames onto a file and replaces it in one atomic step, a symbolic link as itself, and never
    /// a directory. False when nothing has changed, as far as the system tells. With no failure, or
    /// one that tells nothing (Unsupported, as here, or Other), the file is replaced in steps
    /// instead; any other failure stands.
    virtual bool replace(const std::string& path, const std::string& newPath) const;

    /// Opens what stands at a path itself, so that copies open what they have seen to be a file.
    /// Null as for do_fileOpen(), and for a symbolic link. Here a link is followed.
    virtual std::unique_ptr<StorageSystemFile> openItself(const std::string& path,
                                                          OpenMode mode) const;

    /// Whether a symbolic link is seen to lead to something that is neither a regular file nor a
    /// directory, without opening it: copies do not replace such a link. False where that is not
    /// known, as here. What it notes as a failure does not count.
    virtual bool leadsToNoFile(const std::string& path) const;

    /// What stands at a path, a link itself: as do_fileInfo() here. A system that tells whose it is
    /// makes a copy that replaces a file the owner's of that file; one that tells of sticky bits
    /// may be given one (01000) by do_directorySetPermissions(), and fails there where the
    /// directory does not get it.
    virtual std::optional<StorageSystemAttributes> look(const std::string& path) const;

    /// What a record says, as attributes.
    static StorageSystemAttributes attributesOf(const StorageSystemFileInfo& info);

protected:
    const StorageSystem& system() const noexcept { return system_; }

private:
    const StorageSystem& system_;
};

} // namespace FileSystem
