#pragma once

#include "login/ConnectionOptions.h"
#include "login/Target.h"

#include <FileSystem/Failure.h>
#include <Tarnis/SSHSession.h>

#include <string>

namespace TarnisTool {

/// Connects the session to the target and fills in the user name where the target has none. Throws
/// Failure, with a kind that tells what to do about it.
void connectTo(Tarnis::SSHSession& session, Target& target, const ReachOptions& options);

/// Throws the Failure for a session that was lost while `what` was going on.
/// \param why what is known of it; may be no failure.
[[noreturn]] void throwConnectionLost(const Target& target, const std::string& what,
                                      const FileSystem::Failure& why);

} // namespace TarnisTool
