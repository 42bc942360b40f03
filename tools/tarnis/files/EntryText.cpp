#include "files/EntryText.h"

#include <cstddef>
#include <string_view>

namespace TarnisTool {

std::string kindOf(const FileSystem::StorageSystemFileInfo& info)
{
    if (isSymbolicLink(info.type)) {
        return "link";
    }
    if (isDirectory(info.type)) {
        return "directory";
    }
    return isRegularFile(info.type) ? "file" : "other";
}

std::string modeText(const FileSystem::StorageSystemFileInfo& info)
{
    constexpr std::string_view letters = "rwxrwxrwx";
    const std::string kind = kindOf(info);
    std::string text = kind == "file" ? "-" : kind == "other" ? "?" : kind.substr(0, 1);
    for (std::size_t i = 0; i < letters.size(); ++i) {
        const bool isSet = (info.permissions.raw() >> (letters.size() - 1 - i) & 1U) != 0;
        text += isSet ? letters[i] : '-';
    }
    return text;
}

std::string octalMode(const FileSystem::StorageSystemFileInfo& info)
{
    std::string text = "0";
    for (const unsigned shift : {6U, 3U, 0U}) {
        text += static_cast<char>('0' + (info.permissions.raw() >> shift & 7U));
    }
    return text;
}

} // namespace TarnisTool
