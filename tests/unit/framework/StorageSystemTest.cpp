#include "framework/ExpectFailure.h"
#include "framework/ScriptedFileSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

using FileSystem::FailureCode;
using FileSystem::StorageSystemFileTypeFlag;
using TarnisTest::expectFailure;
using TarnisTest::ScriptedFileSystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A tree with one of everything.
class Questions : public testing::Test
{
protected:
    Questions()
    {
        system.addFile("/file.txt", "12345", 0640);
        system.addDirectory("/directory", 0750);
        system.addLink("/toFile", "file.txt");
        system.addLink("/toDirectory", "/directory");
        system.addLink("/toToDirectory", "toDirectory");
        system.addLink("/dangling", "nowhere");
        system.addLink("/circle", "circle");
        system.addPipe("/pipe");
    }

    /// How many times the system was asked for something.
    std::size_t askedFor(const std::function<void()>& question)
    {
        system.calls().clear();
        question();
        return system.calls().size();
    }

    ScriptedFileSystem system;
};

} // namespace

TEST_F(Questions, AFileThatExistsIsNoDirectory)
{
    for (const auto* path : {"/file.txt", "/pipe"}) {
        EXPECT_TRUE(system.fileExists(path, true)) << path;
        EXPECT_TRUE(system.fileExists(path, false)) << path;
        EXPECT_TRUE(system.fileExists(path)) << path;
    }
    for (const auto* path : {"/directory", "/nowhere", "", "/file.txt/below"}) {
        EXPECT_FALSE(system.fileExists(path, true)) << path;
        EXPECT_FALSE(system.fileExists(path, false)) << path;
    }
}

TEST_F(Questions, ALinkCountsAsAFileWhenItIsMeantTo)
{
    for (const auto* path : {"/toFile", "/toDirectory", "/dangling", "/circle"}) {
        EXPECT_TRUE(system.fileExists(path)) << path;
        EXPECT_TRUE(system.fileExists(path, true)) << path;
        EXPECT_FALSE(system.fileExists(path, false)) << path;
    }
}

TEST_F(Questions, ALinkToADirectoryCountsAsOneWhenItIsMeantTo)
{
    for (const auto* path : {"/toDirectory", "/toToDirectory"}) {
        EXPECT_TRUE(system.directoryExists(path)) << path;
        EXPECT_TRUE(system.directoryExists(path, true)) << path;
        EXPECT_FALSE(system.directoryExists(path, false)) << path;
    }
}

TEST_F(Questions, ADirectoryExistsEitherWayAndNothingElseDoes)
{
    for (const bool linkCounts : {false, true}) {
        EXPECT_TRUE(system.directoryExists("/directory", linkCounts));
        EXPECT_TRUE(system.directoryExists("/", linkCounts));
        for (const auto* path :
             {"/file.txt", "/toFile", "/dangling", "/circle", "/pipe", "/none"}) {
            EXPECT_FALSE(system.directoryExists(path, linkCounts)) << path;
        }
    }
}

TEST_F(Questions, AskTheSystemNoMoreOftenThanTheyMust)
{
    EXPECT_EQ(askedFor([this] { system.fileExists("/file.txt", true); }), 1U);
    EXPECT_EQ(askedFor([this] { system.fileExists("/toFile", false); }), 1U);
    EXPECT_EQ(askedFor([this] { system.directoryExists("/directory", true); }), 1U);
    EXPECT_EQ(askedFor([this] { system.directoryExists("/toDirectory", false); }), 1U);
    EXPECT_EQ(askedFor([this] { system.directoryExists("/toDirectory", true); }), 3U);
    EXPECT_EQ(askedFor([this] { system.fileIsSymbolicLink("/toFile"); }), 1U);
    EXPECT_EQ(askedFor([this] { system.directoryInfo("/directory"); }), 1U);
}

TEST_F(Questions, SymbolicLinksAreLinksWhateverTheyPointTo)
{
    for (const auto* path : {"/toFile", "/toDirectory", "/dangling", "/circle"}) {
        EXPECT_TRUE(system.fileIsSymbolicLink(path)) << path;
    }
    EXPECT_FALSE(system.fileIsSymbolicLink("/file.txt"));
    EXPECT_FALSE(system.fileIsSymbolicLink("/directory"));
    EXPECT_FALSE(system.fileIsSymbolicLink("/none"));
}

TEST_F(Questions, ADirectoryLinkIsALinkWhoseTargetIsADirectory)
{
    EXPECT_TRUE(system.directoryIsSymbolicLink("/toDirectory"));
    EXPECT_TRUE(system.directoryIsSymbolicLink("/toToDirectory"));
    for (const auto* path : {"/directory", "/toFile", "/dangling", "/circle", "/none"}) {
        EXPECT_FALSE(system.directoryIsSymbolicLink(path)) << path;
    }
}

