#include "doctor/DoctorCommand.h"

#include "Failure.h"
#include "doctor/Doctor.h"
#include "doctor/Report.h"
#include "login/Login.h"
#include "terminal/StandardStreams.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace TarnisTool {

namespace {

std::unique_ptr<Report> makeReport(bool isJson)
{
    if (isJson) {
        return std::make_unique<JsonReport>();
    }
    return std::make_unique<TextReport>();
}

} // namespace

DoctorCommand::DoctorCommand(CLI::App& program)
    : Command(program, "doctor", "Find out what keeps you from a server")
{
    commandLine()
        .add_option("target", targetText_, "The server: [user@]host[:port]")
        ->required()
        ->type_name("");
    commandLine().add_flag("--write", writes_,
                           "Also write a small hidden file to the login directory, read it back "
                           "and remove it; without this, nothing on the server is changed");
    commandLine().add_flag("--json", isJson_, "Print one JSON object instead of lines");
    declareLoginOptions(commandLine(), options_);
    commandLine().footer(
        "Goes the way to the server step by step (name, connection, host key, login, command,\n"
        "files), and says what each step found and how long it took; where one fails, also what\n"
        "to do.\n"
        "Exit code 0 when all is well, 1 when a step failed.");
}

int DoctorCommand::run(const std::vector<std::string>& words)
{
    if (!words.empty()) {
        throw UsageError("doctor takes no command line");
    }
    Target target = parseTarget(targetText_, options_.reach.port);
    LoginSecrets secrets = LoginSecrets::fetch(options_);
    const std::unique_ptr<Report> report = makeReport(isJson_);
    Doctor doctor(std::move(target), options_, std::move(secrets), writes_);
    const bool isWell = doctor.run(*report);
    flushOutput();
    return isWell ? ExitCode::success : ExitCode::failure;
}

} // namespace TarnisTool
