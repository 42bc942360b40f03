#include "exec/ExecCommand.h"

#include "Failure.h"
#include "exec/RemoteCommand.h"
#include "login/Login.h"
#include "terminal/StandardStreams.h"

#include <Tarnis/SSHSession.h>

#include <CLI/CLI.hpp>

namespace TarnisTool {

namespace {

/// As ssh does it: the server's shell gets one line and splits it anew.
std::string join(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words) {
        line += (&word == &words.front() ? "" : " ") + word;
    }
    return line;
}

} // namespace

ExecCommand::ExecCommand(CLI::App& program)
    : Command(program, "exec", "Run a command on a server")
{
    commandLine()
        .add_option("target", targetText_, "Where to run it: [user@]host[:port]")
        ->required()
        ->type_name("");
    declareTimeLimit(commandLine(), "--timeout", timeout_,
                     "End the command (KILL) when it runs longer than this; 0: let it run");
    commandLine().add_flag("-n,--no-input", hasNoInput_,
                           "Give the command no input instead of our standard input");
    declareLoginOptions(commandLine(), options_);
    showInUsage("-- command line");
    commandLine().footer(
        "Output and error output appear on standard output and standard error as they arrive.\n"
        "The exit code is the command's; 255 when it has none or could not be run; 2 for wrong\n"
        "usage. Ctrl-C asks the command to end (TERM), the second one ends it (KILL), the third\n"
        "ends this program.\n\n"
        "Example: tarnis exec alice@example.org:2222 -- tar czf - /etc > etc.tgz");
}

int ExecCommand::run(const std::vector<std::string>& words)
{
    Target target = parseTarget(targetText_, options_.reach.port);
    const std::string line = join(words);
    if (line.empty()) {
        throw UsageError("exec needs a command line after \"--\"");
    }
    const LoginSecrets secrets = LoginSecrets::fetch(options_);
    if (hasNoInput_) {
        closeStandardInput();
    }
    Tarnis::SSHSession session;
    openSession(session, target, options_, secrets);
    return RemoteCommand(session, target, timeout_).run(line);
}

} // namespace TarnisTool
