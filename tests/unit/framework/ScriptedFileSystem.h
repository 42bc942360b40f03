#pragma once

#include <FileSystem/FileSystem2.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace TarnisTest {

/// What stands at one path of a ScriptedFileSystem.
struct ScriptedNode
{
    enum class Kind
    {
        File,
        Directory,
        Link,
        Pipe,
        Socket,
        BlockDevice, ///< With the type of a directory, as over SFTP.
    };

    Kind kind = Kind::File;
    std::string bytes; ///< Of a file its content, of a link where it leads.
    Utilities::Flags<FileSystem::PosixFilePermissionFlag> permissions;
    FileSystem::StorageSystemTimePoint modTime;
    FileSystem::StorageSystemOwner owner{1, 1};
};

/// How a ScriptedFileSystem and its files misbehave. As it is here they do not.
struct ScriptedBehaviour
{
    bool isValid = true;
    /// Directories need not be searchable, nor files and directories readable.
    bool isSuperuser = false;
    /// Renaming onto something replaces it. Otherwise it fails.
    bool renamingReplaces = false;
    /// Renaming onto a directory replaces it, with all below it.
    bool renamingReplacesDirectories = false;
    /// Renaming one name of a file onto another does nothing, and succeeds.
    bool renamingKnowsNames = false;
    /// What new files and directories do not get.
    unsigned umask = 0;
    /// Files are emptied whenever they are opened for writing.
    bool emptiesOnOpening = false;
    /// New files and directories are everybody's, whatever permissions they are made with.
    bool ignoresModes = false;
    bool refusesTimes = false;
    bool refusesPermissions = false;
    bool refusesLinks = false;
    /// Links are made, but do not read back as they were meant.
    bool rewritesLinks = false;
    /// It tells whose its entries are, and open files can be given to others. What is made is in
    /// another group than what was there.
    bool filesSucceed = false;
    /// Listings leave out names that begin with a dot.
    bool listsNoDotNames = false;
    /// Listings give no types.
    bool listsWithoutTypes = false;
    /// Listings break off after so many entries, with FailureCode::Protocol.
    std::size_t listingBreaksOffAfter = std::numeric_limits<std::size_t>::max();
    /// Reads and writes claim one byte more than they were asked for.
    bool overcounts = false;
    /// The end of a file is told with its last byte and not by a read behind it.
    bool endsEarly = false;
    /// Files read and write ranges themselves.
    bool hasRanges = false;
    /// A range that is read so is Complete, whatever was read.
    bool rangesClaimComplete = false;

    /// What a read at one of these positions brings at most.
    std::map<std::uint64_t, std::uint64_t> shortReads{};
    std::uint64_t longestRead = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t longestWrite = std::numeric_limits<std::uint64_t>::max();
    /// Position in a file from which on reading, or writing, fails.
    std::uint64_t unreadableFrom = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t unwritableFrom = std::numeric_limits<std::uint64_t>::max();
    /// Closing a file drops what lies beyond this length.
    std::uint64_t keptOnClosing = std::numeric_limits<std::uint64_t>::max();

    std::set<std::string> refusesToRemove;
    /// Removals, and renames by their old path, that are done and reported as failed.
    std::set<std::string> deniesItsDoing;
    /// Ending the writing of a file fails.
    bool closingFails = false;
    /// Where files seem to end, whatever is told of their size.
    std::uint64_t seemsToEndAt = std::numeric_limits<std::uint64_t>::max();
    /// Reading at the end of a file fails, and leaves what was told of its end before.
    bool readingAtTheEndFails = false;
    /// Renames that are refused, by their two paths.
    std::function<bool(const std::string&, const std::string&)> refusesRename;
    /// Entries that listings of a directory name besides its own, with a type.
    std::map<std::string,
             std::vector<
                 std::pair<std::string, Utilities::Flags<FileSystem::StorageSystemFileTypeFlag>>>>
        inventedEntries;
    /// Types that listings give for a path, instead of its own.
    std::map<std::string, Utilities::Flags<FileSystem::StorageSystemFileTypeFlag>> listedTypes;
    /// Replaces in one step; empty where the system cannot.
    std::function<bool(const std::string&, const std::string&)> replaces;
    /// Reads whole directories; empty where the system cannot tell whether a listing broke off.
    std::function<std::optional<std::vector<FileSystem::StorageSystemFileInfo>>(const std::string&)>
        readsDirectory;
    /// Called before every operation with its name and path; may throw.
    std::function<void(const std::string&, const std::string&)> onCall;
};

