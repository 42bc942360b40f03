#pragma once

#include "login/ConnectionOptions.h"
#include "login/Target.h"

#include <Tarnis/SSHSession.h>

#include <string>

namespace TarnisTool {

/// Connects the session to the target and fills in the user name where the target has none. Throws
/// Failure, with a kind that tells what to do about it.
void connectTo(Tarnis::SSHSession& session, Target& target, const ReachOptions& options);

/// Puts another message in the place of the session's last one, and returns it: a failure in the
/// same words as the one before could not be told from no failure otherwise.
std::string forgetLastError(Tarnis::SSHSession& session);

/// Throws the Failure for a session that was lost while `what` was going on.
[[noreturn]] void throwConnectionLost(const Tarnis::SSHSession& session, const Target& target,
                                      const std::string& what);

} // namespace TarnisTool
