#pragma once

#include "files/EntryNames.h"
#include "files/Place.h"

#include <FileSystem/LocalFileSystem.h>

#include <string>

namespace TarnisTool {

/// The files of this machine.
class LocalPlace : public Place
{
public:
    const FileSystem::FileSystem2& system() const override { return system_; }

    std::string display(const std::string& path) const override { return textOf(path); }

    TargetKind kindOf(const std::string& path) const override { return kindOfTarget(path); }

    std::string readingProblem(const std::string& path) override;
    void forgetFailures() override;
    std::string lastReason() override;

private:
    FileSystem::LocalFileSystem system_;
};

} // namespace TarnisTool
