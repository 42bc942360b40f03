#include "process/ChannelFixture.h"

#include <FileSystem/HandleFatalError.h>
#include <Tarnis/SSHProcess.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

using FileSystem::handle_fatal_error;
using Tarnis::SSHProcess;
using TarnisTest::ChannelFixture;
using TarnisTest::fakeChannel;
using TarnisTest::fakeSession;
using ::testing::DoDefault;
using ::testing::InSequence;
using ::testing::Mock;
using ::testing::Return;
using ::testing::StrEq;
using namespace std::chrono_literals;

using State = Tarnis::SSHCommandLineProcessState;

namespace {

// In here, since the name is reserved outside.
using ::testing::_;

class Process : public ChannelFixture
{
protected:
    void commandReports(int exitStatus)
    {
        EXPECT_CALL(libssh, ssh_channel_get_exit_status).WillRepeatedly(Return(exitStatus));
    }

    void expectNothingStarted()
    {
        EXPECT_CALL(libssh, ssh_channel_new).Times(0);
        EXPECT_CALL(libssh, ssh_channel_open_session).Times(0);
        EXPECT_CALL(libssh, ssh_channel_request_exec).Times(0);
    }

    SSHProcess process{"ls", makeHandle()};
};

class RunningProcess : public Process
{
protected:
    RunningProcess()
    {
        EXPECT_TRUE(process.start());
        EXPECT_EQ(process.getProcessState(), State::Running);
    }
};

class FinishedProcess : public RunningProcess
{
protected:
    FinishedProcess()
    {
        commandReports(0);
        EXPECT_EQ(process.getProcessState(), State::Finished);
    }
};

} // namespace

TEST(ProcessStates, HaveTheirFixedNumbers)
{
    EXPECT_EQ(static_cast<int>(State::NotStarted), 0);
    EXPECT_EQ(static_cast<int>(State::Starting), 1);
    EXPECT_EQ(static_cast<int>(State::Running), 2);
    EXPECT_EQ(static_cast<int>(State::Finished), 3);
    EXPECT_EQ(static_cast<int>(State::Failed), 4);
}

TEST_F(Process, IsNotStartedAtFirst)
{
    EXPECT_EQ(process.getProcessState(), State::NotStarted);
    EXPECT_EQ(process.getCommandLine(), "ls");
    EXPECT_FALSE(process.isRunning());
    EXPECT_FALSE(process.isFinished());
}

TEST_F(ChannelFixture, ProcessMayBeMadeWithoutACommandLine)
{
    SSHProcess process(makeHandle());
    EXPECT_EQ(process.getCommandLine(), "");
    EXPECT_EQ(process.getProcessState(), State::NotStarted);
}

TEST_F(Process, QueriesNothingBeforeItIsStarted)
{
    EXPECT_CALL(libssh, ssh_channel_get_exit_status).Times(0);
    EXPECT_CALL(libssh, ssh_channel_is_open).Times(0);
    process.isRunning();
    process.isFinished();
    process.getProcessState();
    process.setCommandLine("other");
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(Process, StartOpensItsChannelThenSendsTheLineWithALineFeed)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_channel_open_session(fakeChannel())).WillOnce(DoDefault());
    EXPECT_CALL(libssh, ssh_channel_request_exec(fakeChannel(), StrEq("ls\n")));
    EXPECT_TRUE(process.start());
    EXPECT_EQ(process.getProcessState(), State::Running);
    EXPECT_TRUE(process.isRunning());
}

TEST_F(Process, SendsExactlyOneMoreLineFeedWhateverTheLineEndsWith)
{
    EXPECT_CALL(libssh, ssh_channel_request_exec(_, StrEq("\n"))).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_channel_request_exec(_, StrEq("ls\n\n"))).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_channel_request_exec(_, StrEq("a\nb \r\n")))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_FALSE(process.start(""));
    EXPECT_FALSE(process.start("ls\n"));
    EXPECT_FALSE(process.start("a\nb \r"));
}

TEST_F(Process, OpensInTheSessionsOwnModeAndSendsWithoutBlocking)
{
    int modeOfOpen = -1;
    int modeOfExec = -1;
    EXPECT_CALL(libssh, ssh_channel_open_session).WillOnce([&](ssh_channel) {
        modeOfOpen = libssh.blocking;
        libssh.channelOpen = 1;
        return SSH_OK;
    });
    EXPECT_CALL(libssh, ssh_channel_request_exec).WillOnce([&](auto...) {
        modeOfExec = libssh.blocking;
        return SSH_OK;
    });
    EXPECT_TRUE(process.start());
    EXPECT_EQ(modeOfOpen, 1);
    EXPECT_EQ(modeOfExec, 0);
    EXPECT_EQ(libssh.blocking, 1);
}

