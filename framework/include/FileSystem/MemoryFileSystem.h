#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/Failure.h>
#include <FileSystem/FileSystem2.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace FileSystem {

class MemoryFaults;
class MemoryTree;

/// What a MemoryFileSystem is about to do: the single steps that its operations are made of. A copy
/// or the removal of a tree is many of them.
enum class MemoryOperationKind : std::uint32_t
{
    LookUp = 1,      ///< Tells what stands at a path, or what an open file is.
    List,            ///< Lists a directory.
    Open,            ///< Opens a file, or creates it.
    Read,            ///< Reads from an open file.
    Write,           ///< Writes into an open file.
    Truncate,        ///< Drops what an open file holds beyond a size.
    Close,           ///< Ends the writing of an open file. Destroying it without that cannot fail.
    MakeDirectory,   ///< Makes one directory.
    RemoveDirectory, ///< Removes an empty directory.
    RemoveFile,      ///< Removes a file or a link.
    Rename,          ///< Gives something another path where nothing stands.
    Replace,         ///< Gives something another path, in the place of what stands there. Where
                     ///< this fails with Unsupported or Other, fileReplaceAs() and copies go on
                     ///< in steps, as on a server that cannot do it in one.
    MakeLink,        ///< Makes a symbolic link.
    ReadLink,        ///< Tells the text of a symbolic link.
    SetPermissions,  ///< Sets the permissions of a path or of an open file.
    SetModTime,      ///< Sets the modification time of a path.
    StorageInfo,     ///< Tells the room that is left.
};

/// One such step.
struct MemoryOperation
{
    MemoryOperationKind kind = MemoryOperationKind::LookUp;
    std::string path;         ///< As the step was given it; of an open file, as it was opened.
    std::string otherPath;    ///< The new path of Rename and Replace, the text of MakeLink.
    std::uint64_t offset = 0; ///< Of Read and Write: bytes from the start of the file.
    std::uint64_t size = 0;   ///< Of Read and Write: bytes; of Truncate: bytes that stay.
    /// Of Open.
    Utilities::Flags<StorageSystemFileOpenModeFlag> mode;
};

/// What is to become of a step, other than what it asks for.
struct MemoryFault
{
    /// The step fails before anything is done. Failure::last() tells the code, with the text where
    /// there is one and the path of the step as its entry. Any category will do for the code; one
    /// that says "no error" becomes FailureCode::Other.
    static MemoryFault failure(std::error_code code, std::string text = {})
    {
        return {code, std::move(text), std::nullopt};
    }

    /// A Read or a Write moves no more than so many bytes, and succeeds with that many; 0 is a
    /// failure without a reason. Other steps are done as if there were no fault.
    static MemoryFault shortened(std::uint64_t size) { return {{}, {}, size}; }

    // Made by the functions above. With a size the code does not count.

    std::error_code code = {};
    std::string text = {};
    std::optional<std::uint64_t> size = {};
};

/// Says of a step what is to become of it: nothing lets it through.
using MemoryFaultFunction =
    std::function<std::optional<MemoryFault>(const MemoryOperation& operation)>;

/// A tree of directories and files in this process's memory, for tests of whatever works with a
/// StorageSystem: nothing is left behind on a disk, the disk is full when it should be, and any
/// step fails when it is told to.
///
/// Directories, regular files, symbolic links, the nine permission bits and modification times to
/// the tick are kept as this machine keeps them, and so are files that are open while their name
/// goes. There is one user, to whom everything belongs and whom the owner's permission bits bind,
/// with a umask of 022. A name has 255 bytes at most. The root is there from the start, and a
/// relative path starts at it.
///
/// Ownership: the tree goes with the last system on it; files that are open are invalid once the
/// system that has opened them is gone.
///
/// Threads: any thread may call any operation; they take turns for each single step. No operation
/// waits for anything but that, and for the fault function.
class FILESYSTEM_EXPORT MemoryFileSystem final : public FileSystem2
{
public:
    /// Bytes that a new tree has room for.
    static constexpr std::uint64_t defaultCapacity = std::uint64_t{1} << 40U;

    /// A new tree that is empty.
    MemoryFileSystem();
    ~MemoryFileSystem() override;

    /// Another system on the same tree, as another session to one server would be. It has no fault
    /// function until it is given one of its own, and may outlive this system. Does not block.
    std::unique_ptr<MemoryFileSystem> another() const;

