#include "framework/ExpectFailure.h"
#include "framework/ScriptedFileSystem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

using FileSystem::FailureCode;
using TarnisTest::expectFailure;
using TarnisTest::ScriptedFileSystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using Type = FileSystem::StorageSystemFileTypeFlag;

namespace {

const std::vector<std::string> unsafeNames{"", ".", "..", "a/b", "/", "../escape"};

class Tree : public testing::Test
{
protected:
    ScriptedFileSystem system;
};

class Creating : public Tree
{};

class Removing : public Tree
{};

class Renaming : public Tree
{};

class Moving : public Tree
{
protected:
    /// Renaming fails, as between two volumes, but for the hidden names of copies.
    /// Into another directory, as to another volume.
    void refuseRenaming(const std::string& path)
    {
        system.behaviour.refusesRename = [this, path](const std::string& from,
                                                      const std::string& to) {
            return from == path && system.pathParentId(to) != system.pathParentId(from);
        };
    }
};

/// "/file" has one more version while it is copied to another volume.
class MovingAChangingFile : public Moving
{
protected:
    MovingAChangingFile()
    {
        system.addFile("/file", "bytes");
        system.setModTime("/file", copiedTime);
        system.addDirectory("/volume");
    }

    void expectKept(const std::function<void()>& change)
    {
        system.behaviour.refusesRename = [change](const std::string& from, const std::string& to) {
            if (to == "/volume/file" && from != "/file") {
                change();
            }
            return from == "/file";
        };
        EXPECT_FALSE(system.fileMoveAs("/file", "/volume/file"));
        EXPECT_THAT(system.paths(), ElementsAre("/file", "/volume"));
    }

    const FileSystem::StorageSystemTimePoint copiedTime = TarnisTest::timeAt(12'345);
};

class Linking : public Tree
{};

} // namespace

TEST_F(Creating, AFileOpensItForReadingAndWriting)
{
    system.addDirectory("/directory");
    const auto file =
        system.fileCreate("/directory", "new", true, false, ScriptedFileSystem::Permissions(0600U));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->fileId(), "/directory/new");
    EXPECT_TRUE(file->writeFully("12345", 5));
    ASSERT_TRUE(file->seek(0));
    char byte = 0;
    EXPECT_EQ(file->readFully(&byte, 1).count, 1U);
    EXPECT_EQ(byte, '1');
    EXPECT_EQ(system.bytesOf("/directory/new"), "12345");
    EXPECT_EQ(system.at("/directory/new").permissions.raw(), 0600U);
}

TEST_F(Creating, AFileThatExistsEmptiesItUnlessItMustBeNew)
{
    system.addFile("/file", "old bytes");
    EXPECT_EQ(system.fileCreate("/", "file", true, false), nullptr);
    EXPECT_EQ(system.fileCreateAs("/file", true, false), nullptr);
    EXPECT_EQ(system.bytesOf("/file"), "old bytes");
    EXPECT_NE(system.fileCreateAs("/file", false, false), nullptr);
    EXPECT_EQ(system.bytesOf("/file"), "");
}

TEST_F(Creating, AFileThroughALinkEmptiesTheLinksTarget)
{
    system.addFile("/real", "old bytes");
    system.addLink("/link", "real");
    EXPECT_EQ(system.fileCreateAs("/link", true, false), nullptr);
    EXPECT_NE(system.fileCreateAs("/link", false, false), nullptr);
    EXPECT_EQ(system.bytesOf("/real"), "");
    EXPECT_TRUE(system.fileIsSymbolicLink("/link"));
}

TEST_F(Creating, AFileWhereADirectoryStandsFails)
{
    system.addDirectory("/directory");
    EXPECT_EQ(system.fileCreate("/", "directory", false, true), nullptr);
    EXPECT_EQ(system.fileCreate("/", "directory", true, true), nullptr);
    EXPECT_EQ(std::count(system.calls().begin(), system.calls().end(), "open /directory"), 2);
}

TEST_F(Creating, AFileMakesTheWayToItWhenAskedTo)
{
    EXPECT_EQ(system.fileCreateAs("/a/b/file", false, false), nullptr);
    EXPECT_THAT(system.paths(), IsEmpty());
    EXPECT_NE(system.fileCreateAs("/a/b/file", false, true), nullptr);
    EXPECT_THAT(system.paths(), ElementsAre("/a", "/a/b", "/a/b/file"));
    EXPECT_NE(system.fileCreate("/c", "file", true, true), nullptr);
    EXPECT_TRUE(system.has("/c/file"));
}