TEST_F(Process, IsStartingWhileItStarts)
{
    State duringOpen{};
    State duringExec{};
    EXPECT_CALL(libssh, ssh_channel_open_session).WillOnce([&](ssh_channel) {
        duringOpen = process.getProcessState();
        libssh.channelOpen = 1;
        return SSH_OK;
    });
    EXPECT_CALL(libssh, ssh_channel_request_exec).WillOnce([&](auto...) {
        duringExec = process.getProcessState();
        return SSH_OK;
    });
    EXPECT_TRUE(process.start());
    EXPECT_EQ(duringOpen, State::Starting);
    EXPECT_EQ(duringExec, State::Starting);
}

TEST_F(Process, RepeatsTheRequestWhileTheServerHasNotAnswered)
{
    EXPECT_CALL(libssh, ssh_channel_request_exec)
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce(Return(SSH_AGAIN))
        .WillOnce(Return(SSH_OK));
    EXPECT_TRUE(process.start());
}

TEST_F(Process, FailsWhenTheChannelIsRefused)
{
    EXPECT_CALL(libssh, ssh_channel_open_session).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_channel_request_exec).Times(0);
    EXPECT_FALSE(process.start());
    EXPECT_EQ(process.getProcessState(), State::Failed);
}

TEST_F(Process, FailsWhenTheCommandIsRefusedAndLeavesTheChannelOpen)
{
    EXPECT_CALL(libssh, ssh_channel_request_exec).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_channel_close).Times(0);
    EXPECT_FALSE(process.start());
    EXPECT_EQ(process.getProcessState(), State::Failed);
    EXPECT_TRUE(process.isOpen());
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(Process, FailsWhenTheServerClosesInsteadOfAnswering)
{
    EXPECT_CALL(libssh, ssh_channel_request_exec).WillOnce([this](auto...) {
        libssh.channelOpen = 0;
        return SSH_AGAIN;
    });
    EXPECT_FALSE(process.start());
    EXPECT_EQ(process.getProcessState(), State::Failed);
}

TEST_F(Process, StartsAgainOnANewChannelAfterItsChannelWasRefused)
{
    EXPECT_CALL(libssh, ssh_channel_open_session(fakeChannel(0))).WillOnce(Return(SSH_ERROR));
    EXPECT_FALSE(process.start());
    EXPECT_CALL(libssh, ssh_channel_new(fakeSession())).WillOnce(Return(fakeChannel(1)));
    EXPECT_CALL(libssh, ssh_channel_open_session(fakeChannel(1))).WillOnce(DoDefault());
    EXPECT_CALL(libssh, ssh_channel_request_exec(fakeChannel(1), StrEq("ls\n")));
    EXPECT_TRUE(process.start());
    EXPECT_EQ(process.getProcessState(), State::Running);
}

TEST_F(Process, StartsAgainAfterTheCommandWasRefused)
{
    EXPECT_CALL(libssh, ssh_channel_open_session).Times(2).WillRepeatedly(DoDefault());
    EXPECT_CALL(libssh, ssh_channel_request_exec(_, StrEq("ls\n")))
        .WillOnce(Return(SSH_ERROR))
        .WillOnce(Return(SSH_OK));
    EXPECT_FALSE(process.start());
    EXPECT_TRUE(process.start());
    EXPECT_EQ(process.getProcessState(), State::Running);
}

TEST_F(Process, FailsWithoutAnyCallWhenTheLineWouldBeCut)
{
    expectNothingStarted();
    EXPECT_FALSE(process.start(std::string("ls\0rm", 5)));
    EXPECT_EQ(process.getProcessState(), State::Failed);
}

TEST_F(ChannelFixture, ProcessWithoutAHandleFails)
{
    SSHProcess process("ls", nullptr);
    EXPECT_FALSE(process.start());
    EXPECT_EQ(process.getProcessState(), State::Failed);
}

TEST_F(Process, StartWithALineReplacesTheOldOne)
{
    EXPECT_CALL(libssh, ssh_channel_request_exec(_, StrEq("pwd\n")));
    EXPECT_TRUE(process.start("pwd"));
    EXPECT_EQ(process.getCommandLine(), "pwd");
}

