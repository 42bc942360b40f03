#include "contract/StorageSystemUnderTest.h"
#include "support/UnprivilegedUser.h"

#include <FileSystem/MemoryFileSystem.h>

#include <stdexcept>

namespace TarnisTest {

namespace {

using FileSystem::MemoryFileSystem;

class MemoryUnderTest final : public StorageSystemUnderTest
{
public:
    MemoryUnderTest()
    {
        if (!fileSystem_.directoryCreateAs(directory(), true)) {
            throw std::runtime_error("there is no directory for the test");
        }
    }

    const FileSystem::FileSystem2& fileSystem() const override { return fileSystem_; }

    const FileSystem::FileSystem2& otherFileSystem() const override { return *otherFileSystem_; }

    std::string directory() const override { return "/contract"; }

    Capabilities capabilities() const override
    {
        Capabilities capabilities;
        capabilities.keepsAccessTimes = Capability::lacking("the tree has none");
        capabilities.keepsSetIdBits = Capability::lacking("there are no programs to be run");
        if (!user_.permissionsApply()) {
            capabilities.enforcesPermissions =
                Capability::lacking("the superuser may do what this machine's permissions forbid");
        }
        return capabilities;
    }

    std::string localPath(const std::string& path) const override
    {
        throw std::logic_error(path + " stands nowhere on this machine");
    }

    bool makePipe(const std::string& path) const override
    {
        return fileSystem_.specialFileCreateAs(path);
    }

    bool makeSocket(const std::string& path) const override { return makePipe(path); }

    bool makeCharacterDevice(const std::string& path) const override { return makePipe(path); }

    bool makeBlockDevice(const std::string& path) const override { return makePipe(path); }

    bool makeHardLink(const std::string& path, const std::string& newPath) const override
    {
        return fileSystem_.fileHardLinkCreateAs(path, newPath);
    }

    bool makeSymbolicLink(const std::string& target, const std::string& path) const override
    {
        return fileSystem_.fileSymbolicLinkCreateAs(target, path, true);
    }

private:
    const UnprivilegedUser user_; // For the copies from and to this machine.
    const MemoryFileSystem fileSystem_;
    const std::unique_ptr<const MemoryFileSystem> otherFileSystem_ = fileSystem_.another();
};

const bool registered = registerBackend(
    {"Memory", Availability::yes, [] { return std::make_unique<MemoryUnderTest>(); }});

} // namespace

} // namespace TarnisTest
