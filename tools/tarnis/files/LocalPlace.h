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

    bool leadsToNoFile(const std::string& path) const override;

    std::optional<std::uint32_t> mode(const std::string& path) const override
    {
        return system_.fileMode(path);
    }

private:
    FileSystem::LocalFileSystem system_;
};

/// Throws UsageError for a text that reads like a remote path, unless something stands there on
/// this machine. \param rule what the command takes where.
void requireLocalPath(const std::string& text, const std::string& rule);

} // namespace TarnisTool
