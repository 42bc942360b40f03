#pragma once

#include "support/ChildProcess.h"
#include "support/ScriptedSftp.h"
#include "support/sftp/SftpWire.h"

#include <vector>

namespace TarnisTest {

/// Requests for a scripted SFTP server that arrive all at once, without SSH in between: what comes
/// back is seen byte for byte. Ids are counted from 1; the first request opens the session.
class SftpBatch
{
public:
    /// Opens the session.
    SftpBatch();

    /// Adds a request with this body and returns its id.
    std::uint32_t add(SftpPacket type, const SftpWriter& body);
    std::uint32_t add(SftpPacket type, const std::string& path);
    std::uint32_t open(const std::string& path, std::uint32_t flags);
    /// Of the file that this batch opened first.
    std::uint32_t read(std::uint64_t offset, std::uint32_t length);
    std::uint32_t write(std::uint64_t offset, const std::string& data);

    /// Sends it all, closes the input and waits for the server to end.
    void run(const ScriptedSftp& server);

    /// The server's output, packet by packet.
    const std::vector<SftpMessage>& replies() const { return replies_; }

    /// What is left of the output: no whole packet.
    const std::string& remainder() const { return remainder_; }

    /// The ids of the replies in the order they came, without the first, which has none.
    std::vector<std::uint32_t> order() const;
    /// The reply with this id. Throws std::out_of_range when there is none.
    SftpMessage replyTo(std::uint32_t id) const;
    /// The status in the reply with this id. Throws std::runtime_error when it is no Status.
    SftpStatus statusOf(std::uint32_t id) const;
    /// The bytes of a Data reply. Throws std::runtime_error when it is none.
    std::string dataOf(std::uint32_t id) const;
    /// The names in a Name reply. Throws std::runtime_error when it is none.
    std::vector<std::string> namesOf(std::uint32_t id) const;

private:
    SftpReader body(const SftpMessage& reply, SftpPacket expected) const;

    std::string input_;
    std::uint32_t count_ = 0;
    std::vector<SftpMessage> replies_;
    std::string remainder_;
};

} // namespace TarnisTest
