#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/StorageSystem.h>

#include <optional>
#include <string>
#include <vector>

namespace FileSystem {

/// A storage system whose operations by directory and name are built on operations by path.
///
/// Writing a storage system: derive from this class and implement what is abstract here, that is
/// do_hostName, do_getType, do_isValid, do_fileOpen, do_fileInfo, do_fileStorageInfo,
/// do_fileRemove, do_fileSetPermissions, do_fileSetModTime, do_fileRenameAs, do_directoryCreateAs,
/// do_directoryRemove (one argument), the three listings and the symbolic-link operations.
/// Everything else works on these; override more where a system can do better.
class FILESYSTEM_EXPORT FileSystem2 : public StorageSystem
{
public:
    ~FileSystem2() override;

    // Paths. These only look at the text: no system is asked, no link is resolved, nothing blocks.

    /// As canonizeFileId().
    std::string pathCanonize(const std::string& path) const;

    /// The last component, trailing slashes ignored: "/a/b/" gives "b", "/" and "" give "".
    std::string pathFileName(const std::string& path) const;

    /// Whether the last component is a search pattern: holds "*", "?", "[" or ";".
    bool pathHasFilterPath(const std::string& path) const;

    /// Whether the path starts at the root.
    bool pathIsAbsolute(const std::string& path) const;

    /// What follows the last dot of the name; empty without one. A dot in front of the name is part
    /// of it: ".profile" has no extension.
    /// \param complete true: what follows the first dot ("tar.gz" of "a.tar.gz").
    std::string pathFileExtension(const std::string& path, bool complete) const;

    /// The path without its extension and the dot before it.
    std::string pathFileStripExtension(const std::string& path) const;

    /// The path without its last component: "/a/b" gives "/a", "/a" gives "/"; "/", "a" and "" give
    /// "".
    std::string pathParentId(const std::string& path) const;

    /// The path with the names below it, without doubling a slash. Onto "" it is relative.
    std::string pathChildId(const std::string& path, const std::vector<std::string>& names) const;

    /// The path with a slash in front, unless there is one.
    std::string pathEnsureLeadingSlash(const std::string& path) const;

    /// The path without slashes in front.
    std::string pathRemoveLeadingSlash(const std::string& path) const;

    /// The path with a slash at its end, unless there is one.
    std::string pathEnsureTrailingSlash(const std::string& path) const;

    /// The path without slashes at its end; "/" stays.
    std::string pathRemoveTrailingSlash(const std::string& path) const;

    // Files

    /// Creates a file and opens it for reading and writing. As fileCreate(), by path.
    [[nodiscard]] std::unique_ptr<StorageSystemFile> fileCreateAs(
        const std::string& path, bool failIfExists, bool makePath,
        Utilities::Flags<PosixFilePermissionFlag> permissions = defaultFilePermissions) const;

    /// Gives a file, a link itself or a directory another path within the system, in one atomic
    /// step of the system's. Target exists: false where the system can tell in that step; on a
    /// remote system that would replace it, after a look, as fileRename(). False: nothing there,
    /// the new parent is missing or on another volume, a refusal.
    [[nodiscard]] bool fileRenameAs(const std::string& path, const std::string& newPath) const;

    /// As fileRenameAs() for a file or a link itself, and a file or a link at the new path is
    /// replaced: in one atomic step where the system can, as this machine's can and many servers.
    /// Elsewhere what is replaced is set aside for that moment, as ".NAME.XXXXXXXX.tarnis-old"
    /// beside it, once a file from another directory has come near, as
    /// ".NAME.XXXXXXXX.tarnis-part": when the system is lost just then, they are found there. One
    /// that the system does not remove in the end stays at ".NAME.XXXXXXXX.tarnis-old", which is no
    /// failure and told of copies alone (see PreserveBestEffort). What is refused in one step is
    /// not tried in steps, unless the system could not tell why. Where the two paths are two names
    /// of one file, the old name is removed, by way of such a name too. False: nothing there; a
    /// directory, a pipe, a socket or a device at either path, or a link to one of the last three
    /// at the new one; the new parent is missing or on another volume; a refusal; both are where
    /// they were. When a connection was lost, nothing
    /// tells how far the system came.
    [[nodiscard]] bool fileReplaceAs(const std::string& path, const std::string& newPath) const;

