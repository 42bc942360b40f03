#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace FileSystem {

/// How much of a tree's room its files take up. Files that are closed in another thread give theirs
/// back.
struct MemoryUsage
{
    std::atomic<std::uint64_t> capacity;
    std::atomic<std::uint64_t> used{0};

    explicit MemoryUsage(std::uint64_t bytes)
        : capacity(bytes)
    {}

    std::uint64_t room() const
    {
        const std::uint64_t all = capacity;
        const std::uint64_t taken = used;
        return all > taken ? all - taken : 0;
    }
};

/// The bytes of one file, in blocks: it grows without being copied, and what was never written
/// between two blocks takes no memory and reads as zeros. Does not look at the capacity.
class MemoryContent
{
public:
    explicit MemoryContent(std::shared_ptr<MemoryUsage> usage);
    MemoryContent(const MemoryContent&) = delete;
    MemoryContent& operator=(const MemoryContent&) = delete;
    ~MemoryContent();

    std::uint64_t size() const { return size_; }

    /// \return bytes read; fewer than asked for at the end.
    std::uint64_t read(std::uint64_t offset, char* buffer, std::uint64_t size) const;

    void write(std::uint64_t offset, const char* bytes, std::uint64_t size);

    void resize(std::uint64_t size);

private:
    const std::shared_ptr<MemoryUsage> usage_;
    std::uint64_t size_ = 0;
    /// By their number; one that is short, or not there, goes on with zeros.
    std::map<std::uint64_t, std::string> blocks_;
};

} // namespace FileSystem
