#include "integration/auth/KnownHostsFile.h"

#include "support/ChildProcess.h"

#include <filesystem>

namespace TarnisTest {

bool KnownHostsFile::exists() const
{
    return std::filesystem::exists(path());
}

void KnownHostsFile::hashNames() const
{
    Command command;
    command.arguments = {"ssh-keygen", "-H", "-f", path()};
    mustRun(command);
}

std::string knownHostsLine(std::uint16_t port, const KeyPair& key)
{
    return "[127.0.0.1]:" + std::to_string(port) + " " + key.publicLine + "\n";
}

} // namespace TarnisTest
