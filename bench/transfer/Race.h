#pragma once

#include "Benchmarks.h"
#include "transfer/Contests.h"
#include "transfer/Line.h"

namespace TarnisBench {

/// Where the clients work, and on what.
struct Scene
{
    const BenchServer& server;
    const Line& line;
    Workload& workload;
    TransferEffort effort;
};

/// What came out of a contest: every client's figures, whether the bar was met, and whether
/// `tarnis` kept to its memory.
struct Outcome
{
    Section figures;
    Row bar;
    Row memory;
};

/// Lets the clients take turns, and looks at what each of them has done.
Outcome runContest(const Scene& scene, const Contest& contest);

} // namespace TarnisBench
