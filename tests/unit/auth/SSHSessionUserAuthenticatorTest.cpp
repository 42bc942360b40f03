#include "auth/SSHSessionUserAuthenticator.h"

#include "fakes/LibsshMock.h"
#include "handles/SSHHandleSession.h"
#include "util/Background.h"
#include "util/RetryLimit.h"

#include <FileSystem/HandleFatalError.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <tuple>

using FileSystem::handle_fatal_error;
using Tarnis::AuthenticateUserResult;
using Tarnis::RemoteSessionState;
using Tarnis::SSHCallLimits;
using Tarnis::SSHHandleSession;
using Tarnis::SSHSessionUserAuthenticator;
using Tarnis::UserAuthenticator;
using Tarnis::UserAuthenticatorNone;
using Tarnis::UserAuthenticatorPassword;
using Tarnis::UserAuthenticatorPrivateKey;
using Tarnis::UserAuthenticatorPrivateKeyAuto;
using Tarnis::UserAuthenticatorPrivateKeyFile;
using Tarnis::UserAuthenticatorResponse;
using Tarnis::UserAuthenticatorResponseNone;
using Tarnis::UserAuthenticatorResponsePassword;
using Tarnis::UserAuthenticatorResponsePrivateKey;
using Tarnis::UserAuthenticatorResponsePrivateKeyAuto;
using Tarnis::UserAuthenticatorResponsePrivateKeyFile;
using TarnisTest::Background;
using TarnisTest::fakeKey;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using TarnisTest::RetryLimit;
using ::testing::Combine;
using ::testing::DoAll;
using ::testing::InSequence;
using ::testing::IsNull;
using ::testing::NiceMock;
using ::testing::NotNull;
using ::testing::Return;
using ::testing::SetArgPointee;
using ::testing::StrEq;
using ::testing::Throw;
using ::testing::ValuesIn;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

class UserAuthentication : public ::testing::Test
{
protected:
    UserAuthentication()
    {
        libssh.connected = 1;
        const auto keyImported = DoAll(SetArgPointee<4>(fakeKey()), Return(SSH_OK));
        ON_CALL(libssh, ssh_pki_import_privkey_base64).WillByDefault(keyImported);
        ON_CALL(libssh, ssh_pki_import_privkey_file).WillByDefault(keyImported);
    }

    std::unique_ptr<UserAuthenticatorResponse> run(const UserAuthenticator& authenticator)
    {
        return SSHSessionUserAuthenticator::run(session, state, authenticator);
    }

    /// Makes every authentication call do this.
    void everyCallAnswers(const std::function<int()>& answer)
    {
        ON_CALL(libssh, ssh_userauth_none).WillByDefault([answer](auto...) { return answer(); });
        ON_CALL(libssh, ssh_userauth_password).WillByDefault([answer](auto...) {
            return answer();
        });
        ON_CALL(libssh, ssh_userauth_publickey).WillByDefault([answer](auto...) {
            return answer();
        });
        ON_CALL(libssh, ssh_userauth_publickey_auto).WillByDefault([answer](auto...) {
            return answer();
        });
    }

    void expectNoAuthentication()
    {
        EXPECT_CALL(libssh, ssh_userauth_none).Times(0);
        EXPECT_CALL(libssh, ssh_userauth_password).Times(0);
        EXPECT_CALL(libssh, ssh_userauth_publickey).Times(0);
        EXPECT_CALL(libssh, ssh_userauth_publickey_auto).Times(0);
    }

    NiceMock<LibsshMock> libssh;
    SSHHandleSession session{fakeSession()};
    std::shared_ptr<std::atomic<RemoteSessionState>> state =
        std::make_shared<std::atomic<RemoteSessionState>>(RemoteSessionState::UserAuthenticating);
};

template <class Concrete>
bool is(const UserAuthenticatorResponse& response)
{
    return dynamic_cast<const Concrete*>(&response) != nullptr;
}

/// One kind of authenticator, and the class of its responses.
struct Kind
{
    const char* name;
    std::function<std::unique_ptr<UserAuthenticator>()> make;
    bool (*isItsResponse)(const UserAuthenticatorResponse&);
};

void PrintTo(const Kind& kind, std::ostream* out)
{
    *out << kind.name;
}

const std::array<Kind, 5> kinds{{
    {"None", [] { return std::make_unique<UserAuthenticatorNone>(); },
     is<UserAuthenticatorResponseNone>},
    {"Password", [] { return std::make_unique<UserAuthenticatorPassword>("secret"); },
     is<UserAuthenticatorResponsePassword>},
    {"PrivateKey", [] { return std::make_unique<UserAuthenticatorPrivateKey>("key", "phrase"); },
     is<UserAuthenticatorResponsePrivateKey>},
    {"PrivateKeyFile",
     [] { return std::make_unique<UserAuthenticatorPrivateKeyFile>("file", "phrase"); },
     is<UserAuthenticatorResponsePrivateKeyFile>},
    {"PrivateKeyAuto", [] { return std::make_unique<UserAuthenticatorPrivateKeyAuto>("phrase"); },
     is<UserAuthenticatorResponsePrivateKeyAuto>},
}};

