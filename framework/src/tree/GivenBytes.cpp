#include "tree/GivenBytes.h"

#include "failure/CallbackScope.h"

#include <algorithm>
#include <cstddef>

namespace FileSystem {

GivenBytes::GivenBytes(const ByteGiver& giver)
    : giver_(giver)
{}

GivenBytes::~GivenBytes() = default;

/// An exception waits until nothing of the file is in flight any more. The answer is returned, and
/// not assigned, within the block: GCC 12 lets an optional that is assigned there keep what an
/// earlier round has left, and takes a call that threw for one that gave bytes.
std::optional<std::size_t> GivenBytes::ask(char* buffer, std::size_t size)
{
    const CallbackScope callback;
    try {
        return giver_(buffer, size);
    } catch (...) {
        exception_ = std::current_exception();
        return std::nullopt;
    }
}

/// As many as are wanted, as from a file: only at the end there are fewer.
std::optional<std::uint64_t> GivenBytes::readNow(File /*file*/, std::uint64_t /*offset*/,
                                                 char* buffer, std::uint64_t size)
{
    std::uint64_t given = 0;
    while (given < size && !isOver_) {
        const auto count = ask(buffer + given, static_cast<std::size_t>(size - given));
        isOver_ = count.value_or(0) == 0;
        if (!count) {
            static_cast<void>(fail(FailureCode::Cancelled));
            return std::nullopt;
        }
        given += std::min<std::uint64_t>(*count, size - given);
    }
    return given;
}

/// Without a size: it is over where it ends.
std::optional<GivenBytes::Attributes> GivenBytes::lookNow(File /*file*/)
{
    Attributes attributes;
    attributes.type = StorageSystemFileTypeFlag::Regular;
    return attributes;
}

} // namespace FileSystem
