#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/StorageSystemFile.h>
#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemQueue.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

class StorageSystemServices;

/// A tree of directories and files, wherever it is kept. A host works with every storage system
/// through this interface, and copies from any to any.
///
/// Paths ("file ids", "directory ids") are byte strings with "/" between their components, in no
/// particular encoding. An empty path, one with a NUL byte, or of more than 100,000 bytes names
/// nothing: operations on it fail with FailureCode::BadName, and no system is asked. A directory
/// that a name is joined to may be empty; the path is relative then.
/// A slash at the end makes no link count as the directory that it leads to where links do not
/// count.
///
/// Links: no operation follows a symbolic link in the last component of a path unless it says so;
/// links in the components before it are followed by the system. "A directory" below means one that
/// is not a link.
///
/// Failures are told by results: false, an empty optional, an empty vector, a null pointer; nothing
/// has changed then unless the operation says otherwise. Absence and refusal look alike in the
/// questions (fileInfo(), fileExists(), the listings). When the system has lost its resources (its
/// session ended) isValid() is false and operations fail; one that is in flight at that moment
/// throws handle_fatal_error("invalid").
///
/// Atomicity: one operation is several steps for most systems, and others may change the tree in
/// between; nothing is durable by promise. Where a step is atomic its comment says so.
///
/// Threads: any thread may call any operation at any time, destruction aside. Operations on one
/// session take turns, step by step. Each blocks until the system has answered; a remote one takes
/// as long as its server likes.
class FILESYSTEM_EXPORT StorageSystem
{
public:
    StorageSystem(const StorageSystem&) = delete;
    StorageSystem& operator=(const StorageSystem&) = delete;
    virtual ~StorageSystem();

    // The system itself

    /// The host that keeps the tree; empty when it is not known. May wait for its turn
    /// as other operations do, but asks no server.
    std::string hostName() const;

    /// The kind of the system.
    StorageSystemType getType() const;

    /// Whether the system can be read from at all; no promise for a single file. False when
    /// invalid.
    bool isReadable() const;

    /// Whether the system can be written to at all; no promise for a single file. False when
    /// invalid.
    bool isWriteable() const;

    /// Whether the system can be used. Does not block.
    bool isValid() const;

    /// Whether the system knows symbolic links; no promise that a server makes them.
    bool hasSymbolicLinks() const;

    /// Bytes per read() that suit the system.
    std::uint64_t recommendedReadBufferSize() const;

    /// Bytes per write() that suit the system.
    std::uint64_t recommendedWriteBufferSize() const;

    /// How many entries a listing reads, unless setListingLimit() says otherwise.
    static constexpr std::uint64_t defaultListingLimit = 10'000'000;

    /// Sets how many entries of a directory a listing reads at most, those that a filter leaves out
    /// included: a broken server may go on naming entries for ever. A listing that meets one more
    /// ends with what it has so far and leaves FailureCode::TooMany; directoryReadFully() has none
    /// then. Holds for listings that begin afterwards. Does not block.
    void setListingLimit(std::uint64_t entries) noexcept;

    /// How many that is.
    std::uint64_t listingLimit() const noexcept;

    /// The path from the root of the system on: a relative one is joined to the directory in which
    /// the system starts it. Nothing need stand there, and links stay as they are. Empty: the
    /// system cannot tell. A remote system is asked about a relative path only.
    std::optional<std::string> absolutePath(const std::string& path) const;

    // Files

    /// The id of a file without what does not matter in it: repeated and trailing slashes and "."
    /// components. ".." stays: what it means is for the system to say where links are about.
    std::string canonizeFileId(const std::string& path) const;

    /// Creates a file and opens it for reading and writing.
    /// Target exists: with `failIfExists` null, whatever it is, atomically where the system can;
    /// without, a file is emptied and opened (through a link, its target), a directory gives null.
    /// Parent missing: with `makePath` it is made, without null.
    /// \param permissions of a file that is created, before the umask.
    [[nodiscard]] std::unique_ptr<StorageSystemFile> fileCreate(
        const std::string& directoryPath, const std::string& name, bool failIfExists, bool makePath,
        Utilities::Flags<PosixFilePermissionFlag> permissions = defaultFilePermissions) const;

    /// Opens a file. A link is followed. Target missing: created with Create (atomic with Exclusive
    /// where the system can), else null. A missing parent, a refusal: null. What is no regular file
    /// (a directory, a pipe): null on this machine. Many servers open whatever their machine opens:
    /// a directory then, of which nothing can be read, or a pipe, which may wait for its other end
    /// as long as that takes.
    /// \param permissions of a file that is created, before the umask.
    [[nodiscard]] std::unique_ptr<StorageSystemFile>
    fileOpen(const std::string& path, Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
             Utilities::Flags<PosixFilePermissionFlag> permissions = defaultFilePermissions) const;

