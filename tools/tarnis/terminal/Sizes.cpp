#include "terminal/Sizes.h"

#include <array>
#include <cstddef>
#include <iomanip>
#include <sstream>

namespace TarnisTool {

std::string humanSize(std::uint64_t bytes)
{
    constexpr std::array<const char*, 6> prefixes{"kB", "MB", "GB", "TB", "PB", "EB"};
    constexpr double step = 1000;
    if (bytes < 1000) {
        return std::to_string(bytes) + " B";
    }
    double value = static_cast<double>(bytes) / step;
    std::size_t prefix = 0;
    // What would be rounded to 1000.0 belongs to the next one.
    while (value >= step - 0.05 && prefix + 1 < prefixes.size()) {
        value /= step;
        ++prefix;
    }
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << value << ' ' << prefixes[prefix];
    return text.str();
}

} // namespace TarnisTool
