#include "contract/ContractTest.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FileSystem2File.h>

#include <atomic>
#include <thread>

namespace TarnisTest {

using FileSystem::Failure;
using FileSystem::FailureCode;

namespace {

/// Whether an operation failed since nothing can have the name that it was given.
template <class Result>
bool isRefused(const Result& result)
{
    return !result && Failure::last().code() == FailureCode::BadName;
}

class SystemContract : public ContractTest
{
protected:
    /// Paths that end so name nothing, and asking for them leaves a file and a directory of this
    /// name as they are.
    void expectNothingNamed(const std::string& tail)
    {
        const std::string file = path("file") + tail;
        const std::string directory = path("directory") + tail;
        EXPECT_FALSE(system().fileInfo(file));
        EXPECT_FALSE(system().fileExists(file));
        EXPECT_FALSE(system().directoryExists(directory));
        EXPECT_EQ(system().fileOpen(file, OpenFlag::Read), nullptr);
        EXPECT_EQ(system().fileOpen(file, OpenFlag::Write | OpenFlag::Truncate), nullptr);
        EXPECT_EQ(system().fileCreateAs(file, false, true), nullptr);
        EXPECT_EQ(system().fileCreate(root(), "file" + tail, false, true), nullptr);
        EXPECT_FALSE(system().fileRemove(file));
        EXPECT_FALSE(system().fileRenameAs(file, path("new")));
        EXPECT_FALSE(system().fileRenameAs(path("file"), path("new") + tail));
        EXPECT_FALSE(system().fileRename(path("file"), "new" + tail));
        EXPECT_FALSE(system().fileMoveAs(path("file"), path("new") + tail));
        EXPECT_FALSE(system().fileCopyAs(file, system(), path("new")));
        EXPECT_FALSE(system().fileCopyAs(path("file"), system(), path("new") + tail));
        EXPECT_FALSE(system().fileSetPermissions(file, Permissions(0600U)));
        EXPECT_FALSE(system().fileSetModTime(file, moment(1)));
        EXPECT_FALSE(system().fileStorageInfo(file));
        EXPECT_FALSE(system().directoryCreateAs(path("new") + tail, false));
        EXPECT_FALSE(system().directoryMakePath(path("new") + tail, false));
        EXPECT_FALSE(system().directoryRemove(directory));
        EXPECT_FALSE(system().directoryRemove(directory, true));
        EXPECT_FALSE(system().directoryRenameAs(directory, path("new")));
        EXPECT_TRUE(system().directoryList(root() + tail).empty());
        EXPECT_TRUE(system().directoryFileInfoList(root() + tail).empty());
        EXPECT_TRUE(system().directoryListFileNames(root() + tail).empty());
        EXPECT_FALSE(system().fileSymbolicLinkCreateAs("target", path("file") + tail, false));
        EXPECT_FALSE(system().fileSymbolicLinkCreateAs("target" + tail, path("file"), false));
        EXPECT_THAT(names(), testing::ElementsAre("directory", "file"));
        EXPECT_EQ(contentOf(path("file")), "content");
    }
};

TEST_P(SystemContract, CanBeUsed)
{
    EXPECT_TRUE(system().isValid());
    EXPECT_TRUE(system().isReadable());
    EXPECT_TRUE(system().isWriteable());
}

TEST_P(SystemContract, SaysWhetherItKnowsSymbolicLinks)
{
    EXPECT_EQ(system().hasSymbolicLinks(), capabilities().makesSymbolicLinks.isPresent());
}

TEST_P(SystemContract, RecommendsBufferSizesThatWork)
{
    EXPECT_GE(system().recommendedReadBufferSize(), 4096U);
    EXPECT_GE(system().recommendedWriteBufferSize(), 4096U);
    const std::string bytes(system().recommendedWriteBufferSize(), 'w');
    const auto file =
        system().fileOpen(path("file"), OpenFlag::Read | OpenFlag::Write | OpenFlag::Create);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->write(bytes.data(), bytes.size()), bytes.size());
    EXPECT_EQ(contentOf(path("file")), bytes);
}

TEST_P(SystemContract, ShowsAPathWithTheHostInFront)
{
    const std::string host = system().hostName();
    const std::string shown = system().displayPath("/a/b");
    EXPECT_EQ(shown, host.empty() ? "/a/b" : host + ":/a/b");
}

TEST_P(SystemContract, StartsEachTestInAnEmptyDirectory)
{
    EXPECT_TRUE(system().directoryExists(root(), false));
    EXPECT_TRUE(names().empty());
    EXPECT_TRUE(system().pathIsAbsolute(root()));
}

TEST_P(SystemContract, TwoSystemsReachTheSameTree)
{
    makeFile("file", "seen by both");
    EXPECT_EQ(TarnisTest::contentOf(otherSystem(), path("file")), "seen by both");
}

TEST_P(SystemContract, TellsEverythingAboutAFile)
{
    makeFile("archive.tar.gz", "12345");
    const auto data = system().fileMetaData(path("archive.tar.gz"));
    ASSERT_TRUE(data);
    EXPECT_EQ(data->info.name, "archive.tar.gz");
    EXPECT_EQ(data->info.fileId, path("archive.tar.gz"));
    EXPECT_EQ(data->info.size, 5U);
    EXPECT_EQ(data->displayPath, system().displayPath(path("archive.tar.gz")));
    EXPECT_EQ(data->extension, "gz");
    EXPECT_FALSE(data->linkTarget);
}

TEST_P(SystemContract, TellsNothingAboutWhatIsMissing)
{
    EXPECT_FALSE(system().fileMetaData(path("missing")));
}

TEST_P(SystemContract, TellsWhereALinkLeads)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeLink("link", textTo("somewhere/else"));
    const auto data = system().fileMetaData(path("link"));
    ASSERT_TRUE(data);
    EXPECT_EQ(data->linkTarget, textTo("somewhere/else"));
    EXPECT_EQ(data->info.type, linkType);
}

