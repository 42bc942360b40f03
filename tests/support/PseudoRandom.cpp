#include "support/PseudoRandom.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace TarnisTest {

std::string pseudoRandomBytes(std::uint64_t seed, std::size_t size)
{
    std::mt19937_64 generator(seed);
    std::string bytes(size, '\0');
    for (std::size_t at = 0; at < size; at += sizeof(std::uint64_t)) {
        const std::uint64_t block = generator();
        std::memcpy(bytes.data() + at, &block, std::min(sizeof block, size - at));
    }
    return bytes;
}

} // namespace TarnisTest
