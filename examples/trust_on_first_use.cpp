// Meets a server for the first time: asks, shows its key, and records it once it was accepted. A
// server whose key has changed is refused.

#include "Login.h"

namespace {

using Known = Tarnis::HostAuthenticatorKnownHostFile;
using Response = Tarnis::HostAuthenticatorResponseKnownHostFile;

/// Asks the user, who is to compare the key with what the server's owner says.
bool userAccepts(const Response& response, const std::string& fingerprint)
{
    if (response.getReason() == Response::Reason::HostKeyChanged) {
        std::cerr << "the server's key has changed: somebody may be listening in\n";
        return false;
    }
    std::cout << "unknown server, with the key " << fingerprint
              << "\nTrust it from now on (yes/no)? " << std::flush;
    std::string answer;
    return std::getline(std::cin, answer) && answer == "yes";
}

bool decideAboutHost(Tarnis::SSHSession& session)
{
    const auto response = session.hostAuthenticate(Known(Known::AutoMode::Ask, false));
    if (isAccepted(response)) {
        std::cout << "known server\n";
        return true;
    }
    const auto* const asked = dynamic_cast<const Response*>(response.get());
    if (asked == nullptr || asked->getResult() != Tarnis::AuthenticateHostResult::Undecided) {
        return failed();
    }
    if (!userAccepts(*asked, session.getPublicServerKeyFingerprint())) {
        return false;
    }
    // The same question again, under a policy that records the answer.
    return isAccepted(session.hostAuthenticate(Known(Known::AutoMode::AcceptNew, true))) ||
           failed();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 1 + Login::argumentCount) {
        std::cerr << "usage: " << argv[0] << ' ' << Login::usage << '\n';
        return 2;
    }
    Tarnis::SSHSession session;
    if (!connectTo(session, Login::fromArguments(argv + 1)) || !decideAboutHost(session)) {
        std::cout << "not trusted\n";
        return 1;
    }
    std::cout << "trusted\n";
    return 0;
}
