#include "contract/ContractTest.h"
#include "contract/CopyRoutes.h"
#include "support/PseudoRandom.h"

#include <FileSystem/Failure.h>

#include <limits>
#include <stdexcept>
#include <utility>

namespace TarnisTest {

namespace {

using FileSystem::Failure;
using FileSystem::FailureCode;
using Progress = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

class FileCopyContract : public CopyRouteTest
{
protected:
    /// Notes every call, and stops the copy once `limit` bytes are done.
    static FileSystem::StorageSystemProgress
    noteInto(Progress& calls, std::uint64_t limit = std::numeric_limits<std::uint64_t>::max())
    {
        return [&calls, limit](std::uint64_t done, std::uint64_t total) {
            calls.emplace_back(done, total);
            return done < limit;
        };
    }

    /// What a new file of the target gets of these permissions.
    Permissions ofNewFile(Permissions permissions) const
    {
        const bool takesUmaskOff =
            GetParam().route == Route::ToLocal || capabilities().takesUmaskOffNewFiles.isPresent();
        return takesUmaskOff ? lessUmask(permissions) : permissions;
    }

    bool copy(const std::string& name, const std::string& targetName,
              CopyOptions options = {}) const
    {
        return source().fileCopyAs(sourcePath(name), target(), targetPath(targetName), {}, options);
    }
};

TEST_P(FileCopyContract, CopiesEveryByte)
{
    const std::string bytes = pseudoRandomBytes(4, 2'700'001);
    makeSource("file", bytes);
    EXPECT_TRUE(copy("file", "copy"));
    EXPECT_TRUE(targetContent("copy") == bytes);
    EXPECT_TRUE(sourceContent("file") == bytes);
    EXPECT_THAT(targetNames(), testing::ElementsAre("copy"));
}

TEST_P(FileCopyContract, CopiesAnEmptyFile)
{
    makeSource("file", "");
    Progress calls;
    EXPECT_TRUE(
        source().fileCopyAs(sourcePath("file"), target(), targetPath("copy"), noteInto(calls)));
    EXPECT_EQ(targetContent("copy"), "");
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back(), Progress::value_type(0, 0));
}

TEST_P(FileCopyContract, CopiesByDirectoryAndName)
{
    makeSource("file", "bytes");
    EXPECT_EQ(source().fileCopy(sourcePath("file"), target(), targetRoot(), "copy", true),
              targetPath("copy"));
    EXPECT_EQ(targetContent("copy"), "bytes");
    EXPECT_FALSE(source().fileCopy(sourcePath("file"), target(), targetRoot(), "copy", true));
    EXPECT_TRUE(source().fileCopy(sourcePath("file"), target(), targetRoot(), "copy", false));
}

TEST_P(FileCopyContract, NameIsASingleComponent)
{
    makeSource("file", "bytes");
    makeTarget("kept", "stays");
    for (const char* name : {"", ".", "..", "a/b", "/a"}) {
        EXPECT_FALSE(source().fileCopy(sourcePath("file"), target(), targetRoot(), name, false))
            << name;
    }
    EXPECT_THAT(targetNames(), testing::ElementsAre("kept"));
}

TEST_P(FileCopyContract, BufferMayHaveAnySize)
{
    const std::string bytes = pseudoRandomBytes(5, 10'007);
    makeSource("file", bytes);
    for (const std::uint64_t bufferSize : {1'000ULL, 4'096ULL, 10'007ULL, 500'000ULL}) {
        EXPECT_TRUE(source().fileCopyAs(sourcePath("file"), target(), targetPath("copy"), {}, {},
                                        bufferSize));
        EXPECT_TRUE(targetContent("copy") == bytes) << bufferSize;
    }
}

TEST_P(FileCopyContract, TellsHowFarItIs)
{
    makeSource("file", pseudoRandomBytes(6, 10'000));
    Progress calls;
    EXPECT_TRUE(source().fileCopyAs(sourcePath("file"), target(), targetPath("copy"),
                                    noteInto(calls), {}, 1'000));
    ASSERT_GE(calls.size(), 2U);
    EXPECT_EQ(calls.back(), Progress::value_type(10'000, 10'000));
    std::uint64_t before = 0;
    for (const auto& [done, total] : calls) {
        EXPECT_EQ(total, 10'000U);
        EXPECT_GE(done, before);
        before = done;
    }
}

TEST_P(FileCopyContract, StopsWhenToldAndLeavesNothing)
{
    makeSource("file", pseudoRandomBytes(7, 100'000));
    for (const std::uint64_t limit : {0ULL, 1'000ULL, 50'000ULL, 99'000ULL}) {
        Progress calls;
        EXPECT_FALSE(source().fileCopyAs(sourcePath("file"), target(), targetPath("copy"),
                                         noteInto(calls, limit), {}, 1'000));
        EXPECT_FALSE(calls.empty());
        EXPECT_TRUE(targetNames().empty()) << limit;
    }
}

TEST_P(FileCopyContract, StopsWhenToldAndLeavesWhatItWouldHaveReplaced)
{
    makeSource("file", pseudoRandomBytes(8, 100'000));
    makeTarget("copy", "before");
    Progress calls;
    EXPECT_FALSE(source().fileCopyAs(sourcePath("file"), target(), targetPath("copy"),
                                     noteInto(calls, 50'000), {}, 1'000));
    EXPECT_EQ(targetContent("copy"), "before");
    EXPECT_THAT(targetNames(), testing::ElementsAre("copy"));
}

TEST_P(FileCopyContract, FinalNameAppearsWithTheLastByte)
{
    makeSource("file", pseudoRandomBytes(15, 20'000));
    const auto look = [this](std::uint64_t, std::uint64_t) {
        EXPECT_FALSE(target().fileInfo(targetPath("copy")));
        return true;
    };
    EXPECT_TRUE(
        source().fileCopyAs(sourcePath("file"), target(), targetPath("copy"), look, {}, 1'000));
    EXPECT_EQ(target().fileSize(targetPath("copy")), 20'000U);
}

TEST_P(FileCopyContract, FileThatIsReplacedStandsUntilTheLastByte)
{
    makeSource("file", pseudoRandomBytes(16, 20'000));
    makeTarget("copy", "before");
    const auto look = [this](std::uint64_t, std::uint64_t) {
        EXPECT_EQ(targetContent("copy"), "before");
        return true;
    };
    EXPECT_TRUE(
        source().fileCopyAs(sourcePath("file"), target(), targetPath("copy"), look, {}, 1'000));
    EXPECT_EQ(target().fileSize(targetPath("copy")), 20'000U);
}

TEST_P(FileCopyContract, PassesAnExceptionOnAndLeavesNothing)
{
    makeSource("file", pseudoRandomBytes(9, 100'000));
    const auto throwing = [](std::uint64_t done, std::uint64_t) -> bool {
        if (done >= 50'000) {
            throw std::domain_error("enough");
        }
        return true;
    };
    EXPECT_THROW(static_cast<void>(source().fileCopyAs(sourcePath("file"), target(),
                                                       targetPath("copy"), throwing, {}, 1'000)),
                 std::domain_error);
    EXPECT_TRUE(targetNames().empty());
}

TEST_P(FileCopyContract, ReplacesAFile)
{
    makeSource("file", "after");
    makeTarget("copy", "before, and longer");
    EXPECT_TRUE(copy("file", "copy"));
    EXPECT_EQ(targetContent("copy"), "after");
    EXPECT_THAT(targetNames(), testing::ElementsAre("copy"));
}

TEST_P(FileCopyContract, LeavesAFileWhenItMust)
{
    makeSource("file", "after");
    makeTarget("copy", "before");
    EXPECT_FALSE(copy("file", "copy", CopyOption::FailIfExists));
    EXPECT_EQ(targetContent("copy"), "before");
    EXPECT_THAT(targetNames(), testing::ElementsAre("copy"));
    EXPECT_TRUE(copy("file", "new", CopyOption::FailIfExists));
}

TEST_P(FileCopyContract, NeverReplacesADirectory)
{
    makeSource("file", "bytes");
    ASSERT_TRUE(target().directoryMakePath(targetPath("directory/below"), false));
    EXPECT_FALSE(copy("file", "directory"));
    EXPECT_FALSE(copy("file", "directory", CopyOption::Recursive));
    EXPECT_TRUE(target().directoryExists(targetPath("directory/below"), false));
    EXPECT_THAT(targetNames(), testing::ElementsAre("directory"));
}

TEST_P(FileCopyContract, MissingParentIsAFailure)
{
    makeSource("file", "bytes");
    EXPECT_FALSE(copy("file", "missing/copy"));
    EXPECT_TRUE(targetNames().empty());
}

TEST_P(FileCopyContract, MissingSourceIsAFailure)
{
    makeTarget("copy", "before");
    EXPECT_FALSE(copy("missing", "copy"));
    EXPECT_EQ(targetContent("copy"), "before");
}

TEST_P(FileCopyContract, DirectoryIsCopiedOnlyWhenWanted)
{
    ASSERT_TRUE(source().directoryMakePath(sourcePath("directory"), false));
    EXPECT_FALSE(copy("directory", "copy"));
    EXPECT_TRUE(targetNames().empty());
}

TEST_P(FileCopyContract, KeepsPermissionsWhenWanted)
{
    makeSource("file", "bytes");
    for (const std::uint32_t mode : {0640U, 0755U, 0400U, 0604U}) {
        ASSERT_TRUE(source().fileSetPermissions(sourcePath("file"), Permissions(mode)));
        EXPECT_TRUE(copy("file", "copy", CopyOption::PreservePermissions));
        EXPECT_EQ(target().fileGetPermissions(targetPath("copy")), Permissions(mode));
    }
}

TEST_P(FileCopyContract, GivesANewFileTheSourcesPermissionsLessTheUmask)
{
    for (const std::uint32_t mode : {0600U, 0755U, 0777U, 0444U, 0500U}) {
        const std::string name = std::to_string(mode);
        makeSource(name, "bytes");
        ASSERT_TRUE(source().fileSetPermissions(sourcePath(name), Permissions(mode)));
        EXPECT_TRUE(copy(name, name));
        EXPECT_EQ(target().fileGetPermissions(targetPath(name)), ofNewFile(Permissions(mode)))
            << std::oct << mode;
    }
}

TEST_P(FileCopyContract, LeavesAReplacedFileItsOwnPermissions)
{
    makeSource("file", "after");
    for (const std::uint32_t mode : {0600U, 0640U, 0755U, 0666U, 0444U}) {
        makeTarget("copy", "before");
        ASSERT_TRUE(target().fileSetPermissions(targetPath("copy"), Permissions(mode)));
        EXPECT_TRUE(copy("file", "copy"));
        EXPECT_EQ(targetContent("copy"), "after");
        EXPECT_EQ(target().fileGetPermissions(targetPath("copy")), Permissions(mode));
        ASSERT_TRUE(target().fileRemove(targetPath("copy")));
    }
}

TEST_P(FileCopyContract, ShowsNoSecretWhileItIsCopied)
{
    makeSource("secret", pseudoRandomBytes(17, 20'000));
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("secret"), Permissions(0600U)));
    const auto look = [this](std::uint64_t, std::uint64_t) {
        for (const auto& entry : target().directoryFileInfoList(targetRoot())) {
            EXPECT_EQ(entry.permissions & Permissions(0077U), Permissions()) << entry.name;
        }
        return true;
    };
    for (const CopyOptions options :
         {CopyOptions(), CopyOptions(CopyOption::PreservePermissions)}) {
        EXPECT_TRUE(source().fileCopyAs(sourcePath("secret"), target(), targetPath("copy"), look,
                                        options, 1'000));
    }
}

TEST_P(FileCopyContract, NeverReplacesAPipeOrASocket)
{
    makeSource("file", "bytes");
    makeTargetPipe("pipe");
    makeTargetSocket("socket");
    for (const char* name : {"pipe", "socket"}) {
        for (const CopyOptions options : {CopyOptions(), CopyOptions(CopyOption::InPlace)}) {
            EXPECT_FALSE(copy("file", name, options)) << name;
            EXPECT_EQ(Failure::last().code(), FailureCode::NotCopyable) << name;
            EXPECT_EQ(Failure::last().entry(), targetPath(name));
        }
    }
    EXPECT_THAT(targetNames(), testing::ElementsAre("pipe", "socket"));
    EXPECT_NE(target().fileType(targetPath("pipe")), Types(FileType::Regular));
    EXPECT_NE(target().fileType(targetPath("socket")), Types(FileType::Regular));
}

TEST_P(FileCopyContract, NeverReplacesALinkToAPipe)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeSource("file", "bytes");
    makeTargetPipe("pipe");
    ASSERT_TRUE(target().fileSymbolicLinkCreateAs(targetPath("pipe"), targetPath("way"), true));
    for (const CopyOptions options : {CopyOptions(), CopyOptions(CopyOption::InPlace)}) {
        EXPECT_FALSE(copy("file", "way", options));
        EXPECT_EQ(Failure::last().code(), FailureCode::NotCopyable);
        EXPECT_EQ(Failure::last().entry(), targetPath("way"));
    }
    EXPECT_TRUE(target().fileIsSymbolicLink(targetPath("way")));
    EXPECT_THAT(targetNames(), testing::ElementsAre("pipe", "way"));
}

TEST_P(FileCopyContract, NeverReplacesADevice)
{
    makeSource("file", "bytes");
    if (!makeTargetDevices()) {
        GTEST_SKIP() << "only the superuser makes devices";
    }
    EXPECT_FALSE(copy("file", "character"));
    EXPECT_EQ(Failure::last().code(), FailureCode::NotCopyable);
    EXPECT_FALSE(copy("file", "block"));
    EXPECT_THAT(targetNames(), testing::ElementsAre("block", "character"));
    EXPECT_NE(target().fileType(targetPath("block")), Types(FileType::Regular));
    EXPECT_NE(target().fileType(targetPath("character")), Types(FileType::Regular));
}

TEST_P(FileCopyContract, WritesInPlaceWhenWanted)
{
    for (const char* before : {"longer than what is copied", "short", ""}) {
        makeSource("file", "new bytes");
        makeTarget("copy", before);
        makeTargetHardLink("copy", "other name");
        ASSERT_TRUE(target().fileSetPermissions(targetPath("copy"), Permissions(0640U)));
        EXPECT_TRUE(copy("file", "copy", CopyOption::InPlace)) << Failure::last().message();
        EXPECT_EQ(targetContent("copy"), "new bytes");
        EXPECT_EQ(targetContent("other name"), "new bytes") << "not the same file";
        EXPECT_EQ(target().fileGetPermissions(targetPath("copy")), Permissions(0640U));
        EXPECT_TRUE(target().fileRemove(targetPath("other name")));
        EXPECT_THAT(targetNames(), testing::ElementsAre("copy"));
        EXPECT_TRUE(target().fileRemove(targetPath("copy")));
    }
    EXPECT_TRUE(copy("file", "new", CopyOption::InPlace));
    EXPECT_EQ(targetContent("new"), "new bytes");
}

TEST_P(FileCopyContract, NeedsNoRoomBesideItToWriteInPlace)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeSource("file", "after");
    ASSERT_TRUE(target().directoryMakePath(targetPath("closed"), false));
    makeTarget("closed/copy", "before");
    ASSERT_TRUE(target().directorySetPermissions(targetPath("closed"), Permissions(0555U)));
    EXPECT_FALSE(copy("file", "closed/copy"));
    EXPECT_EQ(Failure::last().code(), FailureCode::OnlyInPlace);
    EXPECT_EQ(Failure::last().code(), std::errc::permission_denied);
    EXPECT_EQ(targetContent("closed/copy"), "before");
    EXPECT_FALSE(copy("file", "closed/new"));
    EXPECT_EQ(Failure::last().code(), FailureCode::Denied);
    EXPECT_TRUE(copy("file", "closed/copy", CopyOption::InPlace)) << Failure::last().message();
    EXPECT_EQ(targetContent("closed/copy"), "after");
    EXPECT_TRUE(target().directorySetPermissions(targetPath("closed"), Permissions(0755U)));
}

TEST_P(FileCopyContract, KeepsTheTimeWhenWanted)
{
    makeSource("file", "bytes");
    ASSERT_TRUE(source().fileSetModTime(sourcePath("file"), moment(1'000'000'000)));
    EXPECT_TRUE(copy("file", "kept", CopyOption::PreserveModTime));
    EXPECT_TRUE(copy("file", "new"));
    EXPECT_EQ(target().fileGetModTime(targetPath("kept")), moment(1'000'000'000));
    EXPECT_GT(target().fileGetModTime(targetPath("new")), moment(1'500'000'000));
}

TEST_P(FileCopyContract, KeepsPartsOfASecondWhereBothDo)
{
    if (!require(capabilities().keepsSubSecondTimes)) {
        return;
    }
    makeSource("file", "bytes");
    ASSERT_TRUE(source().fileSetModTime(sourcePath("file"), moment(1'000'000'000, 1'234'567)));
    EXPECT_TRUE(copy("file", "copy", CopyOption::PreserveModTime));
    EXPECT_EQ(target().fileGetModTime(targetPath("copy")), moment(1'000'000'000, 1'234'567));
}

TEST_P(FileCopyContract, CopiesALinkAsALink)
{
    if (!require(capabilities().makesSymbolicLinks) ||
        !require(capabilities().tellsRelativeTargets) || !require(capabilities().renamesLinks)) {
        return;
    }
    makeSource("file", "stays behind");
    ASSERT_TRUE(source().fileSymbolicLinkCreateAs("file", sourcePath("link"), true));
    EXPECT_TRUE(copy("link", "link copy"));
    EXPECT_EQ(target().fileSymbolicLinkTarget(targetPath("link copy")), "file");
    EXPECT_THAT(targetNames(), testing::ElementsAre("link copy"));
}

TEST_P(FileCopyContract, CopiesADanglingLinkAsALink)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    ASSERT_TRUE(source().fileSymbolicLinkCreateAs("/no/where", sourcePath("dangling"), true));
    EXPECT_TRUE(copy("dangling", "dangling copy")) << Failure::last().message();
    EXPECT_EQ(target().fileSymbolicLinkTarget(targetPath("dangling copy")), "/no/where");
    EXPECT_THAT(targetNames(), testing::ElementsAre("dangling copy"));
}

TEST_P(FileCopyContract, ReplacesALinkAndNotItsTarget)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeSource("file", "after");
    makeTarget("treasure", "stays");
    ASSERT_TRUE(
        target().fileSymbolicLinkCreateAs(targetPath("treasure"), targetPath("copy"), true));
    EXPECT_FALSE(copy("file", "copy", CopyOption::FailIfExists));
    if (copy("file", "copy")) {
        EXPECT_EQ(target().fileType(targetPath("copy")), Types(FileType::Regular));
        EXPECT_EQ(targetContent("copy"), "after");
    } else {
        // Before the link could be replaced it would be set aside.
        EXPECT_FALSE(capabilities().renamesLinks.isPresent());
        EXPECT_TRUE(target().fileIsSymbolicLink(targetPath("copy")));
    }
    EXPECT_EQ(targetContent("treasure"), "stays");
    EXPECT_THAT(targetNames(), testing::ElementsAre("copy", "treasure"));
}

TEST_P(FileCopyContract, ALinkReplacesAFile)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    ASSERT_TRUE(source().fileSymbolicLinkCreateAs("/no/where", sourcePath("link"), true));
    makeTarget("copy", "before");
    EXPECT_FALSE(copy("link", "copy", CopyOption::FailIfExists));
    EXPECT_EQ(targetContent("copy"), "before");
    EXPECT_TRUE(copy("link", "copy"));
    EXPECT_EQ(target().fileSymbolicLinkTarget(targetPath("copy")), "/no/where");
    EXPECT_THAT(targetNames(), testing::ElementsAre("copy"));
}

TEST_P(FileCopyContract, FileThatCannotBeReadIsAFailure)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeSource("file", "secret");
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("file"), Permissions(0100U)));
    EXPECT_FALSE(copy("file", "copy"));
    EXPECT_TRUE(targetNames().empty());
}

INSTANTIATE_TEST_SUITE_P(Contract, FileCopyContract, testing::ValuesIn(copyRoutes()),
                         copyRouteName);

class FileCopyInPlaceContract : public ContractTest
{};

TEST_P(FileCopyInPlaceContract, OntoItselfLosesNothing)
{
    makeFile("file", "stays");
    static_cast<void>(system().fileCopyAs(path("file"), system(), path("file")));
    EXPECT_EQ(contentOf(path("file")), "stays");
    static_cast<void>(system().fileCopyAs(path("file"), system(), root() + "/./file"));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_THAT(names(), testing::ElementsAre("file"));
}

TEST_P(FileCopyInPlaceContract, LongestNameIsCopied)
{
    const std::string longest(255, 'n');
    makeFile("file", "bytes");
    EXPECT_TRUE(system().fileCopyAs(path("file"), system(), path(longest)));
    EXPECT_EQ(contentOf(path(longest)), "bytes");
}

TEST_P(FileCopyInPlaceContract, OntoItselfWrittenInPlaceLosesNothing)
{
    makeFile("file", "stays");
    makeHardLink("file", "other");
    for (const char* const name : {"file", "./file", "other"}) {
        static_cast<void>(
            system().fileCopyAs(path("file"), system(), path(name), {}, CopyOption::InPlace));
        EXPECT_EQ(contentOf(path("file")), "stays") << name;
    }
}

TEST_P(FileCopyInPlaceContract, OntoAnotherNameOfItselfMakesTwoFiles)
{
    makeFile("file", "bytes");
    makeHardLink("file", "other");
    EXPECT_TRUE(system().fileCopyAs(path("file"), system(), path("other")));
    writeContent(system(), path("other"), "changed");
    EXPECT_EQ(contentOf(path("file")), "bytes");
    EXPECT_THAT(names(), testing::ElementsAre("file", "other"));
}

TEST_P(FileCopyInPlaceContract, PipeIsNotCopied)
{
    makePipe("pipe");
    EXPECT_FALSE(system().fileCopyAs(path("pipe"), system(), path("copy")));
    EXPECT_THAT(names(), testing::ElementsAre("pipe"));
}

INSTANTIATE_TEST_SUITE_P(Contract, FileCopyInPlaceContract, testing::ValuesIn(backends()),
                         backendName);

} // namespace

} // namespace TarnisTest
