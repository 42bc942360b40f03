#pragma once

#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <cstdint>
#include <optional>

namespace FileSystem {

class StorageSystem;

/// How far a copy of one file or of many is, told to whoever asked for it.
class CopyProgress
{
public:
    explicit CopyProgress(const StorageSystemProgress& progress)
        : progress_(progress)
    {}

    /// More bytes are to be copied.
    void addTotal(std::uint64_t bytes) { total_ += bytes; }

    /// `bytes` of the file under way are copied. False: stop.
    bool report(std::uint64_t bytes = 0) const
    {
        return !progress_ || progress_(done_ + bytes, total_);
    }

    /// The file under way is complete, and had `bytes`.
    void complete(std::uint64_t bytes) { done_ += bytes; }

private:
    const StorageSystemProgress& progress_;
    std::uint64_t done_ = 0;
    std::uint64_t total_ = 0;
};

/// What a copy works with from its beginning to its end.
struct CopyTask
{
    const StorageSystem& source;
    const StorageSystem& target;
    Utilities::Flags<StorageSystemCopyOptionFlag> options;
    std::optional<std::uint64_t> bufferSize;
    CopyProgress& progress;
};

} // namespace FileSystem
