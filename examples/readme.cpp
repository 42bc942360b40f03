#include <Tarnis/Tarnis.h>

#include <iostream>

int main(int argc, char** argv)
{
    Tarnis::SSHSession session;
    session.setHostName(argc > 1 ? argv[1] : "localhost"); // "user@host" works too
    session.connect();
    session.hostAuthenticate(Tarnis::HostAuthenticatorKnownHostFile(
        Tarnis::HostAuthenticatorKnownHostFile::AutoMode::KnownOnly, false));
    session.userAuthenticate(Tarnis::UserAuthenticatorPrivateKeyAuto()); // agent, default keys
    const auto result = session.execute("uname -a"); // runs only when each step above succeeded
    std::cout << result.output << (result.succeeded() ? "" : session.getLastError() + "\n");
    return result.exitCode.value_or(255);
}
