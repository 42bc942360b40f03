#include "FailureRecord.h"

#include <FileSystem/FailureScope.h>

#include <exception>
#include <utility>

namespace FileSystem {

bool fail(std::error_code code, std::string text, std::string entry)
{
    return fail(code, FailureSource::Library, 0, std::move(text), std::move(entry));
}

bool fail(std::error_code code, FailureSource source, std::int64_t number, std::string text,
          std::string entry)
{
    auto* const record = FailureRecord::ofThisThread();
    if (record != nullptr && record->isInOperation()) {
        record->note(FailureRecord::make(code, source, number, std::move(text), std::move(entry)));
    }
    return false;
}

bool failBySystem(int number, std::string entry)
{
    return fail(failureCodeOfErrno(number), FailureSource::System, number,
                std::generic_category().message(number), std::move(entry));
}

FailureScope::FailureScope(const char* operation) noexcept
    : operation_(operation)
    , path_(nullptr)
    , otherPath_(nullptr)
    , exceptions_(std::uncaught_exceptions())
{
    if (auto* const record = FailureRecord::ofThisThread()) {
        isOutermost_ = record->enter();
        notedBefore_ = record->noted();
    }
}

FailureScope::FailureScope(const char* operation, const std::string& path) noexcept
    : FailureScope(operation)
{
    path_ = &path;
}

FailureScope::FailureScope(const char* operation, const std::string& path,
                           const std::string& otherPath) noexcept
    : FailureScope(operation, path)
{
    otherPath_ = &otherPath;
}

FailureScope::~FailureScope()
{
    auto* const record = FailureRecord::ofThisThread();
    if (record == nullptr) {
        return;
    }
    if (!ended_ && std::uncaught_exceptions() > exceptions_) {
        endByException(*record);
    }
    record->leave();
}

void FailureScope::endByException(const FailureRecord& record) noexcept
{
    try {
        if (record.noted() == notedBefore_) {
            fail(record.isLossExpected() ? FailureCode::ConnectionLost : FailureCode::Other);
        }
    } catch (...) {
        // There is no memory to say more.
    }
    end(false, true);
}

void FailureScope::end(bool succeeded, bool failedOtherwise) noexcept
{
    ended_ = true;
    auto* const record = FailureRecord::ofThisThread();
    if (record == nullptr) {
        return;
    }
    if (succeeded) {
        if (isOutermost_) {
            record->clear();
        }
        return;
    }
    try {
        const bool isNoted = record->noted() != notedBefore_;
        if (!isNoted && failedOtherwise) {
            fail(FailureCode::Other);
        }
        if (isNoted || failedOtherwise) {
            record->describe(operation_, path_, otherPath_);
        }
    } catch (...) {
        // Without memory for its texts the failure keeps what it has.
    }
}

FailureKeeper::FailureKeeper()
    : kept_(Failure::last())
{}

FailureKeeper::~FailureKeeper()
{
    auto* const record = FailureRecord::ofThisThread();
    if (record != nullptr && kept_ && record->isInOperation()) {
        record->note(std::move(kept_));
    }
}

} // namespace FileSystem
