#pragma once

#include "failure/FailureRecord.h"

#include <FileSystem/StorageSystemRecords.h>

#include <cstdint>
#include <utility>

namespace FileSystem {

/// Around a call of a function of the caller's in the middle of an operation: what that does on
/// storage systems are operations of its own, which begin without a failure and leave none behind
/// in the one that goes on.
class CallbackScope
{
public:
    CallbackScope() noexcept { exchange(); }

    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

    ~CallbackScope() { exchange(); }

private:
    void exchange() noexcept
    {
        if (auto* const record = FailureRecord::ofThisThread()) {
            std::swap(*record, other_);
        }
    }

    FailureRecord other_;
};

/// What the progress function says; true where there is none.
inline bool goesOn(const StorageSystemProgress& progress, std::uint64_t done, std::uint64_t total)
{
    if (!progress) {
        return true;
    }
    const CallbackScope scope;
    return progress(done, total);
}

} // namespace FileSystem
