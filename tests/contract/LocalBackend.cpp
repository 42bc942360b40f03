#include "contract/StorageSystemUnderTest.h"
#include "support/TemporaryDirectory.h"
#include "support/UnprivilegedUser.h"

#include <FileSystem/LocalFileSystem.h>

namespace TarnisTest {

namespace {

class LocalUnderTest final : public StorageSystemUnderTest
{
public:
    const FileSystem::FileSystem2& fileSystem() const override { return fileSystem_; }

    const FileSystem::FileSystem2& otherFileSystem() const override { return otherFileSystem_; }

    std::string directory() const override { return directory_.path().string(); }

    Capabilities capabilities() const override
    {
        Capabilities capabilities;
        if (!user_.permissionsApply()) {
            capabilities.enforcesPermissions =
                Capability::lacking("the superuser may do what permissions forbid");
        }
        return capabilities;
    }

private:
    const UnprivilegedUser user_; // Before the directory, which is to be that user's.
    const TemporaryDirectory directory_;
    const FileSystem::LocalFileSystem fileSystem_;
    const FileSystem::LocalFileSystem otherFileSystem_;
};

const bool registered = registerBackend(
    {"Local", Availability::yes, [] { return std::make_unique<LocalUnderTest>(); }});

} // namespace

} // namespace TarnisTest
