// Why a server was not trusted, or a user not let in, as the failure of the call says it.

#include "integration/auth/KnownHostsFile.h"
#include "integration/session/SessionSteps.h"
#include "support/ScriptedServer.h"

#include <FileSystem/Failure.h>
#include <Tarnis/SSHFailureCode.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>

namespace TarnisTest {

using namespace Tarnis;
using namespace std::string_literals;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FailureSource;
using ::testing::HasSubstr;

namespace {

using Result = AuthenticateUserResult;
using Methods = std::set<std::string>;

constexpr const char* kPassPhrase = "an open secret";

/// A scripted server to log in to, with kPassword.
class LoginFailure : public ::testing::Test
{
protected:
    void connectTo(const ScriptedServer& server)
    {
        address(session_, server.port(), "anybody");
        ASSERT_TRUE(connectTrusting(session_)) << session_.getLastError();
    }

    /// The failure of an attempt that ends with `result`.
    Failure failureOf(const UserAuthenticator& authenticator, Result result)
    {
        EXPECT_EQ(authenticate(session_, authenticator), result);
        return Failure::last();
    }

    SSHSession& session() { return session_; }

private:
    SSHSession session_;
};

TEST_F(LoginFailure, OfADeniedPasswordHasLibsshsText)
{
    const ScriptedServer server;
    connectTo(server);
    const auto failure = failureOf(UserAuthenticatorPassword("wrong"), Result::Denied);
    EXPECT_EQ(failure.code(), SSHFailureCode::Denied);
    EXPECT_EQ(failure.code(), std::errc::permission_denied);
    EXPECT_EQ(failure.operation(), "userAuthenticate");
    EXPECT_EQ(failure.source(), FailureSource::Transport);
    EXPECT_THAT(failure.text(), HasSubstr("denied"));
}

TEST_F(LoginFailure, IsNoneAfterASuccess)
{
    const ScriptedServer server;
    connectTo(server);
    failureOf(UserAuthenticatorPassword("wrong"), Result::Denied);
    EXPECT_FALSE(failureOf(UserAuthenticatorPassword(ScriptedPolicy::kPassword), Result::Success));
}

TEST_F(LoginFailure, OfATextWithANulByteSaysSo)
{
    const ScriptedServer server;
    connectTo(server);
    const auto failure = failureOf(UserAuthenticatorPassword("cut\0off"s), Result::Denied);
    EXPECT_EQ(failure.code(), FailureCode::BadName);
}

TEST_F(LoginFailure, OfAServerThatHangsUpIsALoss)
{
    ScriptedPolicy policy;
    policy.authenticate = [](const ServerEvent&) { return AuthReply::drop(); };
    const ScriptedServer server(policy);
    connectTo(server);
    const auto failure = failureOf(UserAuthenticatorPassword("any"), Result::Error);
    EXPECT_EQ(failure.code(), SSHFailureCode::Lost) << failure.message();
}

TEST_F(LoginFailure, OfAnAttemptThatWasInterruptedSaysSo)
{
    SSHSession* const interrupted = &session();
    ScriptedPolicy policy;
    policy.authenticate = [interrupted](const ServerEvent&) {
        interrupted->interrupt();
        return AuthReply::silence();
    };
    const ScriptedServer server(policy);
    connectTo(server);
    const auto failure = failureOf(UserAuthenticatorPassword("any"), Result::Error);
    EXPECT_EQ(failure.code(), SSHFailureCode::Interrupted) << failure.message();
}

/// Methods that the server offers.

TEST_F(LoginFailure, LeavesTheMethodsThatTheServerOffers)
{
    ScriptedPolicy policy;
    policy.offeredMethods = {AuthMethod::PublicKey, AuthMethod::KeyboardInteractive};
    ScriptedServer server(policy);
    connectTo(server);
    EXPECT_EQ(session().getOfferedMethods(), Methods());
    failureOf(UserAuthenticatorNone(), Result::Denied);
    EXPECT_EQ(session().getOfferedMethods(), (Methods{"keyboard-interactive", "publickey"}));
    EXPECT_EQ(Failure::last().code(), SSHFailureCode::Denied);
    server.dropConnections();
    ASSERT_TRUE(waitUntil([this] { return !session().isConnected(); }));
    EXPECT_EQ(session().getOfferedMethods(), (Methods{"keyboard-interactive", "publickey"}));
}

TEST_F(LoginFailure, OfOneStepOfTwoNamesTheMethodsThatAreLeft)
{
    ScriptedPolicy policy;
    policy.authenticate = [](const ServerEvent& attempt) {
        return attempt.method == AuthMethod::Password ? AuthReply::partial({AuthMethod::PublicKey})
                                                      : AuthReply::deny();
    };
    const ScriptedServer server(policy);
    connectTo(server);
    const auto failure = failureOf(UserAuthenticatorPassword("right"), Result::Partial);
    EXPECT_EQ(failure.code(), SSHFailureCode::MoreRequired);
    EXPECT_EQ(failure.text(), "publickey");
    EXPECT_EQ(session().getOfferedMethods(), Methods{"publickey"});
}

TEST_F(LoginFailure, KnowsNoMethodsOnANewConnection)
{
    const ScriptedServer server;
    connectTo(server);
    failureOf(UserAuthenticatorNone(), Result::Denied);
    EXPECT_EQ(session().getOfferedMethods().size(), 3U);
    ASSERT_TRUE(session().disconnect());
    EXPECT_EQ(session().getOfferedMethods(), Methods());
    connectTo(server);
    EXPECT_EQ(session().getOfferedMethods(), Methods());
}

/// Keys that cannot be read.
class KeyFailure : public LoginFailure
{
protected:
    void SetUp() override { connectTo(server_); }

