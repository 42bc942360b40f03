#include "support/PasswordSshServer.h"

#include "support/OpenSshServer.h"

#include <array>
#include <sstream>
#include <utility>

namespace TarnisTest {

namespace {

// In the order of the ports.
constexpr std::array<std::pair<Login, const char*>, 5> kAuthenticationMethods{{
    {Login::Password, "password"},
    {Login::KeyboardInteractive, "keyboard-interactive"},
    {Login::KeyThenPassword, "publickey,password"},
    {Login::KeyThenKeyboardInteractive, "publickey,keyboard-interactive"},
    {Login::EmptyPassword, "none"},
}};

} // namespace

Availability PasswordSshServer::availability()
{
    const Availability sshd = OpenSshServer::availability();
    return sshd.usable ? WrappedUsers::availability() : sshd;
}

PasswordSshServer::PasswordSshServer()
    : hostKey_(generateKey(users_.directory(), "host_key"))
    , process_(
          kAuthenticationMethods.size(),
          [this](const std::vector<std::uint16_t>& ports) {
              Command command =
                  sshdCommand(users_.directory().write("sshd_config", configuration(ports)));
              command.environment = users_.environment();
              return command;
          },
          checkSshdStartup)
{
    providePrivilegeSeparationDirectory();
    process_.start();
}

std::string PasswordSshServer::configuration(const std::vector<std::uint16_t>& ports) const
{
    std::ostringstream out;
    out << "ListenAddress 127.0.0.1\n";
    for (const std::uint16_t port : ports) {
        out << "Port " << port << "\n";
    }
    out << "PidFile none\n"
        << "LogLevel VERBOSE\n"
        << "HostKey " << hostKey_.privatePath << "\n"
        << "StrictModes no\n"
        << "UsePAM yes\n"
        << "UseDNS no\n"
        << "PermitUserRC no\n"
        << "PasswordAuthentication yes\n"
        << "KbdInteractiveAuthentication yes\n"
        << "PermitEmptyPasswords yes\n"
        << "AuthorizedKeysFile " << users_.authorizedKeysFile() << "\n"
        << "Subsystem sftp internal-sftp\n"
        << "MaxStartups 1000\n"
        << withoutPenalties();
    for (std::size_t i = 0; i < ports.size(); ++i) {
        out << "Match LocalPort " << ports[i] << "\n"
            << "    AuthenticationMethods " << kAuthenticationMethods[i].second << "\n";
    }
    return out.str();
}

} // namespace TarnisTest
