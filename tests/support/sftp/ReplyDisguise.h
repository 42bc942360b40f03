#pragma once

#include "support/sftp/ReplyQueue.h"
#include "support/sftp/SftpRule.h"
#include "support/sftp/SftpWire.h"

#include <vector>

namespace TarnisTest {

/// Turns the reply to a request into what the actions want to go over the line instead. Actions
/// that are about more than the reply's bytes are left to the session.
SftpReply disguise(const SftpEvent& request, SftpMessage reply,
                   const std::vector<SftpAction>& actions);

} // namespace TarnisTest
