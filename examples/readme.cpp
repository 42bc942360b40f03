#include <Tarnis/Tarnis.h>

#include <iostream>

int main(int argc, char** argv)
{
    using Known = Tarnis::HostAuthenticatorKnownHostFile;
    using FileSystem::Failure; // each step leaves one exactly where it did not succeed
    const auto isAccepted = [](const auto& response) { return response && !Failure::last(); };
    Tarnis::SSHSession session;
    if (!session.setHostName(argc > 1 ? argv[1] : "localhost") || // "user@host" works too
        !session.setPortNumber(static_cast<unsigned short>(argc > 2 ? std::stoul(argv[2]) : 22)) ||
        !session.connect() ||
        !isAccepted(session.hostAuthenticate(Known(Known::AutoMode::KnownOnly, false))) ||
        !isAccepted(session.userAuthenticate(Tarnis::UserAuthenticatorPrivateKeyAuto()))) {
        std::cerr << Failure::last().message() << '\n'; // what failed, where and why
        return 255;
    }
    const auto result = session.execute("uname -a");
    std::cout << result.output << result.errorOutput;
    std::cerr << result.error; // why the command could not be run, where it could not
    return result.exitCode.value_or(255);
}
