#pragma once

#include <FileSystem/Failure.h>

#include <libssh/libssh.h>

#include <string>

namespace Tarnis {

class SSHHandleSession;

/// libssh's text for the last failure on a session, copied; empty where it has none, and without a
/// session.
std::string transportText(ssh_session session);

/// The same as a failure's text, which is empty where libssh only makes one up for a connection
/// that has gone.
std::string transportFailureText(ssh_session session);

// Notes for FileSystem::Failure::last() why a libssh call has just failed, with libssh's text and
// error code. libssh keeps one reason for a session and all that was made from it, and the next
// call may replace it: to be called under the lock that the failed call was made under. Each
// returns false, as FileSystem::fail() does, and does nothing outside a public operation.
//
// ConnectionLost where the connection has gone; Denied where the server refused; `otherwise` where
// libssh says neither.

/// A session of libssh's; without one, nothing is left of the connection.
bool noteTransportFailure(ssh_session session,
                          FileSystem::FailureCode otherwise = FileSystem::FailureCode::Other,
                          std::string entry = {});

/// The same by the session's handle, whose lock it takes; ConnectionLost for an invalid one.
bool noteTransportFailure(SSHHandleSession& session,
                          FileSystem::FailureCode otherwise = FileSystem::FailureCode::Other,
                          std::string entry = {});

/// The code alone, for who has asked for the text already.
FileSystem::FailureCode transportFailureCode(ssh_session session,
                                             FileSystem::FailureCode otherwise);

/// ConnectionLost for a channel or a session that has gone where libssh has nothing to say of it.
bool noteConnectionLost(std::string text = {});

} // namespace Tarnis
