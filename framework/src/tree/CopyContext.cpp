#include "tree/CopyContext.h"

namespace FileSystem {

std::shared_ptr<std::vector<char>> newBuffer(CopyContext& context, std::uint64_t size)
{
    context.bytesHeld += size;
    auto& held = context.bytesHeld;
    return {new std::vector<char>(size), [&held](std::vector<char>* buffer) {
                held -= buffer->size();
                delete buffer;
            }};
}

} // namespace FileSystem
