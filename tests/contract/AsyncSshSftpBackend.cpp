#include "contract/SftpUnderTest.h"
#include "support/AsyncSshServer.h"

namespace TarnisTest {

namespace {

Capabilities capabilities()
{
    Capabilities capabilities = sftpCapabilitiesOfOwnUser();
    capabilities.refusesToOpenPipes =
        Capability::lacking("the server, all of it, waits for the pipe's other end");
    return capabilities;
}

SftpService start()
{
    static const AsyncSshServer server;
    const std::string path = server.root();
    return {accessTo(server), path, path, capabilities()};
}

const bool registered = registerSftpBackend("AsyncSsh", AsyncSshServer::availability, start);

} // namespace

} // namespace TarnisTest
