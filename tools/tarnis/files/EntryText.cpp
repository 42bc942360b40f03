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

std::string modeText(const FileSystem::StorageSystemFileInfo& info, std::uint32_t mode)
{
    constexpr std::string_view letters = "rwxrwxrwx";
    constexpr std::string_view specialLetters = "sst";
    const std::string kind = kindOf(info);
    std::string text = kind == "file" ? "-" : kind == "other" ? "?" : kind.substr(0, 1);
    for (std::size_t i = 0; i < letters.size(); ++i) {
        const bool isSet = (mode >> (letters.size() - 1 - i) & 1U) != 0;
        text += isSet ? letters[i] : '-';
    }
    for (std::size_t i = 0; i < specialLetters.size(); ++i) {
        char& place = text[3 * (i + 1)];
        if ((mode >> (letters.size() + 2 - i) & 1U) != 0) {
            // Without the execute bit beneath, a capital.
            place = place == 'x' ? specialLetters[i] : specialLetters[i] == 's' ? 'S' : 'T';
        }
    }
    return text;
}

std::string octalMode(std::uint32_t mode)
{
    std::string text;
    for (const unsigned shift : {9U, 6U, 3U, 0U}) {
        text += static_cast<char>('0' + (mode >> shift & 7U));
    }
    return text;
}

} // namespace TarnisTool
