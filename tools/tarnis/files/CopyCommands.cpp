// The commands that copy files.

#include "Commands.h"
#include "Failure.h"
#include "files/Cancellation.h"
#include "files/CopyRun.h"
#include "files/Destination.h"
#include "files/Endpoint.h"
#include "files/FileCommand.h"
#include "files/Paths.h"
#include "files/Patterns.h"
#include "files/StreamCopy.h"
#include "login/Login.h"
#include "terminal/Messages.h"
#include "terminal/StandardStreams.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstddef>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace TarnisTool {

namespace {

/// In the place of a local path: standard input, or standard output.
constexpr const char* standardStream = "-";

/// What is to be copied, as file ids.
struct Sources
{
    /// How many there are, also where not all that the user named are there: what is left of
    /// several goes where several go.
    std::size_t count() const { return std::max(ids.size(), namedCount); }

    std::vector<std::string> ids;
    /// How many paths the user gave.
    std::size_t namedCount = 0;
    /// Where a pattern stands for nothing or could not be followed everywhere, that was reported.
    bool isComplete = true;
};

/// What the sub-commands that copy files have in common.
class CopyCommand : public FileCommand
{
protected:
    CopyCommand(CLI::App& program, const std::string& name, const std::string& description,
                const std::string& operands, std::size_t fewestOperands);

    /// Declares --resume.
    void declareResume();

    /// Copies what the operands name; the exit code.
    virtual int copy(const std::vector<std::string>& operands) = 0;

    /// Copies each source to where it belongs under the target; the exit code.
    int copyAll(RemoteEndpoint& remote, Endpoint& from, const Sources& sources, Endpoint& to,
                const std::string& target) const;

    const CopyOptions& options() const noexcept { return options_; }

    /// Whether there is an option for trees, for many files, or for what stands at the target: it
    /// means nothing where one file goes through a standard stream.
    bool hasOptionsOfFiles() const;

private:
    int work(const std::vector<std::string>& operands) final;
    void declareChoice();
    void takeFilter();
    void checkOptions() const;

