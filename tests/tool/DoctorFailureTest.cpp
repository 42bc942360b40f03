// The ways in which a connection can fail: what `tarnis` says of each, and what `tarnis doctor`
// advises.

#include "support/LoopbackSocket.h"
#include "support/OpenSshServer.h"
#include "support/Preload.h"
#include "support/RequireServer.h"
#include "support/ScriptedServer.h"
#include "tool/ToolTest.h"

#include <array>
#include <thread>

#include <sys/socket.h>

namespace TarnisTest {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kNoSuchHost = "no-such-host.invalid";

// What the advice on each failure begins or ends with.
constexpr const char* kUnreachable = "No network leads there.";
constexpr const char* kNoCommonAlgorithm = "share no algorithm";
constexpr const char* kNotAnSshServer = "does not speak SSH";

class DoctorFailureTest : public ToolTest
{
protected:
    ToolResult examine(const std::string& place) const { return run({"doctor", place}); }

    /// Runs the program with libssh's answers replaced as these variables say.
    ToolResult runWithStub(std::vector<std::string> arguments,
                           std::vector<std::string> variables) const
    {
        ToolSetup setup;
        setup.arguments = std::move(arguments);
        setup.environment = std::move(variables);
        for (const std::string& variable : preloading(TARNIS_LIBSSH_STUB)) {
            setup.environment.push_back(variable);
        }
        return run(setup);
    }

    static void expectConnectFails(const ToolResult& result, const std::string& reason,
                                   const std::string& advice)
    {
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.output, ContainsRegex("\n  connect +FAILED"));
        EXPECT_THAT(result.output, AllOf(HasSubstr(reason), HasSubstr(advice)));
        EXPECT_THAT(result.output, ContainsRegex("\n  host key +- +not tried"));
    }
};

/// Something that listens, answers every connection with the same text, whatever it is told, and
/// hangs up.
class Babbler
{
public:
    explicit Babbler(std::string text, bool resets = false)
        : text_(std::move(text))
        , resets_(resets)
        , listener_(listenOnLoopback())
        , thread_([this] { answerOnce(); })
    {}

    Babbler(const Babbler&) = delete;
    Babbler& operator=(const Babbler&) = delete;

    ~Babbler()
    {
        // Wakes an accept that nobody came for.
        ::shutdown(listener_.get(), SHUT_RDWR);
        thread_.join();
    }

    std::string place() const { return "tester@127.0.0.1:" + std::to_string(localPort(listener_)); }

private:
    void answerOnce()
    {
        UniqueFd client(::accept(listener_.get(), nullptr, nullptr));
        if (!client.isOpen()) {
            return;
        }
        static_cast<void>(::send(client.get(), text_.data(), text_.size(), MSG_NOSIGNAL));
        if (resets_) {
            const linger atOnce{1, 0};
            ::setsockopt(client.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
            return;
        }
        ::shutdown(client.get(), SHUT_WR);
        std::array<char, 4096> heard{};
        while (::recv(client.get(), heard.data(), heard.size(), 0) > 0) {
        }
    }

    const std::string text_;
    const bool resets_;
    UniqueFd listener_;
    std::thread thread_;
};

TEST_F(DoctorFailureTest, ExecNamesAHostThatCannotBeResolved)
{
    const ToolResult result = run({"exec", kNoSuchHost, "--", "true"});
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.errorOutput, StartsWith(std::string("tarnis: cannot connect to ") +
                                               kNoSuchHost + ": the host name has no address ("));
    EXPECT_EQ(lineCount(result.errorOutput), 1U);
}

TEST_F(DoctorFailureTest, ExecHandsLibsshsReasonForARefusedCommandOn)
{
    ScriptedPolicy policy;
    policy.channelRequest = [](const ServerEvent&) { return Answer::Refuse; };
    const ScriptedServer server(policy);
    trust(server.port(), ScriptedServer::hostPublicKeyBase64());
    const ToolResult result = run(exec(server.port(), "refused"));
    EXPECT_EQ(result.exitCode, 255);
    // Newer versions of libssh name the channel behind that.
    EXPECT_THAT(result.errorOutput,
                StartsWith("tarnis: cannot run the command on " + target(server.port()) +
                           ": permission denied (Channel request exec failed"));
    EXPECT_THAT(result.errorOutput, EndsWith(")\n"));
    EXPECT_EQ(lineCount(result.errorOutput), 1U);
}

