#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/StorageSystemReadResult.h>

#include <cstdint>

namespace FileSystem {

/// Moves many bytes of one open file, in order, as fast as its storage system can: a remote one
/// keeps several requests under way. Used from the file's position on; between the first call and
/// finish() the file's own position is undefined.
///
/// Threads: as the file.
class FILESYSTEM_EXPORT StorageSystemBulkTransfer
{
public:
    StorageSystemBulkTransfer() = default;
    StorageSystemBulkTransfer(const StorageSystemBulkTransfer&) = delete;
    StorageSystemBulkTransfer& operator=(const StorageSystemBulkTransfer&) = delete;
    virtual ~StorageSystemBulkTransfer();

    /// Gets ready to read, or to write, from `offset` on. False: not possible; nothing was done.
    virtual bool start(std::uint64_t offset) = 0;

    /// Reads the next `size` bytes; what comes after them may be asked for already.
    virtual StorageSystemReadResult read(char* buffer, std::uint64_t size) = 0;

    /// Takes the next `size` bytes to write; they need not be written when this returns. False: a
    /// write failed, this one or an earlier one.
    virtual bool write(const char* buffer, std::uint64_t size) = 0;

    /// Waits for all that is under way. False: a write failed. After it, start() may be called
    /// again.
    virtual bool finish() = 0;

    /// Tells where the file is thought to end, before start(): whoever asks for bytes ahead of time
    /// need not ask for what is not there. The file ends where it ends. By default nothing is done.
    virtual void expectEnd(std::uint64_t offset);
};

} // namespace FileSystem
