#pragma once

#include "handles/SSHHandleSFTPSessionFile.h"

#include <FileSystem/StorageSystemFileServices.h>

#include <optional>
#include <string>
#include <vector>

namespace Tarnis {

// Ranges of an open file, as the operations of the same names of StorageSystemFileServices say.
// They block and throw as SFTPPipeline does.

/// \param path of the file, for failures.
std::optional<bool> readRanges(SSHHandleSFTPSessionFile& file, const std::string& path,
                               std::vector<FileSystem::StorageSystemReadRange>& ranges);

std::optional<bool> writeRanges(SSHHandleSFTPSessionFile& file, const std::string& path,
                                const std::vector<FileSystem::StorageSystemWriteRange>& ranges);

} // namespace Tarnis
