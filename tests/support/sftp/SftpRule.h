#pragma once

#include "support/sftp/SftpProtocol.h"

#include <cstdint>
#include <limits>
#include <string>
#include <utility>

namespace TarnisTest {

/// Requests that a rule is for: those of one kind, counted from 1 in each session since the script
/// came into force.
struct SftpOccasion
{
    static constexpr std::uint64_t kForever = std::numeric_limits<std::uint64_t>::max();

    SftpPacket request = SftpPacket::Any;
    std::uint64_t first = 1;
    std::uint64_t count = kForever;
    /// If not empty, only requests count whose path, or the path of whose handle, ends so.
    std::string pathEnd{};
    /// From the first on, each `step`th one only; `count` counts these.
    std::uint64_t step = 1;
};

/// Every request of a kind.
inline SftpOccasion every(SftpPacket request)
{
    return {request};
}

/// The `number`th request of a kind, and no other.
inline SftpOccasion nth(SftpPacket request, std::uint64_t number)
{
    return {request, number, 1};
}

/// The `number`th request of a kind and all after it.
inline SftpOccasion from(SftpPacket request, std::uint64_t number)
{
    return {request, number};
}

/// The `number`th request of a kind, and after it every second one.
inline SftpOccasion everyOther(SftpPacket request, std::uint64_t number)
{
    return {request, number, SftpOccasion::kForever, {}, 2};
}

/// The same occasion, for one path.
inline SftpOccasion onPath(SftpOccasion occasion, std::string pathEnd)
{
    occasion.pathEnd = std::move(pathEnd);
    return occasion;
}

/// What happens on an occasion. Made by the functions below.
struct SftpAction
{
    enum class Kind : std::uint8_t
    {
        Refuse,
        Pretend,
        Answer,
        SendRaw,
        ClaimLength,
        Duplicate,
        ShortenData,
        LengthenData,
        Truncate,
        Pad,
        BreakOff,
        StrayBefore,
        WrongId,
        Silence,
        Hold,
        StopAnswering,
        StopReading,
        Exit,
        LinkInstead,
    };

    Kind kind = Kind::Refuse;
    /// A status, a packet type, a size or a count, as the kind says.
    std::uint64_t number = 0;
    std::string bytes{};
};

namespace SftpActions {

/// Not carried out, but answered with this status: a refusal, or with Ok a lie.
inline SftpAction refuse(SftpStatus status)
{
    return {SftpAction::Kind::Refuse, static_cast<std::uint64_t>(status)};
}

/// Carried out, and answered with this status whatever came out.
inline SftpAction pretend(SftpStatus status)
{
    return {SftpAction::Kind::Pretend, static_cast<std::uint64_t>(status)};
}

/// Not carried out, but answered with this packet: the right request id, and `body` after it.
inline SftpAction answer(SftpPacket type, std::string body)
{
    return {SftpAction::Kind::Answer, static_cast<std::uint64_t>(type), std::move(body)};
}

/// Not carried out; these bytes go over the line as they are, in place of a packet.
inline SftpAction sendRaw(std::string bytes)
{
    return {SftpAction::Kind::SendRaw, 0, std::move(bytes)};
}

/// The length in front of the reply says `length`, whatever the packet has.
inline SftpAction claimLength(std::uint32_t length)
{
    return {SftpAction::Kind::ClaimLength, length};
}

/// The reply goes out twice.
inline SftpAction duplicate()
{
    return {SftpAction::Kind::Duplicate};
}

/// A Data reply holds at most `size` bytes; 0: none.
inline SftpAction shortenData(std::uint64_t size)
{
    return {SftpAction::Kind::ShortenData, size};
}

/// A Data reply holds `count` bytes more than were read.
inline SftpAction lengthenData(std::uint64_t count)
{
    return {SftpAction::Kind::LengthenData, count};
}

/// The reply lacks its last `count` bytes; its length agrees.
inline SftpAction truncate(std::uint64_t count)
{
    return {SftpAction::Kind::Truncate, count};
}

/// The reply has `count` bytes more at its end; its length agrees.
inline SftpAction pad(std::uint64_t count)
{
    return {SftpAction::Kind::Pad, count};
}

/// The first `count` bytes of the reply go out, and the session ends.
inline SftpAction breakOff(std::uint64_t count)
{
    return {SftpAction::Kind::BreakOff, count};
}

/// Before the reply, a copy of it goes out under the id of no request.
inline SftpAction strayBefore()
{
    return {SftpAction::Kind::StrayBefore};
}

/// The reply goes out under the id of no request, and the request stays unanswered.
inline SftpAction wrongId()
{
    return {SftpAction::Kind::WrongId};
}

/// Carried out and never answered; the next request is answered again.
inline SftpAction silence()
{
    return {SftpAction::Kind::Silence};
}

/// Answered when the next request arrives.
inline SftpAction hold()
{
    return {SftpAction::Kind::Hold};
}

/// From this request on nothing is answered, though requests are read and carried out. The replies
/// go out when another script comes into force.
inline SftpAction stopAnswering()
{
    return {SftpAction::Kind::StopAnswering};
}

/// From this request on nothing is carried out or even read, until another script comes into force.
inline SftpAction stopReading()
{
    return {SftpAction::Kind::StopReading};
}

/// The session ends, without an answer.
inline SftpAction exit()
{
    return {SftpAction::Kind::Exit};
}

/// Just before it is carried out, what stands at the request's path is set aside, under its name
/// with ".aside" behind it, and a symbolic link to `target` takes its place.
inline SftpAction linkInstead(std::string target)
{
    return {SftpAction::Kind::LinkInstead, 0, std::move(target)};
}

} // namespace SftpActions

/// On this occasion, this happens.
struct SftpRule
{
    SftpOccasion occasion;
    SftpAction action;
};

} // namespace TarnisTest
