#include "Command.h"
#include "Commands.h"
#include "Failure.h"
#include "JsonText.h"
#include "login/Connecting.h"
#include "login/ConnectionOptions.h"
#include "login/HostKeyCheck.h"
#include "terminal/StandardStreams.h"

#include <Tarnis/SSHSession.h>

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>

namespace TarnisTool {

namespace {

/// `tarnis hostkey`: shows a server's key, for a known-hosts file and for comparing.
class HostKeyCommand : public Command
{
public:
    explicit HostKeyCommand(CLI::App& program);

    int run(const std::vector<std::string>& words) override;

private:
    std::string targetText_;
    ReachOptions options_;
    bool isJson_ = false;
};

HostKeyCommand::HostKeyCommand(CLI::App& program)
    : Command(program, "hostkey", "Show the key of a server and its fingerprint")
{
    commandLine()
        .add_option("target", targetText_, "The server: host[:port]")
        ->required()
        ->type_name("");
    commandLine().add_flag("--json", isJson_, "Print one JSON object instead of lines");
    declareReachOptions(commandLine(), options_);
    commandLine().footer(
        "Prints two lines: the key as a known-hosts file has it, and its SHA-256 fingerprint.\n"
        "Of a server with several keys it is one of a kind that the known-hosts file has.\n"
        "Nothing vouches for the key: whoever is on the line can show another one. Compare the\n"
        "fingerprint with one that you have from a safe source.");
}

int HostKeyCommand::run(const std::vector<std::string>& words)
{
    if (!words.empty()) {
        throw UsageError("hostkey takes no command line");
    }
    Target target = parseTarget(targetText_, options_.port);
    Tarnis::SSHSession session;
    connectTo(session, target, options_);
    const HostKey key = HostKey::of(session, target);
    if (isJson_) {
        printJson({{"host", target.host},
                   {"port", target.port},
                   {"type", key.type},
                   {"key", key.base64},
                   {"fingerprint", key.fingerprint}});
    } else {
        std::cout << target.knownHostsName() << ' ' << key.type << ' ' << key.base64 << '\n'
                  << key.fingerprint << '\n';
    }
    flushOutput();
    return ExitCode::success;
}

} // namespace

std::unique_ptr<Command> makeHostKeyCommand(CLI::App& program)
{
    return std::make_unique<HostKeyCommand>(program);
}

} // namespace TarnisTool
