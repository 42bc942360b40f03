#include "doctor/DoctorCommand.h"

#include "Failure.h"
#include "doctor/Doctor.h"
#include "login/Login.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

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
    Target target = parseTarget(targetText_);
    LoginSecrets secrets = LoginSecrets::fetch(options_);
    Doctor doctor(std::move(target), options_, std::move(secrets), writes_);
    return doctor.run() ? ExitCode::success : ExitCode::failure;
}

} // namespace TarnisTool
