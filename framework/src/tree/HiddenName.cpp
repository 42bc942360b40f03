#include "tree/HiddenName.h"

#include "path/PathText.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <random>
#include <sstream>

namespace FileSystem {

namespace {

constexpr std::size_t longestName = 255;
constexpr const char* partEnding = ".tarnis-part";
constexpr const char* oldEnding = ".tarnis-old";

std::string hexadecimal(std::uint64_t number, int digits)
{
    std::ostringstream text;
    text << std::hex << std::setfill('0') << std::setw(digits) << number;
    return text.str();
}

std::string randomText()
{
    std::random_device random;
    return hexadecimal(static_cast<std::uint32_t>(random()), 8);
}

/// FNV-1a: tells long names apart that begin alike, the same in every version.
std::string hashOf(const std::string& text)
{
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const char character : text) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001B3U;
    }
    return hexadecimal(hash, 16);
}

/// The beginning of a name, no longer than that, cut between UTF-8 characters.
std::string beginningOf(const std::string& name, std::size_t longest)
{
    constexpr std::size_t longestCharacter = 4;
    auto end = std::min(name.size(), longest);
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
    const auto ending =
        "." + randomText() + (use == HiddenNameUse::Unfinished ? partEnding : oldEnding);
    return "." + beginningOf(name, longestName - 1 - ending.size()) + ending;
}

std::string hiddenPath(const std::string& path, HiddenNameUse use)
{
    return PathText::sibling(path, hiddenName(PathText::fileName(path), use));
}

std::string partName(const std::string& name, int number)
{
    const std::string ending = partEnding + (number > 1 ? std::to_string(number) : "");
    constexpr std::size_t longestBeginning = 200;
    const bool isShort = 1 + name.size() + ending.size() <= longestName;
    return "." + (isShort ? name : beginningOf(name, longestBeginning) + hashOf(name)) + ending;
}

bool isPartName(const std::string& name)
{
    const auto end = name.find_last_not_of("0123456789");
    const auto ending = name.substr(0, end == std::string::npos ? 0 : end + 1);
    const std::string wanted = partEnding;
    return ending.size() > wanted.size() && ending.front() == '.' &&
           ending.compare(ending.size() - wanted.size(), wanted.size(), wanted) == 0;
}

} // namespace FileSystem
