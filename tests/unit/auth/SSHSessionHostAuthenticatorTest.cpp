#include "auth/SSHSessionHostAuthenticator.h"

#include "fakes/LibsshMock.h"
#include "handles/SSHHandleSession.h"

#include <FileSystem/HandleFatalError.h>

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <tuple>

using FileSystem::handle_fatal_error;
using Tarnis::AuthenticateHostResult;
using Tarnis::HostAuthenticator;
using Tarnis::HostAuthenticatorHostKey;
using Tarnis::HostAuthenticatorKnownHostFile;
using Tarnis::HostAuthenticatorNone;
using Tarnis::HostAuthenticatorResponse;
using Tarnis::HostAuthenticatorResponseHostKey;
using Tarnis::HostAuthenticatorResponseKnownHostFile;
using Tarnis::HostAuthenticatorResponseNone;
using Tarnis::RemoteSessionState;
using Tarnis::SSHHandleSession;
using Tarnis::SSHSessionHostAuthenticator;
using TarnisTest::fakeKey;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using AutoMode = HostAuthenticatorKnownHostFile::AutoMode;
using Reason = HostAuthenticatorResponseKnownHostFile::Reason;
using ::testing::Combine;
using ::testing::DoAll;
using ::testing::Expectation;
using ::testing::Mock;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::SetArgPointee;
using ::testing::Values;
using ::testing::ValuesIn;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

class HostAuthentication : public ::testing::Test
{
protected:
    std::unique_ptr<HostAuthenticatorResponse> run(const HostAuthenticator& authenticator)
    {
        return SSHSessionHostAuthenticator::run(session, state, authenticator);
    }

    void serverHasKey()
    {
        ON_CALL(libssh, ssh_get_server_publickey(fakeSession(), _))
            .WillByDefault(DoAll(SetArgPointee<1>(fakeKey()), Return(SSH_OK)));
        ON_CALL(libssh, ssh_pki_export_pubkey_base64(fakeKey(), _))
            .WillByDefault(DoAll(SetArgPointee<1>(keyText), Return(SSH_OK)));
    }

    static constexpr const char* key = "AAAAC3Nz";
    char keyText[9] = "AAAAC3Nz";
    NiceMock<LibsshMock> libssh;
    SSHHandleSession session{fakeSession()};
    std::shared_ptr<std::atomic<RemoteSessionState>> state =
        std::make_shared<std::atomic<RemoteSessionState>>(RemoteSessionState::HostAuthenticating);
};

/// What is to come of one answer of libssh, as one letter per policy: A(ccepted), R(ejected),
/// U(ndecided).
struct Row
{
    const char* name;
    int answer;
    Reason reason;
    char ask;
    char acceptAll;
    char knownOnly;
    char acceptNew;
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.answer;
}

constexpr std::array<Row, 9> rows{{
    {"Known", 1, Reason::Known, 'A', 'A', 'A', 'A'},
    {"FileMissing", -1, Reason::KnownHostFileMissing, 'U', 'A', 'R', 'A'},
    {"Unknown", 0, Reason::HostUnknown, 'U', 'A', 'R', 'A'},
    {"Changed", 2, Reason::HostKeyChanged, 'U', 'A', 'R', 'R'},
    {"OtherType", 3, Reason::HostKeyTypeOther, 'U', 'A', 'R', 'R'},
    {"Error", -2, Reason::CheckFailed, 'R', 'R', 'R', 'R'},
    {"NobodyKnowsFour", 4, Reason::CheckFailed, 'R', 'R', 'R', 'R'},
    {"NobodyKnowsNinetyNine", 99, Reason::CheckFailed, 'R', 'R', 'R', 'R'},
    {"NobodyKnowsMinusThree", -3, Reason::CheckFailed, 'R', 'R', 'R', 'R'},
}};

char expectedLetter(const Row& row, unsigned int mode)
{
    switch (mode) {
    case 1:
        return row.ask;
    case 2:
        return row.acceptAll;
    case 4:
        return row.knownOnly;
    default:
        return row.acceptNew;
    }
}

AuthenticateHostResult resultOf(char letter)
{
    switch (letter) {
    case 'A':
        return AuthenticateHostResult::Accepted;
    case 'U':
        return AuthenticateHostResult::Undecided;
    default:
        return AuthenticateHostResult::Rejected;
    }
}

using Cell = std::tuple<Row, unsigned int, bool>;

class KnownHostFilePolicy : public HostAuthentication, public ::testing::WithParamInterface<Cell>
{
protected:
    const Row& row() const { return std::get<0>(param); }

    unsigned int mode() const { return std::get<1>(param); }

    bool updates() const { return std::get<2>(param); }

    bool fetchesKey() const
    {
        return row().reason != Reason::Known && row().reason != Reason::CheckFailed;
    }

    /// The file is changed for a server that is accepted though the file does not vouch for it.
    bool changesFile() const
    {
        return updates() && fetchesKey() && expectedLetter(row(), mode()) == 'A';
    }

