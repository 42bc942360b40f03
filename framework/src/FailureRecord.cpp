#include "FailureRecord.h"

#include <utility>

namespace FileSystem {

namespace {

// Without a destructor of its own, so that it can still be read when those of the thread's other
// objects have run.
thread_local bool isThreadEnding = false;

struct ThreadFailure
{
    FailureRecord record;

    ~ThreadFailure() { isThreadEnding = true; }
};

} // namespace

FailureRecord* FailureRecord::ofThisThread() noexcept
{
    if (isThreadEnding) {
        return nullptr;
    }
    thread_local ThreadFailure ofThread;
    return &ofThread.record;
}

bool FailureRecord::enter() noexcept
{
    if (depth_++ > 0) {
        return false;
    }
    clear();
    isLossExpected_ = false;
    return true;
}

void FailureRecord::clear() noexcept
{
    if (failure_) {
        failure_ = Failure();
    }
}

void FailureRecord::note(Failure&& failure)
{
    failure_ = std::move(failure);
    ++noted_;
}

Failure FailureRecord::make(std::error_code code, FailureSource source, std::int64_t number,
                            std::string&& text, std::string&& entry)
{
    Failure failure;
    failure.code_ = code;
    failure.source_ = source;
    failure.number_ = number;
    failure.text_ = std::move(text);
    failure.entry_ = std::move(entry);
    return failure;
}

void FailureRecord::describe(const char* operation, const std::string* path,
                             const std::string* otherPath)
{
    failure_.operation_ = operation;
    // An open file is known by the path that its cause is about.
    failure_.path_ = path != nullptr ? *path : failure_.entry_;
    failure_.otherPath_ = otherPath != nullptr ? *otherPath : std::string();
    if (failure_.entry_.empty()) {
        failure_.entry_ = failure_.path_;
    }
}

} // namespace FileSystem
