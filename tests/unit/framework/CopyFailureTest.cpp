// What Failure::last() says when a copy, a move or a removal of a tree fails.

#include "framework/ExpectFailure.h"
#include "framework/ScriptedFileSystem.h"
#include "support/TemporaryDirectory.h"
#include "support/UnprivilegedUser.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FailureScope.h>
#include <FileSystem/LocalFileSystem.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using FileSystem::Failure;
using FileSystem::FailureCode;
using TarnisTest::expectFailure;
using TarnisTest::ScriptedFileSystem;
using TarnisTest::TemporaryDirectory;
using testing::HasSubstr;
using Option = FileSystem::StorageSystemCopyOptionFlag;
using Type = FileSystem::StorageSystemFileTypeFlag;

namespace {

constexpr auto recursive = Option::Recursive;

bool stop(std::uint64_t /*done*/, std::uint64_t /*total*/)
{
    return false;
}

bool stopAfterTheFirstByte(std::uint64_t done, std::uint64_t /*total*/)
{
    return done == 0;
}

/// Cannot read "/tree/it".
class UnreadableFileSystem final : public ScriptedFileSystem
{
public:
    UnreadableFileSystem()
    {
        behaviour.readsDirectory = [this](const std::string& path) {
            if (path == "/tree/it") {
                FileSystem::fail(FailureCode::Denied);
                return std::optional<std::vector<FileSystem::StorageSystemFileInfo>>();
            }
            return std::make_optional(directoryFileInfoList(path));
        };
    }
};

class CopyFailure : public testing::Test
{
protected:
    CopyFailure()
    {
        source.addFile("/file", "bytes");
        source.addFile("/tree/sub/file", "bytes");
        source.addPipe("/pipe");
        target.addDirectory("/there");
    }

    bool copy(const std::string& path, const std::string& targetPath,
              Utilities::Flags<Option> options = {})
    {
        return source.fileCopyAs(path, target, targetPath, {}, options);
    }

