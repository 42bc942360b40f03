#include "Benchmarks.h"
#include "support/Bars.h"
#include "support/Require.h"
#include "transfer/Contests.h"
#include "transfer/DirectPaths.h"
#include "transfer/Line.h"
#include "transfer/Race.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <utility>

namespace TarnisBench {

namespace {

constexpr double bytesPerMegabyte = 1e6;

Section lineSection(std::chrono::milliseconds roundTrip)
{
    constexpr double leastSpeed = 100;
    const LineQuality quality = measureLine(roundTrip);
    const double speed = quality.bytesPerSecond / bytesPerMegabyte;
    require(quality.roundTripMilliseconds >= static_cast<double>(roundTrip.count()),
            "delaying the line");
    require(speed >= leastSpeed, "carrying enough through the line");
    Section section{"The line", "round trip", "carries", "", {}};
    section.rows.push_back({"set to " + std::to_string(roundTrip.count()) + " ms",
                            formatNumber(quality.roundTripMilliseconds, 1) + " ms",
                            formatNumber(speed, 0) + " MB/s", std::nullopt});
    return section;
}

/// A server and the way to it.
struct Endpoint
{
    Endpoint(const std::string& serverOptions, std::chrono::milliseconds roundTrip)
        : server(serverOptions)
        , line(server.login().port, roundTrip)
    {}

    BenchServer server;
    Line line;
};

/// The endpoints that contests ask for, made when they are asked for the first time.
class Endpoints
{
public:
    /// \param sections gets what a new line does.
    const Endpoint& endpointFor(const Contest& contest, Sections& sections)
    {
        auto& endpoint = endpoints_[{contest.cipher, contest.roundTrip}];
        if (endpoint == nullptr) {
            const std::string cipher(contest.cipher);
            endpoint = std::make_unique<Endpoint>(cipher.empty() ? "" : "Ciphers " + cipher + "\n",
                                                  contest.roundTrip);
            if (endpoint->line.isDelayed()) {
                sections.push_back(lineSection(contest.roundTrip));
            }
        }
        return *endpoint;
    }

private:
    std::map<std::pair<std::string, std::chrono::milliseconds>, std::unique_ptr<Endpoint>>
        endpoints_;
};

bool isWanted(const TransferEffort& effort, const std::string& name)
{
    const auto& names = effort.contests;
    return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

Sections measurePlain(const Bench& bench)
{
    constexpr double leastOfLibssh = 0.95;
    const Effort& effort = bench.effort;
    Section section{
        "Plain calls on an open remote file", "ours", "libssh directly", "of speeds", {}};
    Section bars = barsSection();
    for (const auto& path :
         measurePlainPaths(bench.server, effort.plainBytes, effort.plainRounds)) {
        section.rows.push_back(
            {path.name, formatNumber(path.tarnisBytesPerSecond / bytesPerMegabyte, 0) + " MB/s",
             formatNumber(path.directBytesPerSecond / bytesPerMegabyte, 0) + " MB/s", path.ratio});
        bars.rows.push_back(barOfSpeeds(path.name + ", ours to libssh", path.ratio, leastOfLibssh));
    }
    return {section, bars};
}

Sections measureTransfer(const Bench& bench)
{
    const TransferEffort& effort = bench.effort.transfer;
    const TarnisTest::TemporaryDirectory directory;
    Workload workload(directory, effort.scale);
    Endpoints endpoints;
    Section bars = barsSection();
    Section memory{"Memory of tarnis", "", "", "MiB", {}};
    Sections sections;
    for (const Contest& contest : allContests()) {
        if (isWanted(effort, contest.name)) {
            const Endpoint& endpoint = endpoints.endpointFor(contest, sections);
            const Outcome outcome =
                runContest({endpoint.server, endpoint.line, workload, effort}, contest);
            // The whole takes long: what is known already is shown meanwhile.
            printTable(std::cerr, {outcome.figures});
            sections.push_back(outcome.figures);
            bars.rows.push_back(outcome.bar);
            memory.rows.push_back(outcome.memory);
        }
    }
    sections.insert(sections.end(), {bars, memory});
    return sections;
}

} // namespace TarnisBench
