#include "support/BenchServer.h"

#include <sstream>
#include <stdexcept>

#include <pwd.h>
#include <unistd.h>

namespace TarnisBench {

namespace {

constexpr const char* loopback = "127.0.0.1";

std::string accountLine(const passwd& account, const std::string& home, const std::string& shell)
{
    std::ostringstream line;
    line << account.pw_name << ":x:" << account.pw_uid << ':' << account.pw_gid << "::" << home
         << ':' << shell << '\n';
    return line.str();
}

passwd currentUser()
{
    const passwd* const entry = ::getpwuid(::geteuid());
    if (entry == nullptr) {
        throw std::runtime_error("the user has no account");
    }
    return *entry;
}

} // namespace

BenchServer::BenchServer()
    : hostKey_(TarnisTest::generateKey(directory_, "host"))
    , clientKey_(TarnisTest::generateKey(directory_, "client"))
    , process_(
          1, [this](const auto& ports) { return command(ports.front()); },
          TarnisTest::checkSshdStartup)
{
    TarnisTest::providePrivilegeSeparationDirectory();
    directory_.makeDirectory("home");
    directory_.write("authorized_keys", clientKey_.publicLine + "\n");
    writeAccounts();
    process_.start();

    login_.host = loopback;
    login_.port = process_.ports().front();
    login_.user = currentUser().pw_name;
    login_.keyFile = clientKey_.privatePath;
    login_.knownHostsFile =
        directory_.write("known_hosts", "[" + login_.host + "]:" + std::to_string(login_.port) +
                                            " " + hostKey_.publicLine + "\n");
}

TarnisTest::Command BenchServer::command(std::uint16_t port) const
{
    auto command = TarnisTest::sshdCommand(directory_.write("sshd_config", configuration(port)));
    command.environment = {
        // Found by the dynamic linker, wherever the distribution puts it.
        "LD_PRELOAD=libnss_wrapper.so",
        "NSS_WRAPPER_PASSWD=" + directory_.file("passwd"),
        "NSS_WRAPPER_GROUP=/etc/group",
    };
    return command;
}

std::string BenchServer::configuration(std::uint16_t port) const
{
    std::ostringstream out;
    out << "ListenAddress " << loopback << "\n"
        << "Port " << port << "\n"
        << "HostKey " << hostKey_.privatePath << "\n"
        << "AuthorizedKeysFile " << directory_.file("authorized_keys") << "\n"
        << "PidFile none\n"
        << "StrictModes no\n"
        << "UsePAM no\n"
        << "UseDNS no\n"
        << "PrintLastLog no\n"
        << "PermitUserRC no\n"
        << "PermitRootLogin yes\n"
        << "PasswordAuthentication no\n"
        << "KbdInteractiveAuthentication no\n"
        << "MaxStartups 1000\n"
        << "MaxSessions 1000\n";
    return out.str();
}

void BenchServer::writeAccounts() const
{
    std::string accounts = accountLine(currentUser(), directory_.file("home"), "/bin/sh");
    // Whom sshd, started by root, becomes before it has authenticated anyone.
    if (const passwd* const unprivileged = ::getpwnam("sshd")) {
        accounts += accountLine(*unprivileged, "/run/sshd", "/usr/sbin/nologin");
    }
    directory_.write("passwd", accounts, 0644);
}

} // namespace TarnisBench
