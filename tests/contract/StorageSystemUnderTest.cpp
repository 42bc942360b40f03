#include "contract/StorageSystemUnderTest.h"

#include "contract/LocalEntries.h"

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

bool StorageSystemUnderTest::makePipe(const std::string& path) const
{
    return makeLocalPipe(localPath(path));
}

bool StorageSystemUnderTest::makeSocket(const std::string& path) const
{
    return makeLocalSocket(localPath(path));
}

bool StorageSystemUnderTest::makeCharacterDevice(const std::string& path) const
{
    return makeLocalCharacterDevice(localPath(path));
}

bool StorageSystemUnderTest::makeBlockDevice(const std::string& path) const
{
    return makeLocalBlockDevice(localPath(path));
}

bool StorageSystemUnderTest::makeHardLink(const std::string& path, const std::string& newPath) const
{
    return makeLocalHardLink(localPath(path), localPath(newPath));
}

bool StorageSystemUnderTest::makeSymbolicLink(const std::string& target,
                                              const std::string& path) const
{
    return makeLocalSymbolicLink(target, localPath(path));
}

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
