#include "support/ProcessorFlags.h"

#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace TarnisTest {

std::optional<bool> kernelListsAes()
{
    std::ifstream description("/proc/cpuinfo");
    for (std::string line; std::getline(description, line);) {
        // Of x86, and of ARM.
        if (line.rfind("flags", 0) != 0 && line.rfind("Features", 0) != 0) {
            continue;
        }
        std::istringstream words(line);
        const std::set<std::string> features{std::istream_iterator<std::string>(words), {}};
        return features.count("aes") > 0 &&
               (features.count("pclmulqdq") > 0 || features.count("pmull") > 0);
    }
    return std::nullopt;
}

} // namespace TarnisTest
