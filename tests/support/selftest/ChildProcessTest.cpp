#include "support/ChildProcess.h"

#include "support/ProcessTree.h"
#include "support/selftest/ForkedProgram.h"

#include <gtest/gtest.h>

#include <csignal>
#include <system_error>

#include <unistd.h>

namespace TarnisTest {
namespace {

Command shell(const std::string& script)
{
    Command command;
    command.arguments = {"sh", "-c", script};
    return command;
}

bool exists(pid_t pid)
{
    return ::kill(pid, 0) == 0;
}

// 'T' while stopped, 'S' while asleep, and so on.
char stateOf(pid_t pid)
{
    const std::string text = readFile("/proc/" + std::to_string(pid) + "/stat");
    const auto commandEnd = text.rfind(')');
    return commandEnd == std::string::npos ? '?' : text.at(commandEnd + 2);
}

pid_t pidIn(const std::string& text)
{
    return static_cast<pid_t>(std::stol(text));
}

TEST(RunCommand, ReturnsOutputErrorOutputAndExitCode)
{
    const CommandResult result = runCommand(shell("echo out; echo err >&2; exit 7"));
    EXPECT_EQ(result.output, "out\n");
    EXPECT_EQ(result.errorOutput, "err\n");
    EXPECT_EQ(result.status.code, 7);
    EXPECT_EQ(result.status.signal, 0);
    EXPECT_FALSE(result.succeeded());
}

TEST(RunCommand, ReportsTheSignalThatEndedACommand)
{
    const CommandResult result = runCommand(shell("kill -TERM $$"));
    EXPECT_EQ(result.status.signal, SIGTERM);
    EXPECT_FALSE(result.succeeded());
}

TEST(RunCommand, FeedsInputAndThenItsEnd)
{
    Command command = shell("cat; echo end");
    command.input = "some input\n";
    EXPECT_EQ(runCommand(command).output, "some input\nend\n");
}

TEST(RunCommand, GivesExactlyTheEnvironmentAskedFor)
{
    Command command;
    command.arguments = {"env"};
    command.environment = {"ONLY=this"};
    EXPECT_EQ(runCommand(command).output, "ONLY=this\n");
    command.inheritEnvironment = true;
    EXPECT_NE(runCommand(command).output.find("HOME="), std::string::npos);
}

TEST(RunCommand, RunsWhereItIsToldTo)
{
    const TemporaryDirectory directory;
    Command command = shell("pwd -P");
    command.workingDirectory = directory.path().string();
    EXPECT_EQ(runCommand(command).output, directory.path().string() + "\n");
}

TEST(RunCommand, KillsACommandThatPassesItsLimit)
{
    const CommandResult result = runCommand(shell("sleep 1000"), std::chrono::milliseconds(50));
    EXPECT_TRUE(result.timedOut);
    EXPECT_FALSE(result.succeeded());
    EXPECT_EQ(result.status.signal, SIGKILL);
}

TEST(RunCommand, ThrowsWhenThereIsNoSuchProgram)
{
    Command command;
    command.arguments = {"no-such-program-here"};
    EXPECT_THROW(runCommand(command), std::system_error);
    EXPECT_THROW(runCommand(Command()), std::invalid_argument);
}

TEST(MustRun, ThrowsWithWhatTheCommandSaid)
{
    EXPECT_EQ(mustRun(shell("echo fine")), "fine\n");
    try {
        mustRun(shell("echo broken >&2; exit 1"));
        FAIL() << "a failing command was taken for a good one";
    } catch (const std::runtime_error& error) {
        EXPECT_NE(std::string(error.what()).find("broken"), std::string::npos);
    }
}

TEST(ChildProcess, IsRunningUntilItEnds)
{
    ChildProcess child(shell("cat >/dev/null; sleep 1000"));
    EXPECT_TRUE(child.isRunning());
    EXPECT_FALSE(child.wait(std::chrono::milliseconds(10)));
    child.signal(SIGTERM);
    const auto status = child.wait();
    ASSERT_TRUE(status);
    EXPECT_EQ(status->signal, SIGTERM);
    EXPECT_FALSE(child.isRunning());
}

TEST(ChildProcess, StopsAndContinuesTheWholeTree)
{
    ChildProcess child(shell("sleep 1000 & echo $!; wait"));
    ASSERT_TRUE(waitUntil([&] { return !child.output().empty(); }));
    const pid_t grandchild = pidIn(child.output());
    EXPECT_EQ(child.descendants(), std::vector<pid_t>{grandchild});
    child.suspend();
    EXPECT_TRUE(waitUntil([&] { return stateOf(child.pid()) == 'T'; }));
    EXPECT_TRUE(waitUntil([&] { return stateOf(grandchild) == 'T'; }));
    child.resume();
    EXPECT_TRUE(waitUntil([&] { return stateOf(child.pid()) == 'S'; }));
    EXPECT_TRUE(waitUntil([&] { return stateOf(grandchild) == 'S'; }));
}

TEST(ChildProcess, TakesADetachedStoppedGrandchildWithItWhenDestroyed)
{
    pid_t grandchild = 0;
    {
        // The shell in between ends, and the sleeper has a session of its own.
        ChildProcess child(
            shell("sh -c 'setsid sleep 1000 >/dev/null 2>&1 & echo $!'; sleep 1000"));
        ASSERT_TRUE(waitUntil([&] { return !child.output().empty(); }));
        grandchild = pidIn(child.output());
        ASSERT_TRUE(exists(grandchild));
        ::kill(grandchild, SIGSTOP);
    }
    EXPECT_FALSE(exists(grandchild));
}

TEST(ChildProcess, KillsADescendantWhoseParentHasEndedAndGoesOn)
{
    ChildProcess child(shell("sh -c 'sleep 1000 >/dev/null 2>&1 & echo $!'; exec sleep 1000"));
    ASSERT_TRUE(waitUntil([&] { return !child.output().empty(); }));
    const pid_t orphan = pidIn(child.output());
    ASSERT_TRUE(waitUntil([&] { return child.descendants().empty(); }));
    ASSERT_TRUE(exists(orphan));
    child.killDescendants();
    EXPECT_TRUE(waitUntil([&] { return !exists(orphan) || stateOf(orphan) == 'Z'; }));
    EXPECT_TRUE(child.isRunning());
}

TEST(ChildProcess, TakesItsDescendantsWithItWhenItEnds)
{
    ChildProcess child(shell("sleep 1000 & echo $!"));
    ASSERT_TRUE(child.wait());
    EXPECT_FALSE(exists(pidIn(child.output())));
}

// A test program that has started a child and now waits.
class ProgramWithChild : public ::testing::Test
{
protected:
    ProgramWithChild()
        : program([](const ForkedProgram::AnswerAndWait& answerAndWait) {
            const ChildProcess child(shell("sleep 1000"));
            answerAndWait(std::to_string(child.pid()));
        })
        , child_(pidIn(program.answer()))
    {
        EXPECT_TRUE(exists(child_));
    }

