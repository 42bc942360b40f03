#include "Benchmarks.h"
#include "support/DirectSession.h"
#include "support/Interleaved.h"
#include "support/OpenSshClient.h"
#include "support/PeakMemory.h"
#include "support/Probe.h"
#include "support/Require.h"
#include "support/SpawnedProcess.h"
#include "support/SystemError.h"
#include "support/UniqueFd.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <thread>

#include <fcntl.h>

namespace TarnisBench {

namespace {

struct Transfer
{
    double seconds = 0;
    double processorSeconds = 0;
    double peakKiB = 0;
};

struct TransferContestant
{
    std::string name;
    std::function<Transfer()> run;
    std::vector<Transfer> results;
};

TarnisTest::UniqueFd openFile(const std::string& path, int flags)
{
    constexpr mode_t mode = 0600;
    TarnisTest::UniqueFd file(::open(path.c_str(), flags | O_CLOEXEC, mode));
    if (!file.isOpen()) {
        TarnisTest::throwErrno("opening " + path);
    }
    return file;
}

/// Waits for the end of a process and returns the most memory that it was seen with.
long awaitWithPeak(SpawnedProcess& process)
{
    constexpr std::chrono::milliseconds betweenLooks{2};
    long peak = 0;
    while (!process.hasEnded()) {
        peak = std::max(peak, peakMemoryKiB(process.pid()));
        std::this_thread::sleep_for(betweenLooks);
    }
    return peak;
}

/// `ssh host cat < file > file`; the connecting is part of it.
Transfer transferWithOpenSsh(const OpenSshClient& client, const std::string& from,
                             const std::string& to)
{
    const auto input = openFile(from, O_RDONLY);
    const auto output = openFile(to, O_WRONLY | O_CREAT | O_TRUNC);
    StandardStreams streams;
    streams.input = input.get();
    streams.output = output.get();

    Transfer transfer;
    const auto time = timeOf([&] {
        SpawnedProcess ssh(client.commandLine({}, "cat"), streams);
        transfer.peakKiB = static_cast<double>(awaitWithPeak(ssh));
        require(ssh.succeeds(), "running ssh");
        transfer.processorSeconds = ssh.processorSeconds();
    });
    require(std::filesystem::file_size(from) == std::filesystem::file_size(to), "copying a file");
    transfer.seconds = std::chrono::duration<double>(time).count();
    return transfer;
}

Transfer transferInProbe(const Bench& bench, const std::string& method)
{
    const auto figures =
        figuresIn(runProbe(probeCommandLine(TARNIS_BENCH_PROBE, "transfer", bench.server.login(),
                                            {method, std::to_string(bench.effort.transferBytes)}))
                      .output);
    require(figures.size() == 3, "reading a transfer's figures");
    return {figures[0], figures[1], figures[2]};
}

std::string writeInputFile(const Bench& bench)
{
    std::string path = bench.server.directory().write("input", "");
    std::filesystem::resize_file(path, bench.effort.transferBytes);
    return path;
}

double medianOf(const std::vector<Transfer>& results, double Transfer::*figure)
{
    std::vector<double> samples(results.size());
    std::transform(results.begin(), results.end(), samples.begin(),
                   [figure](const Transfer& result) { return result.*figure; });
    return quantile(samples, 0.5);
}

Row rowOf(const TransferContestant& contestant, const TransferContestant& peer, double bytes)
{
    constexpr double bytesPerMegabyte = 1e6;
    constexpr double kibPerMib = 1024;
    const auto& results = contestant.results;
    const double seconds = medianOf(results, &Transfer::seconds);
    const double peakMib = medianOf(results, &Transfer::peakKiB) / kibPerMib;
    return {contestant.name, formatNumber(bytes / bytesPerMegabyte / seconds, 0) + " MB/s",
            formatNumber(medianOf(results, &Transfer::processorSeconds), 2) + " s, " +
                formatNumber(peakMib, 0) + " MiB",
            medianOf(peer.results, &Transfer::seconds) / seconds};
}

Section sectionOf(const std::vector<TransferContestant>& contestants, std::size_t bytes)
{
    constexpr unsigned bytesToMibShift = 20;
    Section section{std::to_string(bytes >> bytesToMibShift) + " MiB through `cat` and back",
                    "speed",
                    "CPU, peak memory",
                    "of speeds",
                    {}};
    for (const auto& contestant : contestants) {
        section.rows.push_back(rowOf(contestant, contestants.front(), static_cast<double>(bytes)));
    }
    return section;
}

} // namespace

Sections measureThroughput(const Bench& bench)
{
    const Login& login = bench.server.login();
    const OpenSshClient client(login, negotiatedAlgorithms(logInDirectly(login).get()));
    const std::string from = writeInputFile(bench);
    const std::string to = bench.server.directory().file("output");

    std::vector<TransferContestant> contestants{
        {"ssh, file to file", [&] { return transferWithOpenSsh(client, from, to); }, {}},
        {"libssh, streaming", [&] { return transferInProbe(bench, "libssh"); }, {}},
        {"Tarnis, SSHProcess, streaming", [&] { return transferInProbe(bench, "process"); }, {}},
        {"Tarnis, execute, all in memory", [&] { return transferInProbe(bench, "execute"); }, {}},
    };
    for (int round = 0; round < bench.effort.transferRounds; ++round) {
        for (auto& contestant : contestants) {
            contestant.results.push_back(contestant.run());
        }
    }
    std::filesystem::remove(from);
    std::filesystem::remove(to);
    return {sectionOf(contestants, bench.effort.transferBytes)};
}

} // namespace TarnisBench
