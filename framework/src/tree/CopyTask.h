#pragma once

#include "failure/CallbackScope.h"

#include <FileSystem/FailureScope.h>
#include <FileSystem/StorageSystemFlags.h>
#include <FileSystem/StorageSystemRecords.h>
#include <Utilities/Flags.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace FileSystem {

class StorageSystem;

/// Of a link that cannot be copied.
constexpr const char* noLinksThere = "the target has no symbolic links";

/// How far a copy of one file or of many is, told to whoever asked for it.
class CopyProgress
{
public:
    explicit CopyProgress(const StorageSystemProgress& progress)
        : progress_(progress)
    {}

    /// More bytes are to be copied.
    void addTotal(std::uint64_t bytes) { total_ += bytes; }

    /// `bytes` of the file under way are copied. False: stop, which is told as the failure.
    bool report(std::uint64_t bytes = 0) const
    {
        return goesOn(progress_, done_ + bytes, total_) || fail(FailureCode::Cancelled);
    }

    /// The file under way is complete, and had `bytes`.
    void complete(std::uint64_t bytes) { done_ += bytes; }

private:
    const StorageSystemProgress& progress_;
    std::uint64_t done_ = 0;
    std::uint64_t total_ = 0;
};

/// What was to be preserved and is not, and what has been replaced and cannot be removed, in a copy
/// that goes on all the same.
class CopyLosses
{
public:
    /// \param why the failure of whoever was to set it.
    void add(const std::string& path, const char* what, const Failure& why)
    {
        unkept_.add(path, std::string(what) + ": " + why.cause());
    }

    /// \param aside where it is, under a name that nobody would look for.
    void addLeft(const std::string& path, const std::string& aside, const Failure& why)
    {
        left_.add(path, "what stood there is left at " + aside + ": " + why.cause());
    }

    /// Whether there is none of either. Otherwise that is told as the failure.
    bool areNone() const
    {
        if (unkept_.count == 0 && left_.count == 0) {
            return true;
        }
        if (unkept_.count == 0) {
            return fail(FailureCode::NotRemoved, left_.text(), left_.path);
        }
        const char* separator = left_.count != 0 ? "; " : "";
        return fail(FailureCode::NotKept, unkept_.text() + separator + left_.text(), unkept_.path);
    }

private:
    /// The first of a kind, and how many there are.
    struct Kind
    {
        std::uint64_t count = 0;
        std::string path;
        std::string first;

        void add(const std::string& where, std::string what)
        {
            if (count++ == 0) {
                path = where;
                first = std::move(what);
            }
        }

        std::string text() const
        {
            return count < 2 ? first : first + ", and " + std::to_string(count - 1) + " more";
        }
    };

    Kind unkept_;
    Kind left_;
};

/// What a copy has learnt of its target's system on the way.
struct TargetHabits
{
    /// What every new file that was looked at had. A permission that has been missing once is given
    /// to those alone that are made with it.
    Utilities::Flags<PosixFilePermissionFlag> givenToAll{0777U};
};

/// What a copy works with from its beginning to its end.
struct CopyTask
{
    const StorageSystem& source;
    const StorageSystem& target;
    Utilities::Flags<StorageSystemCopyOptionFlag> options;
    std::optional<std::uint64_t> bufferSize;
    CopyProgress& progress;
    CopyLosses& losses;
    TargetHabits& habits;
};

/// To be asked when something could not be preserved, whether the copy goes on; then that is noted,
/// with the failure at hand as the reason.
inline bool goesOnWithout(const CopyTask& task, const std::string& path, const char* what)
{
    const bool goesOn = task.options.has(StorageSystemCopyOptionFlag::PreserveBestEffort);
    if (goesOn) {
        task.losses.add(path, what, Failure::last());
    }
    return goesOn;
}

} // namespace FileSystem
