// Which servers the program trusts.

#include "support/KeyPair.h"
#include "support/OpenSshServer.h"
#include "support/RequireServer.h"
#include "support/ScriptedServer.h"
#include "support/SystemError.h"
#include "tool/ToolTest.h"

#include <algorithm>
#include <array>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace TarnisTest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// A well-formed key that is no server's.
constexpr const char* kOtherKey =
    "AAAAC3NzaC1lZDI1NTE5AAAAIAABAgMEBQYHCAkKCwwNDg8QERITFBUWFxgZGhscHR4f";

constexpr std::array<KeyType, 3> kKeyTypes{KeyType::Ed25519, KeyType::Ecdsa, KeyType::Rsa};

class HostKeyPolicyTest : public ToolTest
{
protected:
    /// \param policy empty: none is given.
    ToolSetup withPolicy(const std::string& policy) const
    {
        ToolSetup setup = exec(server_.port(), "x");
        const auto option =
            std::find(setup.arguments.begin(), setup.arguments.end(), "--host-key-policy");
        if (policy.empty()) {
            setup.arguments.erase(option, option + 2);
        } else {
            *(option + 1) = policy;
        }
        return setup;
    }

    /// A user at a terminal who is asked about the key.
    std::unique_ptr<ToolRun> startAsking()
    {
        ToolSetup setup = withPolicy("");
        setup.hasTerminal = true;
        auto tool = start(setup);
        EXPECT_TRUE(tool->waitForScreen("(yes/no) ")) << tool->errorOutput();
        EXPECT_THAT(tool->screen(), HasSubstr(ScriptedServer::hostKeyFingerprint()));
        return tool;
    }

    std::string line() const
    {
        return "[127.0.0.1]:" + std::to_string(server_.port()) + " ssh-ed25519 " +
               ScriptedServer::hostPublicKeyBase64() + "\n";
    }

    std::string otherLine() const
    {
        return "[127.0.0.1]:" + std::to_string(server_.port()) + " ssh-ed25519 " + kOtherKey + "\n";
    }

    void trustTheServer() const { trust(server_.port(), ScriptedServer::hostPublicKeyBase64()); }

    void trustAnotherKey() const { trust(server_.port(), kOtherKey); }

    ScriptedServer server_;
};

TEST_F(HostKeyPolicyTest, EveryPolicyTakesAKnownServerWithoutAWord)
{
    trustTheServer();
    for (const char* const policy : {"", "ask", "new", "known", "all"}) {
        const ToolResult result = run(withPolicy(policy));
        EXPECT_EQ(result.exitCode, 0) << policy;
        EXPECT_THAT(result.errorOutput, IsEmpty());
    }
    EXPECT_EQ(knownHosts(), line());
}

TEST_F(HostKeyPolicyTest, NewRecordsAnUnknownServer)
{
    const ToolResult result = run(withPolicy("new"));
    EXPECT_EQ(result.exitCode, 0) << result.errorOutput;
    EXPECT_THAT(result.errorOutput, HasSubstr("tarnis: recorded the ssh-ed25519 key of "));
    EXPECT_EQ(knownHosts(), line());
}

TEST_F(HostKeyPolicyTest, AChangedKeyIsRefusedInOneLineThatSaysAll)
{
    trustAnotherKey();
    for (const char* const policy : {"", "ask", "new", "known"}) {
        const ToolResult result = run(withPolicy(policy));
        EXPECT_EQ(result.exitCode, 255);
        EXPECT_EQ(result.errorOutput,
                  "tarnis: refused the host key of " + target(server_.port()) +
                      ": WARNING: it is not the one in the known-hosts file (ssh-ed25519 " +
                      ScriptedServer::hostKeyFingerprint() +
                      "). Somebody may be listening in, or the server was set up anew. Ask its "
                      "administrator; if it is right, remove the old key: ssh-keygen -R "
                      "'[127.0.0.1]:" +
                      std::to_string(server_.port()) + "' -f '" + knownHostsFile() + "'\n")
            << policy;
        EXPECT_EQ(knownHosts(), otherLine());
    }
}

TEST_F(HostKeyPolicyTest, KnownRefusesAnUnknownServer)
{
    const ToolResult result = run(withPolicy("known"));
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_THAT(result.errorOutput, HasSubstr("the server is not in the known-hosts file"));
    EXPECT_THAT(result.errorOutput, HasSubstr(ScriptedServer::hostKeyFingerprint()));
    EXPECT_EQ(knownHosts(), "");
}

TEST_F(HostKeyPolicyTest, AllRecordsAnUnknownServer)
{
    EXPECT_EQ(run(withPolicy("all")).exitCode, 0);
    EXPECT_EQ(knownHosts(), line());
}

TEST_F(HostKeyPolicyTest, AllWarnsOfAChangedKeyAndDoesNotRecordIt)
{
    trustAnotherKey();
    const ToolResult result = run(withPolicy("all"));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.errorOutput, HasSubstr("WARNING"));
    EXPECT_EQ(knownHosts(), otherLine());
}

