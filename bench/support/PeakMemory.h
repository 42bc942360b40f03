#pragma once

#include <string>

#include <sys/types.h>

namespace TarnisBench {

/// The most memory in KiB that a running process has occupied so far; 0 once it has ended. (The
/// figure of getrusage would not do: a child begins with its parent's.)
long peakMemoryKiB(pid_t process);

} // namespace TarnisBench
