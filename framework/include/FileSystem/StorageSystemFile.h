#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/StorageSystemBulkTransfer.h>
#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemReadResult.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace FileSystem {

class StorageSystem;

/// An open file of a storage system: bytes and a position among them.
///
/// Ownership: the caller owns the file; destroying it closes it, and blocks as a call on the
/// storage system does. A file that outlives its storage system is invalid and can only be
/// destroyed; the system must not go while an operation on the file runs.
///
/// Failures are told by results. When the storage system has lost its resources (its session
/// ended), isValid() is false, error() is true, and operations that need them answer with a failure
/// or throw handle_fatal_error("invalid").
///
/// Threads: one thread at a time works with a file. Two files of one storage system may be used by
/// two threads; they take turns where the storage system says so.
class FILESYSTEM_EXPORT StorageSystemFile
{
public:
    StorageSystemFile(const StorageSystemFile&) = delete;
    StorageSystemFile& operator=(const StorageSystemFile&) = delete;

    /// Whether the file can be used. Does not block.
    bool isValid() const;

    /// The path that the file was opened under.
    std::string fileId();

    /// The path without its last component.
    std::string parentDirectoryId();

    /// The last component of the path.
    std::string name();

    /// The mode that the file was opened with.
    Utilities::Flags<StorageSystemFileOpenModeFlag> mode();

    /// Whether a read has met the end of the file. A seek forgets it.
    bool eof() const;

    /// Moves the position to `offset` bytes from the start; beyond the end is allowed. A remote
    /// system is not asked, and takes any. False: the system refused, the position is as it was.
    [[nodiscard]] bool seek(std::uint64_t offset) const;

    /// The position. Empty: it is not known.
    std::optional<std::uint64_t> tell();

    /// Whether the file can no longer be used. A failed read or write does not set it.
    bool error() const;

    /// Reads at the position, up to `size` bytes, and moves it.
    ///
    /// Careful: passes the request on as it is. A remote storage system may be answered with less
    /// than it asked for in the middle of a file; a request of more than one of its packages then
    /// leaves holes in the buffer, and the count does not say where. 0 is the end of the file and a
    /// failure alike. readFully() has none of this.
    /// \return bytes read.
    std::uint64_t read(char* buffer, std::uint64_t size) const;

    /// Writes `size` bytes at the position and moves it.
    ///
    /// Careful: passes the request on as it is. Less than `size`, and 0 in any case of a failure,
    /// does not tell how much of it the file holds now. writeFully() goes on until all is written.
    /// \return bytes written.
    std::uint64_t write(const char* buffer, std::uint64_t size) const;

    /// Reads exactly `size` bytes from the position on, however little each answer brings; asks for
    /// no more than 229,376 bytes at a time, and for less once the system keeps giving less. Blocks
    /// until the buffer is full, the file ends, or a read fails.
    /// \return how many bytes stand at the front of the buffer, without a hole, and why no more.
    ///         After Error the position is undefined.
    [[nodiscard]] StorageSystemReadResult readFully(char* buffer, std::uint64_t size) const;

    /// Writes exactly `size` bytes from the position on, no more than 256,000 at a time. False: a
    /// write failed; how much of the bytes the file holds now, and the position, are undefined.
    [[nodiscard]] bool writeFully(const char* buffer, std::uint64_t size) const;

    /// The permissions of the file as its path has them now; none when that cannot be told.
    Utilities::Flags<PosixFilePermissionFlag> permissions();

    /// The size of the file as its path has it now, in bytes; 0 when that cannot be told.
    std::uint64_t size();

    /// What is known of the file's path now; a record with the path alone when that cannot be told.
    StorageSystemFileInfo fileInfo();

    /// The storage system that opened the file. When that is gone: an invalid one of the kind
    /// StorageSystemType::None, on which every operation fails, and which lives for ever.
    const StorageSystem& storageSystem();

    /// Copies the file from its start to its end into `target`, at the target's position; the
    /// target's storage system may be another one. The copy holds what was read, in order; a file
    /// that changes meanwhile is copied as it was met.
    /// \param progress   may be empty; called at the start, after every step and at the end. The
    ///                   total is the size at the start.
    /// \param bufferSize bytes per step; by default what the storage systems recommend.
    /// False: a read or a write failed, or `progress` said stop. The target holds a beginning then.
    [[nodiscard]] bool copy(StorageSystemFile& target, const StorageSystemProgress& progress = {},
                            std::optional<std::uint64_t> bufferSize = std::nullopt);

