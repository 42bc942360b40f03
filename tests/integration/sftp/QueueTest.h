#pragma once

#include "integration/sftp/SftpTest.h"

#include <FileSystem/StorageSystemQueue.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace TarnisTest {

using FileSystem::StorageSystemQueue;

/// Pumps until nothing is in flight; false: something still is after a generous while.
inline bool finishInTime(StorageSystemQueue& queue)
{
    const auto end = std::chrono::steady_clock::now() + kGenerousLimit;
    while (queue.pending() > 0 && std::chrono::steady_clock::now() < end) {
        queue.pump(std::chrono::milliseconds(100));
    }
    return queue.pending() == 0;
}

/// The code that an operation ends with; `start` is given its completion. Empty: it does not end.
template <class... Results, class Start>
std::optional<FileSystem::Failure> failureOf(StorageSystemQueue& queue, Start start)
{
    std::optional<FileSystem::Failure> answer;
    start(StorageSystemQueue::Completion<Results...>(
        [&answer](const FileSystem::Failure& failure, Results...) {
            EXPECT_FALSE(answer) << "answered twice";
            answer = failure;
        }));
    EXPECT_TRUE(finishInTime(queue));
    return answer;
}

/// What a look-up ends with.
inline std::optional<FileSystem::Failure> lookUpFailure(StorageSystemQueue& queue,
                                                        const std::string& path)
{
    return failureOf<const FileSystem::StorageSystemAttributes&>(
        queue, [&](auto done) { queue.lookUp(path, std::move(done)); });
}

/// Opens a file that can be opened.
inline StorageSystemQueue::File openFile(StorageSystemQueue& queue, const std::string& path,
                                         StorageSystemQueue::OpenMode mode)
{
    std::optional<StorageSystemQueue::File> opened;
    queue.open(path, mode, StorageSystemQueue::Permissions(0644U),
               [&opened](const FileSystem::Failure& failure, StorageSystemQueue::File file) {
                   EXPECT_FALSE(failure) << failure.message();
                   opened = file;
               });
    EXPECT_TRUE(finishInTime(queue));
    EXPECT_TRUE(opened);
    return opened.value_or(StorageSystemQueue::File{});
}

} // namespace TarnisTest
