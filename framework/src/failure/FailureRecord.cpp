#include "failure/FailureRecord.h"

#include <utility>

namespace FileSystem {

namespace {

enum class ThreadPhase
{
    New,
    HasRecord,
    Ending,
};

// Every public operation asks for it, so it is one variable and needs no constructor. Without a
// destructor too, it can still be read when those of the thread's other objects have run.
struct ThreadState
{
    FailureRecord* record;
    ThreadPhase phase;
};

thread_local ThreadState state{nullptr, ThreadPhase::New};

struct ThreadFailure
{
    FailureRecord record;

    ThreadFailure() { state = {&record, ThreadPhase::HasRecord}; }

    ThreadFailure(const ThreadFailure&) = delete;
    ThreadFailure& operator=(const ThreadFailure&) = delete;

    ~ThreadFailure() { state = {nullptr, ThreadPhase::Ending}; }
};

FailureRecord* makeRecord() noexcept
{
    thread_local ThreadFailure ofThread;
    return &ofThread.record;
}

} // namespace

FailureRecord* FailureRecord::ofThisThread() noexcept
{
    const ThreadState& current = state;
    return current.phase == ThreadPhase::New ? makeRecord() : current.record;
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
