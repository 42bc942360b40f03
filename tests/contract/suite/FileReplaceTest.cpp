#include "contract/ContractTest.h"

#include <FileSystem/Failure.h>

#include <atomic>
#include <thread>

namespace TarnisTest {

namespace {

class FileReplaceContract : public ContractTest
{};

TEST_P(FileReplaceContract, GivesAnotherPath)
{
    makeFile("file", "new");
    makeDirectory("directory");
    EXPECT_TRUE(system().fileReplaceAs(path("file"), path("directory/target")));
    EXPECT_EQ(contentOf(path("directory/target")), "new");
    EXPECT_THAT(names(), testing::ElementsAre("directory"));
}

TEST_P(FileReplaceContract, ReplacesAFile)
{
    makeFile("file", "new");
    makeFile("target", "a longer old text");
    EXPECT_TRUE(system().fileReplaceAs(path("file"), path("target")));
    EXPECT_EQ(contentOf(path("target")), "new");
    EXPECT_THAT(names(), testing::ElementsAre("target"));
}

TEST_P(FileReplaceContract, KeepsTimeAndPermissions)
{
    makeFile("file");
    makeFile("target");
    ASSERT_TRUE(system().fileSetPermissions(path("file"), Permissions(0640U)));
    ASSERT_TRUE(system().fileSetModTime(path("file"), moment(1'000'000'000)));
    ASSERT_TRUE(system().fileReplaceAs(path("file"), path("target")));
    EXPECT_EQ(system().fileGetPermissions(path("target")), Permissions(0640U));
    EXPECT_EQ(system().fileGetModTime(path("target")), moment(1'000'000'000));
}

TEST_P(FileReplaceContract, AFileWithItselfStays)
{
    makeFile("file", "stays");
    EXPECT_TRUE(system().fileReplaceAs(path("file"), path("file")));
    EXPECT_TRUE(system().fileReplaceAs(path("file"), path("./file")));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_THAT(names(), testing::ElementsAre("file"));
}

TEST_P(FileReplaceContract, MissingFileIsAFailure)
{
    makeFile("target", "stays");
    EXPECT_FALSE(system().fileReplaceAs(path("missing"), path("target")));
    EXPECT_FALSE(system().fileReplaceAs(path("missing"), path("new")));
    EXPECT_EQ(contentOf(path("target")), "stays");
    EXPECT_THAT(names(), testing::ElementsAre("target"));
}

TEST_P(FileReplaceContract, MissingParentIsAFailure)
{
    makeFile("file", "stays");
    makeFile("other", "stays too");
    EXPECT_FALSE(system().fileReplaceAs(path("file"), path("missing/new")));
    EXPECT_FALSE(system().fileReplaceAs(path("file"), path("other/new")));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_EQ(contentOf(path("other")), "stays too");
}

TEST_P(FileReplaceContract, NeitherTakesNorReplacesADirectory)
{
    makeFile("file", "stays");
    makeDirectory("directory");
    EXPECT_FALSE(system().fileReplaceAs(path("file"), path("directory")));
    EXPECT_FALSE(system().fileReplaceAs(path("directory"), path("file")));
    EXPECT_FALSE(system().fileReplaceAs(path("directory"), path("new")));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_TRUE(system().directoryExists(path("directory"), false));
    EXPECT_THAT(names(), testing::ElementsAre("directory", "file"));
}

TEST_P(FileReplaceContract, APathWithANulNamesNothing)
{
    const std::string cut = path("target") + std::string("\0rest", 5);
    makeFile("file", "stays");
    makeFile("target", "stays too");
    EXPECT_FALSE(system().fileReplaceAs(path("file"), cut));
    EXPECT_FALSE(system().fileReplaceAs(cut, path("file")));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_EQ(contentOf(path("target")), "stays too");
}

TEST_P(FileReplaceContract, TakesAwkwardNames)
{
    for (const auto& name : awkwardTextNames()) {
        makeFile("file", name);
        makeFile(name, "old");
        EXPECT_TRUE(system().fileReplaceAs(path("file"), path(name))) << name;
        EXPECT_EQ(contentOf(path(name)), name);
    }
    EXPECT_EQ(names().size(), awkwardTextNames().size());
}

TEST_P(FileReplaceContract, LeavesNoMomentWithoutAFile)
{
    if (!require(capabilities().replacesInOneStep)) {
        return;
    }
    makeFile("target");
    std::atomic<bool> isDone{false};
    std::thread replacing([&] {
        for (int times = 0; times < 50; ++times) {
            makeFile("file");
            EXPECT_TRUE(system().fileReplaceAs(path("file"), path("target")));
        }
        isDone = true;
    });
    while (!isDone) {
        EXPECT_TRUE(otherSystem().fileInfo(path("target")).has_value());
    }
    replacing.join();
    EXPECT_THAT(names(), testing::ElementsAre("target"));
}

TEST_P(FileReplaceContract, OneNameOfAFileByAnotherLeavesTheNewOne)
{
    makeFile("old", "bytes");
    makeHardLink("old", "new");
    EXPECT_TRUE(system().fileReplaceAs(path("old"), path("new")))
        << FileSystem::Failure::last().message();
    EXPECT_THAT(names(), testing::ElementsAre("new"));
    EXPECT_EQ(contentOf(path("new")), "bytes");
}

TEST_P(FileReplaceContract, AFileByItselfOnAnotherWayStays)
{
    makeDirectory("directory");
    makeFile("directory/file", "stays");
    makeRelativeLink("way", "directory");
    static_cast<void>(system().fileReplaceAs(path("directory/file"), path("way/file")));
    EXPECT_EQ(contentOf(path("directory/file")), "stays");
    EXPECT_THAT(names(path("directory")), testing::ElementsAre("file"));
}

TEST_P(FileReplaceContract, NeitherTakesNorReplacesAPipe)
{
    using FileSystem::Failure;
    using FileSystem::FailureCode;
    makeFile("file", "stays");
    makePipe("pipe");
    EXPECT_FALSE(system().fileReplaceAs(path("file"), path("pipe")));
    EXPECT_EQ(Failure::last().code(), FailureCode::NotCopyable);
    EXPECT_EQ(Failure::last().entry(), path("pipe"));
    EXPECT_FALSE(system().fileReplaceAs(path("pipe"), path("file")));
    EXPECT_EQ(Failure::last().code(), FailureCode::NotCopyable);
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_THAT(names(), testing::ElementsAre("file", "pipe"));
}

class LinkReplaceContract : public LinkContractTest
{
protected:
    /// Replaces what stands at "link" by a file. Where the server would follow the link, nothing is
    /// done.
    void expectLinkReplaced() const
    {
        makeFile("file", "new");
        const bool replaced = system().fileReplaceAs(path("file"), path("link"));
        EXPECT_EQ(replaced, capabilities().renamesLinks.isPresent());
        EXPECT_EQ(system().fileIsSymbolicLink(path("link")), !replaced);
        EXPECT_EQ(contentOf(path(replaced ? "link" : "file")), "new");
        EXPECT_EQ(isMissing(path("file")), replaced);
    }
};

TEST_P(LinkReplaceContract, ReplacesALinkAndNotWhatItLeadsTo)
{
    makeFile("kept", "kept");
    makeLink("link", textTo("kept"));
    expectLinkReplaced();
    EXPECT_EQ(contentOf(path("kept")), "kept");
}

TEST_P(LinkReplaceContract, ReplacesALinkToADirectory)
{
    makeDirectory("kept");
    makeLink("link", textTo("kept"));
    expectLinkReplaced();
    EXPECT_TRUE(names(path("kept")).empty());
}

TEST_P(LinkReplaceContract, ReplacesALinkToNowhere)
{
    makeFile("file", "new");
    makeLink("link", textTo("nowhere"));
    EXPECT_TRUE(system().fileReplaceAs(path("file"), path("link")));
    EXPECT_EQ(contentOf(path("link")), "new");
    EXPECT_THAT(names(), testing::ElementsAre("link"));
}

TEST_P(LinkReplaceContract, TakesALinkItselfAndNotWhatItLeadsTo)
{
    makeFile("kept", "kept");
    makeFile("target", "old");
    makeLink("link", textTo("kept"));
    const bool replaced = system().fileReplaceAs(path("link"), path("target"));
    EXPECT_EQ(replaced, capabilities().renamesLinks.isPresent());
    EXPECT_EQ(system().fileIsSymbolicLink(path("target")), replaced);
    EXPECT_EQ(contentOf(path("target")), replaced ? "kept" : "old");
    EXPECT_EQ(isMissing(path("link")), replaced);
    EXPECT_EQ(contentOf(path("kept")), "kept");
}

INSTANTIATE_TEST_SUITE_P(Contract, FileReplaceContract, testing::ValuesIn(backends()), backendName);
INSTANTIATE_TEST_SUITE_P(Contract, LinkReplaceContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