    /// Moves a file or a link itself: renames it, or where the system cannot (another volume),
    /// copies it with permissions and time and then removes it. Never replaces what stands at the
    /// new path. False: nothing there, a directory, the target exists, its parent is missing, a
    /// refusal; the file is where it was.
    [[nodiscard]] bool fileMoveAs(const std::string& path, const std::string& newPath) const;

    /// Copies a file, a symbolic link as a link, or with Recursive a directory with all below it,
    /// to a path of this or another system. Never follows a link below `path`; never leaves a
    /// half-written file under its final name, unless InPlace says so: the bytes go to a hidden
    /// name beside it (".NAME.XXXXXXXX.tarnis-part"), which takes the final one when complete, as
    /// by fileReplaceAs(). What is to be preserved and cannot be makes the copy fail (but see
    /// PreserveBestEffort); of a link it is the text alone. A remote source that ends before the
    /// size that it is told to have makes the copy fail, as does a file that becomes a link before
    /// it is opened, and a hidden file that is no longer the one that was written
    /// (FailureCode::Changed). The source's permissions are no more than it has when it is open.
    ///
    /// Permissions, unless they are to be preserved: a new file or directory gets the source's less
    /// the umask. A file that is replaced keeps its own, and its owner and group where the system
    /// lets us; in another group, or in one that nobody tells, it keeps none for its group that
    /// others do not have. The owner is that of the file that stood there before the copy began:
    /// where another owner's has come there by its end, the copy fails (FailureCode::Changed). What
    /// it is closed to while it is copied onto stays closed. A directory that is filled keeps its
    /// own; one that is to get the source's is closed to others before it is filled. While it is
    /// made, a copy is open to nobody to whom the source, or the file that it replaces, is not. All
    /// of this as far as the target's system keeps to permissions.
    ///
    /// Target exists: a file or link is replaced, unless FailIfExists; a directory makes the copy
    /// of a file fail, and is filled by the copy of a directory; a pipe, a socket or a device makes
    /// the copy fail, and so does a link that is seen to lead to one. Parent missing: fails. A
    /// pipe, a socket or a device is not copied but makes the copy fail, as does an entry whose
    /// name is no single component, and a directory that is to be copied into itself.
    /// \param progress   may be empty. Bytes of all files; see StorageSystemProgress. Called also
    ///                   while a tree is looked at, before its total is known.
    /// \param bufferSize bytes per step; by default what the systems recommend.
    /// False: a failure, or `progress` said stop before everything was copied. Complete files of a
    /// tree stay, nothing half-written does unless the target is out of reach or refuses to remove
    /// it, which the failure's text tells; so too when `progress` throws.
    [[nodiscard]] bool fileCopyAs(const std::string& path, const StorageSystem& target,
                                  const std::string& targetPath,
                                  const StorageSystemProgress& progress = {},
                                  Utilities::Flags<StorageSystemCopyOptionFlag> options = {},
                                  std::optional<std::uint64_t> bufferSize = std::nullopt) const;

    /// Everything that can be told of the path. Empty as for fileInfo().
    std::optional<FileMetaData> fileMetaData(const std::string& path) const;

    /// Makes a symbolic link to a file.
    /// Target of the link: `target` is put into the link as it is, relative or not; nothing need
    /// stand there. What stands at `linkPath`: a symbolic link is replaced, or with
    /// `failIfLinkExists` left alone, false. A file, or a directory with everything below it, is
    /// replaced in either case. Not atomic: when the link cannot be made after that, what stood
    /// there is gone.
    /// True: the link is there and reads back as `target`, byte for byte. False: `target` is empty,
    /// `linkPath` has no name of its own, its parent is missing, what stands there is to be left
    /// alone or cannot be removed, the system makes no links or tells of another target, a refusal.
    [[nodiscard]] bool fileSymbolicLinkCreateAs(const std::string& target,
                                                const std::string& linkPath,
                                                bool failIfLinkExists) const;

    // Directories

    /// Makes one directory, in one atomic step.
    /// Target exists: false with `exclusive`, without asking for more when it is a directory; else
    /// what the system says, usually false. Parent missing: false.
    [[nodiscard]] bool directoryCreateAs(
        const std::string& path, bool exclusive,
        Utilities::Flags<PosixFilePermissionFlag> permissions = defaultDirectoryPermissions) const;