    /// Whether a symbolic link stands at the path, whatever it points to.
    bool fileIsSymbolicLink(const std::string& path) const;

    /// Whether something that is not a directory stands at the path.
    /// \param linkCounts true: a symbolic link counts, also a dangling one, also one to a
    /// directory.
    ///                   false: a link does not count.
    bool fileExists(const std::string& path, bool linkCounts = true) const;

    /// Bytes of what stands at the path; 0 for a directory, a link's own length for a link. Empty:
    /// nothing there, or it cannot be told.
    std::optional<std::uint64_t> fileSize(const std::string& path) const;

    /// What stands at the path, a directory or a link itself included. Empty: nothing there, or it
    /// cannot be told.
    std::optional<StorageSystemFileInfo> fileInfo(const std::string& path) const;

    /// The kind of what stands at the path. Empty as for fileInfo().
    std::optional<Utilities::Flags<StorageSystemFileTypeFlag>>
    fileType(const std::string& path) const;

    /// Room on the volume of the path, or of its nearest existing ancestor. Empty: it cannot be
    /// told.
    std::optional<StorageSystemStorageInfo> fileStorageInfo(const std::string& path) const;

    /// Removes a file, or a link and not its target; one atomic step. False: nothing there, a
    /// directory, a refusal.
    [[nodiscard]] bool fileRemove(const std::string& path) const;

    /// Gives a file another name in its directory; a link is renamed itself. One atomic step.
    /// Target exists: fails where the system can tell in that step; on a remote system that would
    /// replace it, after a look, so that only what appears after the look is replaced.
    /// \return the new path. Empty: nothing there, a directory, a name that is no single component,
    ///         a refusal.
    [[nodiscard]] std::optional<std::string> fileRename(const std::string& path,
                                                        const std::string& newName) const;

    /// Moves a file into another directory of this system, under its name; a link is moved itself.
    /// As fileMoveAs(). \return the new path; empty as for fileMoveAs().
    [[nodiscard]] std::optional<std::string> fileMove(const std::string& path,
                                                      const std::string& targetDirectory) const;

    /// Copies a file, a link or, with Recursive, a directory, to a name in a directory of this or
    /// another system. As FileSystem2::fileCopyAs().
    /// \param failIfExists as the option FailIfExists.
    /// \return the new path; empty as for fileCopyAs(), and for a name that is no single component.
    [[nodiscard]] std::optional<std::string>
    fileCopy(const std::string& path, const StorageSystem& target,
             const std::string& targetDirectory, const std::string& name, bool failIfExists,
             const StorageSystemProgress& progress = {},
             Utilities::Flags<StorageSystemCopyOptionFlag> options = {},
             std::optional<std::uint64_t> bufferSize = std::nullopt) const;

    /// The permission bits of what stands at the path. Empty as for fileInfo().
    std::optional<Utilities::Flags<PosixFilePermissionFlag>>
    fileGetPermissions(const std::string& path) const;

    /// Sets the permission bits; a link is followed. One step. False: nothing there, a refusal.
    bool fileSetPermissions(const std::string& path,
                            Utilities::Flags<PosixFilePermissionFlag> permissions) const;

    /// The modification time of what stands at the path. Empty as for fileInfo().
    std::optional<StorageSystemTimePoint> fileGetModTime(const std::string& path) const;

    /// Sets the modification time. True: the system has the time, at least to the second; what lies
    /// beyond the system's range or exactness does not count as set. Of a link its own, where the
    /// system can: elsewhere false, and it may be the target that has the time then. False: nothing
    /// there, a refusal.
    bool fileSetModTime(const std::string& path, StorageSystemTimePoint time) const;

    /// Makes a symbolic link to a file, named `name` in `linkDirectory`. As
    /// FileSystem2::fileSymbolicLinkCreateAs(). \return the link's path; empty as there, and for a
    /// name that is no single component.
    [[nodiscard]] std::optional<std::string>
    fileSymbolicLinkCreate(const std::string& linkDirectory, const std::string& name,
                           const std::string& target, bool failIfLinkExists) const;

    /// The text of a symbolic link. Empty: no link there, or it cannot be read.
    std::optional<std::string> fileSymbolicLinkTarget(const std::string& path) const;