TEST_F(Process, SetCommandLineIsFalseThoughItReplacesTheLine)
{
    EXPECT_FALSE(process.setCommandLine("pwd"));
    EXPECT_EQ(process.getCommandLine(), "pwd");
    EXPECT_FALSE(process.setCommandLine("pwd"));
    EXPECT_EQ(process.getCommandLine(), "pwd");
}

TEST_F(Process, SetCommandLineReplacesTheLineOfAFailedProcess)
{
    EXPECT_CALL(libssh, ssh_channel_open_session).WillOnce(Return(SSH_ERROR));
    static_cast<void>(process.start());
    EXPECT_FALSE(process.setCommandLine("pwd"));
    EXPECT_EQ(process.getCommandLine(), "pwd");
}

TEST_F(RunningProcess, KeepsItsCommandLine)
{
    EXPECT_FALSE(process.setCommandLine("pwd"));
    EXPECT_EQ(process.getCommandLine(), "ls");
}

TEST_F(FinishedProcess, KeepsItsCommandLine)
{
    EXPECT_FALSE(process.setCommandLine("pwd"));
    EXPECT_EQ(process.getCommandLine(), "ls");
}

TEST_F(RunningProcess, CannotBeStarted)
{
    expectNothingStarted();
    EXPECT_FALSE(process.start());
    EXPECT_FALSE(process.start("pwd"));
    EXPECT_EQ(process.getProcessState(), State::Running);
}

