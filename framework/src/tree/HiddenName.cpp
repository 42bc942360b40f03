#include "tree/HiddenName.h"

#include "path/PathText.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>

namespace FileSystem {

namespace {

std::string randomText()
{
    constexpr std::size_t length = 8;
    constexpr auto digits = "0123456789abcdef";
    std::random_device random;
    auto bits = static_cast<std::uint32_t>(random());
    std::string text;
    while (text.size() < length) {
        text += digits[bits % 16];
        bits /= 16;
    }
    return text;
}

/// The name without what would make the hidden one longer than systems take, cut between UTF-8
/// characters.
std::string shortened(const std::string& name)
{
    constexpr std::size_t longestName = 255;
    constexpr std::size_t added = 1 + 1 + 8 + 5;
    constexpr std::size_t longestCharacter = 4;
    auto end = std::min(name.size(), longestName - added);
    const auto isContinuation = [&name](std::size_t at) {
        return at < name.size() && (static_cast<unsigned char>(name[at]) & 0xC0U) == 0x80U;
    };
    for (std::size_t step = 1; step < longestCharacter && isContinuation(end); ++step) {
        --end;
    }
    return name.substr(0, end);
}

} // namespace

std::string hiddenName(const std::string& name, HiddenNameUse use)
{
    const auto* const suffix = use == HiddenNameUse::Unfinished ? ".part" : ".old";
    return "." + shortened(name) + "." + randomText() + suffix;
}

std::string hiddenPath(const std::string& path, HiddenNameUse use)
{
    return PathText::sibling(path, hiddenName(PathText::fileName(path), use));
}

} // namespace FileSystem
