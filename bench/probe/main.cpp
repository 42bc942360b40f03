// Measures one thing in a process of its own and writes the figures.

#include "support/Probe.h"
#include "support/Require.h"

#include <csignal>
#include <exception>
#include <iostream>

namespace {

using namespace TarnisBench;

constexpr std::size_t loginArguments = 5;

std::string run(const std::vector<std::string>& arguments)
{
    require(arguments.size() > loginArguments, "reading the arguments");
    const auto loginEnd = arguments.begin() + 1 + loginArguments;
    const Login login = loginFromArguments({arguments.begin() + 1, loginEnd});
    const std::vector<std::string> rest(loginEnd, arguments.end());
    const std::string& name = arguments.front();
    if (name == "transfer") {
        return probeTransfer(login, rest);
    }
    if (name == "calls") {
        return probeCalls(login, rest);
    }
    require(name == "memory", "finding the probe " + name);
    return probeMemory(login, rest);
}

} // namespace

int main(int argc, char** argv)
{
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    try {
        std::cout << run({argv + 1, argv + argc}) << '\n';
        return 0;
    } catch (const std::exception& error) {
        std::cerr << argv[0] << ": " << error.what() << '\n';
        return 1;
    }
}
