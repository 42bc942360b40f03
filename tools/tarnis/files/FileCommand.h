#pragma once

#include "Command.h"
#include "files/EntryNames.h"
#include "files/RemotePath.h"
#include "files/RemotePlace.h"
#include "login/ConnectionOptions.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// A sub-command that works on the files of one server.
class FileCommand : public Command
{
public:
    int run(const std::vector<std::string>& words) final;

protected:
    /// \param operands      what stands on the command line beside options, for the help.
    /// \param fewestOperands how many of them there must be.
    FileCommand(CLI::App& program, const std::string& name, const std::string& description,
                const std::string& operands, std::size_t fewestOperands);

    /// Does the work; the exit code. There are as many operands as there must be, those that
    /// followed "--" last.
    virtual int work(const std::vector<std::string>& operands) = 0;

    const LoginOptions& loginOptions() const noexcept { return loginOptions_; }

    /// Reads a remote path, on the port that the user gave apart from it, if any. Throws
    /// UsageError.
    RemotePath remotePath(const std::string& text);

    /// The same for several, which must be on one server.
    std::vector<RemotePath> remotePaths(const std::vector<std::string>& texts);

private:
    std::string name_;
    std::string operandNames_;
    std::size_t fewestOperands_;
    LoginOptions loginOptions_;
    std::string server_; ///< As messages name it.
};

/// A name or path as it goes to standard output: as it is, or to a terminal without characters that
/// would control it.
std::string forOutput(const std::string& name);

} // namespace TarnisTool