TEST_F(HostKeyPolicyTest, AServerKnownByAKeyOfAnotherTypeIsNotNew)
{
    const KeyPair other = generateKey(home(), "other", KeyType::Ecdsa);
    trust(server_.port(), other.publicBase64, "ecdsa-sha2-nistp256");
    const ToolResult result = run(withPolicy("new"));
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_THAT(result.errorOutput, HasSubstr("it is not the one in the known-hosts file"));
}

TEST_F(HostKeyPolicyTest, AskRefusesWithoutATerminalAndNamesTheWayOut)
{
    const ToolResult result = run(withPolicy(""));
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_THAT(result.errorOutput, HasSubstr("no terminal to ask at"));
    EXPECT_THAT(result.errorOutput, HasSubstr("--host-key-policy new"));
    EXPECT_EQ(lineCount(result.errorOutput), 1U);
    EXPECT_EQ(knownHosts(), "");
}

TEST_F(HostKeyPolicyTest, AskRecordsAnUnknownServerThatTheUserAccepts)
{
    const auto tool = startAsking();
    tool->type("yes\n");
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
    EXPECT_EQ(knownHosts(), line());
}

TEST_F(HostKeyPolicyTest, AskTakesTheFingerprintForAYes)
{
    const auto tool = startAsking();
    tool->type(ScriptedServer::hostKeyFingerprint() + "\n");
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
}

TEST_F(HostKeyPolicyTest, AskTakesAnythingElseForANo)
{
    for (const char* const answer : {"no\n", "\n", "yeah\n", "\x04"}) {
        const auto tool = startAsking();
        tool->type(answer);
        EXPECT_EQ(tool->wait(), 255) << answer;
        EXPECT_THAT(tool->errorOutput(), HasSubstr("it was not accepted at the terminal"));
    }
    EXPECT_EQ(knownHosts(), "");
    EXPECT_EQ(server_.events().count(ServerEvent::Kind::Authentication), 0U);
}

TEST_F(HostKeyPolicyTest, AskWarnsOfAChangedKeyAndWantsTheWholeWord)
{
    trustAnotherKey();
    const auto tool = startAsking();
    EXPECT_THAT(tool->screen(), HasSubstr("WARNING"));
    EXPECT_THAT(tool->screen(),
                HasSubstr("ssh-keygen -R '[127.0.0.1]:" + std::to_string(server_.port()) + "'"));
    tool->type("y\n");
    EXPECT_EQ(tool->wait(), 255);
    EXPECT_EQ(knownHosts(), otherLine());
}

TEST_F(HostKeyPolicyTest, AskTakesAChangedKeyForYes)
{
    trustAnotherKey();
    const auto tool = startAsking();
    tool->type("yes\n");
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
    EXPECT_EQ(knownHosts(), otherLine() + line());
}

TEST_F(HostKeyPolicyTest, ChecksAndRecordsInTheFileThatIsNamed)
{
    const std::string file = home().file("elsewhere");
    ToolSetup setup = withPolicy("new");
    setup.arguments.insert(setup.arguments.begin() + 2, {"--known-hosts", file});
    EXPECT_EQ(run(setup).exitCode, 0);
    EXPECT_EQ(readFile(file), line());
    EXPECT_EQ(knownHosts(), "");
    EXPECT_THAT(run(setup).errorOutput, IsEmpty());
}

TEST_F(HostKeyPolicyTest, SaysWhenTheKeyCannotBeRecorded)
{
    ToolSetup setup = withPolicy("new");
    setup.arguments.insert(setup.arguments.begin() + 2, {"--known-hosts", "/dev/null"});
    const ToolResult result = run(setup);
    EXPECT_EQ(result.exitCode, 0) << result.errorOutput;
    EXPECT_THAT(result.errorOutput, HasSubstr("tarnis: could not record the ssh-ed25519 key of "));
}

/// A file that can be opened for writing, even by root, and never written to.
class SealedFile
{
public:
    explicit SealedFile(const std::string& text)
        : file_(::memfd_create("sealed", MFD_CLOEXEC | MFD_ALLOW_SEALING))
    {
        const auto size = static_cast<ssize_t>(text.size());
        if (::write(file_.get(), text.data(), text.size()) != size ||
            ::fcntl(file_.get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_GROW) != 0) {
            throwErrno("memfd_create");
        }
    }

    /// A name that other processes of the user can open it by.
    std::string path() const
    {
        return "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(file_.get());
    }

private:
    UniqueFd file_;
};

TEST_F(HostKeyPolicyTest, DoesNotTakeTheSameKeyOfAnotherServerForTheRecordedOne)
{
    const SealedFile file("elsewhere.example ssh-ed25519 " + ScriptedServer::hostPublicKeyBase64() +
                          "\n# " + line());
    ToolSetup setup = withPolicy("new");
    setup.arguments.insert(setup.arguments.begin() + 2, {"--known-hosts", file.path()});
    const ToolResult result = run(setup);
    EXPECT_EQ(result.exitCode, 0) << result.errorOutput;
    EXPECT_THAT(result.errorOutput, HasSubstr("tarnis: could not record the ssh-ed25519 key of "));
}

