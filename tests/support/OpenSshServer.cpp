#include "support/OpenSshServer.h"

#include <sstream>
#include <stdexcept>

#include <pwd.h>
#include <unistd.h>

namespace TarnisTest {

namespace {

std::string currentUser()
{
    const passwd* const entry = ::getpwuid(::geteuid());
    if (entry == nullptr) {
        throw std::runtime_error("the user of the test has no account");
    }
    return entry->pw_name;
}

} // namespace

Availability OpenSshServer::availability()
{
    return findSshd().empty() ? Availability::no("sshd is not installed") : Availability::yes();
}

OpenSshServer::OpenSshServer(OpenSshOptions options)
    : options_(std::move(options))
    , user_(currentUser())
    , clientKey_(generateKey(directory_, "client"))
    , process_(
          1,
          [this](const std::vector<std::uint16_t>& ports) {
              return sshdCommand(directory_.write("sshd_config", configuration(ports.front())));
          },
          checkSshdStartup)
{
    providePrivilegeSeparationDirectory();
    directory_.makeDirectory("home");
    makeHostKeys();
    std::string authorized = clientKey_.publicLine + "\n";
    for (const std::string& line : options_.authorizedKeys) {
        authorized += line + "\n";
    }
    directory_.write("authorized_keys", authorized);
    process_.start();
}

void OpenSshServer::restartWithNewHostKeys()
{
    stop();
    makeHostKeys();
    start();
}

void OpenSshServer::makeHostKeys()
{
    ++hostKeyGeneration_;
    for (const KeyType type : options_.hostKeyTypes) {
        const std::string name =
            "host_" + keyTypeName(type) + "_" + std::to_string(hostKeyGeneration_);
        hostKeys_[type] = generateKey(directory_, name, type);
    }
}

std::string OpenSshServer::sftpCommand() const
{
    return options_.sftpCommand.empty() ? "internal-sftp -d " + directory_.file("home")
                                        : options_.sftpCommand;
}

std::string OpenSshServer::configuration(std::uint16_t port) const
{
    std::ostringstream out;
    out << "ListenAddress 127.0.0.1\n"
        << "Port " << port << "\n"
        << "PidFile " << directory_.file("sshd.pid") << "\n"
        << "LogLevel VERBOSE\n"
        << "StrictModes no\n"
        << "UsePAM no\n"
        << "UseDNS no\n"
        << "PermitUserRC no\n"
        << "PermitRootLogin yes\n"
        << "PasswordAuthentication no\n"
        << "KbdInteractiveAuthentication no\n"
        << "AuthorizedKeysFile " << directory_.file("authorized_keys")
        << "\n"
        // A shell that reads its start-up files must not find the user's own.
        << "SetEnv HOME=" << directory_.file("home") << "\n"
        << "Subsystem sftp " << sftpCommand() << "\n"
        << "MaxStartups 1000\n"
        << withoutPenalties() << "MaxSessions " << options_.maxSessions << "\n";
    for (const auto& [type, key] : hostKeys_) {
        out << "HostKey " << key.privatePath << "\n";
    }
    if (!options_.forceCommand.empty()) {
        out << "ForceCommand " << options_.forceCommand << "\n";
    }
    for (const std::string& line : options_.extraLines) {
        out << line << "\n";
    }
    return out.str();
}

} // namespace TarnisTest
