#pragma once

#include "support/BenchServer.h"
#include "support/Table.h"
#include "transfer/Workload.h"

#include <chrono>
#include <cstddef>
#include <vector>

namespace TarnisBench {

/// The same for moving files.
struct TransferEffort
{
    WorkloadSize size;
    int rounds = 3;
    /// Through a line with a delay, once, and no longer than this.
    std::chrono::seconds delayedLimit{20};
    /// For a listing, which shows nothing before its end.
    std::chrono::seconds delayedListingLimit{150};
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

/// One large file beside `sftp`, each with the cipher that it takes by default.
Sections measureBesideSftp(const Bench& bench);

/// Files and listings, beside the programs that people use for them, near and far.
Sections measureTransfer(const Bench& bench);

/// Instructions that a call costs beside libssh's own.
Sections measureGuardedCalls(const Bench& bench);

/// Memory that a session and a channel cost beside libssh's own.
Sections measureMemory(const Bench& bench);

} // namespace TarnisBench
