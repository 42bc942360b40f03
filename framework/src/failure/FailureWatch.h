#pragma once

#include "failure/FailureRecord.h"

#include <FileSystem/Failure.h>

#include <cstdint>
#include <utility>

namespace FileSystem {

/// Notes a failure once more, in the place of what was noted after it.
inline void noteAgain(Failure&& failure)
{
    auto* const record = FailureRecord::ofThisThread();
    if (record != nullptr && record->isInOperation()) {
        record->note(std::move(failure));
    }
}

/// Tells the failure that was noted during the object's life from one that was there before: a
/// question on the way may have left one.
class FailureWatch
{
public:
    FailureWatch()
        : before_(count())
    {}

    /// None when nothing was noted.
    Failure noted() const { return count() == before_ ? Failure() : Failure::last(); }

private:
    static std::uint64_t count() noexcept
    {
        const auto* const record = FailureRecord::ofThisThread();
        return record != nullptr ? record->noted() : 0;
    }

    std::uint64_t before_;
};

} // namespace FileSystem
