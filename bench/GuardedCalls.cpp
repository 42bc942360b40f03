#include "Benchmarks.h"
#include "support/Probe.h"
#include "support/Require.h"

namespace TarnisBench {

namespace {

constexpr int fewCalls = 200;
constexpr int manyCalls = 1200;

/// The calls are counted in this function alone (CallProbe.cpp), not in the connecting before it.
constexpr const char* measuredFunction = "*measuredCalls*";

double collectedInstructions(const std::string& report)
{
    const std::string label = "Collected : ";
    const auto position = report.find(label);
    require(position != std::string::npos, "finding the figure in callgrind's report");
    return std::stod(report.substr(position + label.size()));
}

double instructionsOf(const Bench& bench, const std::string& call, int count)
{
    std::vector<std::string> commandLine{"valgrind", "--tool=callgrind",
                                         "--callgrind-out-file=/dev/null",
                                         std::string("--toggle-collect=") + measuredFunction};
    const auto probe = probeCommandLine(TARNIS_BENCH_PROBE, "calls", bench.server.login(),
                                        {call, std::to_string(count)});
    commandLine.insert(commandLine.end(), probe.begin(), probe.end());
    return collectedInstructions(runProbe(commandLine).errorOutput);
}

/// From two counts, so that what is done once cancels out.
double instructionsPerCall(const Bench& bench, const std::string& call)
{
    return (instructionsOf(bench, call, manyCalls) - instructionsOf(bench, call, fewCalls)) /
           (manyCalls - fewCalls);
}

Row rowOf(const Bench& bench, const std::string& call, double emptyLoop)
{
    const double direct = instructionsPerCall(bench, "libssh-" + call) - emptyLoop;
    const double tarnis = instructionsPerCall(bench, "tarnis-" + call) - emptyLoop;
    return {call, "+" + formatNumber(tarnis - direct, 0),
            formatNumber(direct, 0) + " and " + formatNumber(tarnis, 0), tarnis / direct};
}

} // namespace

Sections measureGuardedCalls(const Bench& bench)
{
    Section section{
        "Instructions of one call", "above libssh", "libssh's and Tarnis's", "ratio", {}};
    const double emptyLoop = instructionsPerCall(bench, "empty");
    for (const char* const call : {"isOpen", "bytesAvailable", "getExitCode"}) {
        section.rows.push_back(rowOf(bench, call, emptyLoop));
    }
    return {section};
}

} // namespace TarnisBench
