#pragma once

#include "handles/SSHHandleSFTPSessionFile.h"
#include "sftp/SFTPReplies.h"
#include "sftp/SFTPTurns.h"
#include "sftp/SFTPWindow.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace Tarnis {

/// Writes a remote file in order with several requests under way, or one by one where libssh does
/// not allow more. Failures are told by any later operation, and the first one is noted.
///
/// Operations block on the server, letting others in between two requests and while there is no
/// room to send one, and throw handle_fatal_error("invalid") when the handle is invalid, unless the
/// SFTP session is lost: that is a failure.
class SFTPWriteBehind
{
public:
    SFTPWriteBehind(std::shared_ptr<SSHHandleSFTPSessionFile> file, std::string path)
        : file_(std::move(file))
        , path_(std::move(path))
        , stream_(file_->lossMark())
    {}

    /// The next write() begins at this position. Nothing may be under way.
    void start(std::uint64_t offset) noexcept;

    bool write(const char* buffer, std::uint64_t size);

    /// Collects what is under way.
    bool finish();

private:
    struct Request
    {
        std::uint32_t id;
        std::uint32_t length;
    };

    struct Piece
    {
        std::uint32_t size;
        bool isProved; ///< The server takes requests of this size, and libssh hands over replies.
    };

    struct Answer
    {
        bool isGiven;
        std::uint32_t taken;
    };

    SSHHandleSFTPSession::BulkWriting writing() const;
    void setWriting(SSHHandleSFTPSession::BulkWriting how);
    bool learnLimits();
    void learnFromRefusal();
    Piece nextPiece(sftp_file file, std::uint64_t size) const;

    // How much of the data was written or sent; 0: a failure.
    std::uint32_t writePiece(const char* data, std::uint64_t size);
    std::uint32_t writeProbing(const char* data, std::uint32_t size);
    std::uint32_t writeAlone(const char* data, std::uint32_t size);
    std::uint32_t writeByLibssh(const char* data, std::uint32_t size);
    std::uint32_t send(const char* data, std::uint32_t size);

    Answer exchange(const char* data, std::uint32_t size);
    SFTPAttempt sendNow(sftp_file file, const char* data, std::uint32_t size, Request& sent);
    std::uint32_t sendable(sftp_file file, std::uint32_t size) const;
    bool mayHaveUnderWay(std::uint32_t size) const noexcept;
    bool collectOldest();

    std::shared_ptr<SSHHandleSFTPSessionFile> file_;
    std::string path_;
    std::deque<Request> requests_;
    std::uint64_t bytesUnderWay_ = 0;
    std::vector<char> packet_;
    std::uint64_t offset_ = 0;
    SFTPWindow window_;
    SFTPReplyStream stream_;
    bool failed_ = false;
    bool isCareful_ = false; ///< A large write was refused and a smaller one taken.
};

} // namespace Tarnis
