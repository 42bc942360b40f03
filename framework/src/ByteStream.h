#pragma once

#include <FileSystem/StorageSystemFile.h>

#include <cstdint>
#include <optional>

namespace FileSystem {

/// The bytes of a file from its start on, by its bulk transfer where it has one that can.
class ByteSource
{
public:
    /// \param bulk of the file; may be null.
    ByteSource(const StorageSystemFile& file, StorageSystemBulkTransfer* bulk);
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;

    /// Waits for what is still under way.
    ~ByteSource();

    /// \param expectedEnd where the file is thought to end.
    /// False: the file cannot be read from its start.
    bool start(std::optional<std::uint64_t> expectedEnd);

    StorageSystemReadResult read(char* buffer, std::uint64_t size);

private:
    const StorageSystemFile& file_;
    StorageSystemBulkTransfer* bulk_;
    bool bulkStarted_ = false;
};

/// Takes the bytes of a file from its position on, in the same way.
class ByteSink
{
public:
    ByteSink(StorageSystemFile& file, StorageSystemBulkTransfer* bulk);
    ByteSink(const ByteSink&) = delete;
    ByteSink& operator=(const ByteSink&) = delete;

    /// Waits for what is still under way.
    ~ByteSink();

    /// False: the position is not known.
    bool start();

    bool write(const char* buffer, std::uint64_t size);

    /// Waits until everything is written and leaves the file's position behind it. False: a write
    /// failed.
    bool finish();

private:
    StorageSystemFile& file_;
    StorageSystemBulkTransfer* bulk_;
    bool bulkStarted_ = false;
    std::uint64_t position_ = 0;
};

} // namespace FileSystem
