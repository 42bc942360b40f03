// Runs the measurements and prints one table. Every ratio compares contestants of the same run on
// the same server; the figures themselves tell about the machine as much as about anybody's code.

#include "Benchmarks.h"
#include "support/DirectSession.h"
#include "support/Probe.h"
#include "transfer/Contests.h"

#include <libssh/libssh.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

namespace TarnisBench {

Effort Effort::quick()
{
    Effort effort;
    effort.commandRounds = 30;
    effort.connectRounds = 10;
    effort.transferRounds = 1;
    effort.transferBytes = std::size_t{64} << 20U;
    effort.transfer.scale = 0.02;
    effort.transfer.rounds = 1;
    effort.transfer.smallRounds = 1;
    effort.transfer.peerLimit = std::chrono::seconds(5);
    effort.plainRounds = 3;
    effort.idleSessions = 10;
    effort.idleChannels = 100;
    return effort;
}

namespace {

struct Measurement
{
    const char* name;
    Sections (*run)(const Bench& bench);
    /// Runs when no other is named.
    bool isUsual = true;
};

constexpr Measurement measurements[] = {
    {"command", measureOpenSessionCommand},
    {"connect", measureConnectAndLogIn},
    {"throughput", measureThroughput},
    {"calls", measureGuardedCalls},
    {"memory", measureMemory},
    {"plain", measurePlain},
    // Takes many times as long as the others together.
    {"transfer", measureTransfer, false},
};

struct Request
{
    Effort effort;
    std::vector<std::string> names;

    bool wants(const Measurement& measurement) const
    {
        return names.empty()
                   ? measurement.isUsual
                   : std::find(names.begin(), names.end(), measurement.name) != names.end();
    }
};

bool isMeasurement(const std::string& name)
{
    return std::any_of(std::begin(measurements), std::end(measurements),
                       [&name](const auto& each) { return name == each.name; });
}

/// The text of an option's value; none: it is another argument.
std::optional<std::string> valueOf(const std::string& option, const std::string& argument)
{
    const std::string start = option + "=";
    if (argument.compare(0, start.size(), start) != 0) {
        return std::nullopt;
    }
    return argument.substr(start.size());
}

bool parseScale(const std::string& text, TransferEffort& effort)
{
    std::istringstream number(text);
    return (number >> effort.scale) && number.eof() && effort.scale > 0 && effort.scale <= 1;
}

bool parseContests(const std::string& text, TransferEffort& effort)
{
    std::istringstream names(text);
    for (std::string name; std::getline(names, name, ',');) {
        effort.contests.push_back(name);
    }
    return !effort.contests.empty() &&
           std::all_of(effort.contests.begin(), effort.contests.end(), isContest);
}

/// False: it means nothing.
bool parseOne(const std::string& argument, Request& request)
{
    if (const auto scale = valueOf("--scale", argument)) {
        return parseScale(*scale, request.effort.transfer);
    }
    if (const auto contests = valueOf("--rows", argument)) {
        return parseContests(*contests, request.effort.transfer);
    }
    request.names.push_back(argument);
    return isMeasurement(argument);
}

/// False: there is something on the command line that means nothing.
bool parse(std::vector<std::string> arguments, Request& request)
{
    const auto quick = std::remove(arguments.begin(), arguments.end(), "--quick");
    if (quick != arguments.end()) {
        request.effort = Effort::quick();
        arguments.erase(quick, arguments.end());
    }
    return std::all_of(arguments.begin(), arguments.end(),
                       [&request](const auto& argument) { return parseOne(argument, request); });
}

void usage(const char* program)
{
    std::cerr << "usage: " << program
              << " [--quick] [--scale=PART] [--rows=ROW,...] [NAME...]\nmeasurements:";
    for (const auto& each : measurements) {
        std::cerr << ' ' << each.name;
    }
    std::cerr << "\nrows of transfer:";
    for (const auto& each : allContests()) {
        std::cerr << ' ' << each.name;
    }
    std::cerr << '\n';
}

std::string openSshVersion()
{
    std::string version = runProbe({"ssh", "-V"}).errorOutput;
    return version.substr(0, version.find(','));
}

/// What the figures depend on.
void printSurroundings(std::ostream& out, const Login& login)
{
    const auto algorithms = negotiatedAlgorithms(logInDirectly(login).get());
    out << std::thread::hardware_concurrency() << " processors, client and server on loopback\n"
        << "libssh " << ssh_version(0) << ", " << openSshVersion() << '\n'
        << algorithms.keyExchange << ", " << algorithms.cipher
        << (algorithms.mac.empty() ? "" : ", ") << algorithms.mac << "\n\n";
}

bool isWrong(const Section& section)
{
    return std::any_of(section.rows.begin(), section.rows.end(),
                       [](const Row& row) { return row.isWrong; });
}

/// Returns whether every contestant did what it was to do.
bool run(const Request& request, std::ostream& out)
{
    // Hundreds of channels at a time are measured too.
    const BenchServer server(preferredCipherAlone() + "MaxSessions 1000\n");
    const Bench bench{server, request.effort};
    Sections all;
    for (const auto& each : measurements) {
        if (request.wants(each)) {
            std::cerr << "measuring: " << each.name << std::endl;
            const Sections sections = each.run(bench);
            all.insert(all.end(), sections.begin(), sections.end());
        }
    }
    printSurroundings(out, server.login());
    printTable(out, all);
    return std::none_of(all.begin(), all.end(), isWrong);
}

} // namespace

} // namespace TarnisBench

int main(int argc, char** argv)
{
    using namespace TarnisBench;
    Request request;
    if (!parse({argv + 1, argv + argc}, request)) {
        usage(argv[0]);
        return 2;
    }
    // libssh used directly needs this; the library takes care of itself.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    try {
        return run(request, std::cout) ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << argv[0] << ": " << error.what() << '\n';
        return 1;
    }
}
