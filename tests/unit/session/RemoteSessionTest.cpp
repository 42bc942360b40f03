#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/RemoteSession.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <ostream>
#include <string>

using Tarnis::HostAuthenticator;
using Tarnis::HostAuthenticatorNone;
using Tarnis::HostAuthenticatorResponse;
using Tarnis::HostAuthenticatorResponseNone;
using Tarnis::RemoteSession;
using Tarnis::RemoteSessionState;
using Tarnis::UserAuthenticator;
using Tarnis::UserAuthenticatorNone;
using Tarnis::UserAuthenticatorResponse;
using Tarnis::UserAuthenticatorResponseNone;
using ::testing::ByMove;
using ::testing::NiceMock;
using ::testing::Ref;
using ::testing::Return;
using ::testing::StrictMock;
using ::testing::ValuesIn;

namespace {

/// Implements what RemoteSession leaves open.
class MinimalSession : public RemoteSession
{
public:
    MinimalSession() = default;
    virtual ~MinimalSession() = default;

    MOCK_METHOD(bool, do_connect, (), (override));
    MOCK_METHOD(bool, do_disconnect, (), (override));
    MOCK_METHOD(RemoteSessionState, do_getState, (), (override));
    MOCK_METHOD(bool, do_setUserName, (const std::string&), (override));
    MOCK_METHOD(std::string, do_getUserName, (), (override));
    MOCK_METHOD(bool, do_setHostName, (const std::string&), (override));
    MOCK_METHOD(std::string, do_getHostName, (), (override));
    MOCK_METHOD(bool, do_setPortNumber, (unsigned short), (override));
    MOCK_METHOD(unsigned short, do_getPortNumber, (), (const, override));
    MOCK_METHOD(std::unique_ptr<HostAuthenticatorResponse>, do_hostAuthenticate,
                (const HostAuthenticator&), (override));
    MOCK_METHOD(std::unique_ptr<UserAuthenticatorResponse>, do_userAuthenticate,
                (const UserAuthenticator&), (override));
};

/// Implements everything.
class WholeSession : public MinimalSession
{
public:
    MOCK_METHOD(bool, do_isConnected, (), (const, override));
    MOCK_METHOD(bool, do_isAuthenticating, (), (const, override));
    MOCK_METHOD(bool, do_isAuthenticated, (), (const, override));
};

struct Expected
{
    const char* name;
    RemoteSessionState state;
    int number;
    bool connected;
    bool authenticating;
    bool authenticated;
};

void PrintTo(const Expected& expected, std::ostream* out)
{
    *out << expected.number;
}

constexpr std::array<Expected, 6> states{{
    {"Disconnected", RemoteSessionState::Disconnected, 512, false, false, false},
    {"Connecting", RemoteSessionState::Connecting, 1, false, false, false},
    {"HostAuthenticating", RemoteSessionState::HostAuthenticating, 22, true, true, false},
    {"UserAuthenticating", RemoteSessionState::UserAuthenticating, 38, true, true, false},
    {"Authenticated", RemoteSessionState::Authenticated, 66, true, false, true},
    {"Disconnecting", RemoteSessionState::Disconnecting, 256, false, false, false},
}};

class RemoteSessionInState : public ::testing::TestWithParam<Expected>
{};

std::string stateName(const ::testing::TestParamInfo<Expected>& info)
{
    return info.param.name;
}

class RemoteSessionOperation : public ::testing::Test
{
protected:
    StrictMock<WholeSession> session;
    RemoteSession& remote = session;
};

} // namespace

TEST_P(RemoteSessionInState, AnswersItsQueriesByTheBits)
{
    const Expected& expected = GetParam();
    NiceMock<MinimalSession> session;
    ON_CALL(session, do_getState).WillByDefault(Return(expected.state));
    EXPECT_EQ(static_cast<int>(expected.state), expected.number);
    EXPECT_EQ(session.getState(), expected.state);
    EXPECT_EQ(session.isConnected(), expected.connected);
    EXPECT_EQ(session.isAuthenticating(), expected.authenticating);
    EXPECT_EQ(session.isAuthenticated(), expected.authenticated);
}

INSTANTIATE_TEST_SUITE_P(EveryState, RemoteSessionInState, ValuesIn(states), stateName);

