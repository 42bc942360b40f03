#include "support/DropbearServer.h"

#include <sstream>
#include <stdexcept>

namespace TarnisTest {

namespace {

std::string findDropbear()
{
    return findProgram({"/usr/sbin/dropbear", "/usr/local/sbin/dropbear", "/usr/bin/dropbear"});
}

std::string findDropbearKey()
{
    return findProgram({"/usr/bin/dropbearkey", "/usr/local/bin/dropbearkey"});
}

// Dropbear opens its sockets first, tells about those it could not, and then says that it goes on
// in the foreground.
SshdProcess::Startup checkStartup(ChildProcess& process,
                                  const std::vector<std::uint16_t>& /*ports*/)
{
    return checkStartupLog(process, [](const std::string& log) {
        return log.find("Not backgrounding") != std::string::npos;
    });
}

} // namespace

Availability DropbearServer::availability()
{
    if (findDropbear().empty() || findDropbearKey().empty()) {
        return Availability::no("dropbear is not installed");
    }
    return WrappedUsers::availability();
}

DropbearServer::DropbearServer()
    : hostKeyPath_(users_.directory().file("dropbear_host_key"))
    , process_(
          1,
          [this](const std::vector<std::uint16_t>& ports) {
              Command command;
              command.arguments = {
                  findDropbear(), "-F",         "-E", "-m",
                  "-r",           hostKeyPath_, "-p", "127.0.0.1:" + std::to_string(ports.front())};
              command.environment = users_.environment();
              return command;
          },
          checkStartup)
{
    makeHostKey();
    process_.start();
}

void DropbearServer::makeHostKey()
{
    Command command;
    command.arguments = {findDropbearKey(), "-t", "ed25519", "-f", hostKeyPath_};
    const std::string output = mustRun(command);
    const std::string type = "ssh-ed25519 ";
    const auto begin = output.find(type);
    if (begin == std::string::npos) {
        throw std::runtime_error("dropbearkey prints no public key: " + output);
    }
    std::istringstream(output.substr(begin + type.size())) >> hostPublicKeyBase64_;
}

} // namespace TarnisTest