    ScriptedFileSystem source;
    ScriptedFileSystem target;
};

TEST_F(CopyFailure, NamesOperationAndPaths)
{
    EXPECT_FALSE(copy("/pipe", "/there/pipe"));
    const auto failure = Failure::last();
    EXPECT_EQ(failure.operation(), "fileCopyAs");
    EXPECT_EQ(failure.path(), "/pipe");
    EXPECT_EQ(failure.otherPath(), "/there/pipe");
    expectFailure(FailureCode::NotCopyable, "/pipe");
}

TEST_F(CopyFailure, OfASourceSaysWhatIsWrongWithIt)
{
    source.addBlockDevice("/device");
    EXPECT_FALSE(copy("/none", "/there/file"));
    expectFailure(FailureCode::NotFound, "/none");
    EXPECT_FALSE(copy("/tree", "/there/tree"));
    expectFailure(FailureCode::IsDirectory, "/tree");
    EXPECT_FALSE(copy("/device", "/there/device"));
    expectFailure(FailureCode::NotCopyable, "/device");
}

TEST_F(CopyFailure, OfATargetSaysWhatIsWrongWithIt)
{
    target.addFile("/there/file", "old");
    EXPECT_FALSE(copy("/file", "/there"));
    expectFailure(FailureCode::IsDirectory, "/there");
    EXPECT_FALSE(copy("/file", "/there/file", Option::FailIfExists));
    expectFailure(FailureCode::Exists, "/there/file");
    EXPECT_FALSE(copy("/file", "/there/.."));
    EXPECT_EQ(Failure::last().code(), FailureCode::BadName);
    EXPECT_FALSE(copy("/file", "/none/file"));
    EXPECT_EQ(Failure::last().code(), FailureCode::NotFound);
    EXPECT_FALSE(copy("/tree", "/there/file", recursive));
    expectFailure(FailureCode::NotDirectory, "/there/file");
    EXPECT_FALSE(copy("/tree", "/there", recursive | Option::FailIfExists));
    expectFailure(FailureCode::Exists, "/there");
    target.addDirectory("/closed", 0500);
    EXPECT_FALSE(copy("/tree", "/closed", recursive));
    expectFailure(FailureCode::Denied, "/closed/sub");
}

TEST_F(CopyFailure, OfWhatAppearsMeanwhileIsExists)
{
    const auto makesFile = [this](std::uint64_t done, std::uint64_t) {
        if (done > 0) {
            target.addFile("/there/file", "another's");
        }
        return true;
    };
    EXPECT_FALSE(
        source.fileCopyAs("/file", target, "/there/file", makesFile, Option::FailIfExists));
    expectFailure(FailureCode::Exists, "/there/file");
}

TEST_F(CopyFailure, OfAStopIsCancelled)
{
    EXPECT_FALSE(source.fileCopyAs("/file", target, "/there/file", stop));
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    EXPECT_FALSE(source.fileCopyAs("/tree", target, "/there/tree", stop, recursive));
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    source.addLink("/link", "file");
    EXPECT_FALSE(source.fileCopyAs("/link", target, "/there/link", stop));
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
}

// What the progress function asks are operations of its own.
TEST_F(CopyFailure, OfTheCopyIsNotSeenByItsProgressFunctionNorTheOtherWayRound)
{
    source.addDirectory("/empty");
    int calls = 0;
    const auto asks = [&](std::uint64_t, std::uint64_t) {
        ++calls;
        EXPECT_FALSE(Failure::last()) << Failure::last().message();
        EXPECT_TRUE(source.directoryList("/empty").empty());
        EXPECT_FALSE(Failure::last()) << Failure::last().message();
        EXPECT_FALSE(source.fileExists("/none"));
        EXPECT_FALSE(source.fileInfo("/none"));
        EXPECT_EQ(Failure::last().operation(), "fileInfo");
        EXPECT_EQ(Failure::last().path(), "/none");
        EXPECT_EQ(Failure::last().code(), FailureCode::NotFound);
        return true;
    };
    EXPECT_TRUE(source.fileCopyAs("/file", target, "/there/file", asks, {}, 2));
    EXPECT_FALSE(Failure::last());
    EXPECT_GT(calls, 2);
    target.behaviour.unwritableFrom = 1;
    EXPECT_FALSE(source.fileCopyAs("/file", target, "/there/other", asks));
    EXPECT_EQ(Failure::last().operation(), "fileCopyAs");
    EXPECT_NE(Failure::last().code(), FailureCode::NotFound);
    const auto file = source.fileOpen("/file", FileSystem::StorageSystemFileOpenModeFlag::Read);
    target.behaviour.unwritableFrom = std::numeric_limits<std::uint64_t>::max();
    const auto copied = target.fileCreateAs("/there/third", true, false);
    EXPECT_TRUE(file->copy(*copied, asks));
}

TEST_F(CopyFailure, IsThatOfTheCopyWhenItsProgressFunctionThrows)
{
    const auto throws = [&](std::uint64_t, std::uint64_t) -> bool {
        EXPECT_FALSE(source.fileInfo("/none"));
        throw std::runtime_error("enough");
    };
    EXPECT_THROW(static_cast<void>(source.fileCopyAs("/file", target, "/there/file", throws)),
                 std::runtime_error);
    EXPECT_EQ(Failure::last().operation(), "fileCopyAs");
    EXPECT_NE(Failure::last().entry(), "/none");
}

TEST_F(CopyFailure, IsNotThatOfTheCleaningUp)
{
    target.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "remove") {
            target.behaviour.refusesToRemove = {path};
        }
    };
    EXPECT_FALSE(source.fileCopyAs("/file", target, "/there/file", stopAfterTheFirstByte));
    EXPECT_FALSE(target.behaviour.refusesToRemove.empty());
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
}

TEST_F(CopyFailure, OfASourceThatEndsBeforeItsSizeIsChanged)
{
    source.behaviour.seemsToEndAt = 3;
    EXPECT_FALSE(copy("/file", "/there/file"));
    expectFailure(FailureCode::Changed, "/file");
}