TEST_F(Creating, AFileInADirectoryThatIsThereTakesOneStep)
{
    system.addDirectory("/a");
    EXPECT_NE(system.fileCreateAs("/a/file", false, true), nullptr);
    EXPECT_THAT(system.calls(), ElementsAre("open /a/file"));
}

TEST_F(Creating, AFileNeedsANameThatIsOneComponent)
{
    system.addDirectory("/a/b");
    for (const auto& name : unsafeNames) {
        EXPECT_EQ(system.fileCreate("/a", name, false, true), nullptr) << name;
    }
    EXPECT_THAT(system.calls(), IsEmpty());
}

TEST_F(Creating, DirectoriesMakesOneBelowTheOther)
{
    const ScriptedFileSystem::Permissions permissions(0555U);
    EXPECT_EQ(system.directoryCreate("/", {"a", "b", "c"}, true, permissions), "/a/b/c");
    EXPECT_THAT(system.paths(), ElementsAre("/a", "/a/b", "/a/b/c"));
    EXPECT_EQ(system.at("/a/b/c").permissions.raw(), 0555U);
    // Those on the way must let the next one in.
    EXPECT_EQ(system.at("/a").permissions.raw(), 0755U);
}

TEST_F(Creating, DirectoriesUsesWhatIsThere)
{
    system.addDirectory("/a/b");
    system.addLink("/link", "a");
    EXPECT_EQ(system.directoryCreate("/", {"a", "b"}, false), "/a/b");
    EXPECT_EQ(system.directoryCreate("/", {"link", "c"}, true), "/link/c");
    EXPECT_TRUE(system.has("/a/c"));
    EXPECT_EQ(system.directoryCreate("", {"a", "d"}, false), "a/d");
    EXPECT_TRUE(system.has("/a/d"));
}

TEST_F(Creating, DirectoriesFailsWhenTheLastMustBeNewAndIsNot)
{
    system.addDirectory("/a/b");
    system.addLink("/toDirectory", "a");
    system.addLink("/dangling", "none");
    EXPECT_FALSE(system.directoryCreate("/", {"a", "b"}, true));
    EXPECT_FALSE(system.directoryCreate("/", {"toDirectory"}, true));
    EXPECT_FALSE(system.directoryCreate("/", {"dangling"}, true));
    EXPECT_FALSE(system.directoryCreate("/", {"dangling"}, false));
}

TEST_F(Creating, DirectoriesFailsWhenSomethingElseIsInTheWay)
{
    system.addFile("/file", "");
    EXPECT_FALSE(system.directoryCreate("/", {"file"}, false));
    EXPECT_FALSE(system.directoryCreate("/", {"file", "below"}, false));
    EXPECT_FALSE(system.directoryCreate("/none", {"below"}, false));
    EXPECT_THAT(system.paths(), ElementsAre("/file"));
}

TEST_F(Creating, DirectoriesNeedsNamesThatAreOneComponentEach)
{
    EXPECT_FALSE(system.directoryCreate("/", {}, false));
    for (const auto& name : unsafeNames) {
        EXPECT_FALSE(system.directoryCreate("/", {"a", name}, false)) << name;
    }
    EXPECT_THAT(system.calls(), IsEmpty());
}

TEST_F(Creating, APathMakesEveryMissingDirectory)
{
    const ScriptedFileSystem::Permissions permissions(0500U);
    system.addDirectory("/a");
    EXPECT_TRUE(system.directoryMakePath("/a/b/c/d", true, permissions));
    EXPECT_THAT(system.paths(), ElementsAre("/a", "/a/b", "/a/b/c", "/a/b/c/d"));
    EXPECT_EQ(system.at("/a/b/c/d").permissions.raw(), 0500U);
    EXPECT_EQ(system.at("/a/b").permissions.raw(), 0700U);
    EXPECT_TRUE(system.directoryMakePath("x/y/", false));
    EXPECT_TRUE(system.has("/x/y"));
}

TEST_F(Creating, APathThatIsThereIsASuccessUnlessItMustBeNew)
{
    system.addDirectory("/a/b");
    system.addLink("/link", "a");
    EXPECT_TRUE(system.directoryMakePath("/a/b", false));
    EXPECT_FALSE(system.directoryMakePath("/a/b", true));
    EXPECT_TRUE(system.directoryMakePath("/", false));
    EXPECT_FALSE(system.directoryMakePath("/", true));
    EXPECT_TRUE(system.directoryMakePath("/link/new", false));
    EXPECT_TRUE(system.has("/a/new"));
}