    void expectCalls()
    {
        serverHasKey();
        // That the file cannot be written changes nothing.
        ON_CALL(libssh, ssh_session_update_known_hosts).WillByDefault(Return(SSH_ERROR));
        const Expectation check = EXPECT_CALL(libssh, ssh_session_is_known_server(fakeSession()))
                                      .WillOnce(Return(row().answer));
        const Expectation fetch = EXPECT_CALL(libssh, ssh_get_server_publickey(fakeSession(), _))
                                      .Times(fetchesKey() ? 1 : 0)
                                      .After(check);
        const Expectation exported = EXPECT_CALL(libssh, ssh_pki_export_pubkey_base64(fakeKey(), _))
                                         .Times(fetchesKey() ? 1 : 0)
                                         .After(fetch);
        EXPECT_CALL(libssh, ssh_session_update_known_hosts(fakeSession()))
            .Times(changesFile() ? 1 : 0)
            .After(check, fetch, exported);
    }

    const Cell param = GetParam();
};

std::string cellName(const ::testing::TestParamInfo<Cell>& info)
{
    const auto& [row, mode, updates] = info.param;
    return std::string(row.name) + "Mode" + std::to_string(mode) + (updates ? "Updating" : "");
}

} // namespace

TEST_P(KnownHostFilePolicy, DecidesAsTheTableSays)
{
    expectCalls();
    const auto response =
        run(HostAuthenticatorKnownHostFile(static_cast<AutoMode>(mode()), updates()));
    const auto* known = dynamic_cast<HostAuthenticatorResponseKnownHostFile*>(response.get());
    ASSERT_NE(known, nullptr);
    EXPECT_EQ(known->getResult(), resultOf(expectedLetter(row(), mode())));
    EXPECT_EQ(known->getReason(), row().reason);
    EXPECT_EQ(known->getHostKeyB64(), fetchesKey() ? key : "");
    EXPECT_EQ(*state, RemoteSessionState::HostAuthenticating);
}

INSTANTIATE_TEST_SUITE_P(EveryCell, KnownHostFilePolicy,
                         Combine(ValuesIn(rows), Values(0U, 1U, 2U, 3U, 4U, 99U),
                                 ::testing::Bool()),
                         cellName);

TEST_F(HostAuthentication, ThatTrustsAnyoneCallsNothing)
{
    EXPECT_CALL(libssh, ssh_session_is_known_server).Times(0);
    EXPECT_CALL(libssh, ssh_get_server_publickey).Times(0);
    EXPECT_CALL(libssh, ssh_session_update_known_hosts).Times(0);
    const auto response = run(HostAuthenticatorNone());
    ASSERT_NE(dynamic_cast<HostAuthenticatorResponseNone*>(response.get()), nullptr);
    EXPECT_EQ(response->getResult(), AuthenticateHostResult::Accepted);
}

TEST_F(HostAuthentication, ByHostKeyAcceptsAServerWithOneOfTheKeys)
{
    serverHasKey();
    EXPECT_CALL(libssh, ssh_session_is_known_server).Times(0);
    const auto response = run(HostAuthenticatorHostKey({"another", key}));
    ASSERT_NE(dynamic_cast<HostAuthenticatorResponseHostKey*>(response.get()), nullptr);
    EXPECT_EQ(response->getResult(), AuthenticateHostResult::Accepted);
}

TEST_F(HostAuthentication, ByHostKeyRejectsAServerWithAnotherKey)
{
    serverHasKey();
    const auto response = run(HostAuthenticatorHostKey({"another", "AAAAC3Nz=", "aaaac3nz"}));
    EXPECT_EQ(response->getResult(), AuthenticateHostResult::Rejected);
}

TEST_F(HostAuthentication, ByHostKeyWithoutKeysRejectsEveryServer)
{
    serverHasKey();
    const auto response = run(HostAuthenticatorHostKey(std::set<std::string>{}));
    EXPECT_EQ(response->getResult(), AuthenticateHostResult::Rejected);
}

TEST_F(HostAuthentication, ByHostKeyRejectsAServerWhoseKeyCannotBeHad)
{
    EXPECT_CALL(libssh, ssh_get_server_publickey).WillOnce(Return(SSH_ERROR));
    // Not even the empty key is accepted for it.
    const auto response = run(HostAuthenticatorHostKey(std::set<std::string>{""}));
    EXPECT_EQ(response->getResult(), AuthenticateHostResult::Rejected);
}

TEST_F(HostAuthentication, ByKnownHostFileGoesOnWithoutAKeyThatCannotBeHad)
{
    EXPECT_CALL(libssh, ssh_session_is_known_server).WillOnce(Return(SSH_KNOWN_HOSTS_UNKNOWN));
    EXPECT_CALL(libssh, ssh_get_server_publickey).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_session_update_known_hosts).Times(1);
    const auto response = run(HostAuthenticatorKnownHostFile(AutoMode::AcceptNew, true));
    EXPECT_EQ(response->getResult(), AuthenticateHostResult::Accepted);
}

TEST_F(HostAuthentication, LeavesTheBlockingModeAlone)
{
    serverHasKey();
    EXPECT_CALL(libssh, ssh_set_blocking).Times(0);
    EXPECT_CALL(libssh, ssh_session_is_known_server).WillOnce(Return(SSH_KNOWN_HOSTS_UNKNOWN));
    run(HostAuthenticatorKnownHostFile(AutoMode::AcceptNew, true));
    // The end of the session does change it.
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(HostAuthentication, OnAnInvalidSessionThrows)
{
    session.invalidate();
    EXPECT_THROW(run(HostAuthenticatorKnownHostFile(AutoMode::AcceptAll, true)),
                 handle_fatal_error);
    EXPECT_THROW(run(HostAuthenticatorHostKey({key})), handle_fatal_error);
    EXPECT_EQ(run(HostAuthenticatorNone())->getResult(), AuthenticateHostResult::Accepted);
}
