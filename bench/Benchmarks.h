#pragma once

#include "support/BenchServer.h"
#include "support/Table.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace TarnisBench {

/// How much of it goes into files beside other programs.
struct TransferEffort
{
    /// What part of the full size is moved.
    double scale = 1;
    /// Without a delay; through a line with one, once.
    int rounds = 3;
    /// Of a file of a few KiB, on any line.
    int smallRounds = 9;
    /// Through a line with a delay, no peer works longer than this; its speed is then that of what
    /// was done.
    std::chrono::seconds peerLimit{60};
    /// Nobody works longer than this.
    std::chrono::seconds limit{900};
    /// The names of the contests that are run; with none, all of them.
    std::vector<std::string> contests;
};

/// How much work goes into the measurements.
struct Effort
{
    int commandRounds = 200;
    int connectRounds = 60;
    int transferRounds = 3;
    std::size_t transferBytes = std::size_t{1} << 30U;
    std::size_t plainBytes = std::size_t{64} << 20U;
    int plainRounds = 21;
    TransferEffort transfer;
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

/// The plain calls on an open remote file, beside libssh's own.
Sections measurePlain(const Bench& bench);

/// Files and listings, beside the programs that people use for them, near and far.
Sections measureTransfer(const Bench& bench);

/// Instructions that a call costs beside libssh's own.
Sections measureGuardedCalls(const Bench& bench);

/// Memory that a session and a channel cost beside libssh's own.
Sections measureMemory(const Bench& bench);

} // namespace TarnisBench