/// A tree in memory that implements what FileSystem2 leaves abstract, and nothing else: what stands
/// on it are the inherited slots, and the queue that a system without one of its own gets. And it
/// may lie, as servers do: of sizes, of types, of what it has done. The framework's own
/// MemoryFileSystem is no stand-in for either: it has its own queue and services, and fails where
/// it is told to, but is never wrong.
///
/// Keeps to the owner's permissions, follows links on the way to the last component, and stamps
/// times as POSIX systems do. A relative path starts at the root.
class ScriptedFileSystem : public FileSystem::FileSystem2
{
public:
    using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;
    using Time = FileSystem::StorageSystemTimePoint;
    using Nodes = std::map<std::string, std::shared_ptr<ScriptedNode>>;

    ScriptedFileSystem();
    ~ScriptedFileSystem() override;

    // Building a tree, without asking for permissions; directories on the way are made.

    void addDirectory(const std::string& path, unsigned permissions = 0755);
    void addFile(const std::string& path, const std::string& bytes, unsigned permissions = 0644);
    void addLink(const std::string& path, const std::string& target);
    void addPipe(const std::string& path);
    void addSocket(const std::string& path);
    void addBlockDevice(const std::string& path);
    /// Another name of what stands at a path.
    void addName(const std::string& path, const std::string& existing);
    void setModTime(const std::string& path, Time time);

    // Looking at it. Paths of these follow no link.

    /// Every path but the root's, in order of bytes.
    std::vector<std::string> paths() const;

    bool has(const std::string& path) const { return nodes_.count(path) != 0; }

    const ScriptedNode& at(const std::string& path) const { return *nodes_.at(path); }

    const std::string& bytesOf(const std::string& path) const { return at(path).bytes; }

    /// What the operations were, "name path" each; for operations with two paths the first.
    std::vector<std::string>& calls() const { return calls_; }

    std::size_t openFiles() const { return *openFiles_; }

    /// How many queues it has made.
    std::size_t queues() const { return queues_; }

    ScriptedBehaviour behaviour;
    std::string host;

    // For its files.

    Time now() const;
    void note(const std::string& operation, const std::string& path) const;

protected:
    std::string do_hostName() const override;
    FileSystem::StorageSystemType do_getType() const override;
    bool do_isValid() const override;
    std::unique_ptr<FileSystem::StorageSystemFile>
    do_fileOpen(const std::string& path,
                Utilities::Flags<FileSystem::StorageSystemFileOpenModeFlag> mode,
                Permissions permissions) const override;
    std::optional<FileSystem::StorageSystemFileInfo>
    do_fileInfo(const std::string& path) const override;
    std::optional<FileSystem::StorageSystemStorageInfo>
    do_fileStorageInfo(const std::string& path) const override;
    bool do_fileRemove(const std::string& path) const override;
    bool do_fileSetPermissions(const std::string& path,
                               const Permissions& permissions) const override;
    bool do_fileSetModTime(const std::string& path, Time time) const override;
    std::optional<std::string> do_fileSymbolicLinkTarget(const std::string& path) const override;
    bool do_fileSymbolicLinkRemove(const std::string& path) const override;
    std::vector<FileSystem::StorageSystemDirectoryInfo>
    do_directoryList(const std::string& path, const std::string& filter,
                     FileSystem::StorageSystemDirectoryFilterType type) const override;
    std::vector<FileSystem::StorageSystemFileInfo>
    do_directoryFileInfoList(const std::string& path, const std::string& filter,
                             FileSystem::StorageSystemDirectoryFilterType type) const override;
    std::vector<std::string>
    do_directoryListFileNames(const std::string& path, const std::string& filter,
                              FileSystem::StorageSystemDirectoryFilterType type) const override;
    std::optional<std::string>
    do_directorySymbolicLinkTarget(const std::string& path) const override;
    bool do_directorySymbolicLinkRemove(const std::string& path) const override;
    bool do_fileRenameAs(const std::string& path, const std::string& newPath) const override;
    bool do_fileSymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                     bool failIfLinkExists) const override;
    bool do_directoryCreateAs(const std::string& path, bool exclusive,
                              Permissions permissions) const override;
    using FileSystem2::do_directoryRemove;
    bool do_directoryRemove(const std::string& path) const override;
    bool do_directorySymbolicLinkCreateAs(const std::string& target, const std::string& linkPath,
                                          bool failIfLinkExists) const override;

