#include "support/SshAgent.h"

#include <stdexcept>

#include <sys/stat.h>

namespace TarnisTest {

namespace {

// -D keeps the agent in the foreground, where it ends with us.
Command agentCommand(const std::string& socketPath)
{
    Command command;
    command.arguments = {"ssh-agent", "-D", "-a", socketPath};
    return command;
}

bool isSocket(const std::string& path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

} // namespace

SshAgent::SshAgent()
    : socketPath_(directory_.file("agent"))
    , process_(agentCommand(socketPath_))
{
    if (!waitUntil([this] { return isSocket(socketPath_); })) {
        throw std::runtime_error("ssh-agent does not come up: " + process_.errorOutput());
    }
}

void SshAgent::add(const KeyPair& key)
{
    control({"-q", key.privatePath});
}

void SshAgent::removeAll()
{
    control({"-q", "-D"});
}

void SshAgent::control(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "ssh-add");
    Command command;
    command.arguments = std::move(arguments);
    command.environment = {"SSH_AUTH_SOCK=" + socketPath_};
    mustRun(command);
}

} // namespace TarnisTest
