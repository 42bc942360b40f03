#include "support/OpenSshClient.h"

#include "support/Require.h"
#include "support/UniqueFd.h"
#include "support/WaitUntil.h"

#include <array>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace TarnisBench {

namespace {

void addOption(std::vector<std::string>& arguments, const std::string& name,
               const std::string& value)
{
    arguments.emplace_back("-o");
    arguments.push_back(name + "=" + value);
}

/// Reads up to the end of the first line that holds `text`; false when there is none.
bool readUpTo(int descriptor, const std::string& text)
{
    std::string seen;
    std::array<char, 4096> buffer{};
    for (;;) {
        const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
        if (count <= 0) {
            return false;
        }
        seen.append(buffer.data(), static_cast<std::size_t>(count));
        if (seen.find(text) != std::string::npos) {
            return true;
        }
    }
}

} // namespace

std::vector<std::string> openSshOptions(const Login& login)
{
    std::vector<std::string> options{"-F", "none", "-i", login.keyFile};
    addOption(options, "IdentitiesOnly", "yes");
    addOption(options, "IdentityAgent", "none");
    addOption(options, "BatchMode", "yes");
    addOption(options, "StrictHostKeyChecking", "yes");
    addOption(options, "UserKnownHostsFile", login.knownHostsFile);
    addOption(options, "GlobalKnownHostsFile", "none");
    return options;
}

OpenSshClient::OpenSshClient(Login login, Algorithms algorithms)
    : login_(std::move(login))
    , algorithms_(std::move(algorithms))
{}

std::vector<std::string> OpenSshClient::commandLine(const std::vector<std::string>& options,
                                                    const std::string& remoteCommand) const
{
    std::vector<std::string> arguments{"ssh", "-T",       "-p", std::to_string(login_.port),
                                       "-l",  login_.user};
    const auto common = openSshOptions(login_);
    arguments.insert(arguments.end(), common.begin(), common.end());
    addOption(arguments, "KexAlgorithms", algorithms_.keyExchange);
    addOption(arguments, "Ciphers", algorithms_.cipher);
    if (!algorithms_.mac.empty()) {
        addOption(arguments, "MACs", algorithms_.mac);
    }
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(login_.host);
    if (!remoteCommand.empty()) {
        arguments.push_back(remoteCommand);
    }
    return arguments;
}

OpenSshSharedConnection::OpenSshSharedConnection(const OpenSshClient& client, std::string socket)
    : client_(client)
    , socket_(std::move(socket))
    , master_(client.commandLine({"-M", "-N", "-S", socket_}, ""))
{
    const auto check = client.commandLine({"-S", socket_, "-O", "check"}, "");
    const bool stands =
        TarnisTest::waitUntil([&check] { return SpawnedProcess(check).succeeds(); });
    require(stands, "sharing a connection of ssh");
}

std::vector<std::string>
OpenSshSharedConnection::commandLine(const std::string& remoteCommand) const
{
    return client_.commandLine({"-S", socket_}, remoteCommand);
}

std::unique_ptr<SpawnedProcess> logInWithOpenSsh(const OpenSshClient& client)
{
    std::array<int, 2> ends{};
    require(::pipe2(ends.data(), O_CLOEXEC) == 0, "making a pipe");
    const TarnisTest::UniqueFd readEnd(ends[0]);
    TarnisTest::UniqueFd writeEnd(ends[1]);
    StandardStreams streams;
    streams.errorOutput = writeEnd.get();
    auto ssh = std::make_unique<SpawnedProcess>(
        client.commandLine({"-N", "-o", "LogLevel=VERBOSE"}, ""), streams);
    writeEnd.reset();
    require(readUpTo(readEnd.get(), "Authenticated to "), "logging in with ssh");
    return ssh;
}

} // namespace TarnisBench
