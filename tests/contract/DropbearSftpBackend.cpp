#include "contract/SftpUnderTest.h"
#include "support/DropbearServer.h"

namespace TarnisTest {

namespace {

Capabilities capabilities()
{
    Capabilities capabilities = sftpCapabilities();
    capabilities.refusesToOpenDirectories =
        Capability::lacking("OpenSSH's SFTP server opens whatever the machine opens");
    capabilities.refusesToOpenPipes = capabilities.refusesToOpenDirectories;
    return capabilities;
}

SftpService start()
{
    static const DropbearServer server;
    const std::string path = server.homeDirectory();
    return {accessTo(server), path, path, capabilities(), true};
}

const bool registered = registerSftpBackend("Dropbear", DropbearServer::availability, start);

} // namespace

} // namespace TarnisTest
