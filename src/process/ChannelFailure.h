#pragma once

#include <FileSystem/Failure.h>

#include <libssh/libssh.h>

namespace Tarnis {

/// Notes why the last libssh call on a channel failed, as noteTransportFailure() does;
/// ConnectionLost also where the channel alone has gone. To be called under the session's lock, at
/// once. False.
bool noteChannelFailure(ssh_channel channel,
                        FileSystem::FailureCode otherwise = FileSystem::FailureCode::Other);

} // namespace Tarnis
