#include "support/BenchServer.h"

#include "support/ProcessorFlags.h"

#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <pwd.h>
#include <unistd.h>

namespace TarnisBench {

namespace {

constexpr const char* loopback = "127.0.0.1";

constexpr const char* serverHome = "home";

std::string accountLine(const passwd& account, const std::string& home, const std::string& shell)
{
    std::ostringstream line;
    line << account.pw_name << ":x:" << account.pw_uid << ':' << account.pw_gid << "::" << home
         << ':' << shell << '\n';
    return line.str();
}

std::string clientHome(std::uint16_t port)
{
    return "client-" + std::to_string(port);
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

std::string preferredCipherAlone()
{
    const bool hasAes = TarnisTest::kernelListsAes().value_or(false);
    return std::string("Ciphers ") +
           (hasAes ? "aes256-gcm@openssh.com" : "chacha20-poly1305@openssh.com") + "\n";
}

BenchServer::BenchServer(std::string options)
    : options_(std::move(options))
    , hostKey_(TarnisTest::generateKey(directory_, "host"))
    , clientKey_(TarnisTest::generateKey(directory_, "client"))
    , process_(
          1, [this](const auto& ports) { return command(ports.front()); },
          TarnisTest::checkSshdStartup)
{
    TarnisTest::providePrivilegeSeparationDirectory();
    directory_.makeDirectory(serverHome);
    directory_.write("authorized_keys", clientKey_.publicLine + "\n");
    process_.start();
    login_ = loginThrough(process_.ports().front());
}

Login BenchServer::loginThrough(std::uint16_t port) const
{
    const std::string sshDirectory = clientHome(port) + "/.ssh";
    std::filesystem::create_directories(directory_.file(sshDirectory));
    Login login;
    login.host = loopback;
    login.port = port;
    login.user = currentUser().pw_name;
    login.keyFile = clientKey_.privatePath;
    login.knownHostsFile = directory_.write(sshDirectory + "/known_hosts",
                                            "[" + login.host + "]:" + std::to_string(port) + " " +
                                                hostKey_.publicLine + "\n");
    return login;
}

std::vector<std::string> BenchServer::clientEnvironment(const Login& login) const
{
    const std::string home = directory_.file(clientHome(login.port));
    auto environment = wrapAccounts(home);
    environment.insert(environment.end(),
                       {"HOME=" + home, "PATH=/usr/local/bin:/usr/bin:/bin", "LC_ALL=C.UTF-8"});
    return environment;
}

TarnisTest::Command BenchServer::command(std::uint16_t port) const
{
    auto command = TarnisTest::sshdCommand(directory_.write("sshd_config", configuration(port)));
    command.environment = wrapAccounts(directory_.file(serverHome));
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
        << "Subsystem sftp internal-sftp\n"
        << options_;
    return out.str();
}

/// The environment in which the user's home is the given one.
std::vector<std::string> BenchServer::wrapAccounts(const std::string& home) const
{
    std::string accounts = accountLine(currentUser(), home, "/bin/sh");
    // Whom sshd, started by root, becomes before it has authenticated anyone.
    if (const passwd* const unprivileged = ::getpwnam("sshd")) {
        accounts += accountLine(*unprivileged, "/run/sshd", "/usr/sbin/nologin");
    }
    const std::string name = "passwd-" + std::filesystem::path(home).filename().string();
    return {
        // Found by the dynamic linker, wherever the distribution puts it.
        "LD_PRELOAD=libnss_wrapper.so",
        "NSS_WRAPPER_PASSWD=" + directory_.write(name, accounts, 0644),
        "NSS_WRAPPER_GROUP=/etc/group",
    };
}

} // namespace TarnisBench
