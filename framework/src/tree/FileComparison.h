#pragma once

#include "tree/CopyContext.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace FileSystem {

/// Compares what a file of the target's system holds with the beginning of one of the source's,
/// with several pieces of both in flight.
class FileComparison : public std::enable_shared_from_this<FileComparison>
{
public:
    using File = StorageSystemQueue::File;
    using Completion = StorageSystemQueue::Completion<bool>;

    /// \param size how many bytes are compared.
    FileComparison(CopyContext& context, File source, File target, std::uint64_t size);

    /// \param done is told, once, whether the bytes are the same. Where the copy is stopped, fails
    ///             with Cancelled.
    void start(Completion done);

private:
    struct Pair;

    bool mayCompareMore() const noexcept;
    void compareMore();
    void compareNext();
    void read(const std::shared_ptr<Pair>& pair, const Failure& failure, std::uint64_t got);
    void endIfIdle();

    CopyContext& context_;
    File source_;
    File target_;
    std::uint64_t size_;
    std::uint64_t next_ = 0;
    std::size_t inFlight_ = 0;
    bool areSame_ = true;
    Failure failure_;
    Completion done_;
};

/// Reads the first and the last bytes of so much of an open file: enough to tell whether it still
/// holds what was compared.
void readEnds(StorageSystemQueue& queue, StorageSystemQueue::File file, std::uint64_t size,
              StorageSystemQueue::Completion<const std::string&> done);

} // namespace FileSystem
