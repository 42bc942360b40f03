#include "contract/ContractTest.h"

namespace TarnisTest {

namespace {

class LinkQuestionsContract : public LinkContractTest
{};

TEST_P(LinkQuestionsContract, LinkIsDescribedItself)
{
    makeFile("target", "0123456789");
    const std::string text = textTo("target");
    makeLink("link", text);
    const auto info = system().fileInfo(path("link"));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->name, "link");
    EXPECT_EQ(info->fileId, path("link"));
    EXPECT_EQ(info->type, linkType);
    EXPECT_EQ(info->size, text.size());
    EXPECT_EQ(system().fileType(path("link")), linkType);
    EXPECT_EQ(system().fileSize(path("link")), text.size());
}

TEST_P(LinkQuestionsContract, LinkToAFile)
{
    makeFile("target");
    makeLink("link", "target");
    EXPECT_TRUE(system().fileIsSymbolicLink(path("link")));
    EXPECT_FALSE(system().directoryIsSymbolicLink(path("link")));
    EXPECT_TRUE(system().fileExists(path("link"), true));
    EXPECT_FALSE(system().fileExists(path("link"), false));
    EXPECT_FALSE(system().directoryExists(path("link"), true));
    EXPECT_FALSE(system().directoryExists(path("link"), false));
    EXPECT_FALSE(system().directoryType(path("link")));
}

TEST_P(LinkQuestionsContract, LinkToADirectory)
{
    makeDirectory("target");
    makeLink("link", "target");
    EXPECT_TRUE(system().fileIsSymbolicLink(path("link")));
    EXPECT_TRUE(system().directoryIsSymbolicLink(path("link")));
    EXPECT_TRUE(system().fileExists(path("link"), true));
    EXPECT_FALSE(system().fileExists(path("link"), false));
    EXPECT_TRUE(system().directoryExists(path("link"), true));
    EXPECT_FALSE(system().directoryExists(path("link"), false));
    EXPECT_EQ(system().directoryType(path("link")), FileType::SymbolicLink | FileType::Directory);
    EXPECT_FALSE(system().directoryInfo(path("link")));
    EXPECT_FALSE(system().directoryGetPermissions(path("link")));
    EXPECT_FALSE(system().directoryGetModTime(path("link")));
    EXPECT_FALSE(system().directorySetPermissions(path("link"), Permissions(0700U)));
    EXPECT_FALSE(system().directorySetModTime(path("link"), moment(1)));
}

TEST_P(LinkQuestionsContract, LinkWithASlashBehindItIsALinkAllTheSame)
{
    makeDirectory("directory");
    makeFile("directory/file");
    const auto link = makeLink("link", path("directory")) + "/";
    EXPECT_TRUE(system().fileIsSymbolicLink(link));
    EXPECT_TRUE(system().directoryIsSymbolicLink(link));
    EXPECT_TRUE(system().directoryExists(link, true));
    EXPECT_FALSE(system().directoryExists(link, false));
    EXPECT_FALSE(system().directoryInfo(link).has_value());
    EXPECT_FALSE(system().directoryRemove(link, true));
    EXPECT_EQ(system().directoryType(link), FileType::SymbolicLink | FileType::Directory);
    EXPECT_FALSE(system().fileCopyAs(link, system(), path("copy"), {}, CopyOption::Recursive));
    EXPECT_FALSE(system().fileCopyAs(path("directory"), system(), link, {}, CopyOption::Recursive));
    EXPECT_THAT(names(), testing::ElementsAre("directory", "link"));
    EXPECT_THAT(names(path("directory")), testing::ElementsAre("file"));
}

TEST_P(LinkQuestionsContract, LinkToALinkToADirectory)
{
    makeDirectory("target");
    makeLink("first", "target");
    makeLink("second", "first");
    EXPECT_TRUE(system().directoryIsSymbolicLink(path("second")));
    EXPECT_TRUE(system().directoryExists(path("second"), true));
}

TEST_P(LinkQuestionsContract, LinkToADirectoryElsewhere)
{
    ASSERT_TRUE(system().directoryMakePath(path("a/b/target"), false));
    makeLink("a/link", "b/../b/target");
    makeLink("absolute", path("a/b/target"));
    EXPECT_TRUE(system().directoryExists(path("a/link"), true));
    EXPECT_TRUE(system().directoryExists(path("absolute"), true));
}

TEST_P(LinkQuestionsContract, DanglingLink)
{
    makeLink("link", "nowhere");
    EXPECT_TRUE(system().fileIsSymbolicLink(path("link")));
    EXPECT_FALSE(system().directoryIsSymbolicLink(path("link")));
    EXPECT_TRUE(system().fileExists(path("link"), true));
    EXPECT_FALSE(system().fileExists(path("link"), false));
    EXPECT_FALSE(system().directoryExists(path("link"), true));
    EXPECT_FALSE(system().directoryType(path("link")));
}

TEST_P(LinkQuestionsContract, LinksInACircle)
{
    makeLink("a", "b");
    makeLink("b", "a");
    EXPECT_TRUE(system().fileExists(path("a"), true));
    EXPECT_FALSE(system().directoryExists(path("a"), true));
    EXPECT_FALSE(system().directoryIsSymbolicLink(path("a")));
    EXPECT_FALSE(system().fileSymbolicLinkTargetFileId(path("a"), true));
    EXPECT_EQ(system().fileSymbolicLinkTargetFileId(path("a"), false), path("b"));
}

TEST_P(LinkQuestionsContract, TargetIsTheTextOfTheLink)
{
    if (!require(capabilities().tellsRelativeTargets)) {
        return;
    }
    makeLink("link", "../some//where/");
    EXPECT_EQ(system().fileSymbolicLinkTarget(path("link")), "../some//where/");
    EXPECT_EQ(system().directorySymbolicLinkTarget(path("link")), "../some//where/");
}

TEST_P(LinkQuestionsContract, WhatIsNoLinkHasNoTarget)
{
    makeFile("file");
    makeDirectory("directory");
    for (const char* name : {"file", "directory", "missing"}) {
        EXPECT_FALSE(system().fileSymbolicLinkTarget(path(name))) << name;
        EXPECT_FALSE(system().directorySymbolicLinkTarget(path(name))) << name;
        EXPECT_FALSE(system().fileSymbolicLinkTargetFileId(path(name), false)) << name;
        EXPECT_FALSE(system().fileSymbolicLinkTargetFileId(path(name), true)) << name;
        EXPECT_FALSE(system().directorySymbolicLinkTargetDirectoryId(path(name), true)) << name;
    }
}

TEST_P(LinkQuestionsContract, RelativeTargetIsJoinedToTheLinksDirectory)
{
    makeDirectory("sub");
    makeFile("sub/file", "found");
    makeLink("sub/link", "file");
    EXPECT_EQ(system().fileSymbolicLinkTargetFileId(path("sub/link"), false), path("sub/file"));
    EXPECT_EQ(system().fileSymbolicLinkTargetFileId(path("sub/link"), true), path("sub/file"));
}

TEST_P(LinkQuestionsContract, TargetAboveTheLinkIsFound)
{
    makeDirectory("sub");
    makeFile("file", "found");
    makeLink("sub/link", "../file");
    const auto target = system().fileSymbolicLinkTargetFileId(path("sub/link"), false);
    ASSERT_TRUE(target);
    EXPECT_EQ(contentOf(*target), "found");
}

TEST_P(LinkQuestionsContract, AbsoluteTargetIsItself)
{
    makeLink("link", "/some/where");
    EXPECT_EQ(system().fileSymbolicLinkTargetFileId(path("link"), false), "/some/where");
    EXPECT_EQ(system().fileSymbolicLinkTargetFileId(path("link"), true), "/some/where");
}

TEST_P(LinkQuestionsContract, ChainIsFollowedToItsEndOrOneStep)
{
    makeFile("file", "found");
    makeLink("first", "file");
    makeLink("second", path("first"));
    makeLink("third", "second");
    EXPECT_EQ(system().fileSymbolicLinkTargetFileId(path("third"), false), path("second"));
    EXPECT_EQ(system().fileSymbolicLinkTargetFileId(path("third"), true), path("file"));
}

TEST_P(LinkQuestionsContract, ChainOfFortyLinksIsFollowed)
{
    for (int i = 1; i <= 41; ++i) {
        makeLink("link" + std::to_string(i), i == 1 ? "end" : "link" + std::to_string(i - 1));
    }
    EXPECT_EQ(system().fileSymbolicLinkTargetFileId(path("link40"), true), path("end"));
    EXPECT_FALSE(system().fileSymbolicLinkTargetFileId(path("link41"), true));
}

TEST_P(LinkQuestionsContract, DanglingLinkLeadsSomewhereAllTheSame)
{
    makeLink("link", "nowhere");
    EXPECT_EQ(system().fileSymbolicLinkTargetFileId(path("link"), true), path("nowhere"));
    EXPECT_FALSE(system().directorySymbolicLinkTargetDirectoryId(path("link"), true));
}

TEST_P(LinkQuestionsContract, TargetDirectoryIsADirectory)
{
    makeDirectory("directory");
    makeFile("file");
    makeLink("toDirectory", "directory");
    makeLink("toLink", "toDirectory");
    makeLink("toFile", "file");
    EXPECT_EQ(system().directorySymbolicLinkTargetDirectoryId(path("toDirectory"), false),
              path("directory"));
    EXPECT_EQ(system().directorySymbolicLinkTargetDirectoryId(path("toLink"), true),
              path("directory"));
    EXPECT_FALSE(system().directorySymbolicLinkTargetDirectoryId(path("toFile"), true));
}

TEST_P(LinkQuestionsContract, RemovesALinkAndNotItsTarget)
{
    makeFile("file", "stays");
    makeDirectory("directory");
    makeFile("directory/file", "stays too");
    makeLink("toFile", "file");
    makeLink("toDirectory", "directory");
    makeLink("dangling", "nowhere");
    EXPECT_TRUE(system().fileSymbolicLinkRemove(path("toFile")));
    EXPECT_TRUE(system().directorySymbolicLinkRemove(path("toDirectory")));
    EXPECT_TRUE(system().fileSymbolicLinkRemove(path("dangling")));
    EXPECT_THAT(names(), testing::ElementsAre("directory", "file"));
    EXPECT_EQ(contentOf(path("file")), "stays");
    EXPECT_EQ(contentOf(path("directory/file")), "stays too");
}

TEST_P(LinkQuestionsContract, MissingLinkAndDirectoryAreNotRemoved)
{
    makeDirectory("directory");
    EXPECT_FALSE(system().fileSymbolicLinkRemove(path("missing")));
    EXPECT_FALSE(system().directorySymbolicLinkRemove(path("missing")));
    EXPECT_FALSE(system().fileSymbolicLinkRemove(path("directory")));
    EXPECT_FALSE(system().directorySymbolicLinkRemove(path("directory")));
    EXPECT_TRUE(system().directoryExists(path("directory")));
}

TEST_P(LinkQuestionsContract, FileIsNotRemovedAsALink)
{
    if (!require(capabilities().refusesToRemoveFilesAsLinks)) {
        return;
    }
    makeFile("file", "stays");
    EXPECT_FALSE(system().fileSymbolicLinkRemove(path("file")));
    EXPECT_FALSE(system().directorySymbolicLinkRemove(path("file")));
    EXPECT_EQ(contentOf(path("file")), "stays");
}

TEST_P(LinkQuestionsContract, LinksOnTheWayAreFollowed)
{
    makeDirectory("directory");
    makeFile("directory/file", "found");
    makeLink("link", "directory");
    EXPECT_EQ(contentOf(path("link/file")), "found");
    EXPECT_TRUE(system().fileExists(path("link/file"), false));
    EXPECT_TRUE(system().fileRemove(path("link/file")));
    EXPECT_TRUE(names(path("directory")).empty());
}

INSTANTIATE_TEST_SUITE_P(Contract, LinkQuestionsContract, testing::ValuesIn(backends()),
                         backendName);

} // namespace

} // namespace TarnisTest
