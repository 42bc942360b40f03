#include "integration/session/SessionSteps.h"

#include <FileSystem/HandleFatalError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace TarnisTest {

using namespace Tarnis;

namespace {

class ProcessesOfASession : public OpenSshTest
{
protected:
    void SetUp() override
    {
        OpenSshTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        ASSERT_TRUE(logIn()) << session().getLastError();
        running_ = session().createProcess("echo unread; cat");
        waiting_ = session().createProcess("echo");
        ASSERT_NE(running_, nullptr);
        ASSERT_NE(waiting_, nullptr);
        ASSERT_TRUE(running_->start());
    }

    static void expectInvalid(SSHProcess& process)
    {
        char byte = 'x';
        EXPECT_FALSE(process.isValid());
        EXPECT_THROW(static_cast<void>(process.open()), FileSystem::handle_fatal_error);
        EXPECT_THROW(process.isOpen(), FileSystem::handle_fatal_error);
        EXPECT_THROW(process.close(), FileSystem::handle_fatal_error);
        EXPECT_THROW(process.isEOF(), FileSystem::handle_fatal_error);
        EXPECT_THROW(process.sendEOF(), FileSystem::handle_fatal_error);
        EXPECT_THROW(process.sendSignal("INT"), FileSystem::handle_fatal_error);
        EXPECT_THROW(process.bytesAvailable(false), FileSystem::handle_fatal_error);
        EXPECT_THROW(process.read(&byte, 1, false), FileSystem::handle_fatal_error);
        EXPECT_THROW(process.write(&byte, 1), FileSystem::handle_fatal_error);
        EXPECT_THROW(process.readAll(false), FileSystem::handle_fatal_error);
        EXPECT_THROW(static_cast<void>(process.readSome(&byte, 1, false, std::chrono::seconds(0))),
                     FileSystem::handle_fatal_error);
        EXPECT_THROW(static_cast<void>(process.writeSome(&byte, 1, std::chrono::seconds(0))),
                     FileSystem::handle_fatal_error);
        EXPECT_THROW(process.kill(), FileSystem::handle_fatal_error);
        EXPECT_EQ(byte, 'x');
    }

    void expectAllInvalid()
    {
        EXPECT_EQ(waiting_->getProcessState(), SSHCommandLineProcessState::NotStarted);
        EXPECT_THROW(static_cast<void>(waiting_->start()), FileSystem::handle_fatal_error);
        EXPECT_EQ(waiting_->getProcessState(), SSHCommandLineProcessState::Starting);
        expectInvalid(*running_);
        expectInvalid(*waiting_);
        // What they know without the connection is still there.
        EXPECT_EQ(running_->getCommandLine(), "echo unread; cat");
        EXPECT_EQ(waiting_->getCommandLine(), "echo");
    }

private:
    std::unique_ptr<SSHProcess> running_;
    std::unique_ptr<SSHProcess> waiting_;
};

TEST_F(ProcessesOfASession, AreInvalidOnceTheSessionIsDestroyed)
{
    destroySession();
    expectAllInvalid();
}

TEST_F(ProcessesOfASession, AreInvalidOnceTheSessionIsDisconnected)
{
    ASSERT_TRUE(session().disconnect());
    expectAllInvalid();
}

TEST_F(ProcessesOfASession, AreInvalidOnceTheSessionIsSilentlyDisconnected)
{
    session().silentDisconnect();
    expectAllInvalid();
}

TEST_F(ProcessesOfASession, AreInvalidForEverThoughTheSessionConnectsAgain)
{
    ASSERT_TRUE(session().disconnect());
    ASSERT_TRUE(logIn());
    expectAllInvalid();
    EXPECT_TRUE(runsCommands(session()));
}

} // namespace

} // namespace TarnisTest
