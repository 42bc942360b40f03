#pragma once

// The steps that every example needs before it comes to its own idea.

#include <Tarnis/Tarnis.h>

#include <iostream>
#include <memory>
#include <string>

/// Where to log in, and with what: the first five arguments of most examples.
struct Login
{
    static constexpr int argumentCount = 5;
    static constexpr const char* usage = "HOST PORT USER KNOWN_HOSTS_FILE KEY_FILE";

    std::string host;
    unsigned short port = 22;
    std::string user;
    std::string knownHostsFile;
    std::string keyFile;

    /// \param arguments at least argumentCount of them.
    static Login fromArguments(char** arguments)
    {
        return {arguments[0], static_cast<unsigned short>(std::stoul(arguments[1])), arguments[2],
                arguments[3], arguments[4]};
    }
};

/// Says on standard error which operation failed, on what and why. To be called before any other
/// operation, which would forget it. Always false.
inline bool failed()
{
    std::cerr << FileSystem::Failure::last().message() << '\n';
    return false;
}

/// Whether a server was trusted, or a user let in: the step leaves a failure where it was not.
template <class Response>
bool isAccepted(const std::unique_ptr<Response>& response)
{
    return response != nullptr && !FileSystem::Failure::last();
}

/// Connects to the server.
inline bool connectTo(Tarnis::SSHSession& session, const Login& login)
{
    return (session.setHostName(login.host) && session.setPortNumber(login.port) &&
            session.setUserName(login.user) && session.setKnownHostsFile(login.knownHostsFile) &&
            session.connect()) ||
           failed();
}

/// Goes on only with a server that stands in the known-hosts file.
inline bool trustKnownHost(Tarnis::SSHSession& session)
{
    using Known = Tarnis::HostAuthenticatorKnownHostFile;
    return isAccepted(session.hostAuthenticate(Known(Known::AutoMode::KnownOnly, false))) ||
           failed();
}

/// All the way to a session that can be used.
inline bool logIn(Tarnis::SSHSession& session, const Login& login)
{
    if (!connectTo(session, login) || !trustKnownHost(session)) {
        return false;
    }
    return isAccepted(session.userAuthenticate(
               Tarnis::UserAuthenticatorPrivateKeyFile(login.keyFile, ""))) ||
           failed();
}

/// The server's files, once logged in; null after a failure.
inline std::unique_ptr<Tarnis::SSHFileSystemSFTP> openFiles(Tarnis::SSHSession& session)
{
    auto files = session.createSFTPFileSystem();
    if (!files) {
        failed();
    }
    return files;
}
