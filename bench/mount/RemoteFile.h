#pragma once

#include <FileSystem/StorageSystemQueue.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace TarnisBench {

/// An open file of a queue, for whoever reads and writes block after block: reads ahead, and
/// writes behind. Operations give 0 or a negative errno, as those of a mounted file system do.
class RemoteFile
{
public:
    using Queue = FileSystem::StorageSystemQueue;

    /// Throws std::system_error where it cannot be opened.
    RemoteFile(Queue& queue, const std::string& path, Queue::OpenMode mode,
               Queue::Permissions permissions);
    RemoteFile(const RemoteFile&) = delete;
    RemoteFile& operator=(const RemoteFile&) = delete;
    ~RemoteFile();

    /// The bytes read; fewer than `size` only at the end.
    int read(std::uint64_t offset, char* buffer, std::size_t size);

    /// Takes the bytes. A failure may be told by a later call.
    int write(std::uint64_t offset, const char* bytes, std::size_t size);

    /// Waits for what was taken.
    int flush();

private:
    /// Memory that is lent to an operation in flight, which holds it.
    struct Piece
    {
        std::uint64_t offset = 0;
        std::vector<char> bytes;
        bool isRead = false;
        FileSystem::Failure failure;
    };

    std::shared_ptr<Piece> askFor(std::uint64_t offset);
    void readAhead(std::uint64_t offset);
    const Piece& await(std::uint64_t offset);

    Queue& queue_;
    Queue::File file_{};
    std::deque<std::shared_ptr<Piece>> pieces_; ///< One behind the other.
    std::shared_ptr<std::uint64_t> bytesUnwritten_ = std::make_shared<std::uint64_t>(0);
    std::shared_ptr<FileSystem::Failure> writeFailure_ = std::make_shared<FileSystem::Failure>();
};

/// What a failure is for a mounted file system; 0 for none.
int errnoOf(const FileSystem::Failure& failure) noexcept;

} // namespace TarnisBench
