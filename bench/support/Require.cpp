#include "support/Require.h"

#include <stdexcept>

namespace TarnisBench {

void require(bool condition, const std::string& what)
{
    if (!condition) {
        throw std::runtime_error("failed: " + what);
    }
}

} // namespace TarnisBench
