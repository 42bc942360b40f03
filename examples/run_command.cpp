// Runs one command and shows everything that came of it: output, error output, exit code, a
// time-out.

#include "Login.h"

#include <chrono>

namespace {

int report(const Tarnis::SSHExecuteResult& result)
{
    using Outcome = Tarnis::SSHExecuteResult::Outcome;

    std::cout << result.output;
    std::cerr << result.errorOutput;
    switch (result.outcome) {
    case Outcome::Completed:
        if (!result.exitSignal.empty()) {
            std::cerr << "the command was ended by the signal " << result.exitSignal << '\n';
        }
        return result.exitCode.value_or(255);
    case Outcome::TimedOut:
        std::cerr << "the command took too long and was killed\n";
        return 255;
    case Outcome::NotStarted:
    case Outcome::ConnectionLost:
        std::cerr << "the command could not be run to its end: " << result.error << '\n';
        return 255;
    }
    return 255;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 1 + Login::argumentCount + 1) {
        std::cerr << "usage: " << argv[0] << ' ' << Login::usage << " COMMAND\n";
        return 2;
    }
    Tarnis::SSHSession session;
    if (!logIn(session, Login::fromArguments(argv + 1))) {
        return 255;
    }
    const std::string input = "what the command finds on its standard input\n";
    const auto result =
        session.execute(argv[1 + Login::argumentCount], input, std::chrono::seconds(30));
    return report(result);
}
