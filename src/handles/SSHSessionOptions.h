#pragma once

#include <libssh/libssh.h>

#include <string>

namespace Tarnis {

class SSHHandleSession;

/// Whether a text can be set as an option. libssh refuses an empty one only after it has dropped
/// the value that was set before.
bool isOptionText(const std::string& text);

/// Sets the name to log in with; false, and the former one stays, when libssh refuses it. Throws
/// handle_fatal_error("invalid") when the handle is invalid.
bool setUserNameOption(SSHHandleSession& session, const std::string& userName);

/// A copy of an option's text; empty when libssh has none. Throws handle_fatal_error("invalid")
/// when the handle is invalid.
std::string readTextOption(SSHHandleSession& session, ssh_options_e option);

} // namespace Tarnis
