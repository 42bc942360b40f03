#include "contract/ContractTest.h"

namespace TarnisTest {

namespace {

using FileSystem::StorageSystemStorageInfo;

class VolumeContract : public ContractTest
{
protected:
    /// Others fill and empty the volume at the same time, but its size stays.
    void expectVolumeOfRoot(const std::optional<StorageSystemStorageInfo>& info) const
    {
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
    if (!require(capabilities().tellsVolumeFigures)) {
        return;
    }
    makeFile("file");
    makeDirectory("directory");
    expectVolumeOfRoot(system().fileStorageInfo(path("file")));
    expectVolumeOfRoot(system().fileStorageInfo(path("directory")));
    expectVolumeOfRoot(system().directoryStorageInfo(path("directory")));
    EXPECT_TRUE(system().fileStorageInfo("/"));
}

TEST_P(VolumeContract, IsToldForWhatIsNotThereYet)
{
    if (!require(capabilities().tellsVolumeFigures)) {
        return;
    }
    expectVolumeOfRoot(system().fileStorageInfo(path("new")));
    expectVolumeOfRoot(system().directoryStorageInfo(path("new")));
}

TEST_P(VolumeContract, IsToldForALink)
{
    if (!require(capabilities().tellsVolumeFigures) ||
        !require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeLink("link", "/proc");
    makeLink("dangling", "nowhere");
    expectVolumeOfRoot(system().fileStorageInfo(path("link")));
    expectVolumeOfRoot(system().fileStorageInfo(path("dangling")));
}

TEST_P(VolumeContract, IsNotToldWhereTheSystemCannot)
{
    if (capabilities().tellsVolumeFigures.isPresent()) {
        GTEST_SKIP() << "this system can";
    }
    EXPECT_FALSE(system().fileStorageInfo(root()));
    EXPECT_FALSE(system().directoryStorageInfo(root()));
}

INSTANTIATE_TEST_SUITE_P(Contract, VolumeContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
