// Logs in to a server that wants a key and then a password: the first step is answered Partial.

#include "Login.h"

#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 1 + Login::argumentCount) {
        std::cerr << "usage: LOGIN_PASSWORD=... " << argv[0] << ' ' << Login::usage << '\n';
        return 2;
    }
    const Login login = Login::fromArguments(argv + 1);
    Tarnis::SSHSession session;
    if (!connectTo(session, login) || !trustKnownHost(session)) {
        return 1;
    }
    auto response =
        session.userAuthenticate(Tarnis::UserAuthenticatorPrivateKeyFile(login.keyFile, ""));
    if (response && response->getResult() == Tarnis::AuthenticateUserResult::Partial) {
        std::cout << "the key was accepted, the server wants more\n";
        const char* const password = std::getenv("LOGIN_PASSWORD");
        response = session.userAuthenticate(
            Tarnis::UserAuthenticatorPassword(password != nullptr ? password : ""));
    }
    if (!isAccepted(response)) {
        failed();
        return 1;
    }
    std::cout << "logged in\n";
    return 0;
}
