#pragma once

#include <FileSystem/Failure.h>
#include <FileSystem/StorageSystemQueue.h>

#include <optional>
#include <string>

namespace FileSystem {

/// Does one operation of a queue that has no other, and waits for its answer.
/// \param start is given the completion.
template <class Start>
Failure awaitAnswer(StorageSystemQueue& queue, Start start)
{
    Failure answer;
    start(
        StorageSystemQueue::Completion<>([&answer](const Failure& failure) { answer = failure; }));
    queue.finish();
    return answer;
}

/// What stands at a path now. Empty: why.
inline std::optional<StorageSystemAttributes> lookNow(StorageSystemQueue& queue,
                                                      const std::string& path, Failure& why)
{
    std::optional<StorageSystemAttributes> found;
    queue.lookUp(path, [&](const Failure& failure, const StorageSystemAttributes& now) {
        why = failure;
        found = failure ? std::nullopt : std::make_optional(now);
    });
    queue.finish();
    return found;
}

} // namespace FileSystem