// A NUL byte ends a path for the operating system: what stands before it must not be touched.
TEST_P(SystemContract, PathWithANulByteNamesNothing)
{
    makeFile("file", "content");
    makeDirectory("directory");
    expectNothingNamed(std::string("\0tail", 5));
    expectNothingNamed(std::string("\0", 1));
}

// Longer than an SFTP server's largest packet.
TEST_P(SystemContract, PathBeyondAllLimitsNamesNothing)
{
    makeFile("file", "content");
    makeDirectory("directory");
    expectNothingNamed(std::string(300'000, 'n'));
}

TEST_P(SystemContract, EmptyPathNamesNothing)
{
    EXPECT_TRUE(isRefused(system().fileInfo("")));
    EXPECT_TRUE(isRefused(system().fileExists("")));
    EXPECT_TRUE(isRefused(system().directoryExists("")));
    EXPECT_TRUE(isRefused(system().fileOpen("", OpenFlag::Read)));
    EXPECT_TRUE(isRefused(system().fileStorageInfo("")));
    EXPECT_TRUE(isRefused(system().fileSymbolicLinkTarget("")));
    EXPECT_TRUE(isRefused(!system().directoryList("").empty()));
    EXPECT_TRUE(isRefused(!system().directoryFileInfoList("").empty()));
    EXPECT_TRUE(isRefused(!system().directoryListFileNames("").empty()));
}

TEST_P(SystemContract, EmptyPathIsChangedByNothing)
{
    EXPECT_TRUE(isRefused(system().fileSetPermissions("", Permissions(0701U))));
    EXPECT_TRUE(isRefused(system().directorySetPermissions("", Permissions(0701U))));
    EXPECT_TRUE(isRefused(system().fileSetModTime("", moment(1))));
    EXPECT_TRUE(isRefused(system().directorySetModTime("", moment(1))));
    EXPECT_TRUE(isRefused(system().fileCreateAs("", false, true)));
    EXPECT_TRUE(isRefused(system().directoryCreateAs("", false)));
    EXPECT_TRUE(isRefused(system().directoryMakePath("", false)));
    EXPECT_TRUE(isRefused(system().fileSymbolicLinkCreateAs("target", "", false)));
    EXPECT_TRUE(isRefused(system().fileSymbolicLinkRemove("")));
    EXPECT_TRUE(isRefused(system().fileRemove("")));
    EXPECT_TRUE(isRefused(system().directoryRemove("")));
    EXPECT_TRUE(isRefused(system().directoryRemove("", true)));
}

TEST_P(SystemContract, EmptyPathIsNeitherEndOfAMove)
{
    const std::string file = makeFile("file");
    const std::string directory = makeDirectory("directory");
    EXPECT_TRUE(isRefused(system().fileRenameAs("", path("new"))));
    EXPECT_TRUE(isRefused(system().fileRenameAs(file, "")));
    EXPECT_TRUE(isRefused(system().fileReplaceAs("", file)));
    EXPECT_TRUE(isRefused(system().fileReplaceAs(file, "")));
    EXPECT_TRUE(isRefused(system().fileMoveAs(file, "")));
    EXPECT_TRUE(isRefused(system().fileCopyAs("", system(), path("new"))));
    EXPECT_TRUE(isRefused(system().fileCopyAs(file, system(), "")));
    EXPECT_TRUE(isRefused(system().directoryRenameAs("", path("new"))));
    EXPECT_TRUE(isRefused(system().directoryRenameAs(directory, "")));
    EXPECT_TRUE(isRefused(system().directoryMoveAs(directory, "")));
    EXPECT_THAT(names(), testing::ElementsAre("directory", "file"));
}

TEST_P(SystemContract, MayBeUsedByManyThreadsAtOnce)
{
    constexpr int threadCount = 4;
    constexpr int rounds = 10;
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([this, thread, &right] {
            const std::string own = path("thread" + std::to_string(thread));
            for (int round = 0; round < rounds; ++round) {
                const std::string bytes = own + std::to_string(round);
                const bool made = system().directoryCreateAs(own, true);
                writeContent(system(), own + "/file", bytes);
                right += made && TarnisTest::contentOf(system(), own + "/file") == bytes &&
                                 names(own).size() == 1 && system().directoryRemove(own, true)
                             ? 1
                             : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, threadCount * rounds);
    EXPECT_TRUE(names().empty());
}

INSTANTIATE_TEST_SUITE_P(Contract, SystemContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
