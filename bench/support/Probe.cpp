#include "support/Probe.h"

#include "support/ChildProcess.h"
#include "support/Require.h"

#include <chrono>
#include <sstream>

namespace TarnisBench {

namespace {

// For a probe that hangs; a slow one under an instrumenting tool takes some seconds.
constexpr std::chrono::minutes limit{10};

} // namespace

std::vector<std::string> probeCommandLine(const std::string& program, const std::string& name,
                                          const Login& login,
                                          const std::vector<std::string>& arguments)
{
    std::vector<std::string> commandLine{program, name};
    for (const std::string& argument : toArguments(login)) {
        commandLine.push_back(argument);
    }
    commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
    return commandLine;
}

ProbeOutput runProbe(const std::vector<std::string>& commandLine)
{
    TarnisTest::Command command;
    command.arguments = commandLine;
    command.inheritEnvironment = true;
    const auto result = TarnisTest::runCommand(command, limit);
    require(result.succeeded(), "running a probe: " + result.errorOutput);
    return {result.output, result.errorOutput};
}

std::vector<double> figuresIn(const std::string& output)
{
    std::istringstream text(output);
    std::vector<double> figures;
    double figure = 0;
    while (text >> figure) {
        figures.push_back(figure);
    }
    return figures;
}

} // namespace TarnisBench