TEST_F(DoctorFailureTest, ExecHandsLibsshsReasonForALostConnectionOn)
{
    ScriptedPolicy policy;
    policy.run = [](ScriptedChannel& channel) { channel.dropConnection(); };
    const ScriptedServer server(policy);
    trust(server.port(), ScriptedServer::hostPublicKeyBase64());
    const ToolResult result = run(exec(server.port(), "dropped"));
    EXPECT_EQ(result.exitCode, 255);
    const std::string lost = "tarnis: lost the connection to " + target(server.port()) + ": ";
    EXPECT_THAT(result.errorOutput, StartsWith(lost + "the connection is lost (Socket error: "));
    EXPECT_EQ(lineCount(result.errorOutput), 1U);
}

TEST_F(DoctorFailureTest, AdvisesWhereNoNetworkLeads)
{
    // The loopback network's own broadcast address: nothing leaves the machine.
    expectConnectFails(examine("tester@127.255.255.255"), "Network is unreachable", kUnreachable);
}

TEST_F(DoctorFailureTest, AdvisesWhereNoAlgorithmIsShared)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    OpenSshOptions options;
    // No version of libssh has this one.
    options.extraLines = {"Ciphers aes256-ctr", "MACs umac-64@openssh.com"};
    const OpenSshServer server(options);
    expectConnectFails(examine(target(server.port())), "no match for method mac algo",
                       kNoCommonAlgorithm);
}

TEST_F(DoctorFailureTest, AdvisesWhereSomethingElseThanAnSshServerListens)
{
    const Babbler old("SSH-1.5-old\r\n");
    expectConnectFails(examine(old.place()), "No version of SSH protocol usable", kNotAnSshServer);
    const Babbler endless(std::string(5000, 'x'));
    expectConnectFails(examine(endless.place()), "too large banner", kNotAnSshServer);
    const Babbler web("HTTP/1.1 400 Bad Request\r\n\r\n");
    expectConnectFails(examine(web.place()), "cannot connect to", kNotAnSshServer);
    const Babbler rude("", true);
    expectConnectFails(examine(rude.place()), "Connection reset by peer", kNotAnSshServer);
}

TEST_F(DoctorFailureTest, NoPolicyTrustsAServerWhoseKeyCouldNotBeChecked)
{
    for (const char* const policy : {"all", "new", "known", "ask"}) {
        SCOPED_TRACE(policy);
        const ScriptedServer server;
        trust(server.port(), ScriptedServer::hostPublicKeyBase64());
        const ToolResult result = runWithStub({"exec", target(server.port()), "--host-key-policy",
                                               policy, "--password-env", "SECRET", "--", "true"},
                                              {"SECRET=unused", "STUB_KNOWN_HOSTS_ERROR=1"});
        EXPECT_EQ(result.exitCode, 255);
        EXPECT_THAT(result.errorOutput,
                    StartsWith("tarnis: cannot check the host key of " + target(server.port())));
        EXPECT_EQ(lineCount(result.errorOutput), 1U);
        EXPECT_TRUE(server.events().waitFor(ServerEvent::Kind::Disconnected));
        EXPECT_EQ(server.events().count(ServerEvent::Kind::Authentication), 0U);
    }
}

TEST_F(DoctorFailureTest, AdvisesOnAKeyThatCouldNotBeChecked)
{
    const ScriptedServer server;
    const ToolResult result =
        runWithStub({"doctor", target(server.port())}, {"STUB_KNOWN_HOSTS_ERROR=1"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.output, ContainsRegex("\n  host key +FAILED"));
    EXPECT_THAT(result.output, HasSubstr("Check that the known-hosts file can be read"));
    EXPECT_THAT(result.output, ContainsRegex("\n  login +- +not tried"));
}

} // namespace
} // namespace TarnisTest
