#pragma once

#include "files/FileCommand.h"

#include <string>
#include <vector>

namespace TarnisTool {

/// A sub-command that does the same with each of several remote paths. A failure with one does not
/// keep it from the others.
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

    /// \param path as the user wrote it, without the server.
    virtual void workOn(RemotePlace& place, const std::string& path) = 0;

    /// What comes after the last path.
    virtual void finish() {}

    /// How many paths there are.
    std::size_t pathCount() const noexcept { return pathCount_; }

    /// Notes and reports a failure that leaves more to be done. One that ends everything is thrown
    /// on.
    void note(RemotePlace& place, const class Failure& failure);

private:
    int work(const std::vector<std::string>& operands) final;

    std::size_t otherOperands_;
    std::size_t pathCount_ = 0;
    bool hasFailed_ = false;
};

} // namespace TarnisTool
