#pragma once

#include "sftp/wire/SFTPProtocol.h"

#include <cstdint>
#include <string_view>

namespace Tarnis {

/// A packet as it came.
struct SFTPPacket
{
    SFTPPacketType type;     ///< Any number that the server sent.
    std::uint32_t id;        ///< 0 in a version packet, which has none.
    std::string_view fields; ///< What follows the identifier.
};

/// Gets what a SFTPPacketSplitter finds. Bytes are valid during the call only.
class SFTPPacketReceiver
{
public:
    SFTPPacketReceiver() = default;
    SFTPPacketReceiver(const SFTPPacketReceiver&) = delete;
    SFTPPacketReceiver& operator=(const SFTPPacketReceiver&) = delete;
    virtual ~SFTPPacketReceiver() = default;

    /// A whole packet of any type but Data.
    virtual void packet(const SFTPPacket& packet) = 0;

    /// A data reply has begun. Nothing but its data and its end comes next.
    virtual void dataBegins(std::uint32_t id, std::uint32_t size) = 0;

    /// The next of the reply's bytes, one at least.
    virtual void dataContinues(std::string_view bytes) = 0;

    /// All of its bytes have come.
    virtual void dataEnds() = 0;
};

} // namespace Tarnis
