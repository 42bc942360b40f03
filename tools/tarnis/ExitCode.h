#pragma once

/// What the program answers to its caller, besides the exit code of a remote command.
namespace TarnisTool::ExitCode {

constexpr int success = 0;
constexpr int failure = 1;
constexpr int usage = 2;
/// As a remote command uses the small numbers itself, a failure of our own has one that hardly any
/// command uses, the same as with ssh.
constexpr int execFailure = 255;

} // namespace TarnisTool::ExitCode