    bool childIsGone() const
    {
        // Whoever adopts it may never fetch its status.
        return waitUntil([this] { return !exists(child_) || stateOf(child_) == 'Z'; });
    }

    ForkedProgram program;

private:
    const pid_t child_;
};

TEST_F(ProgramWithChild, IsNotOutlivedByTheChildWhenItIsKilled)
{
    program.endBy(SIGKILL);
    EXPECT_TRUE(childIsGone());
}

TEST_F(ProgramWithChild, IsNotOutlivedByTheChildWhenTheSupervisorIsKilledToo)
{
    const pid_t supervisor = childrenOf(program.pid()).at(0);
    ::kill(supervisor, SIGSTOP); // It must not come first.
    program.endBy(SIGKILL);
    ::kill(supervisor, SIGKILL);
    EXPECT_TRUE(childIsGone());
}

TEST(ChildProcess, InheritsNoDescriptorOfTheTest)
{
    const UniqueFd kept(::dup(STDIN_FILENO)); // without the close-on-exec flag
    ASSERT_TRUE(kept.isOpen());
    Command command;
    command.arguments = {"sh", "-c", "ls /proc/self/fd"};
    // Standard streams, and the directory that ls reads.
    EXPECT_EQ(runCommand(command).output, "0\n1\n2\n3\n");
}

TEST(ProcessTree, FindsNothingUnderAProcessThatIsNotThere)
{
    EXPECT_TRUE(descendantsOf(-5).empty());
    EXPECT_TRUE(childrenOf(-5).empty());
}

} // namespace
} // namespace TarnisTest
