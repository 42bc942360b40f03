#include "files/SinkFile.h"

#include <utility>

namespace TarnisTool {

SinkFile::SinkFile(Consumer consumer)
    : consumer_(std::move(consumer))
{}

SinkFile::~SinkFile() = default;

std::uint64_t SinkFile::do_write(const char* buffer, std::uint64_t size) const
{
    if (!consumer_(buffer, size)) {
        return 0;
    }
    position_ += size;
    return size;
}

} // namespace TarnisTool
