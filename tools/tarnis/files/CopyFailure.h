#pragma once

#include "Failure.h"
#include "files/Endpoint.h"

#include <FileSystem/Failure.h>

#include <optional>
#include <string>

namespace TarnisTool {

/// What a copy has not done though the file is complete and in its place ("could not keep ...");
/// empty for a copy that failed.
std::optional<std::string> lossOf(const FileSystem::Failure& failure);

/// What the program knows itself of why a file cannot be copied to a target; what the library says
/// for its own callers is said in the program's words. Empty for nothing.
std::string copyHint(Endpoint& to, const std::string& target, const FileSystem::Failure& why);

/// The Failure of a file that could not be copied.
/// \param what   how messages name the source.
/// \param source the path of it; empty for none.
Failure copyFailure(const std::string& what, const std::string& source, Endpoint& to,
                    const std::string& target, const FileSystem::Failure& why);

/// What is left of an interrupted copy.
/// \param halfWritten what is written in place and may be half-written; empty for nothing.
std::string leftByInterruption(bool isAlive, const std::string& halfWritten);

} // namespace TarnisTool
