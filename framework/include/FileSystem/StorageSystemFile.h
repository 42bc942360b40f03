#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/StorageSystemFileServices.h>
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
#include <vector>

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
    /// until the buffer is full, the file ends, or a read fails. Stops and waits for each answer:
    /// many bytes of a system far away come sooner by readRanges().
    /// \return how many bytes stand at the front of the buffer, without a hole, and why no more.
    ///         After Error the position is undefined.
    [[nodiscard]] StorageSystemReadResult readFully(char* buffer, std::uint64_t size) const;

    /// Writes exactly `size` bytes from the position on, no more than 256,000 at a time. Stops and
    /// waits for each answer: many bytes go sooner to a system far away by writeRanges(). False: a
    /// write failed; how much of the bytes the file holds now, and the position, are undefined.
    [[nodiscard]] bool writeFully(const char* buffer, std::uint64_t size) const;

    /// Reads each range as readFully() would at its offset, however long it is, and tells what came
    /// of it in the range. Over SFTP several requests are in flight, of ranges that follow each
    /// other in the vector too; a system that has nothing of the kind reads one range after the
    /// other. Ranges may overlap in the file. One of no bytes is Complete, and asked for nowhere.
    ///
    /// The position plays no part and stays as it was; what eof() says afterwards is undefined.
    /// Blocks until everything is answered; SSHSession::interrupt() and the loss of the server end
    /// it soon, and what has come in front of each range by then counts.
    /// \return false: a range ended in Error. The others are right all the same. With a range that
    ///         ends beyond what 64 bits count (FailureCode::TooLarge), and with a storage system
    ///         that is gone, every one does. When it throws, no result counts.
    [[nodiscard]] bool readRanges(std::vector<StorageSystemReadRange>& ranges) const;

    /// Writes each range at its offset, in the same way. Where ranges overlap, the file holds in
    /// the end what the later one in the vector has. Between the old end of the file and a range
    /// beyond it there are zeros. The position stays as it was.
    ///
    /// A file that is appended to takes no ranges (FailureCode::Unsupported): its system chooses
    /// where bytes go.
    /// \return false: a write failed, after which no other is begun, and it is undefined how much
    ///         of all ranges the file holds now.
    [[nodiscard]] bool writeRanges(const std::vector<StorageSystemWriteRange>& ranges) const;

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
    /// that changes meanwhile is copied as it was met. Each step is read and then written, with
    /// several requests in flight as in readRanges(). The position of the target is behind the copy
    /// then, that of this file undefined.
    /// \param progress   may be empty; called at the start, after every step and at the end. The
    ///                   total is the size at the start.
    /// \param bufferSize bytes per step; by default what the storage systems recommend.
    /// False: a read or a write failed, or `progress` said stop. The target holds a beginning then.
    [[nodiscard]] bool copy(StorageSystemFile& target, const StorageSystemProgress& progress = {},
                            std::optional<std::uint64_t> bufferSize = std::nullopt);

    /// Ends the writing of the file. True: the system has taken what was written, as far as it
    /// tells at this point; some find out only now that they have no room, or that they cannot. May
    /// ask the server. It makes nothing durable: bytes may be lost with the power of a machine. The
    /// file must not be used afterwards, only destroyed.
    [[nodiscard]] bool close();

    /// Closes the file. What fails now is not told: see close().
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

    /// The target of the copy in flight, for do_copy(); null outside one.
    StorageSystemFile* copyTarget() const noexcept;

    /// Gives the file what its storage system can do beyond the slots. To be called once, by the
    /// constructor of a file class. It goes with this base, after that class.
    void provide(std::unique_ptr<StorageSystemFileServices> services) noexcept;

private:
    friend class SlotQueue;
    friend class StorageSystem;

    bool hasSystem() const;
    bool isAppendedTo() const;

    StorageSystemReadResult readInSteps(char* buffer, std::uint64_t size) const;
    bool writeInSteps(const char* buffer, std::uint64_t size) const;
    bool readInTurn(std::vector<StorageSystemReadRange>& ranges) const;
    bool writeInTurn(const std::vector<StorageSystemWriteRange>& ranges) const;
    bool copyInSteps(StorageSystemFile& target, std::uint64_t step,
                     const std::function<bool(std::uint64_t)>& report) const;
    StorageSystemReadResult readNext(std::uint64_t offset, char* buffer, std::uint64_t size) const;
    bool writeNext(std::uint64_t offset, const char* buffer, std::uint64_t size) const;

    std::unique_ptr<StorageSystemFileServices> services_;
    std::shared_ptr<const std::atomic<bool>> systemAlive_;
    StorageSystemFile* copyTarget_ = nullptr;
};

} // namespace FileSystem
