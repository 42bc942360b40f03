#include "contract/ContractTest.h"

namespace TarnisTest {

namespace {

using FileSystem::StorageSystemStorageInfo;

class VolumeContract : public ContractTest
{
protected:
    /// Others fill and empty the volume at the same time, but its size stays. A system that cannot
    /// tell says so.
    void expectVolumeOfRoot(const std::optional<StorageSystemStorageInfo>& info) const
    {
        if (!capabilities().tellsVolumeFigures.isPresent()) {
            EXPECT_FALSE(info);
            return;
        }
        ASSERT_TRUE(info);
        EXPECT_GT(info->capacity, 0U);
        EXPECT_LE(info->available, info->free);
        EXPECT_LE(info->free, info->capacity);
        const auto volume = system().directoryStorageInfo(root());
        ASSERT_TRUE(volume);
        EXPECT_EQ(info->capacity, volume->capacity);
    }
};

TEST_P(VolumeContract, IsToldForWhatIsThere)
{
    makeFile("file");
    makeDirectory("directory");
    expectVolumeOfRoot(system().fileStorageInfo(path("file")));
    expectVolumeOfRoot(system().fileStorageInfo(path("directory")));
    expectVolumeOfRoot(system().directoryStorageInfo(path("directory")));
    EXPECT_EQ(system().fileStorageInfo("/").has_value(),
              capabilities().tellsVolumeFigures.isPresent());
}

TEST_P(VolumeContract, IsToldForWhatIsNotThereYet)
{
    expectVolumeOfRoot(system().fileStorageInfo(path("new")));
    expectVolumeOfRoot(system().directoryStorageInfo(path("new")));
}

TEST_P(VolumeContract, IsToldForALink)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeLink("link", "/proc");
    makeLink("dangling", "nowhere");
    expectVolumeOfRoot(system().fileStorageInfo(path("link")));
    expectVolumeOfRoot(system().fileStorageInfo(path("dangling")));
}

INSTANTIATE_TEST_SUITE_P(Contract, VolumeContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