TEST_F(Creating, APathFailsWhenSomethingElseIsInTheWay)
{
    system.addFile("/file", "");
    system.addLink("/dangling", "none");
    EXPECT_FALSE(system.directoryMakePath("/file", false));
    EXPECT_FALSE(system.directoryMakePath("/file/a/b", false));
    EXPECT_FALSE(system.directoryMakePath("/dangling/a", false));
    EXPECT_FALSE(system.directoryMakePath("", false));
    EXPECT_FALSE(system.directoryMakePath("", true));
    EXPECT_THAT(system.paths(), ElementsAre("/dangling", "/file"));
}

TEST_F(Creating, APathThatAnotherMakesAtTheSameTimeIsASuccess)
{
    system.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "makeDirectory" && !system.has(path)) {
            system.addDirectory(path);
        }
    };
    EXPECT_TRUE(system.directoryMakePath("/a/b", false));
    EXPECT_EQ(system.directoryCreate("/", {"c", "d"}, false), "/c/d");
    EXPECT_FALSE(system.directoryMakePath("/e/f", true));
}

TEST_F(Creating, DirectoriesThatCannotBeMadeSaysWhyAndWhich)
{
    system.addDirectory("/closed", 0500);
    EXPECT_FALSE(system.directoryCreate("/closed", {"a", "b"}, false));
    expectFailure(FailureCode::Denied, "/closed/a");
    EXPECT_FALSE(system.directoryMakePath("/closed/a/b", false));
    expectFailure(FailureCode::Denied, "/closed/a");
    system.addLink("/dangling", "none");
    EXPECT_FALSE(system.directoryMakePath("/dangling", false));
    expectFailure(FailureCode::Exists, "/dangling");
}

TEST_F(Removing, AnEmptyDirectoryTakesOneStep)
{
    system.addDirectory("/empty");
    EXPECT_TRUE(system.directoryRemove("/empty", false));
    EXPECT_THAT(system.calls(), ElementsAre("removeDirectory /empty"));
    EXPECT_THAT(system.paths(), IsEmpty());
}

TEST_F(Removing, ADirectoryThatIsNotEmptyFailsUnlessRecursive)
{
    system.addFile("/full/file", "");
    EXPECT_FALSE(system.directoryRemove("/full", false));
    EXPECT_FALSE(system.directoryRemove("/full"));
    EXPECT_TRUE(system.has("/full/file"));
    EXPECT_TRUE(system.directoryRemove("/full", true));
    EXPECT_THAT(system.paths(), IsEmpty());
}

TEST_F(Removing, ATreeRemovesEverythingBelowIt)
{
    system.addFile("/tree/a/b/c/file", "");
    system.addFile("/tree/a/file", "");
    system.addPipe("/tree/pipe");
    system.addDirectory("/tree/empty");
    system.addFile("/beside", "");
    EXPECT_TRUE(system.directoryRemove("/tree/", true));
    EXPECT_THAT(system.paths(), ElementsAre("/beside"));
}

TEST_F(Removing, ATreeThirtyDirectoriesDeepRemovesItAll)
{
    std::string path = "/tree";
    for (int depth = 0; depth < 30; ++depth) {
        path += "/level" + std::to_string(depth);
        system.addFile(path + "/file", "");
    }
    EXPECT_TRUE(system.directoryRemove("/tree", true));
    EXPECT_THAT(system.paths(), IsEmpty());
}

TEST_F(Removing, ATreeRemovesLinksAndNotWhatTheyLeadTo)
{
    system.addFile("/outside/file", "");
    system.addLink("/tree/toDirectory", "/outside");
    system.addLink("/tree/toFile", "/outside/file");
    system.addLink("/tree/dangling", "none");
    EXPECT_TRUE(system.directoryRemove("/tree", true));
    EXPECT_THAT(system.paths(), ElementsAre("/outside", "/outside/file"));
}

TEST_F(Removing, ATreeDoesNotGoThroughALinkThatIsListedAsADirectory)
{
    system.addFile("/outside/file", "");
    system.addLink("/tree/link", "/outside");
    system.behaviour.listedTypes["/tree/link"] = Type::Directory;
    EXPECT_TRUE(system.directoryRemove("/tree", true));
    EXPECT_THAT(system.paths(), ElementsAre("/outside", "/outside/file"));
}

