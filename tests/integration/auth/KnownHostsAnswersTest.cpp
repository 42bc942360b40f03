// The answers of libssh's known-hosts check that depend on its version and on the machine rather
// than on a file: here the test gives them.

#include "integration/session/SessionSteps.h"
#include "support/ScriptedServer.h"

#include <gtest/gtest.h>
#include <libssh/libssh.h>

#include <atomic>
#include <tuple>

namespace {

std::atomic<int> nextAnswer{SSH_KNOWN_HOSTS_OK};
std::atomic<int> nextUpdateResult{SSH_OK};
std::atomic<int> updates{0};

} // namespace

extern "C" {

[[gnu::visibility("default")]] ssh_known_hosts_e
ssh_session_is_known_server(ssh_session /*session*/)
{
    return static_cast<ssh_known_hosts_e>(nextAnswer.load());
}

[[gnu::visibility("default")]] int ssh_session_update_known_hosts(ssh_session /*session*/)
{
    ++updates;
    return nextUpdateResult;
}
}

namespace TarnisTest {

using namespace Tarnis;

namespace {

using AutoMode = HostAuthenticatorKnownHostFile::AutoMode;
using Reason = HostAuthenticatorResponseKnownHostFile::Reason;
using Result = AuthenticateHostResult;

class KnownHostsAnswer : public ::testing::Test
{
protected:
    KnownHostsAnswer() { address(session_, server_.port(), "anybody"); }

    void expect(int answer, AutoMode mode, Result result, Reason reason, bool showsKey)
    {
        nextAnswer = answer;
        for (const bool update : {false, true}) {
            SCOPED_TRACE("answer " + std::to_string(answer) + ", mode " +
                         std::to_string(static_cast<unsigned>(mode)) +
                         (update ? ", updating" : ""));
            updates = 0;
            ASSERT_TRUE(session_.connect()) << session_.getLastError();
            const auto response =
                session_.hostAuthenticate(HostAuthenticatorKnownHostFile(mode, update));
            const auto* const known =
                dynamic_cast<const HostAuthenticatorResponseKnownHostFile*>(response.get());
            ASSERT_NE(known, nullptr);
            EXPECT_EQ(known->getResult(), result);
            EXPECT_EQ(known->getReason(), reason);
            EXPECT_EQ(known->getHostKeyB64(),
                      showsKey ? ScriptedServer::hostPublicKeyBase64() : "");
            const bool records = update && showsKey && result == Result::Accepted;
            EXPECT_EQ(updates, records ? 1 : 0);
            ASSERT_TRUE(session_.disconnect());
        }
    }

    void expectForEveryMode(int answer, Reason reason, Result ask, Result acceptAll,
                            Result acceptNew, Result knownOnly)
    {
        const bool showsKey = reason != Reason::Known && reason != Reason::CheckFailed;
        expect(answer, AutoMode::Ask, ask, reason, showsKey);
        expect(answer, AutoMode::AcceptAll, acceptAll, reason, showsKey);
        expect(answer, AutoMode::KnownOnly, knownOnly, reason, showsKey);
        for (const unsigned asNew : {3U, 0U, 5U, 99U, 0xffffffffU}) {
            expect(answer, AutoMode{asNew}, acceptNew, reason, showsKey);
        }
    }

private:
    ScriptedServer server_;
    SSHSession session_;
};

constexpr auto A = Result::Accepted;
constexpr auto R = Result::Rejected;
constexpr auto U = Result::Undecided;

TEST_F(KnownHostsAnswer, KnownIsAccepted)
{
    expectForEveryMode(SSH_KNOWN_HOSTS_OK, Reason::Known, A, A, A, A);
}

TEST_F(KnownHostsAnswer, MissingFileIsLeftToThePolicy)
{
    expectForEveryMode(SSH_KNOWN_HOSTS_NOT_FOUND, Reason::KnownHostFileMissing, U, A, A, R);
}

TEST_F(KnownHostsAnswer, UnknownServerIsLeftToThePolicy)
{
    expectForEveryMode(SSH_KNOWN_HOSTS_UNKNOWN, Reason::HostUnknown, U, A, A, R);
}

TEST_F(KnownHostsAnswer, ChangedKeyIsLeftToThePolicy)
{
    expectForEveryMode(SSH_KNOWN_HOSTS_CHANGED, Reason::HostKeyChanged, U, A, R, R);
}

TEST_F(KnownHostsAnswer, OtherKeyTypeIsLeftToThePolicy)
{
    expectForEveryMode(SSH_KNOWN_HOSTS_OTHER, Reason::HostKeyTypeOther, U, A, R, R);
}

TEST_F(KnownHostsAnswer, ErrorIsRejected)
{
    expectForEveryMode(SSH_KNOWN_HOSTS_ERROR, Reason::CheckFailed, R, R, R, R);
}

TEST_F(KnownHostsAnswer, AnswerOfAnotherVersionIsRejected)
{
    expectForEveryMode(4, Reason::CheckFailed, R, R, R, R);
    expectForEveryMode(-3, Reason::CheckFailed, R, R, R, R);
}

TEST_F(KnownHostsAnswer, FailedUpdateChangesNothing)
{
    nextUpdateResult = SSH_ERROR;
    expectForEveryMode(SSH_KNOWN_HOSTS_UNKNOWN, Reason::HostUnknown, U, A, A, R);
    nextUpdateResult = SSH_OK;
}

} // namespace

} // namespace TarnisTest