TEST_F(HostKeyPolicyTest, RecordsAfterALastLineWithoutAnEnd)
{
    const std::string kept = "elsewhere.example ssh-ed25519 " + std::string(kOtherKey);
    home().write(".ssh/known_hosts", kept);
    const ToolResult result = run(withPolicy("new"));
    EXPECT_THAT(result.errorOutput, HasSubstr("tarnis: recorded the ssh-ed25519 key of "));
    EXPECT_EQ(knownHosts(), kept + "\n" + line());
    EXPECT_EQ(run(withPolicy("known")).exitCode, 0);
}

TEST_F(HostKeyPolicyTest, LeavesAFileAsItIsWhenItRecordsNothing)
{
    const std::string kept = "elsewhere.example ssh-ed25519 " + std::string(kOtherKey);
    home().write(".ssh/known_hosts", kept);
    EXPECT_EQ(run(withPolicy("known")).exitCode, 255);
    EXPECT_EQ(knownHosts(), kept);
}

TEST_F(HostKeyPolicyTest, RecordsAServerByItsNameInSmallLetters)
{
    ToolSetup setup = withPolicy("new");
    setup.arguments[1] = "tester@LoopBack.Test:" + std::to_string(server_.port());
    const ToolResult result = run(setup);
    EXPECT_THAT(result.errorOutput, HasSubstr("tarnis: recorded the ssh-ed25519 key of "));
    EXPECT_THAT(knownHosts(), StartsWith("[loopback.test]:"));
}

TEST_F(HostKeyPolicyTest, RecordsEveryTypeOfKey)
{
    if (!requireServer(OpenSshServer::availability())) {
        return;
    }
    for (const KeyType type : kKeyTypes) {
        OpenSshOptions options;
        options.hostKeyTypes = {type};
        const OpenSshServer server(options);
        const ToolResult result =
            run({"exec", target(server.port(), server.user()), "--identity",
                 server.clientKey().privatePath, "--host-key-policy", "new", "--", "exit"});
        EXPECT_THAT(result.errorOutput, StartsWith("tarnis: recorded the "));
        EXPECT_THAT(knownHosts(), HasSubstr(server.hostKey(type).publicLine));
    }
}

/// A server with a key of every type, of which the user knows one.
class ServerWithSeveralKeysTest : public ToolTest
{
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        if (!requireServer(OpenSshServer::availability())) {
            return;
        }
        OpenSshOptions options;
        options.hostKeyTypes.assign(kKeyTypes.begin(), kKeyTypes.end());
        server_ = std::make_unique<OpenSshServer>(options);
    }

    /// A known-hosts file with this key alone. Its name is one that an escape could be seen in.
    std::string fileWith(KeyType type) const
    {
        return home().write("100%known hosts of " + keyTypeName(type),
                            "[127.0.0.1]:" + std::to_string(server_->port()) + " " +
                                server_->hostKey(type).publicLine + "\n");
    }

    /// A sub-command that logs in, with a policy that takes nothing but the known key.
    std::vector<std::string> visit(const std::string& command, KeyType known) const
    {
        return {command,
                target(server_->port(), server_->user()),
                "--known-hosts",
                fileWith(known),
                "--identity",
                server_->clientKey().privatePath,
                "--host-key-policy",
                "known"};
    }

    std::unique_ptr<OpenSshServer> server_;
};

TEST_F(ServerWithSeveralKeysTest, ExecIsShownTheOneThatTheNamedFileHas)
{
    for (const KeyType type : kKeyTypes) {
        std::vector<std::string> arguments = visit("exec", type);
        arguments.insert(arguments.end(), {"--", "echo in"});
        const ToolResult result = run(arguments);
        EXPECT_EQ(result.exitCode, 0) << keyTypeName(type) << ": " << result.errorOutput;
        EXPECT_EQ(result.output, "in\n");
    }
}

TEST_F(ServerWithSeveralKeysTest, DoctorIsShownTheOneThatTheNamedFileHas)
{
    for (const KeyType type : kKeyTypes) {
        const ToolResult result = run(visit("doctor", type));
        EXPECT_EQ(result.exitCode, 0) << keyTypeName(type) << ": " << result.output;
        EXPECT_THAT(result.output, HasSubstr(server_->hostKey(type).fingerprint + ", known\n"));
    }
}

TEST_F(ServerWithSeveralKeysTest, HostKeyIsShownTheOneThatTheNamedFileHas)
{
    const std::string place = "127.0.0.1:" + std::to_string(server_->port());
    for (const KeyType type : kKeyTypes) {
        const ToolResult result = run({"hostkey", place, "--known-hosts", fileWith(type)});
        EXPECT_EQ(result.exitCode, 0) << keyTypeName(type) << ": " << result.errorOutput;
        EXPECT_THAT(result.output, HasSubstr(server_->hostKey(type).fingerprint));
    }
}

} // namespace
} // namespace TarnisTest