TEST(RemoteSessionState, WithAllBitsOfAuthenticatedAndMoreIsNotAuthenticated)
{
    NiceMock<MinimalSession> session;
    ON_CALL(session, do_getState).WillByDefault(Return(static_cast<RemoteSessionState>(66 | 4)));
    EXPECT_FALSE(session.isAuthenticated());
    EXPECT_TRUE(session.isAuthenticating());
}

TEST_F(RemoteSessionOperation, ConnectIsForwarded)
{
    EXPECT_CALL(session, do_connect).WillOnce(Return(true)).WillOnce(Return(false));
    EXPECT_TRUE(remote.connect());
    EXPECT_FALSE(remote.connect());
}

TEST_F(RemoteSessionOperation, DisconnectIsForwarded)
{
    EXPECT_CALL(session, do_disconnect).WillOnce(Return(true)).WillOnce(Return(false));
    EXPECT_TRUE(remote.disconnect());
    EXPECT_FALSE(remote.disconnect());
}

TEST_F(RemoteSessionOperation, GetStateIsForwarded)
{
    EXPECT_CALL(session, do_getState).WillOnce(Return(RemoteSessionState::Disconnecting));
    EXPECT_EQ(remote.getState(), RemoteSessionState::Disconnecting);
}

TEST_F(RemoteSessionOperation, QueriesAreForwarded)
{
    EXPECT_CALL(session, do_isConnected).WillOnce(Return(true));
    EXPECT_CALL(session, do_isAuthenticating).WillOnce(Return(true));
    EXPECT_CALL(session, do_isAuthenticated).WillOnce(Return(true));
    const RemoteSession& constant = session;
    EXPECT_TRUE(constant.isConnected());
    EXPECT_TRUE(constant.isAuthenticating());
    EXPECT_TRUE(constant.isAuthenticated());
}

TEST_F(RemoteSessionOperation, HostNameIsForwarded)
{
    EXPECT_CALL(session, do_setHostName("a.host")).WillOnce(Return(true));
    EXPECT_CALL(session, do_getHostName).WillOnce(Return("b.host"));
    EXPECT_TRUE(remote.setHostName("a.host"));
    EXPECT_EQ(remote.getHostName(), "b.host");
}

TEST_F(RemoteSessionOperation, UserNameIsForwarded)
{
    EXPECT_CALL(session, do_setUserName("somebody")).WillOnce(Return(true));
    EXPECT_CALL(session, do_getUserName).WillOnce(Return("somebody else"));
    EXPECT_TRUE(remote.setUserName("somebody"));
    EXPECT_EQ(remote.getUserName(), "somebody else");
}

TEST_F(RemoteSessionOperation, PortNumberIsForwarded)
{
    EXPECT_CALL(session, do_setPortNumber(65535)).WillOnce(Return(true));
    EXPECT_CALL(session, do_getPortNumber).WillOnce(Return(2222));
    EXPECT_TRUE(remote.setPortNumber(65535));
    EXPECT_EQ(remote.getPortNumber(), 2222);
}

TEST_F(RemoteSessionOperation, HostAuthenticateIsForwarded)
{
    const HostAuthenticatorNone authenticator;
    auto response =
        std::make_unique<HostAuthenticatorResponseNone>(Tarnis::AuthenticateHostResult::Accepted);
    const HostAuthenticatorResponse* const expected = response.get();
    EXPECT_CALL(session, do_hostAuthenticate(Ref(authenticator)))
        .WillOnce(Return(ByMove(std::move(response))));
    EXPECT_EQ(remote.hostAuthenticate(authenticator).get(), expected);
}

TEST_F(RemoteSessionOperation, UserAuthenticateIsForwarded)
{
    const UserAuthenticatorNone authenticator;
    auto response =
        std::make_unique<UserAuthenticatorResponseNone>(Tarnis::AuthenticateUserResult::Partial);
    const UserAuthenticatorResponse* const expected = response.get();
    EXPECT_CALL(session, do_userAuthenticate(Ref(authenticator)))
        .WillOnce(Return(ByMove(std::move(response))));
    EXPECT_EQ(remote.userAuthenticate(authenticator).get(), expected);
}
