#include "integration/session/SessionSteps.h"

#include <gtest/gtest.h>

#include <set>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using Result = AuthenticateHostResult;

class HostKey : public OpenSshTest
{
protected:
    void SetUp() override
    {
        OpenSshTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        ASSERT_TRUE(session().connect()) << session().getLastError();
    }

    Result ask(const std::set<std::string>& keys)
    {
        const auto response = session().hostAuthenticate(HostAuthenticatorHostKey(keys));
        EXPECT_NE(response, nullptr);
        EXPECT_EQ(response->getType(), HostAuthenticationType::HostKey);
        return response->getResult();
    }

    void expectUndecidedState()
    {
        EXPECT_EQ(session().getState(), RemoteSessionState::HostAuthenticating);
    }
};

TEST_F(HostKey, IsThatOfTheServersPublicKeyFile)
{
    EXPECT_EQ(session().getPublicServerKeyB64(), server().hostPublicKeyBase64());
}

TEST_F(HostKey, IsAcceptedWhenItIsTheRightOne)
{
    EXPECT_EQ(ask({server().hostPublicKeyBase64()}), Result::Accepted);
    EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);
}

TEST_F(HostKey, IsAcceptedWhenItIsOneOfSeveral)
{
    EXPECT_EQ(ask({"AAAA", server().hostPublicKeyBase64(), server().clientKey().publicBase64}),
              Result::Accepted);
}

TEST_F(HostKey, IsRejectedWhenItIsAnotherOne)
{
    EXPECT_EQ(ask({server().clientKey().publicBase64}), Result::Rejected);
    expectUndecidedState();
}

TEST_F(HostKey, IsRejectedByAnEmptySet)
{
    EXPECT_EQ(ask({}), Result::Rejected);
    EXPECT_EQ(ask({""}), Result::Rejected);
    expectUndecidedState();
}

TEST_F(HostKey, IsComparedByteForByte)
{
    const std::string key = server().hostPublicKeyBase64();
    EXPECT_EQ(ask({key + "\n"}), Result::Rejected);
    EXPECT_EQ(ask({" " + key}), Result::Rejected);
    EXPECT_EQ(ask({key.substr(0, key.size() - 1)}), Result::Rejected);
    EXPECT_EQ(ask({"ssh-ed25519 " + key}), Result::Rejected);
    expectUndecidedState();
}

TEST_F(HostKey, CanBeAcceptedAfterItWasRejected)
{
    ASSERT_EQ(ask({}), Result::Rejected);
    ASSERT_EQ(ask({server().clientKey().publicBase64}), Result::Rejected);
    EXPECT_EQ(ask({server().hostPublicKeyBase64()}), Result::Accepted);
    EXPECT_EQ(offerKey(session(), server().clientKey()), AuthenticateUserResult::Success);
}

TEST_F(HostKey, IsOfNoInterestToTheAuthenticatorThatTrustsAnybody)
{
    const auto response = session().hostAuthenticate(HostAuthenticatorNone());
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->getType(), HostAuthenticationType::None);
    EXPECT_EQ(response->getResult(), Result::Accepted);
    EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);
}

TEST_F(HostKey, IsJudgedOnlyWhileTheHostIsToBeAuthenticated)
{
    const HostAuthenticatorHostKey right({server().hostPublicKeyBase64()});
    SSHSession disconnected;
    EXPECT_EQ(disconnected.hostAuthenticate(right), nullptr);
    EXPECT_EQ(disconnected.getState(), RemoteSessionState::Disconnected);

    ASSERT_NE(session().hostAuthenticate(right), nullptr);
    EXPECT_EQ(session().hostAuthenticate(right), nullptr);
    EXPECT_EQ(session().hostAuthenticate(HostAuthenticatorNone()), nullptr);
    EXPECT_EQ(session().getState(), RemoteSessionState::UserAuthenticating);

    ASSERT_EQ(offerKey(session(), server().clientKey()), AuthenticateUserResult::Success);
    EXPECT_EQ(session().hostAuthenticate(right), nullptr);
    EXPECT_EQ(session().getState(), RemoteSessionState::Authenticated);
}

class HostKeyOfType : public OpenSshTest, public ::testing::WithParamInterface<KeyType>
{};

TEST_P(HostKeyOfType, IsToldAndAccepted)
{
    OpenSshOptions options;
    options.hostKeyTypes = {GetParam()};
    startServer(options);
    ASSERT_TRUE(session().connect()) << session().getLastError();
    const std::string key = server().hostPublicKeyBase64(GetParam());
    EXPECT_EQ(session().getPublicServerKeyB64(), key);
    const auto response = session().hostAuthenticate(HostAuthenticatorHostKey({key}));
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->getResult(), Result::Accepted);
}

INSTANTIATE_TEST_SUITE_P(Types, HostKeyOfType,
                         ::testing::Values(KeyType::Ed25519, KeyType::Ecdsa, KeyType::Rsa),
                         [](const auto& parameter) { return keyTypeName(parameter.param); });

/// A server with a key of each type, of which a connection shows only one.
class HostKeyAmongSeveral : public OpenSshTest, public ::testing::WithParamInterface<KeyType>
{
protected:
    // The type that libssh asks for first.
    static constexpr KeyType shownType = KeyType::Ed25519;

    void SetUp() override
    {
        OpenSshTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        OpenSshOptions options;
        options.hostKeyTypes = {KeyType::Ed25519, KeyType::Ecdsa, KeyType::Rsa};
        startServer(options);
        ASSERT_TRUE(session().connect()) << session().getLastError();
        ASSERT_EQ(session().getPublicServerKeyB64(), server().hostPublicKeyBase64(shownType));
    }

    Result ask(const std::set<std::string>& keys)
    {
        const auto response = session().hostAuthenticate(HostAuthenticatorHostKey(keys));
        EXPECT_NE(response, nullptr);
        return response->getResult();
    }
};

TEST_P(HostKeyAmongSeveral, IsAcceptedAloneOnlyWhenItIsTheOneShown)
{
    const bool isShown = GetParam() == shownType;
    EXPECT_EQ(ask({server().hostPublicKeyBase64(GetParam())}),
              isShown ? Result::Accepted : Result::Rejected);
    EXPECT_EQ(session().getState(), isShown ? RemoteSessionState::UserAuthenticating
                                            : RemoteSessionState::HostAuthenticating);
}

TEST_P(HostKeyAmongSeveral, IsAcceptedTogetherWithTheOneShown)
{
    EXPECT_EQ(
        ask({server().hostPublicKeyBase64(GetParam()), server().hostPublicKeyBase64(shownType)}),
        Result::Accepted);
}

INSTANTIATE_TEST_SUITE_P(Types, HostKeyAmongSeveral,
                         ::testing::Values(KeyType::Ed25519, KeyType::Ecdsa, KeyType::Rsa),
                         [](const auto& parameter) { return keyTypeName(parameter.param); });

} // namespace

} // namespace TarnisTest
