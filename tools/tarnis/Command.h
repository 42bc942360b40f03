#pragma once

#include "Failure.h"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace TarnisTool {

/// One sub-command of the program.
class Command
{
public:
    /// Declares the sub-command on the program's command line.
    Command(CLI::App& program, const std::string& name, const std::string& description);
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    /// Whether the command line asks for this one.
    bool isChosen() const;

    /// Carries it out and returns the program's exit code. Throws UsageError, or Failure for
    /// everything else that went wrong.
    /// \param words what follows "--" on the command line, untouched.
    virtual int run(const std::vector<std::string>& words) = 0;

    /// The program's exit code after a Failure.
    virtual int failureCode() const { return ExitCode::failure; }

protected:
    /// For declaring options.
    CLI::App& commandLine() { return commandLine_; }

    const CLI::App& commandLine() const { return commandLine_; }

    /// Shows more behind the options in the help's line of usage.
    void showInUsage(const std::string& operands);

    /// For a sub-command whose -h is an option of its own: its help is --help alone.
    void keepShortHForItself();

private:
    CLI::App& commandLine_;
};

} // namespace TarnisTool
