#include <Tarnis/Tarnis.h>

#include <iostream>

int main(int argc, char** argv)
{
    using Known = Tarnis::HostAuthenticatorKnownHostFile;
    Tarnis::SSHSession session;
    session.setHostName(argc > 1 ? argv[1] : "localhost"); // "user@host" works too
    session.setPortNumber(static_cast<unsigned short>(argc > 2 ? std::stoul(argv[2]) : 22));
    session.connect();
    const auto host = session.hostAuthenticate(Known(Known::AutoMode::KnownOnly, false));
    session.userAuthenticate(Tarnis::UserAuthenticatorPrivateKeyAuto()); // agent, default keys
    const auto result = session.execute("uname -a"); // runs only when each step above succeeded
    std::cout << result.output << result.errorOutput;
    if (host && host->getResult() != Tarnis::AuthenticateHostResult::Accepted) {
        std::cerr << "the known-hosts file does not vouch for this server\n";
    } else if (!result.exitCode) {
        std::cerr << "not connected, or not logged in: " << session.getLastError() << '\n';
    }
    return result.exitCode.value_or(255);
}
