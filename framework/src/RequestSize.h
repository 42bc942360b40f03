#pragma once

#include <algorithm>
#include <cstdint>

namespace FileSystem {

/// How much to ask a storage system for at a time. Shrinks to what it really gives when that is a
/// pattern; a single short answer is chance.
class RequestSize
{
public:
    explicit RequestSize(std::uint64_t largest) noexcept
        : size_(largest)
    {}

    std::uint64_t atMost(std::uint64_t wanted) const noexcept { return std::min(wanted, size_); }

    /// \param got how much of `asked` has come
    void learn(std::uint64_t asked, std::uint64_t got) noexcept
    {
        if (got >= asked) {
            shortAnswers_ = 0;
            return;
        }
        shortAnswers_ = got == shortAnswer_ ? shortAnswers_ + 1 : 1;
        shortAnswer_ = got;
        if (shortAnswers_ >= pattern) {
            size_ = std::clamp(got, std::min(smallest, size_), size_);
        }
    }

private:
    // As many short answers of one size in a row make a pattern.
    static constexpr unsigned pattern = 3;
    static constexpr std::uint64_t smallest = 4'096;

    std::uint64_t size_;
    std::uint64_t shortAnswer_ = 0;
    unsigned shortAnswers_ = 0;
};

} // namespace FileSystem
