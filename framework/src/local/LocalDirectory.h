#pragma once

#include "posix/FileDescriptor.h"

#include <FileSystem/StorageSystemFlags.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include <dirent.h>

namespace FileSystem {

/// A directory being listed. A link to a directory is followed.
class LocalDirectory
{
public:
    /// One that cannot be opened has no entries.
    /// \param limit more entries count as a failure.
    explicit LocalDirectory(const std::string& path,
                            std::uint64_t limit = std::numeric_limits<std::uint64_t>::max());

    /// The directory that is open for reading, or none, which has no entries.
    /// \param limit more entries count as a failure.
    explicit LocalDirectory(Posix::FileDescriptor&& directory,
                            std::uint64_t limit = std::numeric_limits<std::uint64_t>::max());

    /// The directory that is open.
    explicit LocalDirectory(const Posix::FileDescriptor& directory);

    /// The next entry, "." and ".." left out. Null at the end, or when reading fails. Valid until
    /// the next call.
    const dirent* next();

    /// Whether the directory was opened and, so far, nothing failed: after next() has given null,
    /// whether that was the end.
    bool isComplete() const;

    /// For calls relative to the directory. Only while there are entries.
    int descriptor() const;

    /// The kind of an entry, asked for where the directory does not keep it.
    Utilities::Flags<StorageSystemFileTypeFlag> typeOf(const dirent& entry) const;

private:
    struct Close
    {
        void operator()(DIR* directory) const noexcept { static_cast<void>(::closedir(directory)); }
    };

    std::unique_ptr<DIR, Close> directory_;
    std::uint64_t left_;
    bool failed_ = false;
};

} // namespace FileSystem
