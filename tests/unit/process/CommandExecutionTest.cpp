// SSHSession::execute.

#include "fakes/LibsshMock.h"
#include "util/Background.h"

#include <FileSystem/Failure.h>
#include <Tarnis/HostAuthenticator.h>
#include <Tarnis/HostAuthenticatorResponse.h>
#include <Tarnis/SSHSession.h>
#include <Tarnis/UserAuthenticator.h>
#include <Tarnis/UserAuthenticatorResponse.h>

#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>

using Tarnis::HostAuthenticatorNone;
using Tarnis::SSHExecuteResult;
using Tarnis::SSHSession;
using Tarnis::UserAuthenticatorNone;
using TarnisTest::Background;
using TarnisTest::fakeChannel;
using TarnisTest::fakeSession;
using TarnisTest::LibsshMock;
using ::testing::InSequence;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::StrEq;
using namespace std::chrono_literals;

using Outcome = SSHExecuteResult::Outcome;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

/// A server that does the next thing of a list whenever libssh reads off the connection.
class Command : public ::testing::Test
{
protected:
    using Event = std::function<void()>;

    Command()
    {
        ON_CALL(libssh, ssh_add_channel_callbacks)
            .WillByDefault([this](ssh_channel, ssh_channel_callbacks recorder) {
                callbacks = recorder;
                return SSH_OK;
            });
        ON_CALL(libssh, ssh_remove_channel_callbacks)
            .WillByDefault([this](ssh_channel, ssh_channel_callbacks) {
                callbacks = nullptr;
                return SSH_OK;
            });
        ON_CALL(libssh, ssh_channel_poll).WillByDefault([this](auto...) { return next(0); });
        ON_CALL(libssh, ssh_channel_get_exit_status).WillByDefault([this](auto...) {
            return next(-1);
        });
        ON_CALL(libssh, ssh_channel_write)
            .WillByDefault([this](ssh_channel, const void* data, std::uint32_t size) {
                written.append(static_cast<const char*>(data), size);
                return static_cast<int>(size);
            });
        static_cast<void>(session.connect());
        static_cast<void>(session.hostAuthenticate(HostAuthenticatorNone()));
        static_cast<void>(session.userAuthenticate(UserAuthenticatorNone()));
    }

    SSHExecuteResult run(const std::string& input = "", std::chrono::milliseconds timeout = 1h)
    {
        return session.execute("command", input, timeout);
    }

    int next(int result)
    {
        if (!events.empty()) {
            const Event event = std::move(events.front());
            events.pop_front();
            event();
        }
        return result;
    }

    Event says(std::string text, bool isStderr = false)
    {
        return [this, text = std::move(text), isStderr]() mutable {
            const auto size = static_cast<std::uint32_t>(text.size());
            EXPECT_EQ(callbacks->channel_data_function(fakeSession(), fakeChannel(), text.data(),
                                                       size, isStderr ? 1 : 0, callbacks->userdata),
                      static_cast<int>(size));
        };
    }

    Event exits(int status)
    {
        return [this, status] {
            callbacks->channel_exit_status_function(fakeSession(), fakeChannel(), status,
                                                    callbacks->userdata);
        };
    }

    Event dies(const char* signal)
    {
        return [this, signal] {
            callbacks->channel_exit_signal_function(fakeSession(), fakeChannel(), signal, 0, "", "",
                                                    callbacks->userdata);
        };
    }

    Event endsItsStreams()
    {
        return [this] {
            callbacks->channel_eof_function(fakeSession(), fakeChannel(), callbacks->userdata);
        };
    }

    Event closes()
    {
        return [this] {
            libssh.channelOpen = 0;
            callbacks->channel_close_function(fakeSession(), fakeChannel(), callbacks->userdata);
        };
    }

    Event losesTheConnection()
    {
        return [this] { libssh.connected = 0; };
    }

    NiceMock<LibsshMock> libssh;
    SSHSession session;
    ssh_channel_callbacks callbacks = nullptr;
    std::deque<Event> events;
    std::string written;
};

} // namespace

TEST_F(Command, IsSentOnAChannelOfItsOwnWithALineFeed)
{
    events = {closes()};
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_add_channel_callbacks).WillOnce(::testing::DoDefault());
    EXPECT_CALL(libssh, ssh_channel_open_session(fakeChannel())).WillOnce(::testing::DoDefault());
    EXPECT_CALL(libssh, ssh_channel_request_exec(fakeChannel(), StrEq("command\n")));
    EXPECT_CALL(libssh, ssh_channel_send_eof(fakeChannel()));
    run();
}

