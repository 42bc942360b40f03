#include "Benchmarks.h"
#include "support/Bars.h"
#include "support/DirectSession.h"
#include "support/Interleaved.h"
#include "support/OpenSshClient.h"
#include "support/TarnisSession.h"

namespace TarnisBench {

namespace {

/// Times how a session is made. It ends outside the measured time.
template <class LogIn>
Duration timeToLogIn(LogIn logIn)
{
    decltype(logIn()) session;
    return timeOf([&] { session = logIn(); });
}

} // namespace

Sections measureConnectAndLogIn(const Bench& bench)
{
    const Login& login = bench.server.login();
    const OpenSshClient client(login, negotiatedAlgorithms(logInDirectly(login).get()));

    Interleaved runner({
        {"libssh", [&] { return timeToLogIn([&] { return logInDirectly(login); }); }},
        {"Tarnis", [&] { return timeToLogIn([&] { return logInWithTarnis(login); }); }},
        {"ssh", [&] { return timeToLogIn([&] { return logInWithOpenSsh(client); }); }},
    });
    runner.run(bench.effort.connectRounds);
    Section bars = barsSection();
    bars.rows.push_back(
        barOfTimes("Tarnis to libssh", ratioOfTimes(runner, "Tarnis", "libssh"), 1.05));
    bars.rows.push_back(barOfTimes("Tarnis to ssh", ratioOfTimes(runner, "Tarnis", "ssh"), 1.0));
    return {runner.section("Connecting and logging in"), bars};
}

} // namespace TarnisBench
