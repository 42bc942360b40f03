// `tarnis hostkey`: the key of a server and its fingerprint.

#include "support/OpenSshServer.h"
#include "support/RequireServer.h"
#include "support/ScriptedServer.h"
#include "tool/ToolTest.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace TarnisTest {
namespace {

using testing::StartsWith;

class HostKeyTest : public ToolTest
{};

/// A listening socket on ::1, and its port. Not open where the machine has no IPv6.
struct ListenerOnIPv6
{
    ListenerOnIPv6()
        : socket(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_addr = in6addr_loopback;
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        if (::bind(socket.get(), generic, size) != 0 || ::listen(socket.get(), 1) != 0 ||
            ::getsockname(socket.get(), generic, &size) != 0) {
            socket.reset();
        }
        port = ntohs(address.sin6_port);
    }

    bool waitForConnection() const
    {
        pollfd event{socket.get(), POLLIN, 0};
        return ::poll(&event, 1, 30'000) == 1;
    }

    UniqueFd socket;
    std::uint16_t port = 0;
};

TEST_F(HostKeyTest, PrintsAKnownHostsLineAndTheFingerprintThatOpenSshComputes)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    for (const KeyType type : {KeyType::Ed25519, KeyType::Ecdsa, KeyType::Rsa}) {
        OpenSshOptions options;
        options.hostKeyTypes = {type};
        const OpenSshServer server(options);
        const std::string place = "127.0.0.1:" + std::to_string(server.port());
        const ToolResult result = run({"hostkey", place});
        EXPECT_EQ(result.exitCode, 0) << result.errorOutput;
        EXPECT_EQ(result.output, "[127.0.0.1]:" + std::to_string(server.port()) + " " +
                                     server.hostKey(type).publicLine + "\n" +
                                     server.hostKey(type).fingerprint + "\n");
    }
}

TEST_F(HostKeyTest, RecordsNothing)
{
    const ScriptedServer server;
    EXPECT_EQ(run({"hostkey", "127.0.0.1:" + std::to_string(server.port())}).exitCode, 0);
    EXPECT_EQ(knownHosts(), "");
}

TEST_F(HostKeyTest, SaysWhyThereIsNoKey)
{
    const RefusingPort port;
    const std::string place = "127.0.0.1:" + std::to_string(port.number());
    const ToolResult result = run({"hostkey", place});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errorOutput, "tarnis: cannot connect to " + place +
                                      ": nobody listens at this port (Connection refused)\n");
}

TEST_F(HostKeyTest, ConnectsToIPv6AddressesInBrackets)
{
    ListenerOnIPv6 listener;
    if (!listener.socket.isOpen()) {
        GTEST_SKIP() << "the machine has no IPv6";
    }
    const std::string place = "[::1]:" + std::to_string(listener.port);
    ToolSetup setup;
    setup.arguments = {"hostkey", "user@" + place};
    const auto tool = start(setup);
    EXPECT_TRUE(listener.waitForConnection());
    listener.socket.reset();
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), StartsWith("tarnis: cannot connect to user@" + place + ": "));
}

TEST_F(HostKeyTest, SaysThatTheOutputCannotBeWritten)
{
    const ScriptedServer server;
    ToolSetup setup;
    setup.arguments = {"hostkey", "127.0.0.1:" + std::to_string(server.port())};
    const UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    setup.outputDescriptor = full.get();
    const ToolResult result = run(setup);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errorOutput, StartsWith("tarnis: cannot write to standard output: "));
}

TEST_F(HostKeyTest, ShowsTheKeyAsJson)
{
    const ScriptedServer server;
    const ToolResult result = run({"hostkey", "--json", target(server.port())});
    EXPECT_EQ(result.exitCode, 0);
    const auto key = nlohmann::json::parse(result.output);
    EXPECT_EQ(key["host"], "127.0.0.1");
    EXPECT_EQ(key["port"], server.port());
    EXPECT_EQ(key["type"], "ssh-ed25519");
    EXPECT_EQ(key["key"], ScriptedServer::hostPublicKeyBase64());
    EXPECT_EQ(key["fingerprint"], ScriptedServer::hostKeyFingerprint());
}

} // namespace
} // namespace TarnisTest