    /// Where a symbolic link leads, as a path of this system: a relative text is joined to the
    /// link's directory.
    /// \param followChain true: when that is a link again, goes on to the last; false: one step.
    /// Empty: no link there, it cannot be read, or the chain is longer than 40 links. Whether
    /// something stands at the end is not asked.
    std::optional<std::string> fileSymbolicLinkTargetFileId(const std::string& path,
                                                            bool followChain) const;

    /// Removes a symbolic link and not its target. False: no link there, a refusal. A remote system
    /// may remove whatever file stands there.
    [[nodiscard]] bool fileSymbolicLinkRemove(const std::string& path) const;

    // Directories

    /// The id of a directory without what does not matter in it, as canonizeFileId().
    std::string canonizeDirectoryId(const std::string& path) const;

    /// The kind of the directory at the path: Directory, or SymbolicLink and Directory for a link
    /// to one. Empty: neither is there, or it cannot be told.
    std::optional<Utilities::Flags<StorageSystemFileTypeFlag>>
    directoryType(const std::string& path) const;

    /// Whether a symbolic link whose target is a directory stands at the path.
    bool directoryIsSymbolicLink(const std::string& path) const;

    /// What is known of the directory at the path. Empty: something else or nothing is there (a
    /// link is something else), or it cannot be told.
    std::optional<StorageSystemFileInfo> directoryInfo(const std::string& path) const;

    /// Makes directories one below the other: `names` from `parentPath` on. What exists on the way
    /// is used.
    /// \param names     each a single component; an empty list is a failure.
    /// \param exclusive fails when the last one exists already; without, that is a success.
    /// \return the last one's path. Empty: the parent is missing, something else stands in the way,
    ///         a refusal; directories that were made before stay.
    [[nodiscard]] std::optional<std::string> directoryCreate(
        const std::string& parentPath, const std::vector<std::string>& names, bool exclusive,
        Utilities::Flags<PosixFilePermissionFlag> permissions = defaultDirectoryPermissions) const;

    /// Whether a directory stands at the path.
    /// \param linkCounts true: a link whose target is a directory counts. false: it does not.
    bool directoryExists(const std::string& path, bool linkCounts = true) const;

    /// Removes a directory.
    /// \param recursive true: with everything below it, depth first, never through a link (links
    ///                  are removed themselves). Ends at the first refusal, or at an entry whose
    ///                  name is no single component; what was removed before is gone. false: only
    ///                  an empty one, in one atomic step.
    /// False: nothing there, something else (a link to a directory included), a refusal.
    [[nodiscard]] bool directoryRemove(const std::string& path, bool recursive) const;

    /// Gives a directory another name in its parent, in one atomic step. As fileRename().
    [[nodiscard]] std::optional<std::string> directoryRename(const std::string& path,
                                                             const std::string& newName) const;

    /// Moves a directory into another one, under its name. As FileSystem2::directoryMoveAs().
    /// \return the new path; empty as there.
    [[nodiscard]] std::optional<std::string>
    directoryMove(const std::string& path, const std::string& targetDirectory) const;

    /// The entries of a directory (a link to one is followed), "." and ".." left out, in the
    /// system's order. A failure gives an empty or shortened list; directoryReadFully() tells. A
    /// regular expression that is none throws std::regex_error, and leaves FailureCode::BadName.
    /// Not a snapshot. \param filter for whole names; empty for all.
    std::vector<StorageSystemDirectoryInfo>
    directoryList(const std::string& path, const std::string& filter = {},
                  StorageSystemDirectoryFilterType type =
                      StorageSystemDirectoryFilterType::SearchPattern) const;

    /// The same with what is known of each entry. A link is described itself.
    std::vector<StorageSystemFileInfo>
    directoryFileInfoList(const std::string& path, const std::string& filter = {},
                          StorageSystemDirectoryFilterType type =
                              StorageSystemDirectoryFilterType::SearchPattern) const;

    /// All that directoryFileInfoList() gives, or nothing: for callers to whom a shortened list is
    /// worse than none, such as copies. Empty: no directory (or link to one) is there, it cannot be
    /// read, or reading it broke off. Where a system leaves no failure for a list that broke off,
    /// it is the list, if the directory is there afterwards.
    std::optional<std::vector<StorageSystemFileInfo>>
    directoryReadFully(const std::string& path) const;

    /// The names alone, in ascending order of their bytes.
    std::vector<std::string>
    directoryListFileNames(const std::string& path, const std::string& filter = {},
                           StorageSystemDirectoryFilterType type =
                               StorageSystemDirectoryFilterType::SearchPattern) const;

    /// Room on the volume of a directory. As fileStorageInfo().
    std::optional<StorageSystemStorageInfo> directoryStorageInfo(const std::string& path) const;

