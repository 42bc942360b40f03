#pragma once

#include "support/BenchServer.h"
#include "support/Table.h"

#include <cstddef>
#include <vector>

namespace TarnisBench {

/// How much work goes into the measurements.
struct Effort
{
    int commandRounds = 200;
    int connectRounds = 60;
    int transferRounds = 3;
    std::size_t transferBytes = std::size_t{1} << 30U;
    int idleSessions = 50;
    int idleChannels = 500;

    /// Enough to see whether everything works; the figures are coarse.
    static Effort quick();
};

/// What every measurement gets.
struct Bench
{
    const BenchServer& server;
    Effort effort;
};

using Sections = std::vector<Section>;

/// `true` on a session that is open.
Sections measureOpenSessionCommand(const Bench& bench);

/// From nothing to logged in.
Sections measureConnectAndLogIn(const Bench& bench);

/// Much data through `cat` and back: speed and memory.
Sections measureThroughput(const Bench& bench);

/// Instructions that a call costs beside libssh's own.
Sections measureGuardedCalls(const Bench& bench);

/// Memory that a session and a channel cost beside libssh's own.
Sections measureMemory(const Bench& bench);

} // namespace TarnisBench
