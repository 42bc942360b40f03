#pragma once

#include "handles/SSHHandleSFTPSessionFile.h"
#include "sftp/SFTPReceiveWindow.h"
#include "sftp/SFTPReplies.h"
#include "sftp/SFTPTurns.h"
#include "sftp/SFTPWindow.h"

#include <FileSystem/StorageSystemReadResult.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace Tarnis {

/// Reads a remote file in order with several requests under way.
///
/// The bytes handed out have no hole: what a short answer leaves out is asked for again before what
/// comes behind it is handed out. The file ends where the server says so, whatever later requests
/// were answered with.
///
/// Operations block on the server, letting others in between two requests and while it is not this
/// file's turn to ask, and throw handle_fatal_error("invalid") when the handle is invalid, unless
/// the SFTP session is lost: that is a failure. Why they fail is noted.
class SFTPReadAhead
{
public:
    SFTPReadAhead(std::shared_ptr<SSHHandleSFTPSessionFile> file, std::string path)
        : file_(std::move(file))
        , path_(std::move(path))
        , stream_(file_->lossMark())
    {}

    /// Where the file is thought to end; to be told before start(). Requests are cut there, so that
    /// the last bytes and the end of the file come in one round trip. A file that goes on is read
    /// on.
    void expectEnd(std::uint64_t offset) noexcept { expectedEnd_ = offset; }

    /// The next read() begins at this position. Nothing may be under way.
    void start(std::uint64_t offset);

    FileSystem::StorageSystemReadResult read(char* buffer, std::uint64_t size);

    /// Collects what is under way, so that no answer is left for others to find.
    void finish();

private:
    using Result = FileSystem::StorageSystemReadResult;

    struct Request
    {
        std::uint32_t id;
        std::uint64_t offset;
        std::uint32_t length;
    };

    struct Reply
    {
        int count;
        bool endOfFile;
    };

    std::uint64_t takeFromChunk(char* buffer, std::uint64_t size) noexcept;
    void fill();
    bool mayAsk() const noexcept;
    std::uint32_t nextLength() const noexcept;
    SFTPAttempt askNext();
    bool isItsTurn(sftp_file file, std::uint32_t length);
    SFTPAttempt ask(sftp_file file, std::uint64_t offset, std::uint32_t length,
                    std::deque<Request>& requests);
    bool askForMissing(const Request& request, std::uint32_t count);
    std::uint64_t collectNext(char* buffer, std::uint64_t size);
    std::uint32_t take(const Request& request, const Reply& reply);
    Reply collect(const Request& request, char* destination, bool isWanted);
    void learnFromShortReply(std::uint32_t count) noexcept;
    void end(Result::Status status);

    std::shared_ptr<SSHHandleSFTPSessionFile> file_;
    std::string path_;
    std::deque<Request> requests_;
    std::uint64_t bytesUnderWay_ = 0;
    std::uint64_t nextOffset_ = 0;
    std::uint64_t expectedEnd_ = 0; ///< 0: nobody knows.
    std::uint32_t requestSize_ = 0;
    std::uint32_t shortReply_ = 0;
    unsigned shortReplies_ = 0;
    SFTPWindow window_;
    SFTPReceiveWindow receiveWindow_;
    SFTPReplyStream stream_;
    Result::Status status_ = Result::Status::Complete;
    std::vector<char> chunk_; ///< An answer of which only a part was wanted so far.
    std::size_t chunkBegin_ = 0;
    std::size_t chunkEnd_ = 0;
};

} // namespace Tarnis