TEST_F(RunningProcess, ThatHasEndedIsOnlyAskedForItsStatusByStart)
{
    EXPECT_CALL(libssh, ssh_channel_get_exit_status(fakeChannel())).WillOnce(Return(0));
    EXPECT_CALL(libssh, ssh_channel_is_open).Times(0);
    expectNothingStarted();
    EXPECT_FALSE(process.start());
    EXPECT_EQ(process.getProcessState(), State::Finished);
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(FinishedProcess, CannotBeStartedAndIsAskedNothingMore)
{
    EXPECT_CALL(libssh, ssh_channel_get_exit_status).Times(0);
    EXPECT_CALL(libssh, ssh_channel_is_open).Times(0);
    expectNothingStarted();
    EXPECT_FALSE(process.start());
    EXPECT_EQ(process.getProcessState(), State::Finished);
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(FinishedProcess, StaysFinished)
{
    commandReports(-1);
    EXPECT_TRUE(process.isFinished());
    EXPECT_FALSE(process.isRunning());
}

TEST_F(FinishedProcess, RunsAgainWhenItsChannelIsOpenedDirectly)
{
    libssh.channelOpen = 0;
    commandReports(-1);
    EXPECT_CALL(libssh, ssh_channel_new).WillOnce(Return(fakeChannel(1)));
    EXPECT_CALL(libssh, ssh_channel_request_exec(fakeChannel(1), StrEq("ls\n")));
    EXPECT_TRUE(process.open());
    EXPECT_EQ(process.getProcessState(), State::Running);
}

TEST_F(RunningProcess, RunsWhileNoStatusIsReportedAndItsChannelIsOpen)
{
    commandReports(-1);
    EXPECT_TRUE(process.isRunning());
    EXPECT_FALSE(process.isFinished());
}

TEST_F(RunningProcess, IsFinishedOnceAStatusIsReported)
{
    commandReports(7);
    EXPECT_FALSE(process.isRunning());
    EXPECT_TRUE(process.isFinished());
    EXPECT_EQ(process.getExitCode(), 7);
}

TEST_F(RunningProcess, IsFinishedOnceItsChannelIsClosed)
{
    libssh.channelOpen = 0;
    EXPECT_TRUE(process.isFinished());
    EXPECT_EQ(process.getExitCode(), -1);
}

TEST_F(RunningProcess, ThatDoesNotEndInTimeIsWaitedForInVain)
{
    EXPECT_FALSE(process.waitForFinished(3ms));
    EXPECT_TRUE(process.isRunning());
}

TEST_F(RunningProcess, IsLookedAtAfterAPauseOnly)
{
    int looks = 0;
    EXPECT_CALL(libssh, ssh_channel_get_exit_status).WillRepeatedly([&](ssh_channel) {
        ++looks;
        return -1;
    });
    EXPECT_FALSE(process.waitForFinished(20ms));
    EXPECT_GE(looks, 2);
    // One at the start, one after each pause of a tenth of a millisecond, and the last one.
    EXPECT_LE(looks, 202);
    Mock::VerifyAndClearExpectations(&libssh);
}

TEST_F(RunningProcess, IsLookedAtOnceAndOnceMoreWithoutTime)
{
    for (const auto timeout : {0ms, -1ms, std::chrono::milliseconds::min()}) {
        EXPECT_CALL(libssh, ssh_channel_get_exit_status).Times(2).WillRepeatedly(Return(-1));
        EXPECT_FALSE(process.waitForFinished(timeout));
        Mock::VerifyAndClearExpectations(&libssh);
    }
}

TEST_F(RunningProcess, IsWaitedForUntilItEnds)
{
    for (const auto timeout : {std::chrono::milliseconds(1h), std::chrono::milliseconds::max()}) {
        EXPECT_CALL(libssh, ssh_channel_get_exit_status)
            .WillOnce(Return(-1))
            .WillOnce(Return(-1))
            .WillOnce(Return(-1))
            .WillRepeatedly(Return(0));
        EXPECT_TRUE(process.waitForFinished(timeout));
    }
}

TEST_F(RunningProcess, WhoseChannelIsClosedIsNotWaitedFor)
{
    libssh.channelOpen = 0;
    EXPECT_TRUE(process.waitForFinished(0ms));
}

TEST_F(RunningProcess, KeepsItsStateWhileItIsWaitedFor)
{
    commandReports(0);
    EXPECT_TRUE(process.waitForFinished(0ms));
    // Had the wait taken note of the end, this could not be seen any more.
    commandReports(-1);
    EXPECT_TRUE(process.isRunning());
}

TEST_F(RunningProcess, IsSentItsSignalsByTheirBareNames)
{
    EXPECT_CALL(libssh, ssh_channel_request_send_signal(fakeChannel(), StrEq("KILL")))
        .WillOnce(Return(SSH_OK));
    EXPECT_CALL(libssh, ssh_channel_request_send_signal(fakeChannel(), StrEq("TERM")))
        .WillOnce(Return(SSH_ERROR));
    EXPECT_TRUE(process.kill());
    EXPECT_FALSE(process.terminate());
}

TEST_F(RunningProcess, ClosesAfterAnEndOfFile)
{
    const InSequence inThisOrder;
    EXPECT_CALL(libssh, ssh_channel_send_eof(fakeChannel())).WillOnce(Return(SSH_ERROR));
    EXPECT_CALL(libssh, ssh_channel_close(fakeChannel())).WillOnce(DoDefault());
    EXPECT_TRUE(process.close());
    EXPECT_TRUE(process.isFinished());
}

TEST_F(FinishedProcess, ClosesWithoutAnEndOfFile)
{
    EXPECT_CALL(libssh, ssh_channel_send_eof).Times(0);
    EXPECT_CALL(libssh, ssh_channel_close(fakeChannel())).WillOnce(DoDefault());
    EXPECT_TRUE(process.close());
}

TEST_F(RunningProcess, TellsWhenItCannotBeClosed)
{
    EXPECT_CALL(libssh, ssh_channel_close).WillOnce(Return(SSH_ERROR)).WillRepeatedly(DoDefault());
    EXPECT_FALSE(process.close());
}

TEST_F(ChannelFixture, DestroyedWhileRunningProcessIsClosedWithoutAnEndOfFile)
{
    EXPECT_CALL(libssh, ssh_channel_send_eof).Times(0);
    EXPECT_CALL(libssh, ssh_channel_close(fakeChannel())).WillOnce(DoDefault());
    EXPECT_CALL(libssh, ssh_channel_free(fakeChannel())).Times(1);
    SSHProcess process("ls", makeHandle());
    EXPECT_TRUE(process.start());
}

TEST_F(RunningProcess, ThrowsFromItsQueriesOnceTheSessionIsGone)
{
    session.deleteMe();
    EXPECT_THROW(process.isRunning(), handle_fatal_error);
    EXPECT_THROW(process.isFinished(), handle_fatal_error);
    EXPECT_THROW(process.getProcessState(), handle_fatal_error);
    EXPECT_THROW(process.setCommandLine("pwd"), handle_fatal_error);
    EXPECT_THROW(process.waitForFinished(0ms), handle_fatal_error);
    EXPECT_THROW(process.kill(), handle_fatal_error);
}

TEST_F(Process, ThrowsOnlyFromWhatTouchesTheChannelOnceTheSessionIsGone)
{
    session.deleteMe();
    EXPECT_FALSE(process.isRunning());
    EXPECT_FALSE(process.setCommandLine("pwd"));
    EXPECT_EQ(process.getProcessState(), State::NotStarted);
    EXPECT_THROW(process.waitForFinished(0ms), handle_fatal_error);
    EXPECT_THROW(static_cast<void>(process.start()), handle_fatal_error);
    EXPECT_EQ(process.getProcessState(), State::Starting);
}
