#include "integration/session/SessionSteps.h"
#include "support/SshAgent.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <libssh/libssh.h>

#include <cstdlib>
#include <filesystem>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using Result = AuthenticateUserResult;

constexpr const char* kPassPhrase = "an open secret";

/// Names an agent's socket in the environment for as long as it lives.
class AgentForATime
{
public:
    explicit AgentForATime(const std::string& socketPath)
    {
        ::setenv("SSH_AUTH_SOCK", socketPath.c_str(), 1);
    }

    AgentForATime(const AgentForATime&) = delete;
    AgentForATime& operator=(const AgentForATime&) = delete;

    ~AgentForATime() { ::unsetenv("SSH_AUTH_SOCK"); }
};

/// A user with a home directory of his own, in which default keys may lie.
class AutomaticKey : public OpenSshTest
{
protected:
    AutomaticKey()
        : useHome_(directory_.makeDirectory("home"))
    {
        directory_.makeDirectory("home/.ssh");
    }

    KeyPair makeDefaultKey(KeyType type, const std::string& passPhrase = "",
                           KeyFormat format = KeyFormat::OpenSsh)
    {
        return generateKey(directory_, "home/.ssh/id_" + keyTypeName(type), type, format,
                           passPhrase);
    }

    KeyPair makeOtherKey(const std::string& name) { return generateKey(directory_, name); }

    /// Puts a key that was made elsewhere where the default one lies.
    void makeDefault(const KeyPair& key)
    {
        const std::string path = directory_.file("home/.ssh/id_ed25519");
        std::filesystem::copy(key.privatePath, path);
        std::filesystem::copy(key.publicPath, path + ".pub");
    }

    void authorize(const KeyPair& key)
    {
        OpenSshOptions options;
        options.authorizedKeys = {key.publicLine};
        startServer(options);
    }

    std::optional<Result> tryAutomatically(const std::string& passPhrase = "")
    {
        if (!connectTrusting(session())) {
            return std::nullopt;
        }
        return authenticate(session(), UserAuthenticatorPrivateKeyAuto(passPhrase));
    }

    void expectSuccess(const std::string& passPhrase = "")
    {
        EXPECT_EQ(tryAutomatically(passPhrase), Result::Success) << session().getLastError();
        EXPECT_TRUE(runsCommands(session()));
    }

    void expectDenied(const std::string& passPhrase = "")
    {
        EXPECT_EQ(tryAutomatically(passPhrase), Result::Denied);
        EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);
        EXPECT_EQ(offerKey(session(), server().clientKey()), Result::Success);
    }

private:
    TemporaryDirectory directory_;
    HomeForATime useHome_;
};

TEST_F(AutomaticKey, IsDeniedWhereThereIsNone)
{
    expectDenied();
}

class AutomaticKeyOfType : public AutomaticKey, public ::testing::WithParamInterface<KeyType>
{};

TEST_P(AutomaticKeyOfType, IsADefaultKeyOfTheHomeDirectory)
{
    authorize(makeDefaultKey(GetParam()));
    expectSuccess();
}

TEST_P(AutomaticKeyOfType, IsAnEncryptedDefaultKeyWithItsPassPhrase)
{
    authorize(makeDefaultKey(GetParam(), kPassPhrase));
    expectSuccess(kPassPhrase);
}

TEST_P(AutomaticKeyOfType, IsDeniedWithAWrongPassPhraseOrNone)
{
    authorize(makeDefaultKey(GetParam(), kPassPhrase));
    expectDenied("something else");
    ASSERT_TRUE(session().disconnect());
    expectDenied("");
}

INSTANTIATE_TEST_SUITE_P(Types, AutomaticKeyOfType,
                         ::testing::Values(KeyType::Ed25519, KeyType::Ecdsa, KeyType::Rsa),
                         [](const auto& parameter) { return keyTypeName(parameter.param); });

TEST_F(AutomaticKey, IsFoundWithoutItsPublicHalf)
{
    const KeyPair key = makeDefaultKey(KeyType::Ed25519);
    std::filesystem::remove(key.publicPath);
    authorize(key);
    expectSuccess();
    // libssh's doing, and documented as such.
    EXPECT_EQ(readFile(key.publicPath).substr(0, key.publicLine.size()), key.publicLine);
}

TEST_F(AutomaticKey, IsFoundWithItsPassPhraseWithoutItsPublicHalf)
{
    const KeyPair key = makeDefaultKey(KeyType::Ed25519, kPassPhrase);
    std::filesystem::remove(key.publicPath);
    authorize(key);
    expectSuccess(kPassPhrase);
}

TEST_F(AutomaticKey, IsTheOneOfSeveralThatTheServerTakes)
{
    makeDefaultKey(KeyType::Ed25519);
    makeDefaultKey(KeyType::Ecdsa);
    authorize(makeDefaultKey(KeyType::Rsa));
    expectSuccess();
}