struct Answer
{
    const char* name;
    int number;
    AuthenticateUserResult result;
};

void PrintTo(const Answer& answer, std::ostream* out)
{
    *out << answer.number;
}

constexpr std::array<Answer, 9> answers{{
    {"Success", 0, AuthenticateUserResult::Success},
    {"Denied", 1, AuthenticateUserResult::Denied},
    {"Partial", 2, AuthenticateUserResult::Partial},
    {"Info", 3, AuthenticateUserResult::Denied},
    {"AgainForEver", 4, AuthenticateUserResult::Denied},
    {"Error", -1, AuthenticateUserResult::Error},
    {"NobodyKnowsFive", 5, AuthenticateUserResult::Denied},
    {"NobodyKnowsNinetyNine", 99, AuthenticateUserResult::Denied},
    {"NobodyKnowsMinusTwo", -2, AuthenticateUserResult::Denied},
}};

class EveryUserAuthentication : public UserAuthentication,
                                public ::testing::WithParamInterface<Kind>
{
protected:
    std::unique_ptr<UserAuthenticator> authenticator = GetParam().make();
};

using Pair = std::tuple<Kind, Answer>;

class UserAuthenticationAnswer : public UserAuthentication,
                                 public ::testing::WithParamInterface<Pair>
{};

std::string kindName(const ::testing::TestParamInfo<Kind>& info)
{
    return info.param.name;
}

std::string pairName(const ::testing::TestParamInfo<Pair>& info)
{
    const auto& [kind, answer] = info.param;
    return std::string(kind.name) + answer.name;
}

} // namespace

TEST_P(UserAuthenticationAnswer, BecomesAResultInTheResponseOfItsClass)
{
    const RetryLimit none(SSHCallLimits::Ticks::zero());
    const auto& [kind, answer] = GetParam();
    everyCallAnswers([number = answer.number] { return number; });
    const auto response = run(*kind.make());
    ASSERT_NE(response, nullptr);
    EXPECT_TRUE(kind.isItsResponse(*response));
    EXPECT_EQ(response->getResult(), answer.result);
    EXPECT_EQ(*state, RemoteSessionState::UserAuthenticating);
}

INSTANTIATE_TEST_SUITE_P(EveryPair, UserAuthenticationAnswer,
                         Combine(ValuesIn(kinds), ValuesIn(answers)), pairName);

TEST_P(EveryUserAuthentication, IsRepeatedWhileTheServerHasNotAnswered)
{
    int calls = 0;
    everyCallAnswers([&] { return ++calls < 4 ? SSH_AUTH_AGAIN : SSH_AUTH_SUCCESS; });
    EXPECT_EQ(run(*authenticator)->getResult(), AuthenticateUserResult::Success);
    EXPECT_EQ(calls, 4);
}

TEST_P(EveryUserAuthentication, TriesOnceMoreWhenTheTimeIsOver)
{
    const RetryLimit none(SSHCallLimits::Ticks::zero());
    int calls = 0;
    everyCallAnswers([&] {
        ++calls;
        return SSH_AUTH_AGAIN;
    });
    EXPECT_EQ(run(*authenticator)->getResult(), AuthenticateUserResult::Denied);
    EXPECT_EQ(calls, 2);
}

TEST_P(EveryUserAuthentication, IsAnErrorWhenTheServerBrokeTheProtocol)
{
    const RetryLimit none(SSHCallLimits::Ticks::zero());
    ON_CALL(libssh, ssh_get_status(fakeSession())).WillByDefault(Return(SSH_CLOSED_ERROR));
    int calls = 0;
    everyCallAnswers([&] {
        ++calls;
        return SSH_AUTH_AGAIN;
    });
    EXPECT_EQ(run(*authenticator)->getResult(), AuthenticateUserResult::Error);
    EXPECT_EQ(calls, 1);
}

TEST_P(EveryUserAuthentication, IsAnErrorWhenTheConnectionHasEnded)
{
    const RetryLimit none(SSHCallLimits::Ticks::zero());
    int calls = 0;
    everyCallAnswers([&] {
        ++calls;
        libssh.connected = 0;
        return SSH_AUTH_AGAIN;
    });
    EXPECT_EQ(run(*authenticator)->getResult(), AuthenticateUserResult::Error);
    EXPECT_EQ(calls, 1);
}

