#include "tree/FileComparison.h"

#include "failure/NewFailure.h"
#include "tree/FlightLimit.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace FileSystem {

namespace {

constexpr std::uint64_t checkedSize = 32'768;
constexpr std::size_t mostPairs = 32;

} // namespace

/// The same piece of both files.
struct FileComparison::Pair
{
    CopyBuffer source;
    CopyBuffer target;
    std::uint64_t size = 0;
    std::size_t unread = 2;
};

FileComparison::FileComparison(CopyContext& context, File source, File target, std::uint64_t size)
    : context_(context)
    , source_(source)
    , target_(target)
    , size_(size)
{}

void FileComparison::start(Completion done)
{
    done_ = std::move(done);
    compareMore();
    endIfIdle();
}

/// One piece at least, and others as far as the memory goes.
bool FileComparison::mayCompareMore() const noexcept
{
    const bool isOver = failure_ || !areSame_ || context_.isStopped || next_ == size_;
    const bool isRoom = inFlight_ < 2 * mostPairs && context_.bytesHeld < FlightLimit::most;
    return !isOver && (inFlight_ == 0 || isRoom);
}

void FileComparison::compareMore()
{
    while (mayCompareMore()) {
        compareNext();
    }
}

void FileComparison::compareNext()
{
    const auto offset = next_;
    const auto size = std::min(context_.pieceSize, size_ - offset);
    next_ += size;
    const auto pair = std::make_shared<Pair>();
    pair->source = newBuffer(context_, size);
    pair->target = newBuffer(context_, size);
    pair->size = size;
    const auto done = [self = shared_from_this(), pair](const Failure& failure, std::uint64_t got) {
        self->read(pair, failure, got);
    };
    inFlight_ += 2;
    context_.source.read(source_, offset, pair->source.get(), size, done);
    context_.target.read(target_, offset, pair->target.get(), size, done);
}

void FileComparison::read(const std::shared_ptr<Pair>& pair, const Failure& failure,
                          std::uint64_t got)
{
    --inFlight_;
    --pair->unread;
    if (failure && !failure_) {
        failure_ = failure;
    }
    areSame_ = areSame_ && got == pair->size;
    if (areSame_ && !failure_ && pair->unread == 0) {
        areSame_ = std::memcmp(pair->source.get(), pair->target.get(), pair->size) == 0;
    }
    compareMore();
    endIfIdle();
}

void FileComparison::endIfIdle()
{
    if (inFlight_ != 0) {
        return;
    }
    const auto done = std::exchange(done_, nullptr);
    if (!failure_ && context_.isStopped) {
        failure_ = newFailure("copy", {}, FailureCode::Cancelled);
    }
    done(failure_, areSame_);
}

void readEnds(StorageSystemQueue& queue, StorageSystemQueue::File file, std::uint64_t size,
              StorageSystemQueue::Completion<const std::string&> done)
{
    struct Ends
    {
        std::string bytes;
        std::size_t unread = 2;
        Failure failure;
    };

    const auto count = std::min(size, checkedSize);
    const auto ends = std::make_shared<Ends>();
    ends->bytes.resize(2 * count);
    const auto read = [ends, done = std::move(done)](const Failure& failure, std::uint64_t) {
        if (failure) {
            ends->failure = failure;
        }
        if (--ends->unread == 0) {
            done(ends->failure, ends->bytes);
        }
    };
    queue.read(file, 0, ends->bytes.data(), count, read);
    queue.read(file, size - count, ends->bytes.data() + count, count, read);
}

} // namespace FileSystem
