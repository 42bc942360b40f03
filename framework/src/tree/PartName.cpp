#include "tree/PartName.h"

#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <sstream>

namespace FileSystem {

namespace {

constexpr std::size_t longestName = 255;
constexpr const char* suffix = ".tarnis-part";

/// FNV-1a: tells long names apart that begin alike, the same in every version.
std::string hashOf(const std::string& text)
{
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const char character : text) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001B3U;
    }
    std::ostringstream digits;
    digits << std::hex << std::setfill('0') << std::setw(16) << hash;
    return digits.str();
}

} // namespace

std::string partName(const std::string& name, int number)
{
    const std::string ending = suffix + (number > 1 ? std::to_string(number) : "");
    const std::string hidden = "." + name + ending;
    constexpr std::size_t beginning = 200;
    return hidden.size() <= longestName ? hidden
                                        : "." + name.substr(0, beginning) + hashOf(name) + ending;
}

bool isPartName(const std::string& name)
{
    const auto end = name.find_last_not_of("0123456789");
    const auto ending = name.substr(0, end == std::string::npos ? 0 : end + 1);
    const std::string wanted = suffix;
    return ending.size() > wanted.size() && ending.front() == '.' &&
           ending.compare(ending.size() - wanted.size(), wanted.size(), wanted) == 0;
}

} // namespace FileSystem