TEST_F(Questions, TheSingleAnswersAreThoseOfTheInformation)
{
    const auto info = system.fileInfo("/file.txt");
    ASSERT_TRUE(info);
    EXPECT_EQ(system.fileSize("/file.txt"), info->size);
    EXPECT_EQ(system.fileType("/file.txt"), info->type);
    EXPECT_EQ(system.fileGetPermissions("/file.txt"), info->permissions);
    EXPECT_EQ(system.fileGetModTime("/file.txt"), info->modTime);
    EXPECT_EQ(info->size, 5U);
    EXPECT_EQ(info->permissions.raw(), 0640U);
}

TEST_F(Questions, AboutNothingHaveNoAnswer)
{
    EXPECT_FALSE(system.fileInfo("/none"));
    EXPECT_FALSE(system.fileSize("/none"));
    EXPECT_FALSE(system.fileType("/none"));
    EXPECT_FALSE(system.fileGetPermissions("/none"));
    EXPECT_FALSE(system.fileGetModTime("/none"));
    EXPECT_FALSE(system.directoryType("/none"));
    EXPECT_FALSE(system.directoryInfo("/none"));
    EXPECT_FALSE(system.fileMetaData("/none"));
}

TEST_F(Questions, TheTypeOfADirectoryTellsALinkToOne)
{
    EXPECT_EQ(system.directoryType("/directory"),
              Utilities::Flags(StorageSystemFileTypeFlag::Directory));
    EXPECT_EQ(system.directoryType("/toToDirectory"),
              StorageSystemFileTypeFlag::Directory | StorageSystemFileTypeFlag::SymbolicLink);
    for (const auto* path : {"/file.txt", "/toFile", "/dangling", "/pipe"}) {
        EXPECT_FALSE(system.directoryType(path)) << path;
    }
}

TEST_F(Questions, AboutADirectoryAreAnsweredForADirectoryAlone)
{
    EXPECT_EQ(system.directoryInfo("/directory")->fileId, "/directory");
    EXPECT_EQ(system.directoryGetPermissions("/directory")->raw(), 0750U);
    EXPECT_EQ(system.directoryGetModTime("/directory"), system.at("/directory").modTime);
    for (const auto* path : {"/file.txt", "/toDirectory", "/pipe", "/none"}) {
        EXPECT_FALSE(system.directoryInfo(path)) << path;
        EXPECT_FALSE(system.directoryGetPermissions(path)) << path;
        EXPECT_FALSE(system.directoryGetModTime(path)) << path;
    }
}

TEST_F(Questions, AttributesOfADirectoryAreSetOnADirectoryAlone)
{
    EXPECT_TRUE(
        system.directorySetPermissions("/directory", ScriptedFileSystem::Permissions(0700U)));
    EXPECT_TRUE(system.directorySetModTime("/directory", TarnisTest::timeAt(77)));
    EXPECT_EQ(system.at("/directory").permissions.raw(), 0700U);
    EXPECT_EQ(system.at("/directory").modTime, TarnisTest::timeAt(77));
    for (const auto* path : {"/file.txt", "/toDirectory", "/none"}) {
        EXPECT_FALSE(system.directorySetPermissions(path, ScriptedFileSystem::Permissions(0U)));
        EXPECT_FALSE(system.directorySetModTime(path, TarnisTest::timeAt(1)));
    }
    EXPECT_EQ(system.at("/directory").permissions.raw(), 0700U);
    EXPECT_EQ(system.at("/file.txt").permissions.raw(), 0640U);
}

