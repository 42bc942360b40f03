#include "mount/RemoteFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>

namespace TarnisBench {

namespace {

constexpr std::uint64_t pieceSize = std::uint64_t{256} << 10U;
constexpr std::size_t piecesAhead = 32;
constexpr std::uint64_t mostUnwritten = std::uint64_t{32} << 20U;

} // namespace

int errnoOf(const FileSystem::Failure& failure) noexcept
{
    if (!failure) {
        return 0;
    }
    const std::error_condition condition = failure.code().default_error_condition();
    return condition.category() == std::generic_category() ? -condition.value() : -EIO;
}

RemoteFile::RemoteFile(Queue& queue, const std::string& path, Queue::OpenMode mode,
                       Queue::Permissions permissions)
    : queue_(queue)
{
    std::optional<FileSystem::Failure> answer;
    queue_.open(path, mode, permissions, [&](const FileSystem::Failure& failure, Queue::File file) {
        answer = failure;
        file_ = file;
    });
    while (!answer) {
        queue_.pump();
    }
    if (*answer) {
        throw std::system_error(-errnoOf(*answer), std::generic_category());
    }
}

RemoteFile::~RemoteFile()
{
    queue_.close(file_, [](const FileSystem::Failure& /*failure*/) {});
    queue_.pump(std::chrono::milliseconds(0));
}

std::shared_ptr<RemoteFile::Piece> RemoteFile::askFor(std::uint64_t offset)
{
    auto piece = std::make_shared<Piece>();
    piece->offset = offset;
    piece->bytes.resize(pieceSize);
    queue_.read(file_, offset, piece->bytes.data(), pieceSize,
                [piece](const FileSystem::Failure& failure, std::uint64_t count) {
                    piece->failure = failure;
                    piece->bytes.resize(failure ? 0 : count);
                    piece->isRead = true;
                });
    return piece;
}

/// The first piece is to be that which holds the offset.
void RemoteFile::readAhead(std::uint64_t offset)
{
    while (!pieces_.empty() && pieces_.front()->offset + pieceSize <= offset) {
        pieces_.pop_front();
    }
    if (!pieces_.empty() && pieces_.front()->offset > offset) {
        pieces_.clear();
    }
    while (pieces_.size() < piecesAhead) {
        pieces_.push_back(askFor(pieces_.empty() ? offset / pieceSize * pieceSize
                                                 : pieces_.back()->offset + pieceSize));
    }
}

const RemoteFile::Piece& RemoteFile::await(std::uint64_t offset)
{
    readAhead(offset);
    const Piece& piece = *pieces_.front();
    while (!piece.isRead) {
        queue_.pump();
    }
    return piece;
}

int RemoteFile::read(std::uint64_t offset, char* buffer, std::size_t size)
{
    std::size_t done = 0;
    while (done < size) {
        const Piece& piece = await(offset + done);
        if (piece.failure) {
            const int code = errnoOf(piece.failure);
            pieces_.clear();
            return code;
        }
        const std::size_t start = offset + done - piece.offset;
        const std::size_t held = std::max(piece.bytes.size(), start) - start;
        const std::size_t part = std::min(held, size - done);
        std::memcpy(buffer + done, piece.bytes.data() + start, part);
        done += part;
        if (part == 0) {
            // It may have grown when it is asked again.
            pieces_.clear();
            break;
        }
    }
    return static_cast<int>(done);
}

int RemoteFile::write(std::uint64_t offset, const char* bytes, std::size_t size)
{
    pieces_.clear();
    auto copy = std::make_shared<std::string>(bytes, size);
    *bytesUnwritten_ += size;
    const auto written = [copy, unwritten = bytesUnwritten_,
                          first = writeFailure_](const FileSystem::Failure& failure) {
        *unwritten -= copy->size();
        if (failure && !*first) {
            *first = failure;
        }
    };
    queue_.write(file_, offset, copy->data(), size, written);
    queue_.pump(std::chrono::milliseconds(0));
    while (*bytesUnwritten_ > mostUnwritten) {
        queue_.pump();
    }
    return *writeFailure_ ? errnoOf(*writeFailure_) : static_cast<int>(size);
}

int RemoteFile::flush()
{
    while (*bytesUnwritten_ > 0) {
        queue_.pump();
    }
    return errnoOf(*writeFailure_);
}

} // namespace TarnisBench
