#include "contract/SftpUnderTest.h"
#include "support/OpenSshServer.h"

namespace TarnisTest {

namespace {

Capabilities capabilities()
{
    Capabilities capabilities = sftpCapabilitiesOfOwnUser();
    capabilities.refusesToOpenDirectories =
        Capability::lacking("the server opens whatever the machine opens");
    capabilities.refusesToOpenPipes = capabilities.refusesToOpenDirectories;
    return capabilities;
}

SftpService start()
{
    static const OpenSshServer server;
    static const TemporaryDirectory root;
    const std::string path = root.path().string();
    return {accessTo(server), path, path, capabilities()};
}

const bool registered = registerSftpBackend("OpenSsh", OpenSshServer::availability, start);

} // namespace

} // namespace TarnisTest
