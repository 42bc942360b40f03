#pragma once

#include <vector>

#include <sys/types.h>

namespace TarnisTest {

/// The processes that `parent` started itself and that still run.
std::vector<pid_t> childrenOf(pid_t parent);

/// The processes that descend from `root`, which is not among them, as /proc shows them now:
/// parents before their children. A process whose parent ended counts only if it was adopted by
/// one of them.
std::vector<pid_t> descendantsOf(pid_t root);

/// Sends `signal` to every descendant of `root` and looks again until no descendant is left that
/// has not had it, so that a process forked in between does not get away. One descendant may be
/// spared; what it started is not.
void signalDescendants(pid_t root, int signal, pid_t spared = -1);

} // namespace TarnisTest