TEST_P(EveryUserAuthentication, RunsInNonBlockingModeAndRestoresTheFormerOne)
{
    int mode = -1;
    everyCallAnswers([&] {
        mode = libssh.blocking;
        return SSH_AUTH_DENIED;
    });
    run(*authenticator);
    EXPECT_EQ(mode, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_P(EveryUserAuthentication, RestoresTheModeWhenAnExceptionLeavesIt)
{
    everyCallAnswers([]() -> int { throw std::logic_error("bad"); });
    EXPECT_THROW(run(*authenticator), std::logic_error);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_P(EveryUserAuthentication, HoldsTheSessionsLock)
{
    std::unique_ptr<Background> other;
    bool heldUp = false;
    everyCallAnswers([&] {
        other = std::make_unique<Background>([this] { session.getLock(); });
        heldUp = other->isHeldUp();
        return SSH_AUTH_SUCCESS;
    });
    run(*authenticator);
    EXPECT_TRUE(heldUp);
    EXPECT_TRUE(other->ends());
}

TEST_P(EveryUserAuthentication, OnAnInvalidSessionThrows)
{
    session.invalidate();
    expectNoAuthentication();
    EXPECT_THROW(run(*authenticator), handle_fatal_error);
}

TEST_P(EveryUserAuthentication, ThrowsWhenTheSessionIsInvalidatedBetweenTwoTries)
{
    int calls = 0;
    everyCallAnswers([&] {
        ++calls;
        session.invalidate();
        // The connection is not what ends the attempt.
        libssh.connected = 1;
        return SSH_AUTH_AGAIN;
    });
    EXPECT_THROW(run(*authenticator), handle_fatal_error);
    EXPECT_EQ(calls, 1);
}

INSTANTIATE_TEST_SUITE_P(EveryKind, EveryUserAuthentication, ValuesIn(kinds), kindName);

TEST_F(UserAuthentication, WithNothingGivesNoUserName)
{
    EXPECT_CALL(libssh, ssh_userauth_none(fakeSession(), IsNull()));
    run(UserAuthenticatorNone());
}

TEST_F(UserAuthentication, ByPasswordGivesThePasswordAndNoUserName)
{
    EXPECT_CALL(libssh, ssh_userauth_password(fakeSession(), IsNull(), StrEq("pass word")));
    run(UserAuthenticatorPassword("pass word"));
}

TEST_F(UserAuthentication, ByEmptyPasswordGivesAnEmptyTextSinceNullWouldCrash)
{
    EXPECT_CALL(libssh, ssh_userauth_password(fakeSession(), IsNull(), StrEq("")))
        .WillOnce(Return(SSH_AUTH_SUCCESS));
    EXPECT_EQ(run(UserAuthenticatorPassword(""))->getResult(), AuthenticateUserResult::Success);
}

TEST_F(UserAuthentication, ByDefaultKeysGivesThePassPhraseAndNoUserName)
{
    EXPECT_CALL(libssh, ssh_userauth_publickey_auto(fakeSession(), IsNull(), StrEq("phrase")));
    run(UserAuthenticatorPrivateKeyAuto("phrase"));
}

TEST_F(UserAuthentication, ByDefaultKeysWithoutPassPhraseGivesNone)
{
    EXPECT_CALL(libssh, ssh_userauth_publickey_auto(fakeSession(), IsNull(), IsNull()));
    run(UserAuthenticatorPrivateKeyAuto());
}

TEST_F(UserAuthentication, ByKeyImportsItThenUsesItThenFreesIt)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_pki_import_privkey_base64(StrEq("key text"), StrEq("phrase"), NotNull(),
                                                      IsNull(), NotNull()));
    EXPECT_CALL(libssh, ssh_userauth_publickey(fakeSession(), IsNull(), fakeKey()));
    EXPECT_CALL(libssh, ssh_key_free(fakeKey()));
    run(UserAuthenticatorPrivateKey("key text", "phrase"));
}

TEST_F(UserAuthentication, ByKeyFileImportsItThenUsesItThenFreesIt)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_pki_import_privkey_file(StrEq("/the/file"), StrEq("phrase"), NotNull(),
                                                    IsNull(), NotNull()));
    EXPECT_CALL(libssh, ssh_userauth_publickey(fakeSession(), IsNull(), fakeKey()));
    EXPECT_CALL(libssh, ssh_key_free(fakeKey()));
    run(UserAuthenticatorPrivateKeyFile("/the/file", "phrase"));
}

TEST_F(UserAuthentication, ByKeyWithEmptyTextsGivesNone)
{
    EXPECT_CALL(libssh, ssh_pki_import_privkey_base64(IsNull(), IsNull(), _, _, _));
    EXPECT_CALL(libssh, ssh_pki_import_privkey_file(IsNull(), IsNull(), _, _, _));
    run(UserAuthenticatorPrivateKey("", ""));
    run(UserAuthenticatorPrivateKeyFile("", ""));
}

