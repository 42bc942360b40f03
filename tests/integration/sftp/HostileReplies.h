#pragma once

#include "support/sftp/SftpRule.h"

#include <vector>

namespace TarnisTest {

/// What becomes of libssh's SFTP session.
enum class Aftermath
{
    Usable, ///< It goes on as before.
    Ended,  ///< The client has given it up, without waiting for anything.
    Any,    ///< Nobody can say.
};

/// Something that can be wrong with a reply.
struct Flaw
{
    const char* name;
    SftpAction action;
    /// To requests of these kinds it is a lie that cannot be told from the truth.
    std::vector<SftpPacket> plausibleTo;
    /// Whether the client may be right to wait for more.
    bool mayWait = false;
    Aftermath aftermath = Aftermath::Usable;
};

/// Requests whose reply has nothing but a status to tell.
const std::vector<SftpPacket>& statusRequests();

/// Of another kind than what was asked for, or with numbers in them that nothing has.
std::vector<Flaw> wrongReplies();

/// Of the right kind, but not as long, as often or as soon as they should be.
std::vector<Flaw> wrongPackets();

} // namespace TarnisTest
