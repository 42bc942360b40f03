// Calls that keep trying for a while when the server does not answer, with that while shortened.

#include "handles/SSHCallLimits.h"
#include "integration/process/ProcessTest.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

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

/// A server that no longer reads, behind sockets that are full.
class StoppedServerLimitTest : public OpenSshSessionTest
{
protected:
    void SetUp() override
    {
        OpenSshSessionTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        counter_ = startProcess(session(), "wc -c");
        // The server's windows for all of them are more than the sockets of a connection hold.
        for (int i = 0; i < 8; ++i) {
            ballast_.push_back(startProcess(session(), "cat >/dev/null"));
        }
        server().suspendAll();
        written_ = fill(*counter_);
        for (const auto& process : ballast_) {
            fill(*process);
        }
        ASSERT_EQ(fill(*ballast_.back()), 0U);
    }

    /// Writes for as long as anything is taken. The number of bytes.
    static std::size_t fill(const Tarnis::SSHProcess& process)
    {
        const std::string data(kMebibyte, 'x');
        std::size_t total = 0;
        for (;;) {
            const auto written = process.writeSome(data.data(), data.size(), milliseconds(20));
            total += written.count;
            if (written.status != Status::Transferred) {
                return total;
            }
        }
    }

    /// Counts its input, of which it was given this much.
    std::unique_ptr<Tarnis::SSHProcess> counter_;
    std::size_t written_ = 0;

private:
    std::vector<std::unique_ptr<Tarnis::SSHProcess>> ballast_;
};

TEST_F(StoppedServerLimitTest, AnEndOfFileThatCannotBeSentIsSentLater)
{
    {
        const ShortRetryLimit limit;
        EXPECT_TRUE(counter_->sendEOF()) << session().getLastError();
        EXPECT_EQ(counter_->getProcessState(), State::Running);
    }
    server().resumeAll();
    EXPECT_EQ(readToEnd(*counter_, standardOutput), std::to_string(written_) + "\n");
    EXPECT_TRUE(counter_->waitForFinished(kGenerousLimit));
    EXPECT_EQ(counter_->getExitCode(), 0);
}

TEST_F(StoppedServerLimitTest, ASignalThatCannotBeSentFails)
{
    const ShortRetryLimit limit;
    EXPECT_FALSE(counter_->sendSignal("TERM"));
    EXPECT_EQ(counter_->getProcessState(), State::Running);
}

} // namespace

} // namespace TarnisTest