    /// Makes a directory and every missing one above it; links to directories on the way are
    /// followed.
    /// \param exclusive fails when the directory exists already; without, that is a success.
    /// False: something else stands in the way, a refusal; directories that were made before stay.
    [[nodiscard]] bool directoryMakePath(
        const std::string& path, bool exclusive,
        Utilities::Flags<PosixFilePermissionFlag> permissions = defaultDirectoryPermissions) const;

    using StorageSystem::directoryRemove;

    /// Removes an empty directory, in one atomic step. False: nothing there, not empty, something
    /// else, a refusal.
    [[nodiscard]] bool directoryRemove(const std::string& path) const;

    /// As fileRenameAs(), for a directory; false for anything else, and for a new path below
    /// itself.
    [[nodiscard]] bool directoryRenameAs(const std::string& path, const std::string& newPath) const;

    /// Moves a directory: renames it, or where the system cannot (another volume), copies it with
    /// permissions and times and then removes it. Never replaces what stands at the new path.
    /// False: no directory there, the target exists, its parent is missing, it may not be removed
    /// from its place, a refusal; the directory is where it was then. False as well when something
    /// in it was changed or added after it was copied, or could not be removed: what was not
    /// removed is where it was, and the copy is complete. While it is removed it stands beside its
    /// place, named ".NAME.XXXXXXXX.tarnis-old".
    [[nodiscard]] bool directoryMoveAs(const std::string& path, const std::string& newPath) const;

    /// The names in the directory of the path that match its last component as a search pattern, in
    /// ascending order of their bytes. A failure gives an empty or shortened list.
    std::vector<std::string> directoryListFileNamesWithFilterPath(const std::string& path) const;

    /// Makes a symbolic link to a directory. As fileSymbolicLinkCreateAs(), but `failIfLinkExists`
    /// protects only a link whose target is a directory.
    [[nodiscard]] bool directorySymbolicLinkCreateAs(const std::string& target,
                                                     const std::string& linkPath,
                                                     bool failIfLinkExists) const;

protected:
    FileSystem2();

    /// Where a symbolic link with this target is to be made: the path without slashes at its end,
    /// which would make it a directory's. Empty: no link can be made, and nothing may be removed
    /// for it.
    static std::optional<std::string> linkPlace(const std::string& target,
                                                const std::string& linkPath);

    bool do_isReadable() const override;
    bool do_isWriteable() const override;
    bool do_hasSymbolicLinks() const override;
    std::uint64_t do_recommendedReadBufferSize() const override;
    std::uint64_t do_recommendedWriteBufferSize() const override;
    std::string do_canonizeFileId(const std::string& path) const override;
    std::unique_ptr<StorageSystemFile>
    do_fileCreate(const std::string& directoryPath, const std::string& name, bool failIfExists,
                  bool makePath,
                  Utilities::Flags<PosixFilePermissionFlag> permissions) const override;
    bool do_fileIsSymbolicLink(const std::string& path) const override;
    std::optional<std::string> do_fileRename(const std::string& path,
                                             const std::string& newName) const override;
    std::optional<std::string> do_fileMove(const std::string& path,
                                           const std::string& targetDirectory) const override;
    std::optional<std::string> do_fileCopy(const std::string& path, const StorageSystem& target,
                                           const std::string& targetDirectory,
                                           const std::string& name, bool failIfExists,
                                           const StorageSystemProgress& progress,
                                           Utilities::Flags<StorageSystemCopyOptionFlag> options,
                                           std::optional<std::uint64_t> bufferSize) const override;
    std::optional<std::string> do_fileSymbolicLinkCreate(const std::string& linkDirectory,
                                                         const std::string& name,
                                                         const std::string& target,
                                                         bool failIfLinkExists) const override;
    std::optional<std::string> do_fileSymbolicLinkTargetFileId(const std::string& path,
                                                               bool followChain) const override;
    std::string do_canonizeDirectoryId(const std::string& path) const override;
    bool do_directoryIsSymbolicLink(const std::string& path) const override;
    std::optional<StorageSystemFileInfo> do_directoryInfo(const std::string& path) const override;
    std::optional<std::string>
    do_directoryCreate(const std::string& parentPath, const std::vector<std::string>& names,
                       bool exclusive,
                       Utilities::Flags<PosixFilePermissionFlag> permissions) const override;
    bool do_directoryRemove(const std::string& path, bool recursive) const override;
    std::optional<std::string> do_directoryRename(const std::string& path,
                                                  const std::string& newName) const override;
    std::optional<std::string> do_directoryMove(const std::string& path,
                                                const std::string& targetDirectory) const override;
    std::optional<StorageSystemStorageInfo>
    do_directoryStorageInfo(const std::string& path) const override;
    std::optional<Utilities::Flags<PosixFilePermissionFlag>>
    do_directoryGetPermissions(const std::string& path) const override;
    bool do_directorySetPermissions(
        const std::string& path,
        const Utilities::Flags<PosixFilePermissionFlag>& permissions) const override;
    std::optional<StorageSystemTimePoint>
    do_directoryGetModTime(const std::string& path) const override;
    bool do_directorySetModTime(const std::string& path,
                                StorageSystemTimePoint time) const override;
    std::optional<std::string> do_directorySymbolicLinkCreate(const std::string& linkDirectory,
                                                              const std::string& name,
                                                              const std::string& target,
                                                              bool failIfLinkExists) const override;
    std::optional<std::string>
    do_directorySymbolicLinkTargetDirectoryId(const std::string& path,
                                              bool followChain) const override;
    std::string do_displayPath(const std::string& path) const override;