TEST_F(Removing, ATreeAsksForTypesThatTheListingDoesNotTell)
{
    system.addFile("/outside/file", "");
    system.addLink("/tree/link", "/outside");
    system.addFile("/tree/directory/file", "");
    system.behaviour.listsWithoutTypes = true;
    EXPECT_TRUE(system.directoryRemove("/tree", true));
    EXPECT_THAT(system.paths(), ElementsAre("/outside", "/outside/file"));
}

TEST_F(Removing, ATreeEndsAtANameThatLeadsElsewhere)
{
    for (const auto& name :
         {std::string("../outside/file"), std::string("/outside/file"), std::string(".."),
          std::string("."), std::string(), std::string("a\0b", 3)}) {
        system.addFile("/outside/file", "");
        system.addFile("/outside/kept", "");
        system.addDirectory("/tree");
        for (const auto type : {Type::Regular, Type::Directory}) {
            system.behaviour.inventedEntries["/tree"] = {{name, type}};
            EXPECT_FALSE(system.directoryRemove("/tree", true)) << name;
            EXPECT_THAT(system.paths(),
                        ElementsAre("/outside", "/outside/file", "/outside/kept", "/tree"));
        }
    }
}

TEST_F(Removing, ATreeEndsAtTheFirstRefusal)
{
    system.addFile("/tree/a", "");
    system.addFile("/tree/b", "");
    system.addFile("/tree/c", "");
    system.behaviour.refusesToRemove = {"/tree/b"};
    EXPECT_FALSE(system.directoryRemove("/tree", true));
    EXPECT_THAT(system.paths(), ElementsAre("/tree", "/tree/b", "/tree/c"));
}

TEST_F(Removing, ATreeFailsForWhatKeptItFromBeingRead)
{
    system.addFile("/tree/closed/file", "");
    system.addDirectory("/tree/closed", 0300);
    EXPECT_FALSE(system.directoryRemove("/tree", true));
    expectFailure(FailureCode::Denied, "/tree/closed");
    system.addFile("/long/a", "");
    system.addFile("/long/b", "");
    system.behaviour.listingBreaksOffAfter = 1;
    EXPECT_FALSE(system.directoryRemove("/long", true));
    expectFailure(FailureCode::Protocol, "/long");
    // What is empty is removed without having been read.
    system.addDirectory("/empty", 0300);
    EXPECT_TRUE(system.directoryRemove("/empty", true));
}

TEST(RemovingATree, GivesUpOneThatNeverEnds)
{
    const TarnisTest::EndlessFileSystem endless;
    EXPECT_FALSE(endless.directoryRemove("/tree", true));
    EXPECT_THAT(endless.calls(), Not(Contains("removeDirectory /tree")));
}

TEST_F(Removing, SomethingElseThanADirectoryFails)
{
    system.addFile("/file", "");
    system.addFile("/real/file", "");
    system.addLink("/link", "real");
    for (const bool recursive : {false, true}) {
        for (const auto* path : {"/file", "/link", "/none", "", "/"}) {
            EXPECT_FALSE(system.directoryRemove(path, recursive)) << path;
        }
    }
    EXPECT_FALSE(system.directoryRemove("/real/.", true));
    EXPECT_FALSE(system.directoryRemove("/real/..", true));
    EXPECT_THAT(system.paths(), ElementsAre("/file", "/link", "/real", "/real/file"));
}

TEST_F(Removing, ALinkWithASlashBehindItIsStillNoDirectory)
{
    system.addFile("/real/file", "");
    system.addLink("/link", "real");
    EXPECT_FALSE(system.directoryRemove("/link/", true));
    EXPECT_THAT(system.paths(), ElementsAre("/link", "/real", "/real/file"));
}

TEST_F(Removing, LinksAreRemovedAndFilesAreNot)
{
    system.addDirectory("/real");
    system.addLink("/link", "real");
    system.addFile("/file", "");
    EXPECT_FALSE(system.fileSymbolicLinkRemove("/file"));
    EXPECT_FALSE(system.directorySymbolicLinkRemove("/real"));
    EXPECT_TRUE(system.directorySymbolicLinkRemove("/link"));
    EXPECT_THAT(system.paths(), ElementsAre("/file", "/real"));
}