    void expect(const UserAuthenticator& authenticator, SSHFailureCode code,
                const std::string& path)
    {
        const auto failure = failureOf(authenticator, Result::Denied);
        EXPECT_EQ(failure.code(), code) << failure.message();
        EXPECT_EQ(failure.entry(), path);
    }

    void expectFile(const std::string& path, const std::string& passPhrase, SSHFailureCode code)
    {
        expect(UserAuthenticatorPrivateKeyFile(path, passPhrase), code, path);
    }

    const TemporaryDirectory& directory() const { return directory_; }

private:
    const ScriptedServer server_;
    TemporaryDirectory directory_;
};

TEST_F(KeyFailure, OfAMissingFileHasTheSystemsReason)
{
    expectFile(directory().file("missing"), "", SSHFailureCode::KeyFileMissing);
    EXPECT_EQ(Failure::last().code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(Failure::last().source(), FailureSource::System);
    EXPECT_EQ(Failure::last().number(), ENOENT);
    expectFile("", "", SSHFailureCode::KeyFileMissing);
}

TEST_F(KeyFailure, OfAFileThatCannotBeReadHasTheSystemsReason)
{
    // Not even the superuser can read these.
    const std::string circle = directory().file("circle");
    std::filesystem::create_symlink(circle, circle);
    expectFile(circle, "", SSHFailureCode::KeyFileUnreadable);
    EXPECT_EQ(Failure::last().number(), ELOOP);
    expectFile(directory().path().string(), "", SSHFailureCode::KeyFileUnreadable);
    EXPECT_EQ(Failure::last().number(), EISDIR);
}

TEST_F(KeyFailure, OfWhatIsNoKeySaysSo)
{
    expectFile(directory().write("garbage", "garbage"), "", SSHFailureCode::NotAKey);
    expectFile(directory().write("empty", ""), kPassPhrase, SSHFailureCode::NotAKey);
    expect(UserAuthenticatorPrivateKey("garbage", ""), SSHFailureCode::NotAKey, "");
    expect(UserAuthenticatorPrivateKey("", ""), SSHFailureCode::NotAKey, "");
}

class EncryptedKeyFailure : public KeyFailure, public ::testing::WithParamInterface<KeyFormat>
{};

TEST_P(EncryptedKeyFailure, OfAWrongPassPhraseOrNoneSaysSo)
{
    const KeyType type = GetParam() == KeyFormat::OpenSsh ? KeyType::Ed25519 : KeyType::Ecdsa;
    const KeyPair key = generateKey(directory(), "key", type, GetParam(), kPassPhrase);
    for (const char* const passPhrase : {"", "something else"}) {
        expectFile(key.privatePath, passPhrase, SSHFailureCode::WrongPassPhrase);
        expect(UserAuthenticatorPrivateKey(key.privateText, passPhrase),
               SSHFailureCode::WrongPassPhrase, "");
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, EncryptedKeyFailure,
                         ::testing::Values(KeyFormat::OpenSsh, KeyFormat::Pem, KeyFormat::Pkcs8));

TEST_F(KeyFailure, OfADeniedKeyIsTheServers)
{
    ScriptedPolicy policy;
    policy.authenticate = [](const ServerEvent&) { return AuthReply::deny(); };
    const ScriptedServer denying(policy);
    ASSERT_TRUE(session().disconnect());
    connectTo(denying);
    const KeyPair key = generateKey(directory(), "key");
    expect(UserAuthenticatorPrivateKeyFile(key.privatePath, ""), SSHFailureCode::Denied, "");
}

/// Servers that are not trusted.
class TrustFailure : public ::testing::Test
{
protected:
    TrustFailure() { address(session_, server_.port(), "anybody"); }

    void SetUp() override
    {
        ASSERT_TRUE(session_.setKnownHostsFile(file_.path()));
        ASSERT_TRUE(session_.connect()) << session_.getLastError();
    }

    std::string line(const std::string& key) const
    {
        return "[127.0.0.1]:" + std::to_string(server_.port()) + ' ' + key + '\n';
    }

    Failure failureOf(const HostAuthenticator& authenticator)
    {
        const auto response = session_.hostAuthenticate(authenticator);
        EXPECT_NE(response, nullptr);
        return Failure::last();
    }

    static HostAuthenticatorKnownHostFile knownOnly()
    {
        return {HostAuthenticatorKnownHostFile::AutoMode::KnownOnly, false};
    }

    const KnownHostsFile& file() const { return file_; }

    SSHSession& session() { return session_; }

private:
    const ScriptedServer server_;
    const KnownHostsFile file_;
    SSHSession session_;
};

TEST_F(TrustFailure, OfAnUnknownServerNamesTheFile)
{
    const auto failure = failureOf(knownOnly());
    EXPECT_EQ(failure.code(), SSHFailureCode::HostUnknown);
    EXPECT_EQ(failure.operation(), "hostAuthenticate");
    EXPECT_EQ(failure.entry(), file().path());
}

TEST_F(TrustFailure, IsThereWhereTheUserIsAsked)
{
    const auto failure = failureOf(
        HostAuthenticatorKnownHostFile(HostAuthenticatorKnownHostFile::AutoMode::Ask, false));
    EXPECT_EQ(failure.code(), SSHFailureCode::HostUnknown);
}

TEST_F(TrustFailure, OfAChangedKeySaysSo)
{
    const KeyPair stranger = generateKey(file().directory(), "stranger");
    file().write(line(stranger.publicLine));
    EXPECT_EQ(failureOf(knownOnly()).code(), SSHFailureCode::HostKeyChanged);
}

TEST_F(TrustFailure, OfAKeyThatIsNotAmongTheAcceptedOnesSaysSo)
{
    EXPECT_EQ(failureOf(HostAuthenticatorHostKey({"AAAA"})).code(), SSHFailureCode::HostKeyRefused);
}

TEST_F(TrustFailure, IsNoneWhenTheServerIsTrusted)
{
    failureOf(knownOnly());
    EXPECT_FALSE(failureOf(HostAuthenticatorHostKey({ScriptedServer::hostPublicKeyBase64()})));
}

TEST_F(TrustFailure, FingerprintIsThatOfTheServersKey)
{
    EXPECT_EQ(session().getPublicServerKeyFingerprint(), ScriptedServer::hostKeyFingerprint());
    EXPECT_FALSE(Failure::last());
    ASSERT_TRUE(session().disconnect());
    EXPECT_EQ(session().getPublicServerKeyFingerprint(), "");
    EXPECT_EQ(Failure::last().code(), SSHFailureCode::NotConnected);
}

class RealFingerprint : public OpenSshTest
{};

TEST_F(RealFingerprint, IsTheOneThatSshKeygenPrints)
{
    ASSERT_TRUE(session().connect());
    EXPECT_EQ(session().getPublicServerKeyFingerprint(), server().hostKey().fingerprint);
}

} // namespace

} // namespace TarnisTest
