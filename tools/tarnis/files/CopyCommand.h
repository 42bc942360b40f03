#pragma once

#include "files/Cancellation.h"
#include "files/CopyOptions.h"
#include "files/CopyRun.h"
#include "files/Destination.h"
#include "files/FileCommand.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace CLI {
class Option;
}

namespace TarnisTool {

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
    int copyAll(RemotePlace& remote, Place& from, const Sources& sources, Place& to,
                const std::string& target) const;

    const CopyOptions& options() const noexcept { return options_; }

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

/// In the place of a local path: standard input, or standard output.
constexpr const char* standardStream = "-";

/// The remote paths, with patterns replaced by what they stand for. One that stands for nothing is
/// reported. Throws Failure when the connection is lost.
Sources expandSources(RemotePlace& place, const std::vector<RemotePath>& paths);

} // namespace TarnisTool
