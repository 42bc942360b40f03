// Programs that end while a session, and what was made from it, are still there.

#include "integration/session/SessionSteps.h"
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace TarnisTest {

namespace {

constexpr const char* kValgrind = "/usr/bin/valgrind";

class LeftoverSession : public OpenSshTest, public ::testing::WithParamInterface<const char*>
{
protected:
    static std::string program() { return std::string(LEFTOVER_PROGRAMS) + "/" + GetParam(); }

    /// What the program needs to know to log in.
    std::vector<std::string> logInArguments()
    {
        return {std::to_string(server().port()), server().user(), server().clientKey().privatePath};
    }

    static void expectGoodEnd(std::vector<std::string> arguments,
                              const std::vector<std::string>& more)
    {
        arguments.insert(arguments.end(), more.begin(), more.end());
        Command command;
        command.arguments = std::move(arguments);
        command.inheritEnvironment = true;
        const CommandResult result = runCommand(command);
        EXPECT_TRUE(result.succeeded())
            << "code " << result.status.code << ", signal " << result.status.signal << "\n"
            << result.errorOutput;
        EXPECT_EQ(result.output, "begins\n");
    }

    static std::vector<std::string> underValgrind()
    {
        return {kValgrind,
                "-q",
                "--error-exitcode=99",
                "--leak-check=full",
                "--errors-for-leak-kinds=definite",
                std::string("--suppressions=") + VALGRIND_SUPPRESSIONS,
                program()};
    }
};

TEST_P(LeftoverSession, LetsTheProgramEndWithoutAConnection)
{
    expectGoodEnd({program()}, {});
}

TEST_P(LeftoverSession, LetsTheProgramEndWithAProcessAFileSystemAndAnOpenFile)
{
    expectGoodEnd({program()}, logInArguments());
}

TEST_P(LeftoverSession, TouchesNothingThatIsFreedAndLosesNothing)
{
    if (IS_SANITIZED != 0 || findProgram({kValgrind}).empty()) {
        GTEST_SKIP() << "there is no valgrind, or a sanitizer that it cannot run";
    }
    expectGoodEnd(underValgrind(), logInArguments());
}

INSTANTIATE_TEST_SUITE_P(Programs, LeftoverSession,
                         ::testing::Values("GlobalSession", "LocalSession", "HeldSession"),
                         [](const auto& program) { return std::string(program.param); });

} // namespace

} // namespace TarnisTest
