#include "support/AsyncSshServer.h"

#include <stdexcept>

namespace TarnisTest {

namespace {

// Debian's packages are for Debian's own interpreter.
constexpr const char* kPython = "/usr/bin/python3";

// The interpreter, told to keep quiet about old ciphers.
std::vector<std::string> python()
{
    return {kPython, "-W", "ignore"};
}

bool asyncSshIsInstalled()
{
    Command command;
    command.arguments = python();
    command.arguments.insert(command.arguments.end(), {"-c", "import asyncssh"});
    return runCommand(command).succeeded();
}

} // namespace

Availability AsyncSshServer::availability()
{
    if (findProgram({kPython}).empty()) {
        return Availability::no("python3 is not installed");
    }
    static const bool installed = asyncSshIsInstalled();
    return installed ? Availability::yes() : Availability::no("asyncssh is not installed");
}

AsyncSshServer::AsyncSshServer(const AsyncSshOptions& options)
    : hostKey_(generateKey(directory_, "host_key"))
    , clientKey_(generateKey(directory_, "client"))
{
    directory_.write("authorized_keys", clientKey_.publicLine + "\n");
    directory_.makeDirectory("root");
    directory_.makeDirectory("home");
    process_ = std::make_unique<ChildProcess>(command(options));
    awaitPort();
}

Command AsyncSshServer::command(const AsyncSshOptions& options) const
{
    Command command;
    command.arguments = python();
    command.arguments.insert(command.arguments.end(),
                             {TARNIS_TEST_ASYNCSSH_SERVER, "--host-key", hostKey_.privatePath,
                              "--authorized-keys", directory_.file("authorized_keys")});
    if (!options.version.empty()) {
        command.arguments.insert(command.arguments.end(), {"--version", options.version});
    }
    if (!options.sftpCommand.empty()) {
        command.arguments.insert(command.arguments.end(), {"--sftp-command", options.sftpCommand});
    }
    if (options.echoes) {
        command.arguments.emplace_back("--echo");
    }
    // Not the served directory: what it loads may keep things at home.
    command.environment = {"PATH=/usr/local/bin:/usr/bin:/bin", "HOME=" + directory_.file("home")};
    command.workingDirectory = root();
    return command;
}

void AsyncSshServer::awaitPort()
{
    const auto hasSpoken = [this] {
        return process_->output().find('\n') != std::string::npos || !process_->isRunning();
    };
    if (!waitUntil(hasSpoken) || !process_->isRunning()) {
        throw std::runtime_error("the server does not come up: " + log());
    }
    port_ = static_cast<std::uint16_t>(std::stoi(process_->output()));
}

} // namespace TarnisTest
