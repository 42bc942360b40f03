#include "Benchmarks.h"
#include "support/Probe.h"
#include "support/Require.h"

namespace TarnisBench {

namespace {

double bytesOf(const Bench& bench, const std::string& object, int count)
{
    const auto figures =
        figuresIn(runProbe(probeCommandLine(TARNIS_BENCH_PROBE, "memory", bench.server.login(),
                                            {object, std::to_string(count)}))
                      .output);
    require(figures.size() == 1, "reading a memory figure");
    return figures[0];
}

Row rowOf(const Bench& bench, const std::string& name, const std::string& object, int count)
{
    const double direct = bytesOf(bench, "libssh-" + object, count);
    const double tarnis = bytesOf(bench, "tarnis-" + object, count);
    return {name, "+" + formatNumber(tarnis - direct, 0) + " B",
            formatNumber(direct, 0) + " and " + formatNumber(tarnis, 0), tarnis / direct};
}

} // namespace

Sections measureMemory(const Bench& bench)
{
    const Effort& effort = bench.effort;
    Section section{
        "Memory of one idle object", "above libssh", "libssh's and Tarnis's", "ratio", {}};
    section.rows = {
        rowOf(bench, "session, not connected", "session", effort.idleSessions),
        rowOf(bench, "session, logged in", "login", effort.idleSessions),
        rowOf(bench, "channel", "channel", effort.idleChannels),
    };
    return {section};
}

} // namespace TarnisBench
