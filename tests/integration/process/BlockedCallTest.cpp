// A thread that is blocked inside libssh, with the session's lock in its hands, and another one
// that ends the connection: both come back at once.

#include "integration/process/ProcessTest.h"

#include <FileSystem/HandleFatalError.h>

#include <future>
#include <tuple>
#include <vector>

namespace TarnisTest {

namespace {

using std::chrono::milliseconds;

enum class Call
{
    Connect,
    Authenticate,
    OpenOfAStart,
    ExecOfAStart,
    Close,
    SendSignal
};

enum class Ending
{
    Disconnect,
    SilentDisconnect,
    Interrupt
};

std::string nameOf(Call call)
{
    switch (call) {
    case Call::Connect:
        return "Connect";
    case Call::Authenticate:
        return "Authenticate";
    case Call::OpenOfAStart:
        return "OpenOfAStart";
    case Call::ExecOfAStart:
        return "ExecOfAStart";
    case Call::Close:
        return "Close";
    case Call::SendSignal:
        return "SendSignal";
    }
    return "Unknown";
}

std::string nameOf(Ending ending)
{
    switch (ending) {
    case Ending::Disconnect:
        return "Disconnect";
    case Ending::SilentDisconnect:
        return "SilentDisconnect";
    case Ending::Interrupt:
        return "Interrupt";
    }
    return "Unknown";
}

std::future<void> inBackground(std::function<void()> call)
{
    return std::async(std::launch::async, std::move(call));
}

bool isWaiting(const std::future<void>& call)
{
    return call.wait_for(milliseconds(100)) == std::future_status::timeout;
}

class FullSocketTest : public ::testing::Test
{
protected:
    void SetUp() override { static_cast<void>(requireServer(OpenSshServer::availability())); }

    OpenSshServer& server() { return *openSsh_; }

    Tarnis::SSHSession& session() { return session_; }

    std::vector<std::unique_ptr<Tarnis::SSHProcess>>& processes() { return processes_; }

