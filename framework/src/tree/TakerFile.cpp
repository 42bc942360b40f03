#include "tree/TakerFile.h"

#include "failure/CallbackScope.h"

#include <cstddef>

namespace FileSystem {

TakerFile::TakerFile(const ByteTaker& taker)
    : taker_(taker)
{}

TakerFile::~TakerFile() = default;

std::uint64_t TakerFile::do_write(const char* buffer, std::uint64_t size) const
{
    const CallbackScope callback;
    isOver_ = !taker_(buffer, static_cast<std::size_t>(size));
    if (isOver_) {
        return 0;
    }
    position_ += size;
    return size;
}

} // namespace FileSystem
