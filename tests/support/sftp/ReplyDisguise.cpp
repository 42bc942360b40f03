#include "support/sftp/ReplyDisguise.h"

#include <algorithm>
#include <utility>

namespace TarnisTest {

namespace {

using Kind = SftpAction::Kind;

// libssh numbers its requests from 1 upwards, OpenSSH's client too.
constexpr std::uint32_t kIdOfNobody = 0xfffffff0;

// The data of a Data reply, changed.
template <typename Change>
void changeData(SftpMessage& reply, Change change)
{
    if (reply.type == SftpPacket::Data) {
        std::string data = SftpReader(reply.body).text();
        change(data);
        reply.body = SftpWriter().text(data).bytes();
    }
}

void changeMessage(SftpMessage& reply, const SftpAction& action)
{
    const auto number = static_cast<std::size_t>(action.number);
    switch (action.kind) {
    case Kind::ShortenData:
        changeData(reply, [=](std::string& data) { data.resize(std::min(data.size(), number)); });
        break;
    case Kind::LengthenData:
        changeData(reply, [=](std::string& data) { data.append(number, '!'); });
        break;
    case Kind::Truncate:
        reply.body.resize(reply.body.size() - std::min(reply.body.size(), number));
        break;
    case Kind::Pad:
        reply.body.append(number, '!');
        break;
    case Kind::WrongId:
        reply.id = kIdOfNobody;
        break;
    default:
        break;
    }
}

void changeBytes(SftpReply& reply, const SftpMessage& message, const SftpAction& action)
{
    const auto number = static_cast<std::size_t>(action.number);
    switch (action.kind) {
    case Kind::SendRaw:
        reply.bytes = action.bytes;
        break;
    case Kind::ClaimLength:
        reply.bytes.replace(0, 4, SftpWriter().number(static_cast<std::uint32_t>(number)).bytes());
        break;
    case Kind::Duplicate:
        reply.bytes += std::string(reply.bytes);
        break;
    case Kind::StrayBefore:
        reply.bytes.insert(0, encodeSftp({message.type, kIdOfNobody, message.body}));
        break;
    case Kind::BreakOff:
        reply.bytes.resize(std::min(reply.bytes.size(), number));
        reply.isLast = true;
        break;
    default:
        break;
    }
}

} // namespace

SftpReply disguise(const SftpEvent& request, SftpMessage reply,
                   const std::vector<SftpAction>& actions)
{
    reply.id = request.id;
    for (const SftpAction& action : actions) {
        changeMessage(reply, action);
    }
    SftpReply result{request, encodeSftp(reply)};
    result.event.kind = SftpEvent::Kind::Answered;
    result.event.reply = reply.type;
    for (const SftpAction& action : actions) {
        changeBytes(result, reply, action);
    }
    return result;
}

} // namespace TarnisTest