TEST_F(Renaming, AFileStaysInItsDirectory)
{
    system.addFile("/a/file", "bytes");
    EXPECT_EQ(system.fileRename("/a/file", "new"), "/a/new");
    EXPECT_EQ(system.bytesOf("/a/new"), "bytes");
    EXPECT_EQ(system.fileRename("a/new", "relative"), "a/relative");
    EXPECT_THAT(system.paths(), ElementsAre("/a", "/a/relative"));
}

TEST_F(Renaming, ALinkRenamesTheLink)
{
    system.addDirectory("/real");
    system.addLink("/link", "real");
    EXPECT_EQ(system.fileRename("/link", "new"), "/new");
    EXPECT_THAT(system.paths(), ElementsAre("/new", "/real"));
}

TEST_F(Renaming, AFileFailsForADirectoryForNothingAndOntoSomething)
{
    system.addDirectory("/directory");
    system.addFile("/file", "1");
    system.addFile("/other", "2");
    EXPECT_FALSE(system.fileRename("/directory", "new"));
    EXPECT_FALSE(system.fileRename("/none", "new"));
    EXPECT_FALSE(system.fileRename("/file", "other"));
    EXPECT_EQ(system.bytesOf("/other"), "2");
}

TEST_F(Renaming, OntoSomethingFailsForWhatIsThere)
{
    system.addFile("/file", "");
    system.addFile("/other", "");
    EXPECT_FALSE(system.fileRename("/file", "other"));
    expectFailure(FailureCode::Exists, "/other");
    EXPECT_FALSE(system.fileRenameAs("/file", "/other"));
    expectFailure(FailureCode::Exists, "/other");
}

TEST_F(Renaming, NeedsANameThatIsOneComponent)
{
    system.addFile("/a/file", "");
    for (const auto& name : unsafeNames) {
        EXPECT_FALSE(system.fileRename("/a/file", name)) << name;
        EXPECT_FALSE(system.directoryRename("/a", name)) << name;
    }
    EXPECT_THAT(system.paths(), ElementsAre("/a", "/a/file"));
}

TEST_F(Renaming, ADirectoryTakesItsContentAlong)
{
    system.addFile("/a/b/file", "bytes");
    EXPECT_EQ(system.directoryRename("/a/b/", "new"), "/a/new");
    EXPECT_THAT(system.paths(), ElementsAre("/a", "/a/new", "/a/new/file"));
    EXPECT_TRUE(system.directoryRenameAs("/a/new", "/top"));
    EXPECT_THAT(system.paths(), ElementsAre("/a", "/top", "/top/file"));
}

TEST_F(Renaming, ADirectoryFailsForAnythingElseAndIntoItself)
{
    system.addFile("/file", "");
    system.addDirectory("/a/b");
    system.addLink("/link", "a");
    EXPECT_FALSE(system.directoryRename("/file", "new"));
    EXPECT_FALSE(system.directoryRename("/link", "new"));
    EXPECT_FALSE(system.directoryRename("/none", "new"));
    EXPECT_FALSE(system.directoryRenameAs("/a", "/a/b/c"));
    EXPECT_FALSE(system.directoryRenameAs("/a", "/./a//c"));
    EXPECT_TRUE(system.directoryRenameAs("/a", "/ab"));
}

TEST_F(Moving, AFileKeepsItsName)
{
    system.addFile("/file", "bytes");
    system.addDirectory("/directory");
    EXPECT_EQ(system.fileMove("/file", "/directory"), "/directory/file");
    EXPECT_EQ(system.bytesOf("/directory/file"), "bytes");
    EXPECT_FALSE(system.has("/file"));
}

TEST_F(Moving, AFileNeverReplacesWhatStandsThere)
{
    system.behaviour.renamingReplaces = true;
    system.addFile("/file", "new");
    system.addFile("/directory/file", "old");
    system.addLink("/dangling", "none");
    EXPECT_FALSE(system.fileMove("/file", "/directory"));
    EXPECT_FALSE(system.fileMoveAs("/file", "/dangling"));
    EXPECT_FALSE(system.fileMoveAs("/file", "/file"));
    EXPECT_EQ(system.bytesOf("/directory/file"), "old");
    EXPECT_EQ(system.bytesOf("/file"), "new");
}

