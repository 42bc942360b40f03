#include "Benchmarks.h"
#include "support/Bars.h"
#include "support/Interleaved.h"
#include "support/Require.h"
#include "transfer/ClientRun.h"
#include "transfer/Clients.h"
#include "transfer/DirectPaths.h"
#include "transfer/Line.h"
#include "transfer/Workload.h"

#include <algorithm>
#include <iostream>
#include <utility>

namespace TarnisBench {

namespace {

using Kind = Errand::Kind;
using End = ClientRun::End;

constexpr double bytesPerMegabyte = 1e6;
constexpr double kibPerMib = 1024;

// All of them know these; libssh2, which curl uses, knows little more.
constexpr const char* commonAlgorithms = "KexAlgorithms curve25519-sha256\n"
                                         "Ciphers aes256-ctr\n"
                                         "MACs hmac-sha2-256\n";

// Nobody needs that long without a delay.
constexpr std::chrono::seconds nearLimit{600};

/// The program that is compared with the others, by its place among them.
constexpr std::size_t ours = 0;
constexpr std::size_t firstPeer = 2;

/// One run of one client.
struct Result
{
    ClientRun run;
    /// Bytes, files or entries that arrived.
    double moved = 0;
    bool isWrong = false;

    double speed() const { return run.end == End::Failed || isWrong ? 0 : moved / run.seconds; }
};

/// How a kind of errand is spoken of.
struct Measure
{
    Kind kind;
    std::string title;
    std::string unit;
    /// What the figures are divided by.
    double unitSize;
    int digits;
};

std::vector<Measure> measuresOf(const WorkloadSize& size)
{
    constexpr unsigned bytesToMibShift = 20;
    const std::string file = std::to_string(size.fileBytes >> bytesToMibShift) + " MiB";
    const std::string files = std::to_string(size.treeFiles) + " files of " +
                              std::to_string(size.treeFileBytes) + " bytes";
    const std::string entries = std::to_string(size.listedEntries) + " entries";
    return {
        {Kind::GetFile, file + " down", "MB/s", bytesPerMegabyte, 1},
        {Kind::PutFile, file + " up", "MB/s", bytesPerMegabyte, 1},
        {Kind::GetTree, files + " down", "files/s", 1, 1},
        {Kind::PutTree, files + " up", "files/s", 1, 1},
        {Kind::List, "listing " + entries, "entries/s", 1, 0},
    };
}

/// Where and on what the clients work.
struct Scene
{
    const BenchServer& server;
    const Workload& workload;
    const Line& line;
    Login login;
    std::chrono::seconds limit;
    std::chrono::seconds listingLimit;
};

Errand errandOf(Kind kind, const Workload& workload)
{
    switch (kind) {
    case Kind::GetFile:
        return {kind, workload.target(), workload.file(), 1};
    case Kind::PutFile:
        return {kind, workload.file(), workload.target(), 1};
    case Kind::GetTree:
        return {kind, workload.target(), workload.tree(), workload.size().treeFiles};
    case Kind::PutTree:
        return {kind, workload.tree(), workload.target(), workload.size().treeFiles};
    case Kind::List:
        break;
    }
    // A local path that is not used.
    return {kind, workload.target(), workload.listed(), workload.size().listedEntries};
}

TarnisTest::TcpProxy::Direction directionOf(Kind kind)
{
    return kind == Kind::PutFile ? TarnisTest::TcpProxy::ToServer : TarnisTest::TcpProxy::ToClient;
}

bool isRight(Kind kind, const Workload& workload, const std::string& output)
{
    switch (kind) {
    case Kind::GetFile:
    case Kind::PutFile:
        return workload.holdsFile();
    case Kind::GetTree:
    case Kind::PutTree:
        return workload.holdsTree();
    case Kind::List:
        break;
    }
    return workload.isListing(output);
}

double wholeOf(Kind kind, const WorkloadSize& size)
{
    switch (kind) {
    case Kind::GetFile:
    case Kind::PutFile:
        return static_cast<double>(size.fileBytes);
    case Kind::GetTree:
    case Kind::PutTree:
        return static_cast<double>(size.treeFiles);
    case Kind::List:
        break;
    }
    return static_cast<double>(size.listedEntries);
}

/// What arrived before a client was stopped.
double partOf(Kind kind, const Workload& workload, std::uint64_t carriedBytes)
{
    switch (kind) {
    case Kind::GetFile:
    case Kind::PutFile:
        // Some make a file as long as it is to be before they fill it, so the line is asked.
        return static_cast<double>(
            std::min<std::uint64_t>(carriedBytes, workload.size().fileBytes));
    case Kind::GetTree:
    case Kind::PutTree:
        return static_cast<double>(workload.filesHeld());
    case Kind::List:
        break;
    }
    return 0;
}

void tellFailure(const Client& client, const ClientCommand& command, const std::string& what)
{
    std::cerr << client.name << ": " << what << ":\n"
              << TarnisTest::readFile(command.errorFile) << std::endl;
}

Result runErrand(const Scene& scene, const Client& client, Kind kind,
                 const std::vector<std::string>& arguments)
{
    const auto& directory = scene.server.directory();
    const auto before = scene.line.carriedBytes(directionOf(kind));
    const ClientCommand command{arguments, scene.server.clientEnvironment(scene.login),
                                directory.file("output"), directory.file("errors")};
    scene.workload.clearTarget();
    Result result;
    result.run = runClient(command, kind == Kind::List ? scene.listingLimit : scene.limit);
    if (result.run.end == End::Stopped) {
        result.moved =
            partOf(kind, scene.workload, scene.line.carriedBytes(directionOf(kind)) - before);
    } else if (result.run.end == End::Succeeded) {
        result.moved = wholeOf(kind, scene.workload.size());
        result.isWrong = !isRight(kind, scene.workload, command.outputFile);
    }
    if (result.run.end == End::Failed || result.isWrong) {
        tellFailure(client, command, result.isWrong ? "wrong result" : "failed");
    }
    scene.workload.clearTarget();
    return result;
}

/// The middle one by speed; one that failed, where there is one.
const Result& middleOf(std::vector<Result>& results)
{
    std::sort(results.begin(), results.end(),
              [](const Result& left, const Result& right) { return left.speed() < right.speed(); });
    return results.front().speed() > 0 ? results[results.size() / 2] : results.front();
}

/// A contestant in one section.
struct Entry
{
    const Client* client;
    std::vector<std::string> arguments;
    std::vector<Result> results;
};

std::string amountOf(const Measure& measure, double moved)
{
    const auto space = measure.unit.find('/');
    return formatNumber(moved / measure.unitSize, 0) + " " + measure.unit.substr(0, space);
}

std::string detailOf(const Measure& measure, const Result& result)
{
    std::string detail = formatNumber(result.run.processorSeconds, 2) + " s, " +
                         formatNumber(result.run.peakKiB / kibPerMib, 0) + " MiB";
    if (result.run.end == End::Stopped) {
        detail = "stopped after " + amountOf(measure, result.moved) + "; " + detail;
    }
    return detail;
}

Row rowOf(const Measure& measure, const Entry& entry, const Result& result, double ourSpeed)
{
    Row row;
    row.name = entry.client->name;
    row.isWrong = result.isWrong || result.run.end == End::Failed;
    row.detail = detailOf(measure, result);
    if (row.isWrong) {
        row.value = result.isWrong ? "WRONG" : "FAILED";
    } else if (result.speed() > 0) {
        row.value =
            formatNumber(result.speed() / measure.unitSize, measure.digits) + " " + measure.unit;
        row.ratio = ourSpeed / result.speed();
    } else {
        row.value = "-";
    }
    return row;
}

/// The peer that is hardest to beat.
Row bestPeerRow(const std::vector<Row>& rows)
{
    const Row* best = nullptr;
    for (std::size_t index = firstPeer; index < rows.size(); ++index) {
        const Row& row = rows[index];
        if (row.ratio && (best == nullptr || *row.ratio < *best->ratio)) {
            best = &row;
        }
    }
    return best == nullptr ? Row{"best peer: none", "", "", std::nullopt}
                           : Row{"best peer: " + best->name, "", "", best->ratio};
}

Section sectionOf(const Measure& measure, const std::string& where, std::vector<Entry>& entries)
{
    Section section{measure.title + ", " + where, "speed", "CPU, peak memory", "tarnis to it", {}};
    double ourSpeed = 0;
    for (Entry& entry : entries) {
        if (entry.results.empty()) {
            const bool isMissing = !entry.client->missing.empty();
            section.rows.push_back({entry.client->name, isMissing ? "missing" : "-",
                                    isMissing ? entry.client->missing : "cannot do this",
                                    std::nullopt});
            continue;
        }
        const Result& result = middleOf(entry.results);
        ourSpeed = &entry == &entries[ours] ? result.speed() : ourSpeed;
        section.rows.push_back(rowOf(measure, entry, result, ourSpeed));
    }
    section.rows.push_back(bestPeerRow(section.rows));
    return section;
}

std::string describe(const Line& line)
{
    return line.isDelayed() ? std::to_string(line.roundTrip().count()) + " ms round trip"
                            : "loopback";
}

/// Lets the clients take turns.
Section measureErrand(const Scene& scene, const std::vector<Client>& clients,
                      const Measure& measure, int rounds)
{
    const std::string where = describe(scene.line);
    std::vector<Entry> entries;
    for (const Client& client : clients) {
        const bool takesPart = client.missing.empty();
        entries.push_back({&client,
                           takesPart ? client.commandLine(scene.server, scene.login,
                                                          errandOf(measure.kind, scene.workload))
                                     : std::vector<std::string>(),
                           {}});
    }
    for (int round = 0; round < rounds; ++round) {
        for (Entry& entry : entries) {
            if (!entry.arguments.empty()) {
                std::cerr << "  " << measure.title << ", " << where << ": " << entry.client->name
                          << std::endl;
                entry.results.push_back(
                    runErrand(scene, *entry.client, measure.kind, entry.arguments));
            }
        }
    }
    return sectionOf(measure, where, entries);
}

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

Sections measureLineWithClients(const BenchServer& server, const Workload& workload,
                                const TransferEffort& effort, std::chrono::milliseconds roundTrip)
{
    const Line line(server.login().port, roundTrip);
    const Scene scene{server,
                      workload,
                      line,
                      server.loginThrough(line.port()),
                      line.isDelayed() ? effort.delayedLimit : nearLimit,
                      line.isDelayed() ? effort.delayedListingLimit : nearLimit};
    Sections sections;
    if (line.isDelayed()) {
        sections.push_back(lineSection(roundTrip));
    }
    for (const Measure& measure : measuresOf(workload.size())) {
        sections.push_back(
            measureErrand(scene, allClients(), measure, line.isDelayed() ? 1 : effort.rounds));
    }
    return sections;
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

Sections measureBesideSftp(const Bench& bench)
{
    const BenchServer server;
    const Workload workload(server.directory(), bench.effort.transfer.size);
    const Line line(server.login().port, std::chrono::milliseconds(0));
    const Scene scene{server, workload, line, server.login(), nearLimit, nearLimit};
    std::vector<Client> clients = allClients();
    clients.resize(firstPeer + 1);
    Section bars = barsSection();
    Sections sections;
    for (Measure measure : measuresOf(workload.size())) {
        if (measure.kind == Kind::GetFile || measure.kind == Kind::PutFile) {
            measure.title += ", default cipher";
            sections.push_back(
                measureErrand(scene, clients, measure, bench.effort.transfer.rounds));
            bars.rows.push_back(barOfSpeeds(measure.title + ", tarnis to sftp",
                                            sections.back().rows.back().ratio.value_or(0), 1.0));
        }
    }
    sections.push_back(bars);
    return sections;
}

Sections measureTransfer(const Bench& bench)
{
    constexpr std::chrono::milliseconds roundTrips[] = {std::chrono::milliseconds(0),
                                                        std::chrono::milliseconds(20),
                                                        std::chrono::milliseconds(100)};
    const BenchServer common(commonAlgorithms);
    const Workload workload(common.directory(), bench.effort.transfer.size);
    Sections sections;
    for (const auto roundTrip : roundTrips) {
        for (auto& section :
             measureLineWithClients(common, workload, bench.effort.transfer, roundTrip)) {
            sections.push_back(std::move(section));
        }
    }
    return sections;
}

} // namespace TarnisBench
