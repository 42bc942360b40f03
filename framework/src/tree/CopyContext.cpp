#include "tree/CopyContext.h"

namespace FileSystem {

CopyBuffer newBuffer(CopyContext& context, std::uint64_t size)
{
    context.bytesHeld += size;
    auto& held = context.bytesHeld;
    return {new char[size], [&held, size](const char* buffer) {
                held -= size;
                delete[] buffer;
            }};
}

} // namespace FileSystem