TEST_F(CopyFailure, OfATargetThatLosesBytesIsChanged)
{
    target.behaviour.keptOnClosing = 3;
    EXPECT_FALSE(copy("/file", "/there/file"));
    EXPECT_EQ(Failure::last().code(), FailureCode::Changed);
    EXPECT_THAT(Failure::last().entry(), HasSubstr("/there/.file."));
}

TEST_F(CopyFailure, OfALinkWithoutLinksIsUnsupported)
{
    source.addLink("/tree/sub/link", "file");
    const TarnisTest::ScriptedFileSystemWithoutLinks plain;
    EXPECT_FALSE(source.fileCopyAs("/tree/sub/link", plain, "/link"));
    expectFailure(FailureCode::Unsupported, "/tree/sub/link");
    EXPECT_FALSE(source.fileCopyAs("/tree", plain, "/copy", {}, recursive));
    expectFailure(FailureCode::Unsupported, "/tree/sub/link");
}

TEST_F(CopyFailure, OfATreeNamesTheEntry)
{
    source.addPipe("/tree/sub/pipe");
    EXPECT_FALSE(copy("/tree", "/there/tree", recursive));
    expectFailure(FailureCode::NotCopyable, "/tree/sub/pipe");
}

TEST_F(CopyFailure, OfATreeTellsADeviceFromADirectoryThatCannotBeRead)
{
    for (const bool isDevice : {true, false}) {
        UnreadableFileSystem unreadable;
        unreadable.addFile("/tree/file", "bytes");
        isDevice ? unreadable.addBlockDevice("/tree/it") : unreadable.addDirectory("/tree/it");
        EXPECT_FALSE(unreadable.fileCopyAs("/tree", target, "/there/tree", {}, recursive));
        expectFailure(isDevice ? FailureCode::NotCopyable : FailureCode::Denied, "/tree/it");
    }
}

TEST_F(CopyFailure, OfANameThatLeadsElsewhereIsBadName)
{
    source.behaviour.inventedEntries["/tree/sub"] = {{"../file", Type::Regular}};
    EXPECT_FALSE(copy("/tree", "/there/tree", recursive));
    expectFailure(FailureCode::BadName, "/tree/sub/../file");
    EXPECT_FALSE(source.directoryRemove("/tree", true));
    expectFailure(FailureCode::BadName, "/tree/sub/../file");
}

TEST_F(CopyFailure, OfATreeIntoItselfSaysSo)
{
    EXPECT_FALSE(source.fileCopyAs("/tree", source, "/tree/sub/new", {}, recursive));
    expectFailure(FailureCode::IntoItself, "/tree/sub/new");
}

TEST_F(CopyFailure, OfAnEndlessTreeIsTooDeep)
{
    TarnisTest::EndlessFileSystem endless;
    EXPECT_FALSE(endless.fileCopyAs("/tree", target, "/there/tree", {}, recursive));
    EXPECT_EQ(Failure::last().code(), FailureCode::TooDeep);
    EXPECT_THAT(Failure::last().entry(), HasSubstr("/tree/d/d/d"));
}

TEST_F(CopyFailure, OfADirectoryThatHasBecomeALinkIsChanged)
{
    source.addDirectory("/outside");
    int lists = 0;
    source.behaviour.onCall = [&](const std::string& operation, const std::string& path) {
        // The first list is for the total.
        if (operation == "list" && path == "/tree/sub" && ++lists == 2) {
            source.addLink("/tree/sub", "/outside");
        }
    };
    EXPECT_FALSE(copy("/tree", "/there/tree", recursive));
    expectFailure(FailureCode::Changed, "/tree/sub");
}

TEST_F(CopyFailure, OfAMoveWhoseOriginalHasChangedSaysSo)
{
    // Not renamed, so it is copied.
    source.addDirectory("/there");
    source.behaviour.refusesRename = [](const std::string& from, const std::string& to) {
        return from == "/file" && to == "/there/file";
    };
    source.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "rename" && path != "/file") {
            source.setModTime("/file", TarnisTest::timeAt(1));
        }
    };
    EXPECT_FALSE(source.fileMoveAs("/file", "/there/file"));
    expectFailure(FailureCode::Changed, "/file");
    EXPECT_FALSE(source.has("/there/file"));
}

