#pragma once

#include "login/ConnectionOptions.h"
#include "login/Target.h"

#include <Tarnis/SSHSession.h>

#include <string>

namespace TarnisTool {

/// Connects the session to the target and fills in the user name where the target has none. Throws
/// Failure, with a kind that tells what to do about it.
void connectTo(Tarnis::SSHSession& session, Target& target, const ReachOptions& options);

/// The session keeps the message of its last failure until another one takes its place, so whether
/// an operation has left a message cannot be told afterwards: it may be an older failure's, in the
/// same words even. This puts a message in place that no operation leaves, by a setting that is
/// refused and changes nothing else, and returns it: where getLastError() gives something else
/// later, it is what an operation since has left.
std::string forgetLastError(Tarnis::SSHSession& session);

/// Throws the Failure for a session that was lost while `what` was going on.
[[noreturn]] void throwConnectionLost(const Tarnis::SSHSession& session, const Target& target,
                                      const std::string& what);

} // namespace TarnisTool
