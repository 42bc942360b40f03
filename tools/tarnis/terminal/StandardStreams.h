#pragma once

namespace TarnisTool {

/// To be called first. Opens /dev/null in the place of standard streams that are closed, or the
/// connection could end up with their numbers and get what was meant for them: input is at its end,
/// output cannot be written, what would go to standard error is lost. And makes writing to a pipe
/// without a reader, or beyond the largest size that a file may have, an error instead of the
/// program's end.
void prepareStandardStreams();

/// Whether a descriptor is that of a standard stream that was closed when the program began.
bool wasClosed(int descriptor) noexcept;

/// Puts /dev/null in the place of standard input.
void closeStandardInput();

/// Waits for what was written to standard output. Throws Failure when it did not get there.
void flushOutput();

} // namespace TarnisTool
