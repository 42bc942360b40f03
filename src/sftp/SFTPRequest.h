#pragma once

#include <libssh/sftp.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace Tarnis {

// Requests that libssh has no function for, or one that waits for the reply only. To be called
// under the lock.

/// An identifier for a request that libssh does not make itself. Empty: the libssh at hand does not
/// give one, and would take the reply for a mistake.
/// \param file open or not: it stands for the SFTP session.
std::optional<std::uint32_t> newRequestId(sftp_file file) noexcept;

/// The type of a request that belongs to an extension.
inline constexpr std::uint8_t extendedPacket = 200;

/// Puts a request together, one field after the other.
class SFTPRequestWriter
{
public:
    /// What a text takes beside its bytes.
    static constexpr std::size_t textOverhead = 4;

    /// \param packet   becomes the request; its memory is kept for the next. It must outlive this.
    /// \param bodySize how much the fields take.
    SFTPRequestWriter(std::vector<char>& packet, std::uint8_t type, std::uint32_t id,
                      std::size_t bodySize);

    void number(std::uint32_t value) noexcept;
    void longNumber(std::uint64_t value) noexcept;
    void text(std::string_view bytes) noexcept;

private:
    void byte(std::uint8_t value) noexcept { *next_++ = static_cast<char>(value); }

    char* next_;
};

/// Sends a request and does not wait for its reply. False: it could not be sent.
bool sendRequest(sftp_session sftp, const std::vector<char>& packet) noexcept;

} // namespace Tarnis
