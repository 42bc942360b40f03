#pragma once

#include <cstddef>

namespace TarnisTool {

// For writing without ever waiting inside of a write. Making a descriptor non-blocking instead
// would change it for every process that shares it.

/// How many bytes a descriptor takes at once without waiting, when it is ready: a pipe little, a
/// file anything.
std::size_t largestReadyWrite(int descriptor);

/// Whether a write would not wait: the other side takes something, or is gone. Waits for that so
/// long; negative: without an end. False also when a signal arrives meanwhile.
bool isReadyToWrite(int descriptor, int milliseconds);

} // namespace TarnisTool