    void fillTheSocketOfAStoppedServer()
    {
        // As many windows as it takes for the socket to be full before they are.
        constexpr int enough = 10;
        openSsh_.emplace();
        TarnisTest::logIn(session(), accessTo(*openSsh_));
        for (int number = 0; number < enough; ++number) {
            processes_.push_back(startProcess(session(), "cat >/dev/null"));
        }
        openSsh_->suspendAll();
        const std::string data(kMebibyte, 'x');
        for (const auto& process : processes_) {
            while (process->writeSome(data.data(), data.size(), milliseconds(20)).status ==
                   Status::Transferred) {
            }
        }
    }

private:
    std::optional<OpenSshServer> openSsh_;
    Tarnis::SSHSession session_;
    std::vector<std::unique_ptr<Tarnis::SSHProcess>> processes_;
};

TEST_F(FullSocketTest, GetsAnEndOfFileOnceTheServerGoesOn)
{
    fillTheSocketOfAStoppedServer();
    const Tarnis::SSHProcess& process = *processes().front();
    EXPECT_TRUE(returnsWithinASecond([&] { EXPECT_TRUE(process.sendEOF()); }));
    EXPECT_FALSE(process.waitForFinished(milliseconds(0)));
    server().resumeAll();
    EXPECT_TRUE(process.waitForFinished(kGenerousLimit));
    EXPECT_TRUE(session().isConnected());
}

class BlockedCallTest : public FullSocketTest,
                        public ::testing::WithParamInterface<std::tuple<Call, Ending>>
{
protected:
    /// Brings the session to where the server will say nothing more and makes the call.
    std::future<void> block(Call call)
    {
        switch (call) {
        case Call::Connect:
            return blockInConnect();
        case Call::Authenticate:
            return blockInAuthenticate();
        case Call::OpenOfAStart:
            return blockInStart(Event::ChannelOpen);
        case Call::ExecOfAStart:
            return blockInStart(Event::ExecRequest);
        case Call::Close:
            fillTheSocketOfAStoppedServer();
            return inBackground([this] { processes().front()->close(); });
        case Call::SendSignal:
            fillTheSocketOfAStoppedServer();
            return inBackground([this] { processes().front()->kill(); });
        }
        return {};
    }

    void end(Ending ending)
    {
        switch (ending) {
        case Ending::Disconnect:
            session().disconnect();
            break;
        case Ending::SilentDisconnect:
            session().silentDisconnect();
            break;
        case Ending::Interrupt:
            session().interrupt();
            break;
        }
    }

private:
    void serve(ScriptedPolicy policy)
    {
        scripted_.emplace(std::move(policy));
        address(session(), scripted_->port(), "anybody");
    }

    std::future<void> blockInConnect()
    {
        ScriptedPolicy policy;
        policy.handshake = Handshake::BannerOnly;
        serve(std::move(policy));
        auto call = inBackground([this] { EXPECT_FALSE(session().connect()); });
        EXPECT_TRUE(scripted_->events().waitFor(Event::Connected));
        return call;
    }

    std::future<void> blockInAuthenticate()
    {
        ScriptedPolicy policy;
        policy.authenticate = [](const ServerEvent&) { return AuthReply::silence(); };
        serve(std::move(policy));
        EXPECT_TRUE(connectTrusting(session())) << session().getLastError();
        auto call = inBackground([this] {
            EXPECT_EQ(authenticate(session(), Tarnis::UserAuthenticatorPassword("any")),
                      Tarnis::AuthenticateUserResult::Error);
        });
        EXPECT_TRUE(scripted_->events().waitFor(Event::Authentication));
        return call;
    }

    /// In the start of a process, at the request that is never answered.
    std::future<void> blockInStart(Event unanswered)
    {
        ScriptedPolicy policy;
        const auto silentAt = [unanswered](const ServerEvent& request) {
            return request.kind == unanswered ? Answer::Silence : Answer::Accept;
        };
        policy.openChannel = silentAt;
        policy.channelRequest = silentAt;
        serve(std::move(policy));
        TarnisTest::logIn(session(), accessTo(*scripted_));
        processes().push_back(session().createProcess("anything"));
        auto call = inBackground([this] {
            try {
                EXPECT_FALSE(processes().front()->start());
            } catch (const FileSystem::handle_fatal_error&) {
                // The process was made invalid before the call had come to its end.
            }
        });
        EXPECT_TRUE(scripted_->events().waitFor(unanswered));
        return call;
    }

    std::optional<ScriptedServer> scripted_;
};

TEST_P(BlockedCallTest, IsFreedWhenAnotherThreadEndsTheConnection)
{
    const auto [call, ending] = GetParam();
    auto blocked = block(call);
    ASSERT_TRUE(isWaiting(blocked));
    auto queued = inBackground([this] { EXPECT_NE(session().getPortNumber(), 0); });
    ASSERT_TRUE(isWaiting(queued)) << "the call does not hold the lock";

    EXPECT_TRUE(returnsWithinASecond([this, how = ending] { end(how); }));
    EXPECT_EQ(blocked.wait_for(kPromptly), std::future_status::ready);
    EXPECT_EQ(queued.wait_for(kPromptly), std::future_status::ready);
    blocked.get();
    queued.get();

    EXPECT_EQ(session().getState(), Tarnis::RemoteSessionState::Disconnected);
    const ScriptedServer good;
    EXPECT_NO_THROW(TarnisTest::logIn(session(), accessTo(good)));
}

INSTANTIATE_TEST_SUITE_P(
    Calls, BlockedCallTest,
    ::testing::Combine(::testing::Values(Call::Connect, Call::Authenticate, Call::OpenOfAStart,
                                         Call::ExecOfAStart, Call::Close, Call::SendSignal),
                       ::testing::Values(Ending::Disconnect, Ending::SilentDisconnect,
                                         Ending::Interrupt)),
    [](const auto& parameters) {
        return nameOf(std::get<0>(parameters.param)) + "By" + nameOf(std::get<1>(parameters.param));
    });

} // namespace

} // namespace TarnisTest