TEST_F(UserAuthentication, ByKeyThatCannotBeImportedIsDeniedWithoutAskingTheServer)
{
    EXPECT_CALL(libssh, ssh_pki_import_privkey_base64).WillRepeatedly(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_pki_import_privkey_file).WillOnce(Return(SSH_EOF));
    EXPECT_CALL(libssh, ssh_key_free).Times(0);
    expectNoAuthentication();
    EXPECT_EQ(run(UserAuthenticatorPrivateKey("key", "wrong"))->getResult(),
              AuthenticateUserResult::Denied);
    EXPECT_EQ(run(UserAuthenticatorPrivateKeyFile("missing", ""))->getResult(),
              AuthenticateUserResult::Denied);
}

TEST_F(UserAuthentication, ByKeyNeverAsksForAPassPhrase)
{
    ssh_auth_callback prompt = nullptr;
    EXPECT_CALL(libssh, ssh_pki_import_privkey_file)
        .WillOnce([&](const char*, const char*, ssh_auth_callback callback, void*, ssh_key*) {
            prompt = callback;
            return SSH_ERROR;
        });
    run(UserAuthenticatorPrivateKeyFile("file", ""));
    ASSERT_NE(prompt, nullptr);
    char buffer[] = "unchanged";
    EXPECT_EQ(prompt("Pass phrase:", buffer, sizeof buffer, 0, 0, nullptr), -1);
    EXPECT_STREQ(buffer, "unchanged");
}

TEST_F(UserAuthentication, ByKeyImportsWithoutTheLockAndInTheSessionsOwnMode)
{
    bool lockWasFree = false;
    int mode = -1;
    EXPECT_CALL(libssh, ssh_pki_import_privkey_base64)
        .WillOnce([&](const char*, const char*, ssh_auth_callback, void*, ssh_key*) {
            const Background other([this] { session.getLock(); });
            lockWasFree = other.ends();
            mode = libssh.blocking;
            return SSH_ERROR;
        })
        // Once more, to tell why it failed.
        .WillOnce(Return(SSH_ERROR));
    run(UserAuthenticatorPrivateKey("key", ""));
    EXPECT_TRUE(lockWasFree);
    EXPECT_EQ(mode, 1);
}

TEST_F(UserAuthentication, ByKeyFreesTheKeyWithoutTheLock)
{
    bool lockWasFree = false;
    EXPECT_CALL(libssh, ssh_key_free(fakeKey())).WillOnce([&](ssh_key) {
        const Background other([this] { session.getLock(); });
        lockWasFree = other.ends();
    });
    run(UserAuthenticatorPrivateKey("key", ""));
    EXPECT_TRUE(lockWasFree);
}

TEST_F(UserAuthentication, ByKeyFreesTheKeyWhenAnExceptionLeavesIt)
{
    EXPECT_CALL(libssh, ssh_userauth_publickey).WillOnce(Throw(std::logic_error("bad")));
    EXPECT_CALL(libssh, ssh_key_free(fakeKey())).Times(1);
    EXPECT_THROW(run(UserAuthenticatorPrivateKeyFile("file", "")), std::logic_error);
}

TEST_F(UserAuthentication, ByKeyFreesTheKeyOnAnInvalidSession)
{
    session.invalidate();
    EXPECT_CALL(libssh, ssh_key_free(fakeKey())).Times(1);
    EXPECT_THROW(run(UserAuthenticatorPrivateKey("key", "")), handle_fatal_error);
}

TEST_F(UserAuthentication, WithANulByteInATextIsDeniedWithoutAnyCall)
{
    const std::string text("cut\0off", 7);
    expectNoAuthentication();
    EXPECT_CALL(libssh, ssh_pki_import_privkey_base64).Times(0);
    EXPECT_CALL(libssh, ssh_pki_import_privkey_file).Times(0);
    const auto denied = AuthenticateUserResult::Denied;
    EXPECT_EQ(run(UserAuthenticatorPassword(text))->getResult(), denied);
    EXPECT_EQ(run(UserAuthenticatorPrivateKeyAuto(text))->getResult(), denied);
    EXPECT_EQ(run(UserAuthenticatorPrivateKey(text, ""))->getResult(), denied);
    EXPECT_EQ(run(UserAuthenticatorPrivateKey("key", text))->getResult(), denied);
    EXPECT_EQ(run(UserAuthenticatorPrivateKeyFile(text, ""))->getResult(), denied);
    EXPECT_EQ(run(UserAuthenticatorPrivateKeyFile("file", text))->getResult(), denied);
}
