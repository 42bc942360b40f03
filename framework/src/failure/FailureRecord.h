#pragma once

#include <FileSystem/Failure.h>

#include <cstdint>

namespace FileSystem {

/// What a thread knows of its running public operations and of the failure of the last one.
class FailureRecord
{
public:
    /// The calling thread's; null once the thread has begun to end. Objects that are destroyed
    /// after that, as those in static storage are, find nobody to tell.
    static FailureRecord* ofThisThread() noexcept;

    const Failure& failure() const noexcept { return failure_; }

    /// How many failures were noted so far.
    std::uint64_t noted() const noexcept { return noted_; }

    bool isInOperation() const noexcept { return depth_ > 0; }

    /// True: it is the outermost one, and what was there is forgotten.
    bool enter() noexcept
    {
        if (depth_++ > 0) {
            return false;
        }
        clear();
        isLossExpected_ = false;
        return true;
    }

    void leave() noexcept { --depth_; }

    void clear() noexcept
    {
        if (failure_) {
            failure_ = Failure();
        }
    }

    void note(Failure&& failure);

    /// Says that an exception is on its way that tells of a lost handle, for the operations which
    /// it ends without another reason.
    void expectLoss() noexcept { isLossExpected_ = true; }

    bool isLossExpected() const noexcept { return isLossExpected_; }

    static Failure make(std::error_code code, FailureSource source, std::int64_t number,
                        std::string&& text, std::string&& entry);

    /// Adds what the operation that ends was about: its paths are those of the whole failure until
    /// an outer one says otherwise.
    void describe(const char* operation, const std::string* path, const std::string* otherPath);

private:
    Failure failure_;
    std::uint64_t noted_ = 0;
    int depth_ = 0;
    bool isLossExpected_ = false;
};

} // namespace FileSystem
