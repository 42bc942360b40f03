#pragma once

#include "handles/SSHHandleSFTPSessionFile.h"
#include "sftp/SFTPReplies.h"
#include "sftp/SFTPWindow.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace Tarnis {

/// Writes a remote file in order with several requests under way, or one by one where libssh does
/// not allow more. Failures are told by any later operation.
///
/// Operations block on the server, letting others in between two requests, and throw
/// handle_fatal_error("invalid") when the handle is invalid.
class SFTPWriteBehind
{
public:
    explicit SFTPWriteBehind(std::shared_ptr<SSHHandleSFTPSessionFile> file)
        : file_(std::move(file))
    {}

    /// The next write() begins at this position. Nothing may be under way.
    void start(std::uint64_t offset) noexcept;

    bool write(const char* buffer, std::uint64_t size);

    /// Collects what is under way.
    bool finish();

private:
    bool writePiece(const char* data, std::uint32_t size);
    bool writeFirst(const char* data, std::uint32_t size);
    bool writeOneByOne(const char* data, std::uint32_t size);
    bool send(const char* data, std::uint32_t size);
    bool collectOldest();

    std::shared_ptr<SSHHandleSFTPSessionFile> file_;
    std::deque<std::uint32_t> requests_;
    std::vector<char> packet_;
    std::uint64_t offset_ = 0;
    SFTPWindow window_;
    SFTPReplyStream stream_;
    bool failed_ = false;
};

} // namespace Tarnis
