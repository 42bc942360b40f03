// Taking a session down waits for nobody, least of all for a server that has stopped answering.

#include "integration/session/SessionSteps.h"

#include <gtest/gtest.h>

#include <tuple>

namespace TarnisTest {

using namespace Tarnis;

namespace {

enum class Server
{
    Alive,
    Stopped,
    Killed
};

enum class Stage
{
    Connected,
    HostAccepted,
    Authenticated,
    ProcessRunning,
    InputPending
};

class SessionTearDown : public OpenSshTest,
                        public ::testing::WithParamInterface<std::tuple<Server, Stage>>
{
protected:
    void SetUp() override
    {
        OpenSshTest::SetUp();
        if (IsSkipped() || HasFailure()) {
            return;
        }
        ASSERT_TRUE(session().connect()) << session().getLastError();
        const Stage stage = std::get<Stage>(GetParam());
        if (stage >= Stage::HostAccepted) {
            ASSERT_NE(session().hostAuthenticate(HostAuthenticatorNone()), nullptr);
        }
        if (stage >= Stage::Authenticated) {
            ASSERT_EQ(offerKey(session(), server().clientKey()), AuthenticateUserResult::Success);
        }
        if (stage >= Stage::ProcessRunning) {
            startProcess();
        }
        spoilServer();
        if (stage == Stage::InputPending) {
            fillInput();
        }
    }

    void TearDown() override
    {
        process_.reset();
        destroySession();
    }

private:
    void startProcess()
    {
        process_ = session().createProcess("cat >/dev/null");
        ASSERT_NE(process_, nullptr);
        ASSERT_TRUE(process_->start());
    }

    void spoilServer()
    {
        switch (std::get<Server>(GetParam())) {
        case Server::Alive:
            break;
        case Server::Stopped:
            server().suspendAll();
            break;
        case Server::Killed:
            server().killAll();
            break;
        }
    }

    /// More than the window and the socket take.
    void fillInput()
    {
        using Status = SSHChannelTransfer::Status;
        const std::string piece(100'000, 'x');
        std::size_t written = 0;
        while (written < 8'000'000) {
            const auto transfer =
                process_->writeSome(piece.data(), piece.size(), std::chrono::milliseconds(100));
            if (transfer.status != Status::Transferred) {
                return;
            }
            written += transfer.count;
        }
    }

    std::unique_ptr<SSHProcess> process_;
};

TEST_P(SessionTearDown, OfASessionByItsDestructorWaitsForNobody)
{
    EXPECT_TRUE(returnsWithinASecond([this] { destroySession(); }));
}

TEST_P(SessionTearDown, OfASessionByDisconnectWaitsForNobody)
{
    EXPECT_TRUE(returnsWithinASecond([this] { EXPECT_TRUE(session().disconnect()); }));
    EXPECT_EQ(session().getState(), RemoteSessionState::Disconnected);
    EXPECT_TRUE(returnsWithinASecond([this] { destroySession(); }));
}

TEST_P(SessionTearDown, OfASessionBySilentDisconnectWaitsForNobody)
{
    EXPECT_TRUE(returnsWithinASecond([this] { session().silentDisconnect(); }));
    EXPECT_EQ(session().getState(), RemoteSessionState::Disconnected);
    EXPECT_TRUE(returnsWithinASecond([this] { destroySession(); }));
}

std::string situationName(const ::testing::TestParamInfo<SessionTearDown::ParamType>& info)
{
    static constexpr const char* servers[] = {"Alive", "Stopped", "Killed"};
    static constexpr const char* stages[] = {"Connected", "HostAccepted", "Authenticated",
                                             "ProcessRunning", "InputPending"};
    return std::string(servers[static_cast<int>(std::get<Server>(info.param))]) +
           stages[static_cast<int>(std::get<Stage>(info.param))];
}

INSTANTIATE_TEST_SUITE_P(
    Situations, SessionTearDown,
    ::testing::Combine(::testing::Values(Server::Alive, Server::Stopped, Server::Killed),
                       ::testing::Values(Stage::Connected, Stage::HostAccepted,
                                         Stage::Authenticated, Stage::ProcessRunning,
                                         Stage::InputPending)),
    situationName);

} // namespace

} // namespace TarnisTest
