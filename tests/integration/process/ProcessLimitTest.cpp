// Calls that keep trying for a while when the server does not answer, with that while shortened.

#include "handles/SSHCallLimits.h"
#include "integration/process/ProcessTest.h"

#include <utility>

namespace TarnisTest {

namespace {

using std::chrono::milliseconds;

/// Shortens the time for which a call keeps trying.
class ShortRetryLimit
{
public:
    ShortRetryLimit() { Tarnis::SSHCallLimits::setRetryLimit(milliseconds(200)); }

    ShortRetryLimit(const ShortRetryLimit&) = delete;
    ShortRetryLimit& operator=(const ShortRetryLimit&) = delete;

    ~ShortRetryLimit()
    {
        Tarnis::SSHCallLimits::setRetryLimit(Tarnis::SSHCallLimits::defaultRetryLimit);
    }
};

/// A policy that never answers to the first command.
ScriptedPolicy silentAtFirst()
{
    ScriptedPolicy policy;
    policy.channelRequest = [first = std::make_shared<bool>(true)](const ServerEvent&) {
        return std::exchange(*first, false) ? Answer::Silence : Answer::Accept;
    };
    return policy;
}

TEST(ProcessRetryLimit, EndsAStartThatTheServerNeverAnswers)
{
    ScriptedSession scripted(silentAtFirst());
    const ShortRetryLimit limit;
    const auto process = scripted.session().createProcess("x");
    EXPECT_FALSE(process->start());
    EXPECT_EQ(process->getProcessState(), State::Failed);
    EXPECT_TRUE(scripted.session().isAuthenticated());
    EXPECT_TRUE(process->isOpen()) << "the channel was opened, and stays so";
}

TEST(ProcessRetryLimit, LetsAProcessStartAgain)
{
    ScriptedSession scripted(silentAtFirst());
    const auto process = scripted.session().createProcess("x");
    {
        const ShortRetryLimit limit;
        EXPECT_FALSE(process->start());
    }
    EXPECT_TRUE(process->start("y")) << scripted.session().getLastError();
    EXPECT_TRUE(process->waitForFinished(kGenerousLimit));
    EXPECT_EQ(process->getExitCode(), 0);
    EXPECT_EQ(scripted.events().ofKind(Event::ExecRequest).back().text, "y\n");
}

TEST(ProcessRetryLimit, LetsAnotherProcessStart)
{
    ScriptedSession scripted(silentAtFirst());
    {
        const ShortRetryLimit limit;
        EXPECT_FALSE(scripted.session().createProcess("x")->start());
    }
    const auto next = scripted.session().createProcess("y");
    EXPECT_TRUE(next->start()) << scripted.session().getLastError();
    EXPECT_TRUE(next->waitForFinished(kGenerousLimit));
    EXPECT_EQ(next->getExitCode(), 0);
}

class StoppedServerLimitTest : public OpenSshSessionTest
{};

TEST_F(StoppedServerLimitTest, EndsAnEndOfFileThatCannotBeSent)
{
    const auto process = startProcess(session(), "cat >/dev/null");
    server().suspendAll();
    const std::string data(kMebibyte, 'x');
    while (process->writeSome(data.data(), data.size(), milliseconds(20)).status ==
           Status::Transferred) {
    }
    const ShortRetryLimit limit;
    // Whether they fit into the socket is the system's business; that they return is the point.
    process->sendEOF();
    process->sendSignal("TERM");
    EXPECT_EQ(process->getProcessState(), State::Running);
}

} // namespace

} // namespace TarnisTest