    /// Ends the writing of the file. True: the system has taken what was written, as far as it
    /// tells at this point; some find out only now that they have no room, or that they cannot. May
    /// ask the server. The file must not be used afterwards, only destroyed.
    [[nodiscard]] bool commit();

    /// Closes the file. What fails now is not told: see commit().
    virtual ~StorageSystemFile();

protected:
    StorageSystemFile();

    /// Tells which storage system has opened the file, so that the file knows when it is gone.
    /// StorageSystem does so for the files that it hands out; a file class may do it before. Only
    /// the first call counts.
    void belongTo(const StorageSystem& system);

    /// Whether the storage system is still there, as far as the file knows which it is. While it is
    /// not, no do_ operation is called but do_fileId() and do_mode().
    bool isSystemAlive() const noexcept;

    virtual bool do_isValid() const = 0;
    virtual std::string do_fileId() = 0;
    virtual std::string do_parentDirectoryId() = 0;
    virtual std::string do_name() = 0;
    virtual Utilities::Flags<StorageSystemFileOpenModeFlag> do_mode() = 0;
    virtual bool do_eof() const = 0;
    virtual bool do_seek(std::uint64_t offset) const = 0;
    virtual std::optional<std::uint64_t> do_tell() = 0;
    virtual bool do_error() const = 0;
    virtual std::uint64_t do_read(char* buffer, std::uint64_t size) const = 0;
    virtual std::uint64_t do_write(const char* buffer, std::uint64_t size) const = 0;
    virtual Utilities::Flags<PosixFilePermissionFlag> do_permissions();
    virtual std::uint64_t do_size();
    virtual StorageSystemFileInfo do_fileInfo();
    virtual const StorageSystem& do_storageSystem() = 0;
    virtual bool do_copy(const StorageSystemProgress& progress,
                         std::optional<std::uint64_t> bufferSize);

    /// The target of the copy under way, for do_copy(); null outside one.
    StorageSystemFile* copyTarget() const noexcept;

    /// Gives the file a faster way to move many bytes than read() and write(), which a copy then
    /// takes. Null takes it away.
    void setBulkTransfer(std::unique_ptr<StorageSystemBulkTransfer> bulkTransfer) noexcept;

    /// For a system that tells at the end of writing whether it has taken everything.
    void setCommit(std::function<bool()> commit);

    /// What an open file is, as its system tells it. Two with the same volume and number are one.
    struct OpenFileState
    {
        Utilities::Flags<PosixFilePermissionFlag> permissions;
        std::uint64_t size = 0;
        std::uint64_t volume = 0;
        std::uint64_t number = 0;
    };

    /// Sees to the attributes of the open file itself, whatever its path leads to meanwhile. They
    /// answer false, or nothing, where the system refuses or does not tell. Each may be missing.
    struct AttributeKeeper
    {
        using Permissions = Utilities::Flags<PosixFilePermissionFlag>;

        /// Gives the file this owner and this group. False where it does not get both.
        std::function<bool(const StorageSystemOwner&)> own = {};

        /// Gives the file these permissions and no others.
        std::function<bool(Permissions)> set = {};

        /// Looks at the file.
        std::function<std::optional<OpenFileState>()> look = {};

        /// Drops what the file holds beyond a number of bytes.
        std::function<bool(std::uint64_t)> cut = {};
    };

    /// For a system that can do that and has no queue of its own. What copies files looks and sets
    /// the permissions by path otherwise, cuts none and sets no owner.
    void setAttributeKeeper(AttributeKeeper keeper);

private:
    friend class SlotQueue;
    friend class StorageSystem;

    bool hasSystem() const;

    StorageSystemReadResult readInSteps(char* buffer, std::uint64_t size) const;
    bool writeInSteps(const char* buffer, std::uint64_t size) const;

    std::unique_ptr<StorageSystemBulkTransfer> bulkTransfer_;
    std::function<bool()> commit_;
    std::shared_ptr<const std::atomic<bool>> systemAlive_;
    AttributeKeeper attributeKeeper_;
    StorageSystemFile* copyTarget_ = nullptr;
};

} // namespace FileSystem
