#pragma once

#include <libssh/libssh.h>

#include <string>

namespace Tarnis {

class SSHHandleSession;

/// A copy of an option's text; empty when libssh has none. Throws handle_fatal_error("invalid")
/// when the handle is invalid.
std::string readTextOption(SSHHandleSession& session, ssh_options_e option);

} // namespace Tarnis
