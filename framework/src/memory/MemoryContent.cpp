#include "memory/MemoryContent.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace FileSystem {

namespace {

constexpr std::uint64_t blockSize = 1U << 16U;

/// Where a byte of a file is, and how many of those that follow are in the same block.
struct Spot
{
    Spot(std::uint64_t offset, std::uint64_t size)
        : block(offset / blockSize)
        , offsetInBlock(static_cast<std::size_t>(offset % blockSize))
        , count(static_cast<std::size_t>(std::min(size, blockSize - offsetInBlock)))
    {}

    std::uint64_t block;
    std::size_t offsetInBlock;
    std::size_t count;
};

} // namespace

MemoryContent::MemoryContent(std::shared_ptr<MemoryUsage> usage)
    : usage_(std::move(usage))
{}

MemoryContent::~MemoryContent()
{
    usage_->used -= size_;
}

std::uint64_t MemoryContent::read(std::uint64_t offset, char* buffer, std::uint64_t size) const
{
    const auto wanted = offset < size_ ? std::min(size, size_ - offset) : 0;
    for (std::uint64_t done = 0; done < wanted;) {
        const Spot spot(offset + done, wanted - done);
        const auto found = blocks_.find(spot.block);
        const auto stored = found != blocks_.end() && found->second.size() > spot.offsetInBlock
                                ? found->second.copy(buffer + done, spot.count, spot.offsetInBlock)
                                : 0;
        std::fill_n(buffer + done + stored, spot.count - stored, '\0');
        done += spot.count;
    }
    return wanted;
}

void MemoryContent::write(std::uint64_t offset, const char* bytes, std::uint64_t size)
{
    for (std::uint64_t done = 0; done < size;) {
        const Spot spot(offset + done, size - done);
        auto& block = blocks_[spot.block];
        block.resize(std::max(block.size(), spot.offsetInBlock + spot.count));
        block.replace(spot.offsetInBlock, spot.count, bytes + done, spot.count);
        done += spot.count;
    }
    if (size != 0 && offset + size > size_) {
        resize(offset + size);
    }
}

void MemoryContent::resize(std::uint64_t size)
{
    // What a write that failed has left behind the end goes too.
    if (size <= size_) {
        const Spot end(size, 0);
        const auto last = blocks_.lower_bound(end.block);
        if (last != blocks_.end() && last->first == end.block) {
            last->second.resize(std::min(last->second.size(), end.offsetInBlock));
        }
        blocks_.erase(blocks_.upper_bound(end.block), blocks_.end());
    }
    usage_->used += size;
    usage_->used -= size_;
    size_ = size;
}

} // namespace FileSystem
