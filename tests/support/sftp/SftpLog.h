#pragma once

#include "support/sftp/SftpProtocol.h"

#include <cstdint>
#include <string>
#include <vector>

namespace TarnisTest {

/// Something that an SFTP server saw or did.
struct SftpEvent
{
    enum class Kind : std::uint8_t
    {
        Received, ///< a request has arrived; `request`, `id` and the fields below tell which
        Answered, ///< its reply has gone out; `reply` tells which
    };

    Kind kind = Kind::Received;
    /// The process of the server, one for each SFTP session.
    int session = 0;
    SftpPacket request = SftpPacket::Any;
    std::uint32_t id = 0;
    /// Read and Write: of the request, not of the reply.
    std::uint64_t offset = 0;
    std::uint32_t length = 0;
    /// The path that the request names, or that its handle was opened for. Empty where there is
    /// none.
    std::string path;
    SftpPacket reply = SftpPacket::Any;
};

/// Appends events to a file that others may append to and read at the same time.
class SftpLogWriter
{
public:
    /// Throws std::system_error when the file cannot be opened.
    explicit SftpLogWriter(const std::string& path);
    SftpLogWriter(const SftpLogWriter&) = delete;
    SftpLogWriter& operator=(const SftpLogWriter&) = delete;
    ~SftpLogWriter();

    void add(const SftpEvent& event) const;

private:
    int file_;
};

/// The events that stand in the file by now, in the order they happened.
std::vector<SftpEvent> readSftpLog(const std::string& path);

} // namespace TarnisTest
