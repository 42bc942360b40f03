#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemReadResult.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace FileSystem {

/// Bytes of a file that are to be read, and what came of it.
struct StorageSystemReadRange
{
    std::uint64_t offset = 0; ///< From the start of the file.
    char* buffer = nullptr;   ///< Where `size` bytes have room, of this range alone.
    std::uint64_t size = 0;
    /// How many bytes stand at the front of the buffer, without a hole, and why no more.
    StorageSystemReadResult result = {};
};

/// Bytes that are to be written into a file.
struct StorageSystemWriteRange
{
    std::uint64_t offset = 0; ///< From the start of the file; beyond its end is allowed.
    const char* bytes = nullptr;
    std::uint64_t size = 0;
};

/// What an open file is, as its system tells it. Two with the same volume and number are one.
struct StorageSystemOpenFileState
{
    Utilities::Flags<PosixFilePermissionFlag> permissions;
    std::uint64_t size = 0;
    std::uint64_t volume = 0;
    std::uint64_t number = 0;
};

/// What a storage system can do with an open file beyond what every one can, for who writes file
/// classes: a class derives from this what its system is able to do, and hands an object of that to
/// StorageSystemFile::provide(). What is left out answers with nothing, "not able", and is done in
/// another way or not at all.
///
/// Each call is made while the storage system is there, inside a public operation, so that fail()
/// says why it answers with false. Threads: as the file.
class FILESYSTEM_EXPORT StorageSystemFileServices
{
public:
    using Permissions = Utilities::Flags<PosixFilePermissionFlag>;

    StorageSystemFileServices() = default;
    StorageSystemFileServices(const StorageSystemFileServices&) = delete;
    StorageSystemFileServices& operator=(const StorageSystemFileServices&) = delete;
    virtual ~StorageSystemFileServices();

    /// As StorageSystemFile::readRanges(), and without moving the position. Every result is given
    /// as {0, Error}, and none counts when this throws. Not able: nothing was asked for.
    virtual std::optional<bool> readRanges(std::vector<StorageSystemReadRange>& ranges);

    /// As StorageSystemFile::writeRanges(), and without moving the position. Not called for a file
    /// that is appended to. Not able: nothing was written.
    virtual std::optional<bool> writeRanges(const std::vector<StorageSystemWriteRange>& ranges);

    /// Ends the writing, for a system that tells then whether it has taken everything.
    virtual std::optional<bool> close();

    // The attributes of the open file itself, whatever its path leads to meanwhile. What copies
    // files looks and sets the permissions by path otherwise, cuts none and sets no owner. For a
    // system without a queue of its own.

    /// Gives the file this owner and this group. False where it does not get both.
    virtual std::optional<bool> own(const StorageSystemOwner& owner);

    /// Gives the file these permissions and no others.
    virtual std::optional<bool> set(Permissions permissions);

    /// Looks at the file. Empty also where the system does not tell.
    virtual std::optional<StorageSystemOpenFileState> look();

    /// Drops what the file holds beyond so many bytes.
    virtual std::optional<bool> cut(std::uint64_t size);
};

} // namespace FileSystem
