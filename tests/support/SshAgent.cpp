#include "support/SshAgent.h"

#include "support/UniqueFd.h"

#include <stdexcept>

#include <sys/socket.h>
#include <sys/un.h>

namespace TarnisTest {

namespace {

// -D keeps the agent in the foreground, where it ends with us.
Command agentCommand(const std::string& socketPath)
{
    Command command;
    command.arguments = {"ssh-agent", "-D", "-a", socketPath};
    return command;
}

/// The socket stands there a moment before anybody listens at it.
bool isAnswered(const std::string& path)
{
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return false;
    }
    path.copy(address.sun_path, path.size());
    return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
           0;
}

} // namespace

SshAgent::SshAgent()
    : socketPath_(directory_.file("agent"))
    , process_(agentCommand(socketPath_))
{
    if (!waitUntil([this] { return isAnswered(socketPath_); })) {
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