    /// As fileGetPermissions(), for a directory; empty for anything else.
    std::optional<Utilities::Flags<PosixFilePermissionFlag>>
    directoryGetPermissions(const std::string& path) const;

    /// As fileSetPermissions(), for a directory; false for anything else.
    bool directorySetPermissions(const std::string& path,
                                 Utilities::Flags<PosixFilePermissionFlag> permissions) const;

    /// As fileGetModTime(), for a directory; empty for anything else.
    std::optional<StorageSystemTimePoint> directoryGetModTime(const std::string& path) const;

    /// As fileSetModTime(), for a directory; false for anything else.
    bool directorySetModTime(const std::string& path, StorageSystemTimePoint time) const;

    /// Makes a symbolic link to a directory. As FileSystem2::directorySymbolicLinkCreateAs().
    /// \return the link's path; empty as there, and for a name that is no single component.
    [[nodiscard]] std::optional<std::string>
    directorySymbolicLinkCreate(const std::string& linkDirectory, const std::string& name,
                                const std::string& target, bool failIfLinkExists) const;

    /// As fileSymbolicLinkTarget().
    std::optional<std::string> directorySymbolicLinkTarget(const std::string& path) const;

    /// As fileSymbolicLinkTargetFileId(); empty also when no directory is there.
    std::optional<std::string> directorySymbolicLinkTargetDirectoryId(const std::string& path,
                                                                      bool followChain) const;

    /// As fileSymbolicLinkRemove(): removes the link and not the directory.
    [[nodiscard]] bool directorySymbolicLinkRemove(const std::string& path) const;

    /// A queue of operations in flight on this system, for whoever has many questions or moves many
    /// files; see StorageSystemQueue. Where the system can only do one operation after the other,
    /// so does the queue. Over SFTP it has a channel of its own, and waits here until the server
    /// has opened that; where the server opens none, the operations are done one after the other.
    /// \param goesOn may be empty. Asked at least ten times a second while this waits, on the
    ///               thread that calls; once it says no nothing is waited for, and the operations
    ///               are done one after the other.
    std::unique_ptr<StorageSystemQueue> createQueue(const std::function<bool()>& goesOn = {}) const;

    /// The path as a person wants to see it, with the host where there is one. Waits as
    /// hostName() does.
    std::string displayPath(const std::string& path) const;

protected:
    StorageSystem();

    /// Makes a file that this system has opened know when the system goes. Null gives null.
    std::unique_ptr<StorageSystemFile> own(std::unique_ptr<StorageSystemFile>&& file) const;

    /// For a system that can do more than its operations; see StorageSystemServices. To be called
    /// while nobody else uses the system, at best on construction.
    void setServices(std::unique_ptr<StorageSystemServices> services);

