#pragma once

#include <string>
#include <string_view>

namespace TarnisTool {

/// A name as it may go to a terminal: a "?" in the place of each character that would control it,
/// those of the second set (C1) included. Everything else, letters of other scripts too, stays.
std::string withoutControls(std::string_view text);

/// Text that came from a server, made fit for a terminal and for one line: control characters would
/// let a hostile server move the cursor, rename the window or fake our messages.
std::string printable(std::string_view text);

/// The line that report() writes, for whoever cannot make one when it is needed.
std::string reportLine(std::string_view text);

/// One line on standard error, "tarnis: <text>", written in one piece so that it does not mix with
/// a remote command's error output.
void report(std::string_view text);

/// The same for what is no failure and no warning: nothing where the user wants quiet.
void reportNote(std::string_view text);

/// From now on there are no notes and no progress: failures and warnings alone.
void beQuiet() noexcept;
bool isQuiet() noexcept;

} // namespace TarnisTool
