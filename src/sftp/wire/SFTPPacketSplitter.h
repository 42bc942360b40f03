#pragma once

#include "sftp/wire/SFTPPacketReceiver.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tarnis {

/// Finds the packets in the bytes of a channel, which come in pieces of any size. A packet that
/// lies in one piece is handed over where it lies, and so is the data of data replies, part by
/// part; other packets are put together here.
///
/// The first packet that cannot be right breaks this for good, as nobody knows where the next one
/// begins: one that is longer than the limit or too short, or a data reply with less in it than it
/// says. Nothing is handed over any more then.
class SFTPPacketSplitter
{
public:
    static constexpr std::uint32_t defaultLimit = std::uint32_t{1} << 20U;

    /// \param receiver has to outlive this. It must not call take(), and may call breakOff().
    /// \param limit    the longest packet that is taken, in bytes without the length in front.
    explicit SFTPPacketSplitter(SFTPPacketReceiver& receiver,
                                std::uint32_t limit = defaultLimit) noexcept
        : receiver_(receiver)
        , limit_(limit)
    {}

    SFTPPacketSplitter(const SFTPPacketSplitter&) = delete;
    SFTPPacketSplitter& operator=(const SFTPPacketSplitter&) = delete;
    ~SFTPPacketSplitter() = default;

    /// Takes the next bytes and hands over what they complete. What the receiver throws comes out
    /// here, and std::bad_alloc; this is broken then. False: it is broken.
    [[nodiscard]] bool take(std::string_view bytes);

    /// Breaks this, for the reason that the text gives; the first reason stays. For a receiver that
    /// has found out that the server cannot be trusted: nothing else of the bytes that came with
    /// the packet is handed over.
    void breakOff(std::string_view reason);

    bool isBroken() const noexcept { return isBroken_; }

    /// Why it is broken; empty while it is not, and after an exception.
    const std::string& reason() const noexcept { return reason_; }

    /// Whether a packet has begun and not ended, which none has once this is broken. Where the
    /// channel ends now, that packet was cut off.
    bool isInPacket() const noexcept;

private:
    void takeNext(std::string_view& bytes);
    void continueData(std::string_view& bytes);
    void skipPadding(std::string_view& bytes);
    void takePacketInPlace(std::string_view& bytes);
    void collectPacket(std::string_view& bytes);
    /// Whether a packet that begins so can be right; breaks this otherwise.
    bool isRight(std::string_view head);
    void checkLength(std::uint32_t length);
    void checkDataReply(std::string_view head);
    void handOver(std::string_view packet);
    void beginData(std::string_view head);

    SFTPPacketReceiver& receiver_;
    std::uint32_t limit_;
    std::string partial_;           ///< Of a packet that has begun, but for a data reply's data.
    std::uint32_t dataLeft_ = 0;    ///< Of a data reply that was begun.
    std::uint32_t paddingLeft_ = 0; ///< Behind the data of such a reply.
    bool isBroken_ = false;
    std::string reason_;
};

} // namespace Tarnis