    virtual std::string do_pathCanonize(const std::string& path) const;
    virtual std::string do_pathFileName(const std::string& path) const;
    virtual bool do_pathHasFilterPath(const std::string& path) const;
    virtual bool do_pathIsAbsolute(const std::string& path) const;
    virtual std::string do_pathFileExtension(const std::string& path, bool complete) const;
    virtual std::string do_pathFileStripExtension(const std::string& path) const;
    virtual std::string do_pathParentId(const std::string& path) const;
    virtual std::string do_pathChildId(const std::string& path,
                                       const std::vector<std::string>& names) const;
    virtual std::string do_pathEnsureLeadingSlash(const std::string& path) const;
    virtual std::string do_pathRemoveLeadingSlash(const std::string& path) const;
    virtual std::string do_pathEnsureTrailingSlash(const std::string& path) const;
    virtual std::string do_pathRemoveTrailingSlash(const std::string& path) const;
    virtual std::unique_ptr<StorageSystemFile>
    do_fileCreateAs(const std::string& path, bool failIfExists, bool makePath,
                    Utilities::Flags<PosixFilePermissionFlag> permissions) const;
    virtual bool do_fileRenameAs(const std::string& path, const std::string& newPath) const = 0;
    virtual bool do_fileMoveAs(const std::string& path, const std::string& newPath) const;
    virtual bool do_fileCopyAs(const std::string& path, const StorageSystem& target,
                               const std::string& targetPath, const StorageSystemProgress& progress,
                               Utilities::Flags<StorageSystemCopyOptionFlag> options,
                               std::optional<std::uint64_t> bufferSize) const;
    virtual std::optional<FileMetaData> do_fileMetaData(const std::string& path) const;
    virtual bool do_fileSymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                             bool failIfLinkExists) const = 0;
    virtual bool
    do_directoryCreateAs(const std::string& path, bool exclusive,
                         Utilities::Flags<PosixFilePermissionFlag> permissions) const = 0;
    virtual bool do_directoryMakePath(const std::string& path, bool exclusive,
                                      Utilities::Flags<PosixFilePermissionFlag> permissions) const;
    virtual bool do_directoryRemove(const std::string& path) const = 0;
    virtual bool do_directoryRenameAs(const std::string& path, const std::string& newPath) const;
    virtual bool do_directoryMoveAs(const std::string& path, const std::string& newPath) const;
    virtual std::vector<std::string>
    do_directoryListFileNamesWithFilterPath(const std::string& path) const;
    virtual bool do_directorySymbolicLinkCreateAs(const std::string& target,
                                                  const std::string& linkPath,
                                                  bool failIfLinkExists) const = 0;

private:
    bool existsAsFile(const std::string& path) const;
    bool isFree(const std::string& path) const;
    bool renameTo(const std::string& path, const std::string& newPath) const;
    bool makeDirectory(const std::string& path, bool mustBeNew,
                       Utilities::Flags<PosixFilePermissionFlag> permissions) const;
    bool isDirectoryAfterAll(const std::string& path) const;
};

} // namespace FileSystem
