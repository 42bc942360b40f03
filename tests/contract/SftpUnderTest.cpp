#include "contract/SftpUnderTest.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

#include <unistd.h>

namespace TarnisTest {

namespace {

/// Logs in when the first test runs, and out before main() returns: what libssh stands on is gone
/// soon after.
class SftpEnvironment final : public testing::Environment
{
public:
    explicit SftpEnvironment(std::function<SftpService()> start)
        : start_(std::move(start))
    {}

    SftpClients& clients()
    {
        if (!clients_) {
            clients_.emplace(start_());
        }
        return *clients_;
    }

    void TearDown() override { clients_.reset(); }

private:
    const std::function<SftpService()> start_;
    std::optional<SftpClients> clients_;
};

} // namespace

Capabilities sftpCapabilities()
{
    Capabilities capabilities;
    const auto version3 = [](const char* times) {
        return Capability::lacking(std::string("version 3 of the protocol has ") + times);
    };
    capabilities.keepsSubSecondTimes = version3("whole seconds");
    capabilities.refusesImpossiblePositions =
        Capability::lacking("libssh takes any position and asks the server for nothing");
    capabilities.keepsTimesBefore1970 = version3("no seconds before 1970");
    capabilities.keepsTimesAfter2106 = version3("32 bits of seconds");
    capabilities.setsTimesOfLinks = version3("no request that does not follow a link");
    capabilities.refusesToRemoveFilesAsLinks =
        Capability::lacking("the protocol has one request for removing files and links");
    return capabilities;
}

Capabilities sftpCapabilitiesOfOwnUser()
{
    Capabilities capabilities = sftpCapabilities();
    if (::geteuid() == 0) {
        capabilities.enforcesPermissions =
            Capability::lacking("the superuser may do what permissions forbid");
    }
    return capabilities;
}

SftpClient::SftpClient(const Access& access)
    : session_(openSession(access))
    , files_(session_->createSFTPFileSystem())
{
    if (files_ == nullptr) {
        throw std::runtime_error("there is no SFTP: " + session_->getLastError());
    }
}

SftpClients::SftpClients(SftpService service)
    : service_(std::move(service))
{}

void SftpClients::drop()
{
    first_.reset();
    second_.reset();
}

const Tarnis::SSHFileSystemSFTP& SftpClients::files(std::optional<SftpClient>& client) const
{
    if (!client) {
        client.emplace(service_.access);
    }
    return client->files();
}

SftpUnderTest::SftpUnderTest(SftpClients& clients)
    : clients_(clients)
    , files_(clients.files())
{
    if (clients_.service().servesNobody) {
        user_.emplace();
    }
    directory_.emplace(clients_.service().localRoot);
}

SftpUnderTest::~SftpUnderTest()
{
    // A test that failed may leave its session in disorder, and others must not fail for it.
    if (testing::Test::HasFailure()) {
        clients_.drop();
    }
}

std::string SftpUnderTest::directory() const
{
    return clients_.service().remoteRoot + "/" + directory_->path().filename().string();
}

std::string SftpUnderTest::localPath(const std::string& path) const
{
    return clients_.service().localRoot + path.substr(clients_.service().remoteRoot.size());
}

bool registerSftpBackend(const std::string& name, std::function<Availability()> availability,
                         std::function<SftpService()> start)
{
    auto environment = std::make_unique<SftpEnvironment>(std::move(start));
    SftpEnvironment& sessions = *environment;
    testing::AddGlobalTestEnvironment(environment.release()); // GoogleTest deletes it
    return registerBackend({name, std::move(availability), [&sessions] {
                                return std::make_unique<SftpUnderTest>(sessions.clients());
                            }});
}

} // namespace TarnisTest