TEST_F(Command, BringsBothStreamsAndTheExitCode)
{
    events = {says("one "), says("oops", true), says("two"), exits(3), endsItsStreams(), closes()};
    const SSHExecuteResult result = run();
    EXPECT_EQ(result.outcome, Outcome::Completed);
    EXPECT_EQ(result.output, "one two");
    EXPECT_EQ(result.errorOutput, "oops");
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.exitSignal, "");
    EXPECT_FALSE(result.succeeded());
    EXPECT_FALSE(result.timedOut());
}

TEST_F(Command, SucceedsWithExitCodeZero)
{
    events = {exits(0), endsItsStreams()};
    EXPECT_TRUE(run().succeeded());
}

TEST_F(Command, BringsTheSignalThatEndedIt)
{
    events = {dies("TERM"), endsItsStreams()};
    const SSHExecuteResult result = run();
    EXPECT_EQ(result.outcome, Outcome::Completed);
    EXPECT_EQ(result.exitSignal, "TERM");
    EXPECT_FALSE(result.exitCode.has_value());
    EXPECT_FALSE(result.succeeded());
}

TEST_F(Command, IsCompleteWhenItsChannelIsClosedThoughNoCodeCame)
{
    events = {says("text"), closes()};
    const SSHExecuteResult result = run();
    EXPECT_EQ(result.outcome, Outcome::Completed);
    EXPECT_EQ(result.output, "text");
    EXPECT_FALSE(result.exitCode.has_value());
}

TEST_F(Command, IsWaitedForAfterTheEndOfItsStreams)
{
    // The exit code comes after a while.
    events = {endsItsStreams(), [] {}, [] {}, exits(5)};
    EXPECT_EQ(run().exitCode, 5);
}

TEST_F(Command, IsCompleteWhenAChildKeepsItsStreamsOpenAndTheServerHasNoMore)
{
    events = {says("text"), exits(0)};
    EXPECT_CALL(libssh, ssh_channel_request_env)
        .Times(::testing::AtLeast(2))
        .WillRepeatedly(Return(SSH_ERROR));
    const SSHExecuteResult result = run();
    EXPECT_EQ(result.outcome, Outcome::Completed);
    EXPECT_EQ(result.output, "text");
    EXPECT_EQ(result.exitCode, 0);
}

TEST_F(Command, GetsItsInputThenTheEndOfFile)
{
    events = {[] {}, closes()};
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_channel_write(fakeChannel(), _, 5)).WillOnce(::testing::DoDefault());
    EXPECT_CALL(libssh, ssh_channel_send_eof(fakeChannel())).Times(1);
    const SSHExecuteResult result = run("input");
    EXPECT_EQ(written, "input");
    EXPECT_EQ(result.inputConsumed, 5U);
}

TEST_F(Command, GetsItsInputPieceByPieceAsThereIsRoom)
{
    const auto takes = [this](std::uint32_t room) {
        return [this, room](ssh_channel, const void* data, std::uint32_t size) {
            const std::uint32_t count = std::min(room, size);
            written.append(static_cast<const char*>(data), count);
            return static_cast<int>(count);
        };
    };
    EXPECT_CALL(libssh, ssh_channel_write)
        .WillOnce(takes(2))
        .WillOnce(takes(0))
        .WillOnce(takes(100));
    events = {[] {}, [] {}, closes()};
    const SSHExecuteResult result = run("input");
    EXPECT_EQ(written, "input");
    EXPECT_EQ(result.inputConsumed, 5U);
}

TEST_F(Command, MayStopReadingAndStillHaveMuchToSay)
{
    EXPECT_CALL(libssh, ssh_channel_write).WillOnce(Return(2)).WillOnce(Return(SSH_ERROR));
    events = {says("first line"), exits(0), endsItsStreams()};
    const SSHExecuteResult result = run("input");
    EXPECT_EQ(result.output, "first line");
    EXPECT_EQ(result.inputConsumed, 2U);
    EXPECT_TRUE(result.succeeded());
}

