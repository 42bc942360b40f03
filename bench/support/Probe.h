#pragma once

#include "support/Login.h"

#include <string>
#include <vector>

namespace TarnisBench {

// What must be measured in a process of its own runs in the program tarnis_bench_probe:
// `tarnis_bench_probe NAME LOGIN... ARGUMENTS...` writes figures, separated by blanks.

/// Each probe takes the arguments after the login and returns the figures.
std::string probeTransfer(const Login& login, const std::vector<std::string>& arguments);
std::string probeCalls(const Login& login, const std::vector<std::string>& arguments);
std::string probeMemory(const Login& login, const std::vector<std::string>& arguments);

/// The command line of a probe.
std::vector<std::string> probeCommandLine(const std::string& program, const std::string& name,
                                          const Login& login,
                                          const std::vector<std::string>& arguments);

/// What a probe, or a tool that runs one, wrote.
struct ProbeOutput
{
    std::string output;
    std::string errorOutput;
};

/// Runs it to its end. Throws std::runtime_error, with what it said, unless it succeeded.
ProbeOutput runProbe(const std::vector<std::string>& commandLine);

/// The figures in a probe's output.
std::vector<double> figuresIn(const std::string& output);

} // namespace TarnisBench
