#include "integration/session/ProcessSockets.h"
#include "integration/session/SessionSteps.h"
#include "support/TemporaryDirectory.h"

#include <FileSystem/HandleFatalError.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <future>

namespace TarnisTest {

using namespace Tarnis;

namespace {

using State = RemoteSessionState;

class SessionReconnect : public OpenSshTest
{
protected:
    void expectConnectsAgain()
    {
        EXPECT_EQ(session().getState(), RemoteSessionState::Disconnected);
        ASSERT_TRUE(logIn()) << session().getLastError();
        EXPECT_TRUE(runsCommands(session()));
    }
};

TEST_F(SessionReconnect, WorksAfterARefusedConnectionOnceThePortIsRight)
{
    const RefusingPort refusing;
    ASSERT_TRUE(session().setPortNumber(refusing.port()));
    ASSERT_FALSE(session().connect());
    ASSERT_FALSE(session().connect());
    ASSERT_TRUE(session().setPortNumber(server().port()));
    expectConnectsAgain();
}

TEST_F(SessionReconnect, WorksAfterDisconnect)
{
    ASSERT_TRUE(logIn());
    ASSERT_TRUE(session().disconnect());
    expectConnectsAgain();
}

TEST_F(SessionReconnect, WorksAfterASilentDisconnect)
{
    ASSERT_TRUE(logIn());
    session().silentDisconnect();
    expectConnectsAgain();
}

TEST_F(SessionReconnect, NeedsNoQueryAfterASilentDisconnect)
{
    ASSERT_TRUE(logIn());
    session().silentDisconnect();
    ASSERT_TRUE(logIn()) << session().getLastError();
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(SessionReconnect, WorksAfterAnInterrupt)
{
    ASSERT_TRUE(logIn());
    session().interrupt();
    expectConnectsAgain();
}

TEST_F(SessionReconnect, WorksWhenAKilledServerIsBackOnTheSamePort)
{
    ASSERT_TRUE(logIn());
    server().killAll();
    ASSERT_TRUE(waitUntil([this] { return !session().isConnected(); }));
    ASSERT_FALSE(session().connect());
    server().start();
    expectConnectsAgain();
}

TEST_F(SessionReconnect, WorksWhenAKilledServerIsReplacedByOneOnAnotherPort)
{
    ASSERT_TRUE(logIn());
    server().killAll();
    const OpenSshServer other;
    ASSERT_TRUE(session().setPortNumber(other.port()));
    ASSERT_TRUE(TarnisTest::logIn(session(), other.clientKey())) << session().getLastError();
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(SessionReconnect, WorksFromEveryStepOfTheRoad)
{
    ASSERT_TRUE(session().connect());
    ASSERT_TRUE(session().disconnect());
    ASSERT_TRUE(connectTrusting(session()));
    ASSERT_TRUE(session().disconnect());
    ASSERT_TRUE(connectTrusting(session()));
    ASSERT_EQ(authenticate(session(), UserAuthenticatorNone()), AuthenticateUserResult::Denied);
    ASSERT_TRUE(session().disconnect());
    expectConnectsAgain();
}

TEST_F(SessionReconnect, LeaksNoDescriptorWhenDoneTenTimes)
{
    ASSERT_TRUE(logIn());
    const std::size_t before = openDescriptorCount();
    for (int round = 0; round < 10; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(session().disconnect());
        ASSERT_TRUE(logIn()) << session().getLastError();
        ASSERT_TRUE(runsCommands(session()));
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST_F(SessionReconnect, LeaksNoDescriptorWhenTheConnectionIsLostTenTimes)
{
    ASSERT_TRUE(logIn());
    const std::size_t before = openDescriptorCount();
    for (int round = 0; round < 10; ++round) {
        SCOPED_TRACE(round);
        server().killConnections();
        ASSERT_TRUE(waitUntil([this] { return !session().isConnected(); }));
        ASSERT_TRUE(logIn()) << session().getLastError();
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST_F(SessionReconnect, LeaksNoDescriptorWhenRefusedTenTimes)
{
    const RefusingPort refusing;
    ASSERT_TRUE(session().setPortNumber(refusing.port()));
    ASSERT_FALSE(session().connect());
    const std::size_t before = openDescriptorCount();
    for (int round = 0; round < 10; ++round) {
        ASSERT_FALSE(session().connect());
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST_F(SessionReconnect, LeavesNoDescriptorBehindWhenTheSessionIsDestroyed)
{
    ASSERT_TRUE(logIn());
    ASSERT_FALSE(socketsConnectedTo(server().port()).empty());
    destroySession();
    EXPECT_TRUE(socketsConnectedTo(server().port()).empty());
}

TEST_F(SessionReconnect, KeepsTheOptions)
{
    const TemporaryDirectory directory;
    const std::string knownHosts = directory.file("hosts");
    ASSERT_TRUE(session().setKnownHostsFile(knownHosts));
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(session().connect()) << session().getLastError();
        EXPECT_EQ(session().getHostName(), kLoopback);
        EXPECT_EQ(session().getUserName(), server().user());
        EXPECT_EQ(session().getPortNumber(), server().port());
        EXPECT_EQ(session().getKnownHostsFile(), knownHosts);
        ASSERT_TRUE(session().disconnect());
    }
}

TEST_F(SessionReconnect, KeepsAKnownHostsPathWithAPercentSign)
{
    using AutoMode = HostAuthenticatorKnownHostFile::AutoMode;
    const TemporaryDirectory directory;
    ASSERT_TRUE(session().setKnownHostsFile(directory.file("100%%d")));
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(session().connect()) << session().getLastError();
        EXPECT_EQ(session().getKnownHostsFile(), directory.file("100%d"));
        const auto response =
            session().hostAuthenticate(HostAuthenticatorKnownHostFile(AutoMode::AcceptNew, true));
        ASSERT_NE(response, nullptr);
        EXPECT_EQ(response->getResult(), AuthenticateHostResult::Accepted);
        ASSERT_TRUE(session().disconnect());
    }
    EXPECT_NE(readFile(directory.file("100%d")), "");
    EXPECT_FALSE(std::filesystem::exists(directory.file("100%%d")));
}

TEST_F(SessionReconnect, WorksInAHomeDirectoryWithAPercentSign)
{
    const TemporaryDirectory directory;
    const HomeForATime home(directory.makeDirectory("100%x"));
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(session().connect()) << session().getLastError();
        EXPECT_EQ(session().getKnownHostsFile(), directory.file("100%x/.ssh/known_hosts"));
        ASSERT_TRUE(session().disconnect());
    }
}

TEST_F(SessionReconnect, InvalidatesWhatWasMadeFromTheLostConnection)
{
    ASSERT_TRUE(logIn());
    const auto started = session().createProcess("cat");
    const auto notStarted = session().createProcess("echo");
    ASSERT_NE(started, nullptr);
    ASSERT_NE(notStarted, nullptr);
    ASSERT_TRUE(started->start());
    server().killConnections();
    ASSERT_TRUE(waitUntil([this] { return !session().isConnected(); }));
    ASSERT_TRUE(logIn());

    EXPECT_FALSE(started->isValid());
    EXPECT_FALSE(notStarted->isValid());
    EXPECT_THROW(started->sendEOF(), FileSystem::handle_fatal_error);
    EXPECT_THROW(static_cast<void>(notStarted->start()), FileSystem::handle_fatal_error);
    EXPECT_TRUE(runsCommands(session()));
}

TEST_F(SessionReconnect, IsNotUndoneByAnotherThreadThatAsksForTheState)
{
    std::atomic<bool> done{false};
    auto asking = std::async(std::launch::async, [&] {
        while (!done) {
            static_cast<void>(session().getState());
        }
    });
    for (int round = 0; round < 10; ++round) {
        ASSERT_TRUE(session().connect()) << session().getLastError();
        EXPECT_EQ(session().getState(), State::HostAuthenticating);
        server().killConnections();
        ASSERT_TRUE(waitUntil([this] { return session().getState() == State::Disconnected; }));
    }
    done = true;
}

TEST_F(SessionReconnect, WorksAfterThreadsThatTriedToConnectAtTheSameTime)
{
    const RefusingPort refusing;
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(session().setPortNumber(refusing.port()));
        auto other = std::async(std::launch::async, [this] { return session().connect(); });
        EXPECT_FALSE(session().connect());
        EXPECT_FALSE(other.get());
        ASSERT_EQ(session().getState(), State::Disconnected);
    }
    ASSERT_TRUE(session().setPortNumber(server().port()));
    expectConnectsAgain();
}

TEST_F(SessionReconnect, TellsBetweenTheAttemptsWhyTheLastOneFailed)
{
    const RefusingPort refusing;
    ASSERT_TRUE(session().setPortNumber(refusing.port()));
    for (int round = 0; round < 3; ++round) {
        ASSERT_FALSE(session().connect());
        EXPECT_NE(session().getLastError(), "");
    }
    ASSERT_TRUE(session().setPortNumber(server().port()));
    EXPECT_NE(session().getLastError(), "");
    expectConnectsAgain();
}

} // namespace

} // namespace TarnisTest