    CopyOptions options_;
    std::vector<std::string> included_;
    std::vector<std::string> excluded_;
    const CLI::Option* include_ = nullptr;
    const CLI::Option* exclude_ = nullptr;
};

/// The remote paths, with patterns replaced by what they stand for. One that stands for nothing is
/// reported. Throws Failure when the connection is lost.
Sources expandSources(RemoteEndpoint& endpoint, const std::vector<RemotePath>& paths)
{
    Sources sources;
    sources.namedCount = paths.size();
    const auto note = [&](const Failure& failure) {
        endpoint.requireAlive();
        report(failure.what());
        sources.isComplete = false;
    };
    for (const RemotePath& path : paths) {
        try {
            const auto found = pathsFor(endpoint, fileIdOf(path.path), "cannot copy", note);
            sources.ids.insert(sources.ids.end(), found.begin(), found.end());
        } catch (const Failure& failure) {
            note(failure);
        }
    }
    return sources;
}

CopyRun::Paths copyPaths(const Sources& sources, const Destination& destination)
{
    CopyRun::Paths paths;
    for (const std::string& source : sources.ids) {
        paths.push_back({source, destination.pathFor(source)});
    }
    return paths;
}

CopyCommand::CopyCommand(CLI::App& program, const std::string& name, const std::string& description,
                         const std::string& operands, std::size_t fewestOperands)
    : FileCommand(program, name, description, operands, fewestOperands)
{
    commandLine().add_flag("-r,--recursive", options_.isRecursive,
                           "Copy directories with all below them; links are copied as links");
    commandLine().add_flag("-p,--preserve", options_.preserves,
                           "Keep permissions and modification times");
    commandLine().add_flag("--inplace", options_.isInPlace,
                           "Write into the file that is there, for one in a directory that may "
                           "not be written. Not atomic: a failure leaves it half-written");
    commandLine()
        .add_option("-j", options_.inFlight, "Files at the same time; otherwise as many as pay")
        ->type_name("N")
        ->check(CLI::Validator(CLI::PositiveNumber).description(""));
    commandLine().add_flag("-v,--verbose", options_.isVerbose,
                           "Name each entry that is copied or left out, and sum up");
    commandLine().add_flag("--dry-run", options_.isDryRun,
                           "Copy nothing, and name what would be copied");
    declareChoice();
}

/// Declares what says which files are copied.
void CopyCommand::declareChoice()
{
    commandLine().add_flag("--update", options_.updates,
                           "Leave out files that have their size and time at the target already, "
                           "and keep times to tell by");
    commandLine().add_flag("--no-clobber", options_.keepsStanding,
                           "Leave out files that are there already, whatever they hold");
    commandLine().add_flag("--delete", options_.removesOthers,
                           "Remove what a copied directory does not have from its target, once "
                           "the rest of it is there");
    const auto declare = [this](const char* name, std::vector<std::string>& patterns,
                                const char* description) {
        return commandLine()
            .add_option(name, patterns, description)
            ->type_name("PATTERN")
            ->allow_extra_args(false)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    };
    exclude_ = declare("--exclude", excluded_,
                       "Leave out what has such a name below a directory or, with a slash in the "
                       "pattern, such a path; may be repeated");
    include_ =
        declare("--include", included_, "Leave that in. The first pattern that matches decides");
}

int CopyCommand::work(const std::vector<std::string>& operands)
{
    checkOptions();
    takeFilter();
    return copy(operands);
}

/// The patterns of both options, as they stand on the command line.
void CopyCommand::takeFilter()
{
    auto excluded = excluded_.begin();
    auto included = included_.begin();
    for (const CLI::Option* const option : commandLine().parse_order()) {
        if (option == include_) {
            options_.filter.add(*included++, true);
        } else if (option == exclude_) {
            options_.filter.add(*excluded++, false);
        }
    }
}

void CopyCommand::declareResume()
{
    commandLine().add_flag("--resume", options_.resumes,
                           "Go on where an earlier attempt ended; what it left is compared with "
                           "the source first. An interruption keeps what was copied");
}

void CopyCommand::checkOptions() const
{
    if (options_.resumes && options_.isInPlace) {
        throw UsageError("--resume gathers a file beside its target, --inplace writes into it: "
                         "only one of them");
    }
    if (options_.updates && options_.keepsStanding) {
        throw UsageError("--update replaces what has changed, --no-clobber replaces nothing: only "
                         "one of them");
    }
    if (options_.removesOthers && !options_.isRecursive) {
        throw UsageError("--delete removes what a copied directory does not have: it needs -r");
    }
    if (options_.resumes && (options_.updates || options_.keepsStanding)) {
        throw UsageError("--resume compares what is there with the source, --update and "
                         "--no-clobber leave it: only one of them");
    }
    if (isQuiet() && (options_.isVerbose || options_.isDryRun)) {
        throw UsageError("-q leaves nothing to be said by -v or --dry-run: only one of them");
    }
}

bool CopyCommand::hasOptionsOfFiles() const
{
    const bool chooses = options_.updates || options_.keepsStanding || options_.removesOthers ||
                         !included_.empty() || !excluded_.empty();
    return chooses || options_.isRecursive || options_.preserves || options_.resumes ||
           options_.isDryRun || options_.inFlight != 0;
}

int CopyCommand::copyAll(RemoteEndpoint& remote, Endpoint& from, const Sources& sources,
                         Endpoint& to, const std::string& target) const
{
    if (sources.ids.empty()) {
        return ExitCode::failure;
    }
    const Destination destination(to, target, sources.count());
    const Cancellation cancellation(remote.session());
    CopyRun copy(remote, from, to, options_, cancellation);
    const bool isComplete = copy.run(copyPaths(sources, destination));
    return isComplete && sources.isComplete ? ExitCode::success : ExitCode::failure;
}

/// `tarnis get`: copies remote files to this machine.
class GetCommand : public CopyCommand
{
public:
    explicit GetCommand(CLI::App& program);

private:
    int copy(const std::vector<std::string>& operands) override;

