#pragma once

#include <string>
#include <string_view>

namespace TarnisTool {

/// Text that came from a server, made fit for a terminal and for one line: control characters would
/// let a hostile server move the cursor, rename the window or fake our messages.
std::string printable(std::string_view text);

/// One line on standard error, "tarnis: <text>", written in one piece so that it does not mix with
/// a remote command's error output.
void report(std::string_view text);

} // namespace TarnisTool
