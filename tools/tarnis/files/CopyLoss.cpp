#include "files/CopyLoss.h"

namespace TarnisTool {

std::optional<std::string> lossOf(const FileSystem::Failure& failure)
{
    if (failure.code() == FileSystem::FailureCode::NotKept) {
        return "could not keep " + failure.text();
    }
    return failure.code() == FileSystem::FailureCode::NotRemoved ? std::optional(failure.text())
                                                                 : std::nullopt;
}

} // namespace TarnisTool