    virtual std::string do_hostName() const = 0;
    virtual StorageSystemType do_getType() const = 0;
    virtual bool do_isReadable() const = 0;
    virtual bool do_isWriteable() const = 0;
    virtual bool do_isValid() const = 0;
    virtual bool do_hasSymbolicLinks() const = 0;
    virtual std::uint64_t do_recommendedReadBufferSize() const = 0;
    virtual std::uint64_t do_recommendedWriteBufferSize() const = 0;
    virtual std::string do_canonizeFileId(const std::string& path) const = 0;
    virtual std::unique_ptr<StorageSystemFile>
    do_fileCreate(const std::string& directoryPath, const std::string& name, bool failIfExists,
                  bool makePath, Utilities::Flags<PosixFilePermissionFlag> permissions) const = 0;
    virtual std::unique_ptr<StorageSystemFile>
    do_fileOpen(const std::string& path, Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                Utilities::Flags<PosixFilePermissionFlag> permissions) const = 0;
    virtual bool do_fileIsSymbolicLink(const std::string& path) const = 0;
    virtual bool do_fileExists(const std::string& path) const;
    virtual std::optional<std::uint64_t> do_fileSize(const std::string& path) const;
    virtual std::optional<StorageSystemFileInfo> do_fileInfo(const std::string& path) const = 0;
    virtual std::optional<Utilities::Flags<StorageSystemFileTypeFlag>>
    do_fileType(const std::string& path) const;
    virtual std::optional<StorageSystemStorageInfo>
    do_fileStorageInfo(const std::string& path) const = 0;
    virtual bool do_fileRemove(const std::string& path) const = 0;
    virtual std::optional<std::string> do_fileRename(const std::string& path,
                                                     const std::string& newName) const = 0;
    virtual std::optional<std::string> do_fileMove(const std::string& path,
                                                   const std::string& targetDirectory) const = 0;
    virtual std::optional<std::string>
    do_fileCopy(const std::string& path, const StorageSystem& target,
                const std::string& targetDirectory, const std::string& name, bool failIfExists,
                const StorageSystemProgress& progress,
                Utilities::Flags<StorageSystemCopyOptionFlag> options,
                std::optional<std::uint64_t> bufferSize) const = 0;
    virtual std::optional<Utilities::Flags<PosixFilePermissionFlag>>
    do_fileGetPermissions(const std::string& path) const;
    virtual bool
    do_fileSetPermissions(const std::string& path,
                          const Utilities::Flags<PosixFilePermissionFlag>& permissions) const = 0;
    virtual std::optional<StorageSystemTimePoint> do_fileGetModTime(const std::string& path) const;
    virtual bool do_fileSetModTime(const std::string& path, StorageSystemTimePoint time) const = 0;
    virtual std::optional<std::string> do_fileSymbolicLinkCreate(const std::string& linkDirectory,
                                                                 const std::string& name,
                                                                 const std::string& target,
                                                                 bool failIfLinkExists) const = 0;
    virtual std::optional<std::string> do_fileSymbolicLinkTarget(const std::string& path) const = 0;
    virtual std::optional<std::string> do_fileSymbolicLinkTargetFileId(const std::string& path,
                                                                       bool followChain) const = 0;
    virtual bool do_fileSymbolicLinkRemove(const std::string& path) const = 0;
    virtual std::string do_canonizeDirectoryId(const std::string& path) const = 0;
    virtual std::optional<Utilities::Flags<StorageSystemFileTypeFlag>>
    do_directoryType(const std::string& path) const;
    virtual bool do_directoryIsSymbolicLink(const std::string& path) const = 0;
    virtual std::optional<StorageSystemFileInfo>
    do_directoryInfo(const std::string& path) const = 0;
    virtual std::optional<std::string>
    do_directoryCreate(const std::string& parentPath, const std::vector<std::string>& names,
                       bool exclusive,
                       Utilities::Flags<PosixFilePermissionFlag> permissions) const = 0;
    virtual bool do_directoryExists(const std::string& path) const;
    virtual bool do_directoryRemove(const std::string& path, bool recursive) const = 0;
    virtual std::optional<std::string> do_directoryRename(const std::string& path,
                                                          const std::string& newName) const = 0;
    virtual std::optional<std::string>
    do_directoryMove(const std::string& path, const std::string& targetDirectory) const = 0;
    virtual std::vector<StorageSystemDirectoryInfo>
    do_directoryList(const std::string& path, const std::string& filter,
                     StorageSystemDirectoryFilterType type) const = 0;
    virtual std::vector<StorageSystemFileInfo>
    do_directoryFileInfoList(const std::string& path, const std::string& filter,
                             StorageSystemDirectoryFilterType type) const = 0;
    virtual std::vector<std::string>
    do_directoryListFileNames(const std::string& path, const std::string& filter,
                              StorageSystemDirectoryFilterType type) const = 0;
    virtual std::optional<StorageSystemStorageInfo>
    do_directoryStorageInfo(const std::string& path) const = 0;
    virtual std::optional<Utilities::Flags<PosixFilePermissionFlag>>
    do_directoryGetPermissions(const std::string& path) const = 0;
    virtual bool do_directorySetPermissions(
        const std::string& path,
        const Utilities::Flags<PosixFilePermissionFlag>& permissions) const = 0;
    virtual std::optional<StorageSystemTimePoint>
    do_directoryGetModTime(const std::string& path) const = 0;
    virtual bool do_directorySetModTime(const std::string& path,
                                        StorageSystemTimePoint time) const = 0;
    virtual std::optional<std::string>
    do_directorySymbolicLinkCreate(const std::string& linkDirectory, const std::string& name,
                                   const std::string& target, bool failIfLinkExists) const = 0;
    virtual std::optional<std::string>
    do_directorySymbolicLinkTarget(const std::string& path) const = 0;
    virtual std::optional<std::string>
    do_directorySymbolicLinkTargetDirectoryId(const std::string& path, bool followChain) const = 0;
    virtual bool do_directorySymbolicLinkRemove(const std::string& path) const = 0;
    virtual std::string do_displayPath(const std::string& path) const = 0;

private:
    friend class SlotQueue;
    friend class StorageSystemFile;
    friend bool leadsToNoFile(const StorageSystem& system, const std::string& path);

    /// False when the system is gone; outlives it in the files that it has opened.
    std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
    std::atomic<std::uint64_t> listingLimit_{defaultListingLimit};
    std::unique_ptr<StorageSystemServices> services_;
};

} // namespace FileSystem
