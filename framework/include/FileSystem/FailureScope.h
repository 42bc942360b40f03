#pragma once

#include <FileSystem/Export.h>
#include <FileSystem/Failure.h>

#include <cstdint>
#include <string>
#include <utility>

namespace FileSystem {

class FailureRecord;

// For those who write a storage system, or a library on top of one: how a failure gets to
// Failure::last().

/// Says why what is being done now fails. Replaces what was said before it in the same public
/// operation, so that a question on the way leaves nothing behind; whoever cleans up after a
/// failure holds a FailureKeeper meanwhile. Outside any public operation nothing is kept.
/// \param entry the path that it is about; empty: the path of the operation that it ends.
/// \return false, so that `return fail(...)` ends a function that answers with a bool.
FILESYSTEM_EXPORT bool fail(std::error_code code, std::string text = {}, std::string entry = {});

/// The same for a cause that has a number of its own.
FILESYSTEM_EXPORT bool fail(std::error_code code, FailureSource source, std::int64_t number,
                            std::string text = {}, std::string entry = {});

/// The same for a system call that failed with `number`, a value of errno.
FILESYSTEM_EXPORT bool failBySystem(int number, std::string entry = {});

/// One public operation, from its start to its end. Operations may be nested: the outermost one
/// forgets what was there before it, and is what Failure::operation() and the paths name in the
/// end. On a way out by an exception there is a failure: the one noted, or ConnectionLost for a
/// handle_fatal_error, or Other.
///
/// The texts are lent for the object's life. Costs nothing but a few comparisons on success.
class FILESYSTEM_EXPORT FailureScope
{
public:
    explicit FailureScope(const char* operation) noexcept;
    FailureScope(const char* operation, const std::string& path) noexcept;
    FailureScope(const char* operation, const std::string& path,
                 const std::string& otherPath) noexcept;
    FailureScope(const FailureScope&) = delete;
    FailureScope& operator=(const FailureScope&) = delete;
    ~FailureScope();

    /// Ends an operation whose result tells whether it succeeded, and passes the result on. A
    /// failure that nobody has given a reason for gets FailureCode::Other.
    template <class Result>
    Result result(Result&& value) noexcept
    {
        end(static_cast<bool>(value), true);
        return std::forward<Result>(value);
    }

    /// Ends a question, whose "no" may be a good answer: it is a failure where one was noted.
    template <class Result>
    Result answer(Result&& value) noexcept
    {
        end(static_cast<bool>(value), false);
        return std::forward<Result>(value);
    }

    /// Ends an operation whose result does not tell: it failed where a failure was noted, as in a
    /// listing.
    template <class Result>
    Result asNoted(Result&& value) noexcept
    {
        end(false, false);
        return std::forward<Result>(value);
    }

private:
    void end(bool succeeded, bool failedOtherwise) noexcept;
    void endByException() noexcept;

    FailureRecord* record_;
    const char* operation_;
    const std::string* path_;
    const std::string* otherPath_;
    std::uint64_t notedBefore_ = 0;
    int exceptions_;
    bool isOutermost_ = false;
    bool ended_ = false;
};

/// Keeps the failure that is noted so far over what happens during the object's life: for cleaning
/// up, whose own failures nobody asked about.
class FILESYSTEM_EXPORT FailureKeeper
{
public:
    FailureKeeper();
    FailureKeeper(const FailureKeeper&) = delete;
    FailureKeeper& operator=(const FailureKeeper&) = delete;
    ~FailureKeeper();

private:
    Failure kept_;
};

} // namespace FileSystem
