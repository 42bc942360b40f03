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

/// Says on standard error what failed, and libssh's reason where it has one. Always false.
inline bool failed(const Tarnis::SSHSession& session, const char* step)
{
    const std::string reason = session.getLastError();
    std::cerr << step << " failed" << (reason.empty() ? "" : ": " + reason) << '\n';
    return false;
}

/// Connects to the server.
inline bool connectTo(Tarnis::SSHSession& session, const Login& login)
{
    session.setHostName(login.host);
    session.setPortNumber(login.port);
    session.setUserName(login.user);
    session.setKnownHostsFile(login.knownHostsFile);
    return session.connect() || failed(session, "connecting");
}

/// Goes on only with a server that stands in the known-hosts file.
inline bool trustKnownHost(Tarnis::SSHSession& session)
{
    using Known = Tarnis::HostAuthenticatorKnownHostFile;
    const auto response = session.hostAuthenticate(Known(Known::AutoMode::KnownOnly, false));
    return (response && response->getResult() == Tarnis::AuthenticateHostResult::Accepted) ||
           failed(session, "verifying the server's key");
}

/// All the way to a session that can be used.
inline bool logIn(Tarnis::SSHSession& session, const Login& login)
{
    if (!connectTo(session, login) || !trustKnownHost(session)) {
        return false;
    }
    session.userAuthenticate(Tarnis::UserAuthenticatorPrivateKeyFile(login.keyFile, ""));
    return session.isAuthenticated() || failed(session, "logging in");
}

/// The server's files, once logged in; null after a failure.
inline std::unique_ptr<Tarnis::SSHFileSystemSFTP> openFiles(Tarnis::SSHSession& session)
{
    auto files = session.createSFTPFileSystem();
    if (!files) {
        failed(session, "starting file transfer");
    }
    return files;
}
