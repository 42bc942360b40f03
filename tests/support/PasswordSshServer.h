#pragma once

#include "support/SshdProcess.h"
#include "support/WrappedUsers.h"

namespace TarnisTest {

/// What a port of PasswordSshServer asks of a user.
enum class Login
{
    Password,                   ///< the password
    KeyboardInteractive,        ///< the password, as the answer to a prompt
    KeyThenPassword,            ///< a key first, then the password as well
    KeyThenKeyboardInteractive, ///< a key first, then the password as the answer to a prompt
    EmptyPassword,              ///< nothing: method "none" lets userWithoutPassword() in
};

/// A real sshd that checks passwords of invented users, with one port for each kind of login. Needs
/// root and the wrapper libraries: ask availability() first, through requireServer().
class PasswordSshServer
{
public:
    static Availability availability();

    /// Returns when the server listens on all its ports.
    PasswordSshServer();

    std::uint16_t port(Login login) const
    {
        return process_.ports().at(static_cast<std::size_t>(login));
    }

    std::string user() const { return users_.user(); }

    std::string password() const { return users_.password(); }

    std::string userWithoutPassword() const { return users_.userWithoutPassword(); }

    const KeyPair& clientKey() const { return users_.clientKey(); }

    const KeyPair& hostKey() const { return hostKey_; }

    std::string log() const { return process_.log(); }

    void killConnections() { process_.killConnections(); }

    void suspendAll() { process_.suspendAll(); }

    void resumeAll() { process_.resumeAll(); }

    std::size_t connectionProcessCount() const { return process_.connectionProcessCount(); }

private:
    std::string configuration(const std::vector<std::uint16_t>& ports) const;

    WrappedUsers users_;
    KeyPair hostKey_;
    SshdProcess process_;
};

} // namespace TarnisTest