TEST_F(Command, IsNotStartedWithoutAChannel)
{
    EXPECT_CALL(libssh, ssh_channel_open_session).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_channel_request_exec).Times(0);
    EXPECT_EQ(run().outcome, Outcome::NotStarted);
}

TEST_F(Command, IsNotStartedWhenTheServerRefusesIt)
{
    EXPECT_CALL(libssh, ssh_channel_request_exec).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_get_error).WillOnce(Return("refused"));
    const SSHExecuteResult result = run();
    EXPECT_EQ(result.outcome, Outcome::NotStarted);
    EXPECT_EQ(result.error, "refused");
}

TEST_F(Command, IsNotSentWhenItWouldBeCut)
{
    EXPECT_CALL(libssh, ssh_channel_open_session).Times(0);
    EXPECT_CALL(libssh, ssh_channel_request_exec).Times(0);
    EXPECT_EQ(session.execute(std::string("ls\0rm", 5)).outcome, Outcome::NotStarted);
}

TEST_F(Command, IsOpenedAndSentWithPatience)
{
    EXPECT_CALL(libssh, ssh_channel_open_session)
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce(::testing::DoDefault());
    EXPECT_CALL(libssh, ssh_channel_request_exec)
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce(Return(SSH_OK));
    events = {exits(0), endsItsStreams()};
    EXPECT_TRUE(run().succeeded());
}

TEST_F(Command, ThatTakesTooLongIsKilledAndItsOutputKept)
{
    events = {says("so far")};
    EXPECT_CALL(libssh, ssh_channel_request_send_signal(fakeChannel(), StrEq("KILL"))).Times(1);
    const SSHExecuteResult result = run("", 20ms);
    EXPECT_TRUE(result.timedOut());
    EXPECT_EQ(result.output, "so far");
    EXPECT_EQ(result.error, "");
    EXPECT_FALSE(result.exitCode.has_value());
}

TEST_F(Command, WithoutTimeGivesUpAtTheFirstWait)
{
    EXPECT_TRUE(run("", 0ms).timedOut());
    EXPECT_TRUE(run("", std::chrono::milliseconds::min()).timedOut());
}

TEST_F(Command, OnALostConnectionBringsWhatCameBefore)
{
    events = {says("so far"), losesTheConnection()};
    EXPECT_CALL(libssh, ssh_get_error).WillRepeatedly(Return("lost"));
    const SSHExecuteResult result = run();
    EXPECT_EQ(result.outcome, Outcome::ConnectionLost);
    EXPECT_EQ(result.error, "lost");
    EXPECT_EQ(result.output, "so far");
}

TEST_F(Command, OnALostConnectionIsNotExplainedByWhatLibsshMakesUp)
{
    events = {says("so far"), losesTheConnection()};
    EXPECT_CALL(libssh, ssh_get_error)
        .WillRepeatedly(Return("Socket error: No such file or directory"));
    const SSHExecuteResult result = run();
    EXPECT_EQ(result.outcome, Outcome::ConnectionLost);
    EXPECT_EQ(result.error, "the session was disconnected");
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::ConnectionLost);
    EXPECT_EQ(FileSystem::Failure::last().text(), "");
}

TEST_F(Command, OnASessionThatIsDisconnectedMeanwhileIsLost)
{
    std::unique_ptr<Background> other;
    const auto disconnects = [&] {
        other = std::make_unique<Background>([this] { session.disconnect(); });
    };
    events = {says("so far"), disconnects};
    const SSHExecuteResult result = run();
    EXPECT_TRUE(other->ends());
    EXPECT_EQ(result.outcome, Outcome::ConnectionLost);
    EXPECT_EQ(result.output, "so far");
}

TEST_F(Command, StopsListeningBeforeItsChannelIsFreed)
{
    events = {exits(0), endsItsStreams()};
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_add_channel_callbacks).WillOnce(::testing::DoDefault());
    EXPECT_CALL(libssh, ssh_remove_channel_callbacks(fakeChannel(), _))
        .WillOnce(::testing::DoDefault());
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel()));
    EXPECT_TRUE(run().succeeded());
    EXPECT_EQ(callbacks, nullptr);
}

TEST_F(Command, LeavesTheSessionInItsOwnMode)
{
    events = {exits(0), endsItsStreams()};
    run();
    EXPECT_EQ(libssh.blocking, 1);
}
