#include "files/CopyCommand.h"

#include "files/EntryNames.h"
#include "files/Pattern.h"
#include "terminal/Messages.h"

#include <CLI/CLI.hpp>

namespace TarnisTool {

namespace {

CopyRun::Paths pathsFor(const Sources& sources, const Destination& destination)
{
    CopyRun::Paths paths;
    for (const std::string& source : sources.ids) {
        paths.push_back({source, destination.pathFor(source)});
    }
    return paths;
}

} // namespace

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

int CopyCommand::copyAll(RemotePlace& remote, Place& from, const Sources& sources, Place& to,
                         const std::string& target) const
{
    if (sources.ids.empty()) {
        return ExitCode::failure;
    }
    const Destination destination(to, target, sources.count());
    const Cancellation cancellation(remote.session());
    CopyRun copy(remote, from, to, options_, cancellation);
    const bool isComplete = copy.run(pathsFor(sources, destination));
    return isComplete && sources.isComplete ? ExitCode::success : ExitCode::failure;
}

Sources expandSources(RemotePlace& place, const std::vector<RemotePath>& paths)
{
    Sources sources;
    sources.namedCount = paths.size();
    const auto note = [&](const Failure& failure) {
        place.requireAlive();
        report(failure.what());
        sources.isComplete = false;
    };
    for (const RemotePath& path : paths) {
        try {
            const auto found = pathsFor(place, fileIdOf(path.path), "cannot copy", note);
            sources.ids.insert(sources.ids.end(), found.begin(), found.end());
        } catch (const Failure& failure) {
            note(failure);
        }
    }
    return sources;
}

} // namespace TarnisTool
