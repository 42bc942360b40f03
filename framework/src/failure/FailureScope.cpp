#include "failure/FailureRecord.h"

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
    : record_(FailureRecord::ofThisThread())
    , operation_(operation)
    , path_(nullptr)
    , otherPath_(nullptr)
    , exceptions_(std::uncaught_exceptions())
{
    if (record_ != nullptr) {
        isOutermost_ = record_->enter();
        notedBefore_ = record_->noted();
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
    if (record_ == nullptr) {
        return;
    }
    if (!ended_ && std::uncaught_exceptions() > exceptions_) {
        endByException();
    }
    record_->leave();
}

void FailureScope::endByException() noexcept
{
    try {
        if (record_->noted() == notedBefore_) {
            fail(record_->isLossExpected() ? FailureCode::ConnectionLost : FailureCode::Other);
        }
    } catch (...) {
        // There is no memory to say more.
    }
    end(false, true);
}

void FailureScope::end(bool succeeded, bool failedOtherwise) noexcept
{
    ended_ = true;
    if (record_ == nullptr) {
        return;
    }
    if (succeeded) {
        if (isOutermost_) {
            record_->clear();
        }
        return;
    }
    try {
        const bool isNoted = record_->noted() != notedBefore_;
        if (!isNoted && failedOtherwise) {
            fail(FailureCode::Other);
        }
        if (isNoted || failedOtherwise) {
            record_->describe(operation_, path_, otherPath_);
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