    /// Sets how many bytes the files of the tree may hold together, those included that have no
    /// name any more but are open. Holes count, names and directories do not. A write that does not
    /// fit writes what fits, and fails with FailureCode::NoSpace. Below what the files hold already
    /// nothing is lost, and they cannot grow. Holds for all systems on the tree.
    void setCapacity(std::uint64_t bytes);

    /// Sets who is asked before each step of this system and its files; an empty function for
    /// nobody. The function is called on the thread that calls the operation, by several threads at
    /// a time if they do, and while no lock is held: it may block, to make the system slow or to
    /// hold an operation up until the test is ready for it, and may use any storage system. What it
    /// does on this one it is asked about in turn; another() is without. Its own operations do not
    /// show in the Failure of the operation that goes on. An exception that it throws ends that
    /// operation before the step and is passed on; where the step cleans up after a failure, it is
    /// dropped.
    ///
    /// Does not wait for calls of the function before, which may go on in other threads. The
    /// function goes with the system, if not before.
    void setFaultFunction(MemoryFaultFunction function);

    // What the interface of storage systems cannot make and a test may need. The fault function is
    // not asked.

    /// Gives a file or a link a second name. Target exists: false. False also: nothing there, a
    /// directory, the parent of the new path is missing or may not be written.
    [[nodiscard]] bool fileHardLinkCreateAs(const std::string& path,
                                            const std::string& newPath) const;

    /// Makes what is neither a file nor a directory nor a link, as a pipe, a socket or a device is:
    /// it can be looked at, renamed and removed, and not be opened. Target exists: false. False
    /// also: the parent is missing or may not be written.
    [[nodiscard]] bool specialFileCreateAs(const std::string& path) const;

protected:
    std::string do_hostName() const override;
    StorageSystemType do_getType() const override;
    bool do_isValid() const override;
    std::unique_ptr<StorageSystemFile>
    do_fileOpen(const std::string& path, Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                Utilities::Flags<PosixFilePermissionFlag> permissions) const override;
    std::optional<StorageSystemFileInfo> do_fileInfo(const std::string& path) const override;
    std::optional<StorageSystemStorageInfo>
    do_fileStorageInfo(const std::string& path) const override;
    bool do_fileRemove(const std::string& path) const override;
    bool do_fileSetPermissions(
        const std::string& path,
        const Utilities::Flags<PosixFilePermissionFlag>& permissions) const override;
    bool do_fileSetModTime(const std::string& path, StorageSystemTimePoint time) const override;
    std::optional<std::string> do_fileSymbolicLinkTarget(const std::string& path) const override;
    bool do_fileSymbolicLinkRemove(const std::string& path) const override;
    std::vector<StorageSystemDirectoryInfo>
    do_directoryList(const std::string& path, const std::string& filter,
                     StorageSystemDirectoryFilterType type) const override;
    std::vector<StorageSystemFileInfo>
    do_directoryFileInfoList(const std::string& path, const std::string& filter,
                             StorageSystemDirectoryFilterType type) const override;
    std::vector<std::string>
    do_directoryListFileNames(const std::string& path, const std::string& filter,
                              StorageSystemDirectoryFilterType type) const override;
    std::optional<std::string>
    do_directorySymbolicLinkTarget(const std::string& path) const override;
    bool do_directorySymbolicLinkRemove(const std::string& path) const override;
    bool do_fileRenameAs(const std::string& path, const std::string& newPath) const override;
    bool do_fileSymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                     bool failIfLinkExists) const override;
    bool do_directoryCreateAs(const std::string& path, bool exclusive,
                              Utilities::Flags<PosixFilePermissionFlag> permissions) const override;
    using FileSystem2::do_directoryRemove;
    bool do_directoryRemove(const std::string& path) const override;
    bool do_directorySymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                          bool failIfLinkExists) const override;

private:
    class Services;

    explicit MemoryFileSystem(std::shared_ptr<MemoryTree> tree);

    std::unique_ptr<StorageSystemFile> open(const std::string& path,
                                            Utilities::Flags<StorageSystemFileOpenModeFlag> mode,
                                            Utilities::Flags<PosixFilePermissionFlag> permissions,
                                            bool followsLink) const;
    bool replaceByLink(const std::string& target, const std::string& linkPath) const;

    const std::shared_ptr<MemoryTree> tree_;
    const std::shared_ptr<MemoryFaults> faults_;
};

} // namespace FileSystem
