#include "support/ProFtpdServer.h"

#include "support/LoopbackSocket.h"

#include <sstream>
#include <system_error>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

namespace TarnisTest {

namespace {

std::string findProFtpd()
{
    return findProgram({"/usr/sbin/proftpd", "/usr/local/sbin/proftpd"});
}

constexpr const char* kModules = "/usr/lib/proftpd";

bool isRoot()
{
    return ::geteuid() == 0;
}

std::string currentUser()
{
    const passwd* const entry = ::getpwuid(::geteuid());
    return entry != nullptr ? entry->pw_name : "nobody";
}

std::string currentGroup()
{
    const group* const entry = ::getgrgid(::getegid());
    return entry != nullptr ? entry->gr_name : "nogroup";
}

// Distributions differ in what they compile in and what they leave to be loaded.
std::string loadModules()
{
    std::string lines;
    for (const char* const module : {"mod_ls", "mod_xfer", "mod_delay", "mod_sftp"}) {
        if (std::filesystem::exists(std::string(kModules) + "/" + module + ".so")) {
            lines += std::string("LoadModule ") + module + ".c\n";
        }
    }
    return lines;
}

bool acceptsConnections(std::uint16_t port)
{
    try {
        connectToLoopback(port);
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

SshdProcess::Startup checkStartup(ChildProcess& process, const std::vector<std::uint16_t>& ports)
{
    // It has bound its socket by the time it says so, and listens a moment later.
    return checkStartupLog(process, [&](const std::string& log) {
        return log.find("standalone mode STARTUP") != std::string::npos &&
               acceptsConnections(ports.front());
    });
}

} // namespace

Availability ProFtpdServer::availability()
{
    if (findProFtpd().empty()) {
        return Availability::no("proftpd is not installed");
    }
    if (!std::filesystem::exists(std::string(kModules) + "/mod_sftp.so")) {
        return Availability::no("mod_sftp of proftpd is not installed");
    }
    return Availability::yes();
}

ProFtpdServer::ProFtpdServer()
    : hostKey_(generateKey(directory_, "host_key"))
    , clientKey_(generateKey(directory_, "client"))
    , process_(
          1,
          [this](const std::vector<std::uint16_t>& ports) {
              Command command;
              command.arguments = {findProFtpd(), "--nodaemon", "--config",
                                   directory_.write("proftpd.conf", configuration(ports.front()))};
              return command;
          },
          checkStartup)
{
    directory_.makeDirectory("root");
    writeUser();
    process_.start();
}

std::string ProFtpdServer::remoteRoot() const
{
    return isRoot() ? "/" : root();
}

std::string ProFtpdServer::log() const
{
    return process_.log() + readFile(directory_.file("sftp.log"));
}

void ProFtpdServer::writeUser() const
{
    std::ostringstream account;
    account << user() << ":!:" << ::geteuid() << ":" << ::getegid() << "::" << root()
            << ":/bin/sh\n";
    directory_.write("passwd", account.str());
    Command convert;
    convert.arguments = {"ssh-keygen", "-e", "-f", clientKey_.publicPath};
    directory_.write("authorized_keys", mustRun(convert));
}

std::string ProFtpdServer::configuration(std::uint16_t port) const
{
    std::ostringstream out;
    out << "ModulePath " << kModules << "\n"
        << loadModules() << "ServerType standalone\n"
        << "DefaultAddress 127.0.0.1\n"
        << "SocketBindTight on\n"
        << "UseIPv6 off\n"
        << "UseReverseDNS off\n"
        << "Port " << port << "\n"
        << "User " << currentUser() << "\n"
        << "Group " << currentGroup() << "\n"
        << "RootLogin on\n"
        << (isRoot() ? "DefaultRoot ~\n" : "") // only root can lock somebody in
        << "PidFile " << directory_.file("pid") << "\n"
        << "ScoreboardFile " << directory_.file("scoreboard") << "\n"
        << "DelayEngine off\n"
        << "ControlsEngine off\n"
        << "WtmpLog off\n"
        << "TransferLog none\n"
        << "AuthOrder mod_auth_file.c\n"
        << "AuthUserFile " << directory_.file("passwd") << "\n"
        << "RequireValidShell off\n"
        << "UseFtpUsers off\n"
        << "AllowOverwrite on\n"
        << "AllowStoreRestart on\n"
        << "SFTPEngine on\n"
        << "SFTPLog " << directory_.file("sftp.log") << "\n"
        << "SFTPHostKey " << hostKey_.privatePath << "\n"
        << "SFTPAuthMethods publickey\n"
        << "SFTPAuthorizedUserKeys file:" << directory_.file("authorized_keys") << "\n";
    return out.str();
}

} // namespace TarnisTest
