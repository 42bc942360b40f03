#pragma once

#include <libssh/libssh.h>

#include <string>
#include <string_view>

namespace Tarnis {

class SSHHandleSession;

/// Whether a text can be set as an option. libssh refuses an empty one only after it has dropped
/// the value that was set before.
bool isOptionText(const std::string& text);

/// Whether a name can be that of a user: none that a shell would read something else into. Newer
/// versions of libssh refuse the same ones, and older ones where a distribution has seen to it.
bool isUserName(std::string_view name);

/// Whether a text can name a host, as far as the user's name goes that may stand before it.
bool isHostText(const std::string& text);

/// Sets the name to log in with. False: it can be none, nothing was changed; or libssh alone
/// refuses it, then the former one stays, or the local user's where none was set. Throws
/// handle_fatal_error("invalid") when the handle is invalid.
bool setUserNameOption(SSHHandleSession& session, const std::string& userName);

/// A copy of an option's text; empty when libssh has none. Throws handle_fatal_error("invalid")
/// when the handle is invalid.
std::string readTextOption(SSHHandleSession& session, ssh_options_e option);

} // namespace Tarnis
