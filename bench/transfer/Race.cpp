#include "transfer/Race.h"

#include "support/Bars.h"
#include "transfer/ClientRun.h"

#include <algorithm>
#include <filesystem>
#include <iostream>

namespace TarnisBench {

namespace {

using Kind = Errand::Kind;
using End = ClientRun::End;

constexpr double kibPerMib = 1024;

/// The program that is compared with the others comes first.
constexpr std::size_t ours = 0;
constexpr std::size_t firstPeer = 1;

/// What speeds are told in.
struct Unit
{
    const char* name;
    double size;
    int digits;
};

constexpr Unit inMegabytes{"MB", 1e6, 1};
constexpr Unit inFiles{"files", 1, 1};
constexpr Unit inNames{"names", 1, 0};
constexpr Unit inEntries{"entries", 1, 1};

/// A contest with what it is about.
struct Work
{
    const Contest& contest;
    Errand errand;
    Material material;
    Unit unit;
    /// All of it, in bytes, files or entries.
    double whole;
};

/// One run of one client.
struct Result
{
    ClientRun run;
    /// In bytes, files or entries.
    double moved = 0;
    bool isWrong = false;

    bool isValid() const { return run.end != End::Failed && !isWrong; }

    double speed() const { return isValid() ? moved / run.seconds : 0; }
};

struct Entry
{
    Client client;
    /// Empty: it takes part.
    std::string whyNot;
    std::vector<Result> results;
};

bool isDown(Kind kind)
{
    return kind == Kind::GetFile || kind == Kind::GetTree || kind == Kind::ReadMounted;
}

bool isUp(Kind kind)
{
    return kind == Kind::PutFile || kind == Kind::PutTree || kind == Kind::WriteMounted;
}

Errand errandOf(const Contest& contest, const Workload& workload, const Material& material)
{
    Errand errand;
    errand.kind = contest.kind;
    errand.files = material.files;
    errand.directories = material.directories;
    errand.local = isDown(contest.kind) ? workload.target()
                   : isUp(contest.kind) ? material.path
                                        : workload.scratch();
    const bool isAtTarget = isUp(contest.kind) || contest.kind == Kind::Remove;
    errand.remote = isAtTarget ? workload.target() : material.path;
    errand.remoteTarget = workload.target();
    return errand;
}

Unit unitOf(const Contest& contest)
{
    if (contest.kind == Kind::List) {
        return inNames;
    }
    if (contest.kind == Kind::Remove) {
        return inEntries;
    }
    // The files of a mixed tree are no measure for each other.
    const bool areCounted = contest.load == Load::SmallFile || contest.load == Load::SmallFiles;
    return areCounted ? inFiles : inMegabytes;
}

double wholeOf(const Contest& contest, const Material& material)
{
    if (contest.kind == Kind::Remove) {
        // The directory itself too.
        return static_cast<double>(material.files + material.directories + 1);
    }
    return static_cast<double>(unitOf(contest).size > 1 ? material.bytes : material.files);
}

Work workOf(const Contest& contest, Workload& workload)
{
    const Material& material = workload.source(contest.load);
    return {contest, errandOf(contest, workload, material), material, unitOf(contest),
            wholeOf(contest, material)};
}

bool isDone(const Work& work, const Workload& workload, const std::string& output)
{
    switch (work.contest.kind) {
    case Kind::GetFile:
    case Kind::PutFile:
    case Kind::CopyThere:
    case Kind::ReadMounted:
    case Kind::WriteMounted:
        return isSameFile(work.material.path, workload.target());
    case Kind::GetTree:
    case Kind::PutTree:
        return isSameTree(work.material.path, workload.target());
    case Kind::List:
        return isListing(work.material.path, output);
    case Kind::Remove:
        break;
    }
    return !std::filesystem::exists(workload.target());
}

/// What was done before a client was stopped.
double partDone(const Work& work, const Workload& workload, std::uint64_t carriedBytes)
{
    switch (work.contest.kind) {
    case Kind::GetFile:
    case Kind::PutFile:
    case Kind::ReadMounted:
    case Kind::WriteMounted:
        // Some make a file as long as it is to be before they fill it, so the line is asked.
        return std::min(static_cast<double>(carriedBytes), work.whole);
    case Kind::GetTree:
    case Kind::PutTree: {
        const Amount held = filesHeld(work.material.path, workload.target());
        return static_cast<double>(work.unit.size > 1 ? held.bytes : held.files);
    }
    case Kind::Remove:
        return work.whole - static_cast<double>(entriesAt(workload.target()));
    case Kind::List:
    case Kind::CopyThere:
        break;
    }
    // These show nothing before their end.
    return 0;
}

void tellFailure(const Client& client, const ClientCommand& command, const Result& result)
{
    if (!result.isValid()) {
        std::cerr << client.name << (result.isWrong ? ": wrong result" : ": failed") << ":\n"
                  << TarnisTest::readFile(command.errorFile) << std::endl;
    }
}

std::uint64_t carriedBytes(const Scene& scene, const Work& work)
{
    return scene.line.carriedBytes(isUp(work.contest.kind) ? TarnisTest::TcpProxy::ToServer
                                                           : TarnisTest::TcpProxy::ToClient);
}

/// Peers that are slow far away are stopped; `tarnis` and whatever shows nothing before its end are
/// given time.
std::chrono::seconds limitOf(const Scene& scene, const Work& work, bool isOurs)
{
    const Kind kind = work.contest.kind;
    const bool isNever = kind == Kind::List || kind == Kind::ReadMounted ||
                         kind == Kind::WriteMounted; // What is killed leaves its mount.
    const bool mayBeStopped = scene.line.isDelayed() && !isOurs && !isNever;
    return mayBeStopped ? scene.effort.peerLimit : scene.effort.limit;
}

/// Some write files for themselves, so that they are good for the next run alone.
std::vector<std::string> argumentsOf(const Scene& scene, const Work& work, const Client& client)
{
    return client.commandLine(scene.server, scene.server.loginThrough(scene.line.port()),
                              work.errand);
}

Result runErrand(const Scene& scene, const Work& work, const Client& client,
                 std::chrono::seconds limit)
{
    const auto& directory = scene.server.directory();
    const Login login = scene.server.loginThrough(scene.line.port());
    const ClientCommand command{argumentsOf(scene, work, client),
                                scene.server.clientEnvironment(login), directory.file("output"),
                                directory.file("errors")};
    scene.workload.clear();
    if (work.contest.kind == Kind::Remove) {
        scene.workload.putAtTarget(work.contest.load);
    }
    const auto before = carriedBytes(scene, work);
    Result result;
    result.run = runClient(command, limit);
    if (result.run.end == End::Stopped) {
        result.moved = partDone(work, scene.workload, carriedBytes(scene, work) - before);
    } else if (result.run.end == End::Succeeded) {
        result.moved = work.whole;
        result.isWrong = !isDone(work, scene.workload, command.outputFile);
    }
    tellFailure(client, command, result);
    scene.workload.clear();
    return result;
}

/// The middle one by speed; one that failed, where there is one.
const Result& middleOf(std::vector<Result>& results)
{
    std::sort(results.begin(), results.end(),
              [](const Result& left, const Result& right) { return left.speed() < right.speed(); });
    return results.front().speed() > 0 ? results[results.size() / 2] : results.front();
}

double peakMib(const std::vector<Result>& results)
{
    double peak = 0;
    for (const Result& result : results) {
        peak = std::max(peak, result.run.peakKiB / kibPerMib);
    }
    return peak;
}

/// How much of it, in how long, and what a file took, where a client was stopped.
std::string stopText(const Work& work, const Result& result)
{
    constexpr double millisecondsPerSecond = 1e3;
    if (result.run.end != End::Stopped) {
        return "";
    }
    std::string text =
        "stopped after " + formatNumber(result.moved / work.unit.size, 0) + " " + work.unit.name;
    if (work.unit.size <= 1 && result.moved > 0) {
        text += ", " + formatNumber(millisecondsPerSecond * result.run.seconds / result.moved, 1) +
                " ms each";
    }
    return text + "; ";
}

std::string detailOf(const Work& work, const Result& result, double peak)
{
    return stopText(work, result) + formatNumber(result.run.seconds, 2) + " s, " +
           formatNumber(result.run.processorSeconds, 2) + " s, " + formatNumber(peak, 0) + " MiB";
}

Row rowOf(const Work& work, Entry& entry, double ourSpeed)
{
    if (entry.results.empty()) {
        return {entry.client.name, "-", entry.whyNot, std::nullopt};
    }
    const double peak = peakMib(entry.results);
    const Result& result = middleOf(entry.results);
    Row row{entry.client.name, "-", detailOf(work, result, peak), std::nullopt, !result.isValid()};
    if (row.isWrong) {
        row.value = result.isWrong ? "WRONG" : "FAILED";
    } else if (result.speed() > 0) {
        row.value = formatNumber(result.speed() / work.unit.size, work.unit.digits) + " " +
                    work.unit.name + "/s";
        row.ratio = ourSpeed / result.speed();
    }
    return row;
}

/// The peer that a contest's bar is about: the one named, or that which is hardest to beat. Null
/// where it has no figure.
const Row* rivalIn(const std::vector<Row>& rows, const std::string& name)
{
    const Row* rival = nullptr;
    for (std::size_t index = firstPeer; index < rows.size(); ++index) {
        const Row& row = rows[index];
        const bool counts = row.ratio && (name.empty() || row.name == name);
        if (counts && (rival == nullptr || *row.ratio < *rival->ratio)) {
            rival = &row;
        }
    }
    return rival;
}

/// A figure counts for `tarnis` only when it has done everything.
Row barOf(const std::string& title, const Contest& contest, const Row* rival, bool isWholeDone)
{
    if (rival == nullptr) {
        return {title, "-", "no peer to compare with", std::nullopt};
    }
    const std::string name = title + ", to " + rival->name;
    Row bar = barOfSpeeds(name, isWholeDone ? *rival->ratio : 0, contest.bar);
    bar.ratio = rival->ratio;
    return bar;
}

Row memoryBarOf(const std::string& title, double peak)
{
    constexpr double mostMib = 96;
    return barOfTimes(title, peak, mostMib);
}

/// Whether a client gets along with a server that offers one cipher.
bool canUseCipher(const Scene& scene, const Contest& contest, const Client& client)
{
    if (*contest.cipher == '\0') {
        return true;
    }
    Contest trial = contest;
    trial.kind = Kind::GetFile;
    trial.load = Load::SmallFile;
    const Work work = workOf(trial, scene.workload);
    return runErrand(scene, work, client, scene.effort.limit).run.end != End::Failed;
}

/// Why a client takes no part; empty when it does.
std::string whyNot(const Scene& scene, const Work& work, const Client& client)
{
    if (!client.missing.empty()) {
        return client.missing;
    }
    if (argumentsOf(scene, work, client).empty()) {
        return "cannot do this";
    }
    return canUseCipher(scene, work.contest, client) ? "" : "cannot use the cipher";
}

std::vector<Entry> entriesOf(const Scene& scene, const Work& work)
{
    std::vector<Entry> entries;
    for (Client& client : clientsFor(work.contest.kind)) {
        const std::string reason = whyNot(scene, work, client);
        entries.push_back({std::move(client), reason, {}});
    }
    return entries;
}

/// What is over in a moment is done more often; far away, time stands still for everything else.
int roundsOf(const Scene& scene, const Contest& contest)
{
    if (contest.load == Load::SmallFile) {
        return scene.effort.smallRounds;
    }
    return scene.line.isDelayed() ? 1 : scene.effort.rounds;
}

void takeTurns(const Scene& scene, const Work& work, std::vector<Entry>& entries)
{
    for (int round = 0; round < roundsOf(scene, work.contest); ++round) {
        for (std::size_t index = 0; index < entries.size(); ++index) {
            Entry& entry = entries[index];
            if (entry.whyNot.empty()) {
                std::cerr << "  " << work.contest.name << ": " << entry.client.name << std::endl;
                entry.results.push_back(
                    runErrand(scene, work, entry.client, limitOf(scene, work, index == ours)));
            }
        }
    }
}

} // namespace

Outcome runContest(const Scene& scene, const Contest& contest)
{
    const Work work = workOf(contest, scene.workload);
    const std::string title = titleOf(contest, work.material);
    auto entries = entriesOf(scene, work);
    takeTurns(scene, work, entries);

    const double peak = peakMib(entries[ours].results);
    const Result our = middleOf(entries[ours].results);
    Outcome outcome{{title, "speed", "time, CPU, peak memory", "tarnis to it", {}}, {}, {}};
    for (Entry& entry : entries) {
        outcome.figures.rows.push_back(rowOf(work, entry, our.speed()));
    }
    outcome.bar = barOf(title, contest, rivalIn(outcome.figures.rows, contest.rival),
                        our.run.end == End::Succeeded && our.isValid());
    outcome.memory = memoryBarOf(title, peak);
    return outcome;
}

} // namespace TarnisBench
