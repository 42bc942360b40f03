#pragma once

#include <Tarnis/SSHFailureCode.h>

#include <string>
#include <system_error>

namespace Tarnis {

/// What is known of an attempt to connect that failed.
struct ConnectFacts
{
    bool hasHostName = true;
    bool wasInterrupted = false;
    bool isTimeUp = false;
    /// Whether libssh came so far as to open a socket.
    bool hasSocket = false;
    /// The line by which the server identified itself; empty when none arrived.
    std::string serverIdentification;
    /// libssh's message.
    std::string text;
    /// The same for people, without what libssh makes up.
    std::string shownText;
};

/// The kind of failure that it is: by what is known, and by libssh's message only where nothing
/// else tells. The one place where messages about connecting are looked at.
std::error_code classifyConnectFailure(const ConnectFacts& facts);

/// Whether libssh itself has given the key exchange up and forgotten why. It closes the socket
/// then, and where something was still to be sent, that this fails takes the place of the reason
/// (seen in 0.10.6, where the server's offer comes between its identification and the next look at
/// the socket). Another attempt tells the reason.
bool isReasonForgotten(const ConnectFacts& facts);

/// Notes the failure for FileSystem::Failure::last().
/// \param number libssh's code for it.
/// \param where the host and port that the attempt went to.
void noteConnectFailure(const ConnectFacts& facts, int number, std::string where);

} // namespace Tarnis