    /// Whether there is no option that means nothing for what is written into and no file.
    bool fitsStream() const { return !hasOptionsOfFiles() && !options().isInPlace; }

    void writeInto(StreamTarget& target, RemoteEndpoint& remote, const std::string& source) const;
};

constexpr const char* takesOne = " takes one file, and of these options -v at most";
constexpr const char* onlyOne = "only one file goes to standard output";

GetCommand::GetCommand(CLI::App& program)
    : CopyCommand(program, "get", "Copy remote files to this machine", "host:path... [local path]",
                  1)
{
    declareResume();
    commandLine().footer(
        "The last of several paths is the local one; without it: the current directory. Into a\n"
        "directory, files go under their own names. Each part of a remote path may be a pattern.\n"
        "The local path \"-\" is standard output, for one file; of the options above it goes with\n"
        "-v alone, which writes its line to standard error then.\n"
        "A file takes its name when it is complete; what stood there is replaced, also a symbolic "
        "link.\n\n"
        "Example: tarnis get -rp alice@example.org:project .");
}

int GetCommand::copy(const std::vector<std::string>& operands)
{
    const bool hasTarget = operands.size() > 1;
    const std::string target = hasTarget ? operands.back() : ".";
    requireLocalPath(target, "get copies to this machine, and the last path is local");
    const auto paths =
        remotePaths({operands.begin(), hasTarget ? operands.end() - 1 : operands.end()});
    const bool isToOutput = target == standardStream;
    if (isToOutput && paths.size() > 1) {
        throw UsageError(onlyOne);
    }
    if (!fitsStream() && StreamTarget(target).kind() == TargetKind::Stream) {
        throw UsageError(
            (isToOutput ? "standard output (\"-\")" : "\"" + textOf(target) + "\" is no file and") +
            takesOne);
    }
    // Secrets and the target come before the connection: they may be descriptors that the user
    // passed, whose numbers a socket opened earlier could have taken.
    const LoginSecrets secrets = LoginSecrets::fetch(loginOptions());
    StreamTarget stream(target);
    RemoteEndpoint remote(paths.front().target, loginOptions(), secrets);
    const Sources sources = expandSources(remote, paths);
    const bool isOne = sources.ids.size() == 1 && sources.count() == 1;
    if (isOne && stream.kind() != TargetKind::Ordinary) {
        writeInto(stream, remote, sources.ids.front());
        return sources.isComplete ? ExitCode::success : ExitCode::failure;
    }
    if (isToOutput && !sources.ids.empty()) {
        throw Failure(FailureKind::FileProblem, "cannot copy",
                      remote.display(fileIdOf(paths.front().path)), onlyOne);
    }
    LocalEndpoint local;
    return copyAll(remote, remote, sources, local, target);
}

void GetCommand::writeInto(StreamTarget& target, RemoteEndpoint& remote,
                           const std::string& source) const
{
    LocalEndpoint local;
    if (target.kind() == TargetKind::Refused) {
        local.refuse("cannot copy to", target.path(), "it leads to a disk or a socket");
    }
    // It was none before the program logged in.
    if (!fitsStream()) {
        local.refuse("cannot copy to", target.path(), std::string("it is no file and") + takesOne);
    }
    const Cancellation cancellation(remote.session());
    StreamedCopy(remote, source, target, cancellation).run();
    // Standard output may be where the file has gone.
    if (options().isVerbose) {
        reportNote("copied " + remote.display(source));
    }
}

/// `tarnis put`: copies files of this machine to a server.
class PutCommand : public CopyCommand
{
public:
    explicit PutCommand(CLI::App& program);

private:
    int putInput(const std::vector<std::string>& operands);
    int copy(const std::vector<std::string>& operands) override;
};

PutCommand::PutCommand(CLI::App& program)
    : CopyCommand(program, "put", "Copy files of this machine to a server",
                  "local path... host:path", 2)
{
    declareResume();
    commandLine().footer(
        "Into a directory (\"host:\" is the login directory), files go under their own names. A\n"
        "file takes its name when it is complete; a file or link that stood there is replaced.\n"
        "A local path \"-\" is standard input, which is read to its end. It goes alone, and of "
        "the\n"
        "options above with --inplace and -v.\n"
        "With --resume, a file there that is the beginning of the source has the name of the part\n"
        "meanwhile (\".NAME.tarnis-part\"), and keeps it after a lost connection, a second Ctrl-C\n"
        "or a sudden end of the program; the same command goes on from there.\n\n"
        "Example: tarnis put --resume backup.tar alice@example.org:backups/");
}

int PutCommand::copy(const std::vector<std::string>& operands)
{
    if (std::count(operands.begin(), operands.end() - 1, standardStream) != 0) {
        return putInput(operands);
    }
    const RemotePath target = remotePath(operands.back());
    Sources sources;
    for (auto path = operands.begin(); path != operands.end() - 1; ++path) {
        if (path->empty()) {
            throw UsageError("an empty local path names nothing");
        }
        requireLocalPath(*path, "put copies from this machine, and only the last path is remote");
        sources.ids.push_back(fileIdOf(*path));
    }
    RemoteEndpoint remote(target.target, loginOptions());
    LocalEndpoint local;
    return copyAll(remote, local, sources, remote, target.path);
}

int PutCommand::putInput(const std::vector<std::string>& operands)
{
    if (operands.size() > 2 || hasOptionsOfFiles()) {
        throw UsageError("standard input (\"-\") goes alone, and with --inplace and -v at most");
    }
    const RemotePath target = remotePath(operands.back());
    RemoteEndpoint remote(target.target, loginOptions());
    const Destination destination(remote, target.path, 1);
    const std::string id = fileIdOf(target.path);
    if (destination.isDirectory()) {
        remote.refuse("cannot copy standard input to", id,
                      "a directory is there, and standard input has no name");
    }
    const Cancellation cancellation(remote.session());
    const bool isComplete = InputCopy(remote, id, options().isInPlace, cancellation).run();
    if (options().isVerbose) {
        std::cout << "copied standard input\n";
        flushOutput();
    }
    return isComplete ? ExitCode::success : ExitCode::failure;
}

/// `tarnis cp`: copies files within a server, through this machine.
class CpCommand : public CopyCommand
{
public:
    explicit CpCommand(CLI::App& program);

private:
    int copy(const std::vector<std::string>& operands) override;
};

CpCommand::CpCommand(CLI::App& program)
    : CopyCommand(program, "cp", "Copy files within a server", "host:path... host:path", 2)
{
    commandLine().footer(
        "All paths are on one server. Where it cannot copy by itself, the bytes travel to this\n"
        "machine and back. Each part of a path may be a pattern.");
}

int CpCommand::copy(const std::vector<std::string>& operands)
{
    auto paths = remotePaths(operands);
    const std::string target = paths.back().path;
    paths.pop_back();
    RemoteEndpoint remote(paths.front().target, loginOptions());
    return copyAll(remote, remote, expandSources(remote, paths), remote, target);
}

} // namespace

std::unique_ptr<Command> makeGetCommand(CLI::App& program)
{
    return std::make_unique<GetCommand>(program);
}

std::unique_ptr<Command> makePutCommand(CLI::App& program)
{
    return std::make_unique<PutCommand>(program);
}

std::unique_ptr<Command> makeCpCommand(CLI::App& program)
{
    return std::make_unique<CpCommand>(program);
}

} // namespace TarnisTool