TEST_F(AutomaticKey, IsDeniedWhenTheServerTakesNoneOfThem)
{
    makeDefaultKey(KeyType::Ed25519);
    makeDefaultKey(KeyType::Ecdsa);
    expectDenied();
}

TEST_F(AutomaticKey, ComesFromTheAgent)
{
    const KeyPair key = makeOtherKey("agents");
    SshAgent agent;
    agent.add(key);
    authorize(key);
    const AgentForATime use(agent.socketPath());
    expectSuccess();
}

TEST_F(AutomaticKey, IsTheOneOfTheAgentThatTheServerTakes)
{
    const KeyPair key = makeOtherKey("right");
    SshAgent agent;
    agent.add(makeOtherKey("wrong"));
    agent.add(makeOtherKey("wrong too"));
    agent.add(key);
    authorize(key);
    const AgentForATime use(agent.socketPath());
    expectSuccess();
}

TEST_F(AutomaticKey, ComesFromTheHomeDirectoryWhenTheServerTakesNoneOfTheAgents)
{
    SshAgent agent;
    agent.add(makeOtherKey("wrong"));
    authorize(makeDefaultKey(KeyType::Ed25519));
    const AgentForATime use(agent.socketPath());
    expectSuccess();
}

TEST_F(AutomaticKey, ComesFromTheHomeDirectoryWhenTheAgentIsEmpty)
{
    const SshAgent agent;
    authorize(makeDefaultKey(KeyType::Ed25519));
    const AgentForATime use(agent.socketPath());
    expectSuccess();
}

TEST_F(AutomaticKey, ComesFromTheHomeDirectoryWhenTheAgentIsGone)
{
    authorize(makeDefaultKey(KeyType::Ed25519));
    const AgentForATime use("/nowhere/agent");
    expectSuccess();
}

TEST_F(AutomaticKey, IsDeniedWhenNeitherAgentNorHomeHasOneThatTheServerTakes)
{
    SshAgent agent;
    agent.add(makeOtherKey("wrong"));
    makeDefaultKey(KeyType::Ed25519);
    const AgentForATime use(agent.socketPath());
    expectDenied();
}

TEST_F(AutomaticKey, IsLookedForAgainOnANewConnection)
{
    authorize(makeDefaultKey(KeyType::Ed25519));
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        expectSuccess();
        ASSERT_TRUE(session().disconnect());
    }
}

TEST_F(AutomaticKey, IsLookedForAgainAfterItWasDenied)
{
    const KeyPair key = makeOtherKey("later");
    authorize(key);
    ASSERT_EQ(tryAutomatically(), Result::Denied);
    makeDefault(key);
    EXPECT_EQ(authenticate(session(), UserAuthenticatorPrivateKeyAuto()), Result::Success)
        << session().getLastError();
    EXPECT_TRUE(runsCommands(session()));
}

/// Whether libssh finds both halves of a key by itself.
bool libsshReadsWhole(const KeyPair& pair)
{
    ssh_key key = nullptr;
    char* text = nullptr;
    const bool isWhole = ssh_pki_import_privkey_file(pair.privatePath.c_str(), nullptr, nullptr,
                                                     nullptr, &key) == SSH_OK &&
                         ssh_pki_export_pubkey_base64(key, &text) == SSH_OK;
    ssh_string_free_char(text);
    ssh_key_free(key);
    return isWhole;
}

// libssh 0.10 does not, which only who names the file gets round.
TEST_F(AutomaticKey, TakesAnEd25519KeyInPkcs8WhereLibsshReadsOne)
{
    const KeyPair key = makeDefaultKey(KeyType::Ed25519, "", KeyFormat::Pkcs8);
    authorize(key);
    if (libsshReadsWhole(key)) {
        expectSuccess();
        return;
    }
    EXPECT_EQ(tryAutomatically(), Result::Error);
    EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);
}

TEST_F(AutomaticKey, DoesNotKeepAnEd25519KeyInPkcs8FromBeingNamedAsAFile)
{
    const KeyPair key = makeDefaultKey(KeyType::Ed25519, "", KeyFormat::Pkcs8);
    authorize(key);
    ASSERT_TRUE(connectTrusting(session()));
    if (!libsshReadsWhole(key)) {
        EXPECT_EQ(authenticate(session(), UserAuthenticatorPrivateKeyAuto()), Result::Error);
    }
    EXPECT_EQ(authenticate(session(), UserAuthenticatorPrivateKeyFile(key.privatePath, "")),
              Result::Success)
        << session().getLastError();
    EXPECT_TRUE(runsCommands(session()));
}

} // namespace

} // namespace TarnisTest