private:
    class Services;

    void add(const std::string& path, ScriptedNode node);
    Permissions permissionsOfNew(Permissions asked, unsigned everybodys) const;
    bool mayReplace(const std::string& from, const std::string& to) const;
    std::shared_ptr<ScriptedNode> find(const std::string& key) const;
    std::optional<std::string> resolve(const std::string& path, bool followLast,
                                       int links = 0) const;
    std::shared_ptr<ScriptedNode> existing(const std::string& path, bool followLast) const;
    bool may(FileSystem::PosixFilePermissionFlag permission, const ScriptedNode& node) const;
    bool mayChangeEntriesOf(const std::string& directory) const;
    bool insert(const std::string& key, const std::shared_ptr<ScriptedNode>& node) const;
    bool erase(const std::string& key) const;
    std::vector<std::string> childNames(const std::string& directory) const;
    bool makeLink(const std::string& target, const std::string& linkPath,
                  bool linkIsProtected) const;
    std::vector<FileSystem::StorageSystemFileInfo>
    list(const std::string& path, const std::string& filter,
         FileSystem::StorageSystemDirectoryFilterType type) const;
    FileSystem::StorageSystemFileInfo describe(const std::string& path,
                                               const ScriptedNode& node) const;

    // The operations are const because the tree is elsewhere, as a rule.
    mutable Nodes nodes_;
    mutable std::vector<std::string> calls_;
    mutable std::int64_t clock_ = 0;
    mutable std::size_t queues_ = 0;
    std::shared_ptr<std::size_t> openFiles_ = std::make_shared<std::size_t>(0);
};

/// One that says it has no symbolic links.
class ScriptedFileSystemWithoutLinks : public ScriptedFileSystem
{
protected:
    bool do_hasSymbolicLinks() const override { return false; }
};

/// One where every path is a directory that holds one more, "d".
class EndlessFileSystem : public ScriptedFileSystem
{
protected:
    std::optional<FileSystem::StorageSystemFileInfo>
    do_fileInfo(const std::string& path) const override;
    std::vector<FileSystem::StorageSystemDirectoryInfo>
    do_directoryList(const std::string& path, const std::string& filter,
                     FileSystem::StorageSystemDirectoryFilterType type) const override;
    std::vector<FileSystem::StorageSystemFileInfo>
    do_directoryFileInfoList(const std::string& path, const std::string& filter,
                             FileSystem::StorageSystemDirectoryFilterType type) const override;
};

/// The moment that is `ticks` of 100 ns after 1970.
constexpr FileSystem::StorageSystemTimePoint timeAt(std::int64_t ticks)
{
    return FileSystem::StorageSystemTimePoint(FileSystem::StorageSystemTimePoint::duration(ticks));
}

} // namespace TarnisTest
