#include "contract/SftpUnderTest.h"
#include "support/ProFtpdServer.h"

namespace TarnisTest {

namespace {

Capabilities capabilities()
{
    Capabilities capabilities = sftpCapabilitiesOfOwnUser();
    capabilities.tellsRelativeTargets =
        Capability::lacking("the server puts the link's directory before what the link says");
    capabilities.renamesLinks =
        Capability::lacking("the server would rename what the link leads to");
    capabilities.takesNoPermissions =
        Capability::lacking("the server takes permissions of 0 for none given");
    capabilities.takesUmaskOffNewFiles =
        Capability::lacking("the server sets the permissions of a new file once it is made");
    capabilities.refusesToOpenDirectories =
        Capability::lacking("the server opens directories from version 1.3.9 on");
    capabilities.refusesToOpenPipes =
        Capability::lacking("the server opens pipes, and does not wait for their other end");
    capabilities.readsWhatHasBeenAdded =
        Capability::lacking("the server keeps to the size that it has found");
    return capabilities;
}

SftpService start()
{
    static const ProFtpdServer server;
    const std::string root = server.remoteRoot() == "/" ? "" : server.remoteRoot();
    return {accessTo(server), server.root(), root, capabilities()};
}

const bool registered = registerSftpBackend("ProFtpd", ProFtpdServer::availability, start);

} // namespace

} // namespace TarnisTest
