#pragma once

#include <cstdint>

namespace FileSystem {

/// What came of reading an exact number of bytes.
struct StorageSystemReadResult
{
    enum class Status
    {
        Complete,  ///< All bytes that were asked for.
        EndOfFile, ///< The file ended before them.
        Error,     ///< A read failed.
    };

    std::uint64_t count = 0; ///< Bytes that were read.
    Status status = Status::Complete;
};

} // namespace FileSystem
