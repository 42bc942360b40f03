#include <FileSystem/OpenMode.h>

#include <fcntl.h>

namespace FileSystem {

namespace {

using Mode = Utilities::Flags<StorageSystemFileOpenModeFlag>;
using Flag = StorageSystemFileOpenModeFlag;

int accessMode(Mode mode) noexcept
{
    const bool reads = mode.has(Flag::Read);
    const bool writes = mode.has(Flag::Write) || (mode.has(Flag::Append) && !reads);
    if (!writes) {
        return O_RDONLY;
    }
    return reads ? O_RDWR : O_WRONLY;
}

int flagIf(bool wanted, int flag) noexcept
{
    return wanted ? flag : 0;
}

} // namespace

int storageSystemFileOpenModeToPosixMode(Mode mode) noexcept
{
    return accessMode(mode) | flagIf(mode.has(Flag::Append), O_APPEND) |
           flagIf(mode.has(Flag::Create), O_CREAT) | flagIf(mode.has(Flag::Truncate), O_TRUNC) |
           flagIf(mode.has(Flag::Exclusive), O_EXCL);
}

} // namespace FileSystem
