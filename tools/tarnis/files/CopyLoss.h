#pragma once

#include <FileSystem/Failure.h>

#include <optional>
#include <string>

namespace TarnisTool {

/// What a copy has not done though the file is complete and in its place ("could not keep ...");
/// empty for a copy that failed.
std::optional<std::string> lossOf(const FileSystem::Failure& failure);

} // namespace TarnisTool
