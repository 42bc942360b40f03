#include "contract/StorageSystemUnderTest.h"

#include <utility>

namespace TarnisTest {

namespace {

// In a function: backends register themselves before main(), in no particular order.
std::vector<Backend>& registry()
{
    static std::vector<Backend> backends;
    return backends;
}

} // namespace

bool registerBackend(Backend backend)
{
    registry().push_back(std::move(backend));
    return true;
}

const std::vector<Backend>& backends()
{
    return registry();
}

} // namespace TarnisTest