/// The same on this machine.
class LocalCopyFailure : public testing::Test
{
protected:
    LocalCopyFailure()
    {
        directory_.write("file", "bytes");
        directory_.makeDirectory("tree");
        EXPECT_EQ(::mkfifo(path("tree/pipe").c_str(), 0600), 0);
    }

    std::string path(const std::string& name) const { return directory_.file(name); }

    bool copy(const std::string& name, const std::string& targetName,
              Utilities::Flags<Option> options = {},
              const FileSystem::StorageSystemProgress& progress = {}) const
    {
        return system.fileCopyAs(path(name), system, path(targetName), progress, options);
    }

    const FileSystem::LocalFileSystem system;

private:
    const TarnisTest::UnprivilegedUser user_;
    const TemporaryDirectory directory_;
};

TEST_F(LocalCopyFailure, HasACodeAndTheEntry)
{
    EXPECT_FALSE(copy("file", "tree/pipe"));
    expectFailure(FailureCode::NotCopyable, path("tree/pipe"));
    EXPECT_FALSE(copy("tree/pipe", "new"));
    expectFailure(FailureCode::NotCopyable, path("tree/pipe"));
    EXPECT_FALSE(copy("tree", "new", recursive));
    expectFailure(FailureCode::NotCopyable, path("tree/pipe"));
    EXPECT_FALSE(copy("file", "tree"));
    expectFailure(FailureCode::IsDirectory, path("tree"));
    EXPECT_FALSE(copy("tree", "new"));
    expectFailure(FailureCode::IsDirectory, path("tree"));
    EXPECT_FALSE(copy("file", "file", Option::FailIfExists));
    expectFailure(FailureCode::Exists, path("file"));
    EXPECT_FALSE(copy("tree", "tree/new", recursive));
    expectFailure(FailureCode::IntoItself, path("tree/new"));
    EXPECT_FALSE(copy("none", "new"));
    expectFailure(FailureCode::NotFound, path("none"));
    EXPECT_FALSE(copy("file", "none/new"));
    EXPECT_EQ(Failure::last().code(), FailureCode::NotFound);
    EXPECT_FALSE(copy("file", "new", {}, stop));
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    EXPECT_FALSE(system.fileExists(path("new")));
}

TEST_F(LocalCopyFailure, InADirectoryThatMayNotBeWrittenSaysWhatWouldHelp)
{
    if (::geteuid() == 0) {
        GTEST_SKIP() << "the superuser may do what permissions forbid";
    }
    ASSERT_TRUE(copy("file", "tree/target"));
    ASSERT_TRUE(system.fileRemove(path("tree/pipe")));
    ASSERT_EQ(::chmod(path("tree").c_str(), 0555), 0);
    EXPECT_FALSE(copy("file", "tree/target"));
    expectFailure(FailureCode::OnlyInPlace, path("tree/target"));
    EXPECT_THAT(Failure::last().cause(), HasSubstr("Permission denied"));
    EXPECT_TRUE(copy("file", "tree/target", Option::InPlace)) << Failure::last().message();
    ASSERT_EQ(::chmod(path("tree").c_str(), 0755), 0);
}

TEST_F(CopyFailure, TellsOfAHiddenFileThatCannotBeRemoved)
{
    target.behaviour.onCall = [this](const std::string&, const std::string& path) {
        if (path.find(".tarnis-part") != std::string::npos) {
            target.behaviour.refusesToRemove.insert(path);
        }
    };
    EXPECT_FALSE(source.fileCopyAs("/file", target, "/there/copy", stopAfterTheFirstByte));
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    ASSERT_EQ(target.paths().size(), 2U);
    EXPECT_EQ(Failure::last().text(), target.paths().back() + " cannot be removed and is left");
}

} // namespace
