#include "files/TailFile.h"

namespace TarnisTool {

TailFile::TailFile(FileSystem::StorageSystemFile& file, std::uint64_t start, std::uint64_t size)
    : file_(file)
    , start_(start)
    , size_(size)
{}

TailFile::~TailFile() = default;

std::optional<std::uint64_t> TailFile::do_tell()
{
    const auto position = file_.tell();
    return position && *position >= start_ ? std::optional(*position - start_) : std::nullopt;
}

} // namespace TarnisTool
