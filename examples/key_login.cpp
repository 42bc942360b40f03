// Logs in with a key file, trying without a pass phrase first. The pass phrase of an encrypted key
// is taken from the environment: a program with a user would ask.

#include "Login.h"

#include <cstdlib>

namespace {

Tarnis::AuthenticateUserResult tryKey(Tarnis::SSHSession& session, const std::string& keyFile,
                                      const std::string& passPhrase)
{
    const auto response =
        session.userAuthenticate(Tarnis::UserAuthenticatorPrivateKeyFile(keyFile, passPhrase));
    return response ? response->getResult() : Tarnis::AuthenticateUserResult::Error;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 1 + Login::argumentCount) {
        std::cerr << "usage: KEY_PASS_PHRASE=... " << argv[0] << ' ' << Login::usage << '\n';
        return 2;
    }
    const Login login = Login::fromArguments(argv + 1);
    Tarnis::SSHSession session;
    if (!connectTo(session, login) || !trustKnownHost(session)) {
        return 1;
    }
    auto result = tryKey(session, login.keyFile, "");
    const bool isEncrypted =
        FileSystem::Failure::last().code() == Tarnis::SSHFailureCode::WrongPassPhrase;
    const char* const passPhrase = std::getenv("KEY_PASS_PHRASE");
    if (isEncrypted && passPhrase != nullptr) {
        // A failed attempt leaves the session where it was, so the next one may follow.
        std::cout << "trying again with the pass phrase\n";
        result = tryKey(session, login.keyFile, passPhrase);
    }
    if (result != Tarnis::AuthenticateUserResult::Success) {
        failed();
        return 1;
    }
    std::cout << "logged in as " << session.getUserName() << '\n';
    return 0;
}
