#include "contract/ContractTest.h"

#include <sys/stat.h>

namespace TarnisTest {

namespace {

class ModTimeContract : public ContractTest
{
protected:
    /// Sets a time that this system keeps and reads it back, in all the ways there are.
    void expectKept(TimePoint time) const
    {
        EXPECT_TRUE(system().fileSetModTime(path("file"), time));
        EXPECT_EQ(system().fileGetModTime(path("file")), time);
        const auto info = system().fileInfo(path("file"));
        ASSERT_TRUE(info);
        EXPECT_EQ(info->modTime, time);
        const auto entries = system().directoryFileInfoList(root());
        ASSERT_EQ(entries.size(), 1U);
        EXPECT_EQ(entries[0].modTime, time);
    }

    /// A time that the system keeps, or says that it does not, and then the file has its old one.
    void expectKeptOrRefused(TimePoint time, const Capability& keeps) const
    {
        if (keeps.isPresent()) {
            expectKept(time);
            return;
        }
        ASSERT_TRUE(system().fileSetModTime(path("file"), moment(1'000'000'000)));
        EXPECT_FALSE(system().fileSetModTime(path("file"), time));
        EXPECT_EQ(system().fileGetModTime(path("file")), moment(1'000'000'000));
    }
};

TEST_P(ModTimeContract, KeepsAMomentInThePast)
{
    makeFile("file");
    expectKept(moment(1'000'000'000));
    expectKept(moment(315'532'800)); // 1980
}

TEST_P(ModTimeContract, KeepsTheBeginningOfTime)
{
    makeFile("file");
    expectKept(moment(0));
    expectKept(moment(1));
}

TEST_P(ModTimeContract, KeepsAMomentThat31BitsCannotHold)
{
    makeFile("file");
    expectKept(moment(2'147'483'647));
    expectKept(moment(2'147'483'648)); // January 2038
    expectKept(moment(4'102'444'800)); // 2100
    expectKept(moment(4'294'967'295)); // the last one of 32 bits, 2106
}

TEST_P(ModTimeContract, KeepsOrRefusesAMomentThat32BitsCannotHold)
{
    makeFile("file");
    expectKeptOrRefused(moment(4'294'967'296), capabilities().keepsTimesAfter2106);
    expectKeptOrRefused(moment(7'258'118'400), capabilities().keepsTimesAfter2106); // 2200
}

TEST_P(ModTimeContract, KeepsOrRefusesAMomentBefore1970)
{
    makeFile("file");
    expectKeptOrRefused(moment(-1), capabilities().keepsTimesBefore1970);
    expectKeptOrRefused(moment(-315'619'200), capabilities().keepsTimesBefore1970); // 1960
}

TEST_P(ModTimeContract, KeepsPartsOfASecondBefore1970)
{
    if (!require(capabilities().keepsTimesBefore1970) ||
        !require(capabilities().keepsSubSecondTimes)) {
        return;
    }
    makeFile("file");
    expectKept(moment(0, -1));
    expectKept(moment(-86'400, 1));
    expectKept(moment(-86'400, 9'999'999));
}

TEST_P(ModTimeContract, KeepsPartsOfASecondOrDropsThem)
{
    makeFile("file");
    for (const std::int64_t ticks : {1, 1'234'567, 9'999'999}) {
        EXPECT_TRUE(system().fileSetModTime(path("file"), moment(1'500'000'000, ticks)));
        const bool keeps = capabilities().keepsSubSecondTimes.isPresent();
        EXPECT_EQ(system().fileGetModTime(path("file")), moment(1'500'000'000, keeps ? ticks : 0));
    }
}

TEST_P(ModTimeContract, LeavesTheAccessTime)
{
    if (!require(capabilities().keepsAccessTimes)) {
        return;
    }
    makeFile("file");
    const auto accessTime = [this] {
        struct stat attributes = {};
        EXPECT_EQ(::stat(localPath(path("file")).c_str(), &attributes), 0);
        return attributes.st_atim.tv_sec;
    };
    const auto before = accessTime();
    ASSERT_TRUE(system().fileSetModTime(path("file"), moment(1'000'000'000)));
    EXPECT_EQ(accessTime(), before);
}

TEST_P(ModTimeContract, LeavesContentAndPermissions)
{
    makeFile("file", "stays");
    ASSERT_TRUE(system().fileSetPermissions(path("file"), Permissions(0640U)));
    ASSERT_TRUE(system().fileSetModTime(path("file"), moment(1'000'000'000)));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_EQ(system().fileGetPermissions(path("file")), Permissions(0640U));
}

TEST_P(ModTimeContract, WritingMakesItNew)
{
    makeFile("file");
    ASSERT_TRUE(system().fileSetModTime(path("file"), moment(1'000'000'000)));
    makeFile("file", "new");
    EXPECT_GT(system().fileGetModTime(path("file")), moment(1'500'000'000));
}

TEST_P(ModTimeContract, MissingFileIsAFailure)
{
    EXPECT_FALSE(system().fileSetModTime(path("missing"), moment(1)));
    EXPECT_FALSE(system().directorySetModTime(path("missing"), moment(1)));
    EXPECT_TRUE(names().empty());
}

TEST_P(ModTimeContract, OfADirectory)
{
    makeDirectory("directory");
    EXPECT_TRUE(system().directorySetModTime(path("directory"), moment(1'000'000'000)));
    EXPECT_EQ(system().directoryGetModTime(path("directory")), moment(1'000'000'000));
    EXPECT_TRUE(system().fileSetModTime(path("directory"), moment(1'100'000'000)));
    EXPECT_EQ(system().fileGetModTime(path("directory")), moment(1'100'000'000));
}

TEST_P(ModTimeContract, DirectoryOperationsLeaveAFileAlone)
{
    makeFile("file");
    ASSERT_TRUE(system().fileSetModTime(path("file"), moment(1'000'000'000)));
    EXPECT_FALSE(system().directorySetModTime(path("file"), moment(1)));
    EXPECT_EQ(system().fileGetModTime(path("file")), moment(1'000'000'000));
}

TEST_P(ModTimeContract, OfALinkIsNotSetWhereThatCannotBe)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeFile("file");
    makeLink("link", textTo("file"));
    EXPECT_EQ(system().fileSetModTime(path("link"), moment(1'100'000'000)),
              capabilities().setsTimesOfLinks.isPresent());
}

TEST_P(ModTimeContract, OfALinkItself)
{
    if (!require(capabilities().makesSymbolicLinks) || !require(capabilities().setsTimesOfLinks)) {
        return;
    }
    makeFile("file");
    ASSERT_TRUE(system().fileSetModTime(path("file"), moment(1'000'000'000)));
    makeLink("link", "file");
    makeLink("dangling", "nowhere");
    EXPECT_TRUE(system().fileSetModTime(path("link"), moment(1'100'000'000)));
    EXPECT_TRUE(system().fileSetModTime(path("dangling"), moment(1'200'000'000)));
    EXPECT_EQ(system().fileGetModTime(path("file")), moment(1'000'000'000));
    EXPECT_EQ(system().fileGetModTime(path("link")), moment(1'100'000'000));
    EXPECT_EQ(system().fileGetModTime(path("dangling")), moment(1'200'000'000));
}

INSTANTIATE_TEST_SUITE_P(Contract, ModTimeContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
