#include "contract/CopyRoutes.h"
#include "support/PseudoRandom.h"

#include <FileSystem/FileSystem2File.h>

#include <algorithm>
#include <stdexcept>

namespace TarnisTest {

namespace {

class OpenFileCopyContract : public CopyRouteTest
{
protected:
    std::unique_ptr<FileSystem::StorageSystemFile> openSource(std::string_view bytes) const
    {
        makeSource("file", bytes);
        return source().fileOpen(sourcePath("file"), OpenFlag::Read);
    }

    std::unique_ptr<FileSystem::StorageSystemFile> openTarget() const
    {
        return target().fileCreateAs(targetPath("copy"), true, false);
    }
};

TEST_P(OpenFileCopyContract, CopiesEveryByte)
{
    const std::string bytes = pseudoRandomBytes(10, 2'700'001);
    const auto from = openSource(bytes);
    const auto to = openTarget();
    ASSERT_TRUE(from != nullptr && to != nullptr);
    EXPECT_TRUE(from->copy(*to));
    EXPECT_TRUE(targetContent("copy") == bytes);
}

TEST_P(OpenFileCopyContract, StartsAtTheStartWhateverThePosition)
{
    const auto from = openSource("0123456789");
    const auto to = openTarget();
    ASSERT_TRUE(from != nullptr && to != nullptr);
    ASSERT_TRUE(from->seek(7));
    EXPECT_TRUE(from->copy(*to));
    EXPECT_EQ(targetContent("copy"), "0123456789");
}

TEST_P(OpenFileCopyContract, WritesAtTheTargetsPosition)
{
    const auto from = openSource("0123456789");
    const auto to = openTarget();
    ASSERT_TRUE(from != nullptr && to != nullptr);
    ASSERT_TRUE(to->writeFully("head:", 5));
    EXPECT_TRUE(from->copy(*to));
    EXPECT_EQ(targetContent("copy"), "head:0123456789");
}

TEST_P(OpenFileCopyContract, TwoCopiesStandBehindEachOther)
{
    const std::string bytes = pseudoRandomBytes(11, 300'000);
    const auto from = openSource(bytes);
    const auto to = openTarget();
    ASSERT_TRUE(from != nullptr && to != nullptr);
    EXPECT_TRUE(from->copy(*to));
    ASSERT_TRUE(to->seek(bytes.size()));
    EXPECT_TRUE(from->copy(*to));
    EXPECT_TRUE(targetContent("copy") == bytes + bytes);
}

TEST_P(OpenFileCopyContract, CopiesAnEmptyFile)
{
    const auto from = openSource("");
    const auto to = openTarget();
    ASSERT_TRUE(from != nullptr && to != nullptr);
    int calls = 0;
    EXPECT_TRUE(from->copy(*to, [&calls](std::uint64_t done, std::uint64_t total) {
        EXPECT_EQ(done, 0U);
        EXPECT_EQ(total, 0U);
        ++calls;
        return true;
    }));
    EXPECT_GE(calls, 1);
    EXPECT_EQ(targetContent("copy"), "");
}

TEST_P(OpenFileCopyContract, TellsHowFarItIsFromStartToEnd)
{
    const auto from = openSource(pseudoRandomBytes(12, 10'000));
    const auto to = openTarget();
    ASSERT_TRUE(from != nullptr && to != nullptr);
    std::vector<std::uint64_t> steps;
    EXPECT_TRUE(from->copy(
        *to,
        [&steps](std::uint64_t done, std::uint64_t total) {
            EXPECT_EQ(total, 10'000U);
            steps.push_back(done);
            return true;
        },
        1'000));
    ASSERT_GE(steps.size(), 11U);
    EXPECT_EQ(steps.front(), 0U);
    EXPECT_EQ(steps.back(), 10'000U);
    EXPECT_TRUE(std::is_sorted(steps.begin(), steps.end()));
}

TEST_P(OpenFileCopyContract, StopsWhenTold)
{
    const std::string bytes = pseudoRandomBytes(13, 10'000);
    const auto from = openSource(bytes);
    const auto to = openTarget();
    ASSERT_TRUE(from != nullptr && to != nullptr);
    EXPECT_FALSE(from->copy(
        *to, [](std::uint64_t done, std::uint64_t) { return done < 5'000; }, 1'000));
    const std::string begun = targetContent("copy");
    EXPECT_LT(begun.size(), bytes.size());
    EXPECT_EQ(begun, bytes.substr(0, begun.size())) << "the target holds a beginning";
}

TEST_P(OpenFileCopyContract, PassesAnExceptionOnAndCanBeUsedAgain)
{
    const std::string bytes = pseudoRandomBytes(14, 10'000);
    const auto from = openSource(bytes);
    const auto to = openTarget();
    ASSERT_TRUE(from != nullptr && to != nullptr);
    const auto throwing = [](std::uint64_t done, std::uint64_t) -> bool {
        return done < 5'000 ? true : throw std::domain_error("enough");
    };
    EXPECT_THROW(static_cast<void>(from->copy(*to, throwing, 1'000)), std::domain_error);
    ASSERT_TRUE(to->seek(0));
    EXPECT_TRUE(from->copy(*to));
    EXPECT_TRUE(targetContent("copy") == bytes);
}

TEST_P(OpenFileCopyContract, TargetThatIsNotWrittenIsAFailure)
{
    if (!require(capabilities().enforcesTheOpenMode)) {
        return;
    }
    const auto from = openSource("0123456789");
    makeTarget("copy", "stays");
    const auto to = target().fileOpen(targetPath("copy"), OpenFlag::Read);
    ASSERT_TRUE(from != nullptr && to != nullptr);
    EXPECT_FALSE(from->copy(*to));
    EXPECT_EQ(targetContent("copy"), "stays");
}

INSTANTIATE_TEST_SUITE_P(Contract, OpenFileCopyContract, testing::ValuesIn(copyRoutes()),
                         copyRouteName);

} // namespace

} // namespace TarnisTest
