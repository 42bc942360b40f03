#pragma once

#include "files/Inquiry.h"
#include "files/PathsCommand.h"

#include <functional>
#include <string>
#include <vector>

namespace TarnisTool {

/// A sub-command that asks the same about each of several remote paths. The questions are in flight
/// together; the answers are told in the order of the paths.
class LookUpCommand : public PathsCommand
{
protected:
    using PathsCommand::PathsCommand;

    /// Tells what was answered, or throws the Failure. Called when it is the path's turn.
    using Tell = std::function<void()>;

    /// Asks about a path. \param done to be called once, when there is no more to be asked.
    virtual void ask(RemotePlace& place, Inquiry& inquiry, const std::string& path,
                     std::function<void(Tell)> done) = 0;

private:
    void workOnAll(RemotePlace& place, const std::vector<std::string>& paths) final;
};

} // namespace TarnisTool
