#pragma once

#include <libssh/libssh.h>

#include <set>
#include <string>

namespace Tarnis {

class SSHHandleSession;

/// The methods that the server has last said can continue, by the protocol's names; empty when it
/// has not said yet. To be called under the session's lock.
std::set<std::string> offeredMethods(ssh_session session);

/// Whether the connection has ended, or the server broke the protocol and libssh listens to it no
/// more. In both cases libssh itself goes on waiting for an answer.
bool canNeverAnswer(ssh_session session);

/// Notes for FileSystem::Failure::last() why an attempt to log in that libssh answered with
/// `answer` let nobody in. To be called under the lock that the attempt was made under.
void noteLoginFailure(SSHHandleSession& session, int answer);

} // namespace Tarnis