TEST_F(Questions, StorageIsThatOfTheVolume)
{
    EXPECT_EQ(system.fileStorageInfo("/file.txt")->capacity, 10'000U);
    const auto info = system.directoryStorageInfo("/directory");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->free, 3'000U);
    EXPECT_EQ(info->available, 2'000U);
    EXPECT_EQ(info->capacity, 10'000U);
}

TEST_F(Questions, MetaDataHoldsEverything)
{
    const auto file = system.fileMetaData("/file.txt");
    ASSERT_TRUE(file);
    EXPECT_EQ(file->info.fileId, "/file.txt");
    EXPECT_EQ(file->info.size, 5U);
    EXPECT_EQ(file->displayPath, "/file.txt");
    EXPECT_EQ(file->extension, "txt");
    EXPECT_FALSE(file->linkTarget);
    EXPECT_EQ(system.fileMetaData("/toFile")->linkTarget, "file.txt");
}

TEST_F(Questions, TheDisplayPathBeginsWithTheHost)
{
    EXPECT_EQ(system.displayPath("/file.txt"), "/file.txt");
    system.host = "server";
    EXPECT_EQ(system.displayPath("/file.txt"), "server:/file.txt");
    EXPECT_EQ(system.hostName(), "server");
}

TEST_F(Questions, ASystemCanBeUsedForAsLongAsItIsValid)
{
    EXPECT_TRUE(system.isValid());
    EXPECT_TRUE(system.isReadable());
    EXPECT_TRUE(system.isWriteable());
    EXPECT_TRUE(system.hasSymbolicLinks());
    EXPECT_EQ(system.getType(), FileSystem::StorageSystemType::SFTP);
    EXPECT_EQ(system.recommendedReadBufferSize(), 1'048'576U);
    EXPECT_EQ(system.recommendedWriteBufferSize(), 1'048'576U);
    system.behaviour.isValid = false;
    EXPECT_FALSE(system.isValid());
    EXPECT_FALSE(system.isReadable());
    EXPECT_FALSE(system.isWriteable());
}

TEST_F(Questions, ALinkLeadsToItsTargetFromWhereItStands)
{
    system.addLink("/directory/up", "../file.txt");
    EXPECT_EQ(system.fileSymbolicLinkTarget("/toFile"), "file.txt");
    EXPECT_EQ(system.fileSymbolicLinkTargetFileId("/toFile", false), "/file.txt");
    EXPECT_EQ(system.fileSymbolicLinkTargetFileId("/toDirectory", false), "/directory");
    EXPECT_EQ(system.fileSymbolicLinkTargetFileId("/directory/up", false),
              "/directory/../file.txt");
    EXPECT_EQ(system.fileSymbolicLinkTargetFileId("toFile", false), "file.txt");
    EXPECT_EQ(system.fileSymbolicLinkTargetFileId("/dangling", true), "/nowhere");
}

TEST_F(Questions, AChainOfLinksIsFollowedToItsEnd)
{
    EXPECT_EQ(system.fileSymbolicLinkTargetFileId("/toToDirectory", false), "/toDirectory");
    EXPECT_EQ(system.fileSymbolicLinkTargetFileId("/toToDirectory", true), "/directory");
}

TEST_F(Questions, AChainMayHaveFortyLinksAndNoMore)
{
    for (int link = 1; link <= 41; ++link) {
        system.addLink("/link" + std::to_string(link),
                       link == 1 ? "directory" : "link" + std::to_string(link - 1));
    }
    EXPECT_EQ(system.fileSymbolicLinkTargetFileId("/link40", true), "/directory");
    EXPECT_TRUE(system.directoryExists("/link40", true));
    EXPECT_FALSE(system.fileSymbolicLinkTargetFileId("/link41", true));
    EXPECT_FALSE(system.directoryExists("/link41", true));
    EXPECT_FALSE(system.fileSymbolicLinkTargetFileId("/circle", true));
}

TEST_F(Questions, WhatIsNoLinkLeadsNowhere)
{
    system.addLink("/empty", "");
    for (const auto* path : {"/file.txt", "/directory", "/none", "/empty"}) {
        EXPECT_FALSE(system.fileSymbolicLinkTargetFileId(path, false)) << path;
        EXPECT_FALSE(system.fileSymbolicLinkTargetFileId(path, true)) << path;
        EXPECT_FALSE(system.directorySymbolicLinkTargetDirectoryId(path, true)) << path;
    }
}

TEST_F(Questions, ADirectoryLinkLeadsToADirectoryOrNowhere)
{
    EXPECT_EQ(system.directorySymbolicLinkTarget("/toDirectory"), "/directory");
    EXPECT_EQ(system.directorySymbolicLinkTargetDirectoryId("/toToDirectory", true), "/directory");
    EXPECT_EQ(system.directorySymbolicLinkTargetDirectoryId("/toToDirectory", false),
              "/toDirectory");
    EXPECT_FALSE(system.directorySymbolicLinkTargetDirectoryId("/toFile", true));
    EXPECT_FALSE(system.directorySymbolicLinkTargetDirectoryId("/dangling", false));
}

TEST_F(Questions, NamesAreListedByThePatternAtTheEndOfAPath)
{
    system.addFile("/directory/b.txt", "");
    system.addFile("/directory/a.txt", "");
    system.addFile("/directory/c.log", "");
    EXPECT_THAT(system.directoryListFileNamesWithFilterPath("/directory/*.txt"),
                ElementsAre("a.txt", "b.txt"));
    EXPECT_THAT(system.directoryListFileNamesWithFilterPath("/directory/c.log"),
                ElementsAre("c.log"));
    EXPECT_THAT(system.directoryListFileNamesWithFilterPath("f*"), ElementsAre("file.txt"));
    EXPECT_THAT(system.directoryListFileNamesWithFilterPath("/f*"), ElementsAre("file.txt"));
    EXPECT_THAT(system.directoryListFileNamesWithFilterPath("/none/*"), IsEmpty());
    EXPECT_THAT(system.directoryListFileNamesWithFilterPath("/"), IsEmpty());
    EXPECT_THAT(system.directoryListFileNamesWithFilterPath(""), IsEmpty());
}

TEST_F(Questions, ListingsPassOnFilterAndType)
{
    using Filter = FileSystem::StorageSystemDirectoryFilterType;
    EXPECT_EQ(system.directoryList("/", "*.txt").size(), 1U);
    EXPECT_EQ(system.directoryList("/", ".*txt", Filter::RegularExpression).size(), 1U);
    EXPECT_EQ(system.directoryFileInfoList("/", "to*").size(), 3U);
    EXPECT_THAT(system.directoryListFileNames("/", "p?pe"), ElementsAre("pipe"));
}

namespace {

/// What every operation answers to a path with a NUL byte in it.
class NulByte : public Questions
{
protected:
    const std::string bad = std::string("/file.txt\0.png", 14);
    const std::string good = "/file.txt";
    const ScriptedFileSystem::Permissions permissions{0600U};
};

} // namespace

TEST_F(NulByte, InAPathNamesNothing)
{
    EXPECT_FALSE(system.fileInfo(bad));
    EXPECT_FALSE(system.fileExists(bad, true));
    EXPECT_FALSE(system.fileExists(bad, false));
    EXPECT_FALSE(system.fileSize(bad));
    EXPECT_FALSE(system.fileType(bad));
    EXPECT_FALSE(system.fileStorageInfo(bad));
    EXPECT_FALSE(system.fileGetPermissions(bad));
    EXPECT_FALSE(system.fileGetModTime(bad));
    EXPECT_FALSE(system.fileIsSymbolicLink(bad));
    EXPECT_FALSE(system.fileSymbolicLinkTarget(bad));
    EXPECT_FALSE(system.fileSymbolicLinkTargetFileId(bad, true));
    EXPECT_FALSE(system.fileMetaData(bad));
    EXPECT_FALSE(system.directoryExists(bad, true));
    EXPECT_FALSE(system.directoryExists(bad, false));
    EXPECT_FALSE(system.directoryType(bad));
    EXPECT_FALSE(system.directoryIsSymbolicLink(bad));
    EXPECT_FALSE(system.directoryInfo(bad));
    EXPECT_FALSE(system.directoryStorageInfo(bad));
    EXPECT_FALSE(system.directoryGetPermissions(bad));
    EXPECT_FALSE(system.directoryGetModTime(bad));
    EXPECT_FALSE(system.directorySymbolicLinkTarget(bad));
    EXPECT_FALSE(system.directorySymbolicLinkTargetDirectoryId(bad, true));
    EXPECT_THAT(system.directoryList(bad), IsEmpty());
    EXPECT_THAT(system.directoryFileInfoList(bad), IsEmpty());
    EXPECT_THAT(system.directoryListFileNames(bad), IsEmpty());
    EXPECT_THAT(system.directoryListFileNamesWithFilterPath(bad), IsEmpty());
    EXPECT_THAT(system.calls(), IsEmpty());
}

TEST_F(NulByte, InAnyArgumentChangesNothing)
{
    using Mode = FileSystem::StorageSystemFileOpenModeFlag;
    EXPECT_EQ(system.fileOpen(bad, Mode::Read), nullptr);
    EXPECT_EQ(system.fileCreate(bad, "name", false, true), nullptr);
    EXPECT_EQ(system.fileCreate("/", bad, false, false), nullptr);
    EXPECT_EQ(system.fileCreateAs(bad, false, true), nullptr);
    EXPECT_FALSE(system.fileRemove(bad));
    EXPECT_FALSE(system.fileRename(bad, "name"));
    EXPECT_FALSE(system.fileRename(good, bad));
    EXPECT_FALSE(system.fileRenameAs(bad, "/new"));
    EXPECT_FALSE(system.fileRenameAs(good, bad));
    EXPECT_FALSE(system.fileMove(bad, "/directory"));
    EXPECT_FALSE(system.fileMove(good, bad));
    EXPECT_FALSE(system.fileMoveAs(bad, "/new"));
    EXPECT_FALSE(system.fileMoveAs(good, bad));
    EXPECT_FALSE(system.fileCopy(bad, system, "/directory", "name", true));
    EXPECT_FALSE(system.fileCopy(good, system, bad, "name", true));
    EXPECT_FALSE(system.fileCopy(good, system, "/directory", bad, true));
    EXPECT_FALSE(system.fileCopyAs(bad, system, "/new"));
    EXPECT_FALSE(system.fileCopyAs(good, system, bad));
    EXPECT_FALSE(system.fileSetPermissions(bad, permissions));
    EXPECT_FALSE(system.fileSetModTime(bad, TarnisTest::timeAt(1)));
    EXPECT_FALSE(system.fileSymbolicLinkCreate(bad, "name", "text", false));
    EXPECT_FALSE(system.fileSymbolicLinkCreate("/", bad, "text", false));
    EXPECT_FALSE(system.fileSymbolicLinkCreate("/", "name", bad, false));
    EXPECT_FALSE(system.fileSymbolicLinkCreateAs(bad, "/new", false));
    EXPECT_FALSE(system.fileSymbolicLinkCreateAs("text", bad, false));
    EXPECT_FALSE(system.fileSymbolicLinkRemove(bad));
    EXPECT_THAT(system.calls(), IsEmpty());
}

TEST_F(NulByte, InAnyArgumentChangesNoDirectory)
{
    EXPECT_FALSE(system.directoryCreate(bad, {"name"}, false));
    EXPECT_FALSE(system.directoryCreate("/", {"name", bad}, false));
    EXPECT_FALSE(system.directoryCreateAs(bad, false));
    EXPECT_FALSE(system.directoryMakePath(bad, false));
    EXPECT_FALSE(system.directoryRemove(bad, true));
    EXPECT_FALSE(system.directoryRemove(bad, false));
    EXPECT_FALSE(system.directoryRemove(bad));
    EXPECT_FALSE(system.directoryRename(bad, "name"));
    EXPECT_FALSE(system.directoryRename("/directory", bad));
    EXPECT_FALSE(system.directoryRenameAs(bad, "/new"));
    EXPECT_FALSE(system.directoryRenameAs("/directory", bad));
    EXPECT_FALSE(system.directoryMove(bad, "/directory"));
    EXPECT_FALSE(system.directoryMove("/directory", bad));
    EXPECT_FALSE(system.directoryMoveAs(bad, "/new"));
    EXPECT_FALSE(system.directoryMoveAs("/directory", bad));
    EXPECT_FALSE(system.directorySetPermissions(bad, permissions));
    EXPECT_FALSE(system.directorySetModTime(bad, TarnisTest::timeAt(1)));
    EXPECT_FALSE(system.directorySymbolicLinkCreate(bad, "name", "text", false));
    EXPECT_FALSE(system.directorySymbolicLinkCreate("/", bad, "text", false));
    EXPECT_FALSE(system.directorySymbolicLinkCreate("/", "name", bad, false));
    EXPECT_FALSE(system.directorySymbolicLinkCreateAs(bad, "/new", false));
    EXPECT_FALSE(system.directorySymbolicLinkCreateAs("text", bad, false));
    EXPECT_FALSE(system.directorySymbolicLinkRemove(bad));
    EXPECT_THAT(system.calls(), IsEmpty());
}

TEST_F(Questions, AWholeListIsTheListWhereTheSystemCannotTellMore)
{
    const auto entries = system.directoryReadFully("/");
    ASSERT_TRUE(entries.has_value());
    EXPECT_EQ(entries->size(), 8U);
    const auto empty = system.directoryReadFully("/toDirectory");
    ASSERT_TRUE(empty.has_value());
    EXPECT_THAT(*empty, IsEmpty());
    for (const auto* path : {"/missing", "/file.txt", "/toFile", "/dangling", ""}) {
        EXPECT_FALSE(system.directoryReadFully(path).has_value()) << path;
    }
    EXPECT_FALSE(system.directoryReadFully(std::string("/directory\0", 11)).has_value());
}

TEST_F(Questions, AListThatLeftAFailureIsNotWhole)
{
    system.behaviour.listingBreaksOffAfter = 7;
    EXPECT_EQ(system.directoryFileInfoList("/").size(), 7U);
    EXPECT_FALSE(system.directoryReadFully("/").has_value());
    expectFailure(FailureCode::Protocol, "/");
    ScriptedFileSystem target;
    EXPECT_FALSE(system.fileCopyAs("/", target, "/copy", {},
                                   FileSystem::StorageSystemCopyOptionFlag::Recursive));
    expectFailure(FailureCode::Protocol, "/");
    EXPECT_FALSE(target.has("/copy/directory"));
}