TEST_F(Moving, AFileIsCopiedWhereItCannotBeRenamed)
{
    system.addFile("/file", "bytes", 0640);
    system.setModTime("/file", TarnisTest::timeAt(12'345));
    system.addDirectory("/volume");
    refuseRenaming("/file");
    EXPECT_EQ(system.fileMove("/file", "/volume"), "/volume/file");
    EXPECT_THAT(system.paths(), ElementsAre("/volume", "/volume/file"));
    EXPECT_EQ(system.bytesOf("/volume/file"), "bytes");
    EXPECT_EQ(system.at("/volume/file").permissions.raw(), 0640U);
    EXPECT_EQ(system.at("/volume/file").modTime, TarnisTest::timeAt(12'345));
}

TEST_F(Moving, ALinkIsMovedItself)
{
    system.addFile("/real", "bytes");
    system.addLink("/link", "/real");
    system.addDirectory("/volume");
    refuseRenaming("/link");
    EXPECT_TRUE(system.fileMoveAs("/link", "/volume/link"));
    EXPECT_EQ(system.bytesOf("/volume/link"), "/real");
    EXPECT_FALSE(system.has("/link"));
    EXPECT_TRUE(system.has("/real"));
}

TEST_F(Moving, AFileThatCannotBeRemovedStaysWhereItWas)
{
    system.addFile("/file", "bytes");
    system.addDirectory("/volume");
    refuseRenaming("/file");
    system.behaviour.refusesToRemove = {"/file"};
    EXPECT_FALSE(system.fileMove("/file", "/volume"));
    EXPECT_THAT(system.paths(), ElementsAre("/file", "/volume"));
}

TEST_F(Moving, AFileWhoseRemovalIsDoneButReportedAsFailedIsMoved)
{
    system.addFile("/file", "bytes");
    system.addDirectory("/volume");
    refuseRenaming("/file");
    system.behaviour.deniesItsDoing = {"/file"};
    EXPECT_TRUE(system.fileMoveAs("/file", "/volume/file"));
    EXPECT_THAT(system.paths(), ElementsAre("/volume", "/volume/file"));
    EXPECT_EQ(system.bytesOf("/volume/file"), "bytes");
}

TEST_F(Moving, AFileThatChangesWhileItIsCopiedStaysWhereItWas)
{
    system.addFile("/file", "bytes");
    system.addDirectory("/volume");
    system.behaviour.refusesRename = [this](const std::string& from, const std::string& to) {
        if (to == "/volume/file" && from != "/file") {
            system.addFile("/file", "bytes and more");
        }
        return from == "/file";
    };
    EXPECT_FALSE(system.fileMoveAs("/file", "/volume/file"));
    EXPECT_THAT(system.paths(), ElementsAre("/file", "/volume"));
    EXPECT_EQ(system.bytesOf("/file"), "bytes and more");
}

TEST_F(MovingAChangingFile, KeepsAVersionOfTheSameSize)
{
    expectKept([this] { system.addFile("/file", "other"); });
    EXPECT_EQ(system.bytesOf("/file"), "other");
}

TEST_F(MovingAChangingFile, KeepsAVersionOfTheSameTime)
{
    expectKept([this] {
        system.addFile("/file", "bytes and more");
        system.setModTime("/file", copiedTime);
    });
    EXPECT_EQ(system.bytesOf("/file"), "bytes and more");
}

TEST_F(MovingAChangingFile, KeepsALinkOfTheSameSizeAndTime)
{
    expectKept([this] {
        system.addLink("/file", "other");
        system.setModTime("/file", copiedTime);
    });
    EXPECT_EQ(system.bytesOf("/file"), "other");
}

TEST_F(Moving, AFileFailsForADirectoryForNothingAndToNowhere)
{
    system.addDirectory("/directory");
    system.addFile("/file", "bytes");
    EXPECT_FALSE(system.fileMove("/directory", "/"));
    EXPECT_FALSE(system.fileMoveAs("/directory", "/new"));
    EXPECT_FALSE(system.fileMoveAs("/none", "/new"));
    EXPECT_FALSE(system.fileMoveAs("/file", "/none/file"));
    EXPECT_FALSE(system.fileMove("/", "/directory"));
    EXPECT_THAT(system.paths(), ElementsAre("/directory", "/file"));
}

TEST_F(Moving, ADirectoryKeepsItsNameAndContent)
{
    system.addFile("/a/b/file", "bytes");
    system.addDirectory("/directory");
    EXPECT_EQ(system.directoryMove("/a/b", "/directory"), "/directory/b");
    EXPECT_THAT(system.paths(),
                ElementsAre("/a", "/directory", "/directory/b", "/directory/b/file"));
}

TEST_F(Moving, ADirectoryThatIsSetAsideButReportedAsNotIsMoved)
{
    system.addFile("/tree/file", "bytes");
    system.addDirectory("/volume");
    system.behaviour.refusesRename = [](const std::string& from, const std::string& to) {
        return from == "/tree" && to == "/volume/moved";
    };
    system.behaviour.deniesItsDoing = {"/tree"};
    EXPECT_TRUE(system.directoryMoveAs("/tree", "/volume/moved"));
    EXPECT_THAT(system.paths(), ElementsAre("/volume", "/volume/moved", "/volume/moved/file"));
    EXPECT_EQ(system.bytesOf("/volume/moved/file"), "bytes");
}

TEST_F(Moving, ADirectoryIsCopiedWhereItCannotBeRenamed)
{
    system.addFile("/tree/deep/file", "bytes", 0600);
    system.addLink("/tree/link", "deep");
    system.setModTime("/tree/deep", TarnisTest::timeAt(1'000));
    system.setModTime("/tree", TarnisTest::timeAt(2'000));
    system.addDirectory("/volume");
    refuseRenaming("/tree");
    EXPECT_TRUE(system.directoryMoveAs("/tree", "/volume/moved"));
    EXPECT_THAT(system.paths(), ElementsAre("/volume", "/volume/moved", "/volume/moved/deep",
                                            "/volume/moved/deep/file", "/volume/moved/link"));
    EXPECT_EQ(system.bytesOf("/volume/moved/deep/file"), "bytes");
    EXPECT_EQ(system.bytesOf("/volume/moved/link"), "deep");
    EXPECT_EQ(system.at("/volume/moved/deep").modTime, TarnisTest::timeAt(1'000));
    EXPECT_EQ(system.at("/volume/moved").modTime, TarnisTest::timeAt(2'000));
}

TEST_F(Moving, ADirectoryThatCannotBeCopiedLeavesNothingAtTheTarget)
{
    system.addFile("/tree/a", "bytes");
    system.addFile("/tree/b", "bytes");
    system.addDirectory("/volume");
    system.behaviour.refusesRename = [](const std::string& from, const std::string& to) {
        return from == "/tree" || to == "/volume/tree/b";
    };
    EXPECT_FALSE(system.directoryMove("/tree", "/volume"));
    EXPECT_THAT(system.paths(), ElementsAre("/tree", "/tree/a", "/tree/b", "/volume"));
}

TEST_F(Moving, ADirectoryKeepsWhatCameIntoItWhileItWasCopied)
{
    system.addFile("/tree/early", "bytes");
    system.addDirectory("/volume");
    refuseRenaming("/tree");
    system.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "open" && path == "/tree/early") {
            system.addFile("/tree/late", "bytes");
        }
    };
    EXPECT_FALSE(system.directoryMove("/tree", "/volume"));
    EXPECT_TRUE(system.has("/tree/late"));
    EXPECT_TRUE(system.has("/volume/tree/early"));
}

TEST_F(Moving, ADirectoryKeepsAFileThatChangesAfterItWasCopied)
{
    system.addFile("/tree/changed", "bytes");
    system.addFile("/tree/copied", "bytes");
    system.addDirectory("/volume");
    system.behaviour.refusesRename = [this](const std::string& from, const std::string& to) {
        if (to == "/volume/tree/copied") {
            system.addFile("/tree/changed", "bytes and more");
        }
        return from == "/tree" && to == "/volume/tree";
    };
    EXPECT_FALSE(system.directoryMove("/tree", "/volume"));
    EXPECT_EQ(system.bytesOf("/tree/changed"), "bytes and more");
    EXPECT_EQ(system.bytesOf("/volume/tree/changed"), "bytes");
    EXPECT_EQ(system.bytesOf("/volume/tree/copied"), "bytes");
}

TEST_F(Moving, ADirectoryKeepsAFileThatChangesWhileAnotherOneIsRemoved)
{
    system.addFile("/tree/copied", "bytes");
    system.addFile("/tree/other", "bytes");
    system.addDirectory("/volume");
    refuseRenaming("/tree");
    system.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "remove" && system.pathFileName(path) == "copied") {
            system.addFile(system.pathChildId(system.pathParentId(path), {"other"}), "another's");
        }
    };
    EXPECT_FALSE(system.directoryMove("/tree", "/volume"));
    EXPECT_EQ(system.bytesOf("/tree/other"), "another's");
    EXPECT_EQ(system.bytesOf("/volume/tree/copied"), "bytes");
}

TEST_F(Moving, ADirectoryThatMayNotLeaveItsPlaceStaysWhole)
{
    system.addFile("/tree/file", "bytes");
    system.addDirectory("/volume");
    system.behaviour.refusesRename = [](const std::string& from, const std::string&) {
        return from == "/tree";
    };
    EXPECT_FALSE(system.directoryMove("/tree", "/volume"));
    EXPECT_THAT(system.paths(), ElementsAre("/tree", "/tree/file", "/volume"));
}

TEST_F(Moving, ADirectoryOnItsWayOutIsHiddenBesideItsPlace)
{
    system.addFile("/tree/file", "bytes");
    system.addDirectory("/volume");
    refuseRenaming("/tree");
    EXPECT_TRUE(system.directoryMove("/tree", "/volume"));
    EXPECT_THAT(system.calls(),
                Contains(testing::MatchesRegex("remove /\\.tree\\.[0-9a-f]+\\.tarnis-old/file")));
}

TEST_F(Moving, ADirectoryNeverReplacesNorLeadsIntoItself)
{
    system.behaviour.renamingReplaces = true;
    system.addFile("/tree/file", "new");
    system.addDirectory("/other/tree");
    system.addFile("/occupied", "old");
    EXPECT_FALSE(system.directoryMove("/tree", "/other"));
    EXPECT_FALSE(system.directoryMoveAs("/tree", "/occupied"));
    EXPECT_FALSE(system.directoryMoveAs("/tree", "/tree/below"));
    EXPECT_FALSE(system.directoryMoveAs("/tree", "/none/tree"));
    EXPECT_FALSE(system.directoryMoveAs("/occupied", "/new"));
    EXPECT_FALSE(system.directoryMoveAs("/none", "/new"));
    EXPECT_FALSE(system.directoryMove("/", "/other"));
    EXPECT_THAT(system.paths(),
                ElementsAre("/occupied", "/other", "/other/tree", "/tree", "/tree/file"));
}

TEST_F(Moving, ADirectoryToNowhereIsNotReadFirst)
{
    system.addFile("/tree/file", "bytes");
    EXPECT_FALSE(system.directoryMoveAs("/tree", "/none/tree"));
    EXPECT_THAT(system.calls(), Not(Contains("list /tree")));
}

TEST_F(Linking, ByDirectoryAndNameTakesTheTargetAsItIs)
{
    system.addDirectory("/a");
    EXPECT_EQ(system.fileSymbolicLinkCreate("/a", "link", "../no where", true), "/a/link");
    EXPECT_EQ(system.directorySymbolicLinkCreate("/a", "link2", "/", true), "/a/link2");
    EXPECT_EQ(system.bytesOf("/a/link"), "../no where");
    EXPECT_EQ(system.bytesOf("/a/link2"), "/");
}

TEST_F(Linking, FailsWhereALinkIsProtected)
{
    system.addDirectory("/real");
    system.addLink("/toDirectory", "real");
    system.addLink("/dangling", "none");
    EXPECT_FALSE(system.fileSymbolicLinkCreate("/", "dangling", "real", true));
    EXPECT_FALSE(system.directorySymbolicLinkCreate("/", "toDirectory", "/", true));
    EXPECT_TRUE(system.directorySymbolicLinkCreate("/", "dangling", "real", true));
    EXPECT_EQ(system.bytesOf("/dangling"), "real");
    EXPECT_EQ(system.bytesOf("/toDirectory"), "real");
}

TEST_F(Linking, NeedsANameThatIsOneComponent)
{
    system.addDirectory("/a/b");
    for (const auto& name : unsafeNames) {
        EXPECT_FALSE(system.fileSymbolicLinkCreate("/a", name, "text", false)) << name;
        EXPECT_FALSE(system.directorySymbolicLinkCreate("/a", name, "text", false)) << name;
    }
    EXPECT_THAT(system.paths(), ElementsAre("/a", "/a/b"));
}

TEST_F(Linking, FailsWhenTheLinkCannotBeMade)
{
    system.behaviour.refusesLinks = true;
    EXPECT_FALSE(system.fileSymbolicLinkCreate("/", "link", "text", false));
    EXPECT_FALSE(system.directorySymbolicLinkCreate("/", "link", "text", false));
}
