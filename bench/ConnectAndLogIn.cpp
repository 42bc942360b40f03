#include "Benchmarks.h"
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
    return {runner.section("Connecting and logging in")};
}

} // namespace TarnisBench
