#include "Benchmarks.h"
#include "support/Bars.h"
#include "support/DeprecatedLibssh.h"
#include "support/DirectSession.h"
#include "support/Interleaved.h"
#include "support/OpenSshClient.h"
#include "support/Require.h"
#include "support/SpawnedProcess.h"
#include "support/TarnisSession.h"

#include <array>
#include <thread>

namespace TarnisBench {

namespace {

constexpr const char* command = "true";
// What SSHProcess sends for it.
constexpr const char* commandAsSent = "true\n";
constexpr std::chrono::microseconds pause{100};
constexpr std::chrono::seconds limit{30};

void runProcess(Tarnis::SSHSession& session)
{
    const auto process = session.createProcess(command);
    require(process != nullptr && process->start(), "starting a command");
    require(process->waitForFinished(limit), "waiting for a command");
    require(process->getExitCode() == 0, "running a command");
}

void runExecute(Tarnis::SSHSession& session)
{
    require(session.execute(command).succeeded(), "running a command");
}

void requestExecPolled(ssh_channel channel)
{
    int result = SSH_AGAIN;
    while ((result = ssh_channel_request_exec(channel, commandAsSent)) == SSH_AGAIN) {
        std::this_thread::sleep_for(pause);
    }
    require(result == SSH_OK, "starting a command");
}

void awaitExitPolled(ssh_channel channel)
{
    while (TarnisTest::Deprecated::exitStatus(channel) < 0 && ssh_channel_is_open(channel) == 1) {
        std::this_thread::sleep_for(pause);
    }
    require(TarnisTest::Deprecated::exitStatus(channel) == 0, "running a command");
}

/// The calls that SSHProcess makes, in the modes in which it makes them.
void runSameCalls(ssh_session session)
{
    DirectChannel channel(ssh_channel_new(session));
    require(channel != nullptr, "making a channel");
    require(ssh_channel_open_session(channel.get()) == SSH_OK, "opening a channel");
    ssh_set_blocking(session, 0);
    requestExecPolled(channel.get());
    awaitExitPolled(channel.get());
    static_cast<void>(ssh_channel_close(channel.get()));
    channel.reset();
    ssh_set_blocking(session, 1);
}

void readToEnd(ssh_channel channel)
{
    std::array<char, 4096> buffer{};
    int count = 0;
    do {
        count = ssh_channel_read(channel, buffer.data(), buffer.size(), 0);
    } while (count > 0);
    require(count == 0, "reading a command's output");
}

/// As a program that knows nothing but blocking calls would do it.
void runBlocking(ssh_session session)
{
    const DirectChannel channel = startDirectly(session, command);
    readToEnd(channel.get());
    require(TarnisTest::Deprecated::exitStatus(channel.get()) == 0, "running a command");
    static_cast<void>(ssh_channel_close(channel.get()));
}

void runOpenSsh(const OpenSshSharedConnection& connection)
{
    require(SpawnedProcess(connection.commandLine(command)).succeeds(), "running ssh");
}

} // namespace

Sections measureOpenSessionCommand(const Bench& bench)
{
    const Login& login = bench.server.login();
    const auto session = logInWithTarnis(login);
    const auto direct = logInDirectly(login);
    const OpenSshClient client(login, negotiatedAlgorithms(direct.get()));
    const OpenSshSharedConnection shared(client, bench.server.directory().file("shared"));

    const std::string libssh = "libssh, the same calls";
    const std::string process = "Tarnis, SSHProcess";
    const std::string execute = "Tarnis, execute";
    const std::string ssh = "ssh, shared connection";
    Interleaved runner({
        {libssh, [&] { return timeOf([&] { runSameCalls(direct.get()); }); }},
        {process, [&] { return timeOf([&] { runProcess(*session); }); }},
        {execute, [&] { return timeOf([&] { runExecute(*session); }); }},
        {"libssh, blocking calls", [&] { return timeOf([&] { runBlocking(direct.get()); }); }},
        {ssh, [&] { return timeOf([&] { runOpenSsh(shared); }); }},
    });
    runner.run(bench.effort.commandRounds);
    Section bars = barsSection();
    for (const auto& ours : {process, execute}) {
        bars.rows.push_back(
            barOfTimes(ours + " to libssh", ratioOfTimes(runner, ours, libssh), 1.05));
        bars.rows.push_back(barOfTimes(ours + " to ssh", ratioOfTimes(runner, ours, ssh), 1.0));
    }
    return {runner.section("Running `true` on an open session"), bars};
}

} // namespace TarnisBench
