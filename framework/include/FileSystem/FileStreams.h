#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace FileSystem {

class StorageSystem;

// A file that is written from, or read into, something that is no file.

/// Gives the next bytes of what is to be written: how many, at most `size`, and none at the end.
/// Empty: they cannot be had, and the file is not to be made.
using ByteGiver = std::function<std::optional<std::size_t>(char* buffer, std::size_t size)>;

/// Takes the next bytes of a file. False: no more of them are wanted.
using ByteTaker = std::function<bool(const char* bytes, std::size_t size)>;

/// Told how many bytes of a file are done; false: stop.
using ByteProgress = std::function<bool(std::uint64_t done)>;

/// How a file is written.
struct WriteFileOptions
{
    /// Of a new file, less the umask.
    Utilities::Flags<PosixFilePermissionFlag> permissions{0666U};
    /// As StorageSystemCopyOptionFlag::InPlace.
    bool isInPlace = false;
    /// Called at least ten times a second, unless the giver takes longer.
    ByteProgress progress = {};
};

/// Writes a file with all that a giver gives, several pieces at the same time. It appears under its
/// name complete or not at all, and replaces a file or a link there as copyTree() does, with the
/// same promises.
///
/// Blocks until the giver is at its end and all is written, or it fails; calls the functions on the
/// calling thread, one after the other. What they throw is passed on, and nothing is left behind;
/// where it is thrown while the file takes its name, that is there, and whole.
/// Any thread; takes no lock while it waits.
/// \return false: nothing was written, or, with NotRemoved, not all of what it replaced is gone.
///         Cancelled where a function said stop.
[[nodiscard]] FILESYSTEM_EXPORT bool writeFile(const StorageSystem& system, const std::string& path,
                                               const ByteGiver& giver,
                                               const WriteFileOptions& options = {});

/// Hands a file to a taker, from its start to its end, in order and without a hole; what comes next
/// is read ahead, as much as the way takes in two seconds. What the file becomes meanwhile is
/// handed on as it was met, and what this machine tells another size of than it has, as it does of
/// files in /sys, up to its end.
///
/// Blocks until the file is at its end or it fails; calls the functions on the calling thread, one
/// after the other, and passes on what they throw. Any thread, as of the file system's operations.
/// \param progress called at the start, after every step, at the end, and at least ten times a
///                 second while the system takes its time.
/// \return false: it was not handed on to its end, for the system's reason, or Changed where it
///         ended before its size. Cancelled where a function said stop.
[[nodiscard]] FILESYSTEM_EXPORT bool readFile(const StorageSystem& system, const std::string& path,
                                              const ByteTaker& taker,
                                              const ByteProgress& progress = {});

} // namespace FileSystem
