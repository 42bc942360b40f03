#pragma once

#include "Command.h"
#include "files/Endpoint.h"
#include "files/Paths.h"
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

/// A sub-command that works on several remote paths. A failure with one does not keep it from the
/// others.
class PathsCommand : public FileCommand
{
protected:
    /// As FileCommand, with paths alone for operands.
    PathsCommand(CLI::App& program, const std::string& name, const std::string& description);

    /// As FileCommand. The first operands are none of the paths.
    PathsCommand(CLI::App& program, const std::string& name, const std::string& description,
                 const std::string& operands, std::size_t otherOperands);

    /// Looks at the operands that are no paths, before anything is done. Throws UsageError.
    virtual void prepare(const std::vector<std::string>& operands);

    /// \param paths as the user wrote them, without the server. At least one.
    virtual void workOnAll(RemoteEndpoint& endpoint, const std::vector<std::string>& paths) = 0;

    /// What comes after the last path.
    virtual void finish() {}

    /// Notes and reports a failure that leaves more to be done. One that ends everything is thrown
    /// on.
    void note(const class Failure& failure);

    /// The same for a failure that may only look like one of a file, since the connection is lost.
    void noteUnlessLost(RemoteEndpoint& endpoint, const class Failure& failure);

private:
    int work(const std::vector<std::string>& operands) final;

    std::size_t otherOperands_;
    bool hasFailed_ = false;
};

/// A sub-command that does the same with each of several remote paths, one after the other.
class EachPathCommand : public PathsCommand
{
protected:
    using PathsCommand::PathsCommand;

    virtual void workOn(RemoteEndpoint& endpoint, const std::string& path) = 0;

private:
    void workOnAll(RemoteEndpoint& endpoint, const std::vector<std::string>& paths) final;
};

} // namespace TarnisTool
