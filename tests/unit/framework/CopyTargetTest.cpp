// What a copy and a replacement do with what stands at their target.

#include "framework/ExpectFailure.h"
#include "framework/ScriptedFileSystem.h"

#include <FileSystem/Failure.h>
#include <FileSystem/FailureScope.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using FileSystem::fail;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FailureSource;
using TarnisTest::expectFailure;
using TarnisTest::ScriptedFileSystem;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;
using Option = FileSystem::StorageSystemCopyOptionFlag;

namespace {

class CopyTarget : public testing::Test
{
protected:
    CopyTarget()
    {
        source.addFile("/tree/file", "new");
        target.addPipe("/pipe");
        target.addSocket("/socket");
        target.addBlockDevice("/device");
        target.addDirectory("/directory");
    }

    bool copyTo(const std::string& path, Utilities::Flags<Option> options = {})
    {
        return source.fileCopyAs("/tree/file", target, path, {}, options);
    }

    ScriptedFileSystem source;
    ScriptedFileSystem target;
};

TEST_F(CopyTarget, ThatIsAPipeASocketOrADeviceIsRefusedBeforeAnythingIsRead)
{
    const auto before = target.paths();
    target.behaviour.renamingReplaces = true;
    target.behaviour.renamingReplacesDirectories = true;
    for (const auto* path : {"/pipe", "/socket", "/device"}) {
        EXPECT_FALSE(copyTo(path)) << path;
        expectFailure(FailureCode::NotCopyable, path);
        EXPECT_FALSE(copyTo(path, Option::InPlace)) << path;
        expectFailure(FailureCode::NotCopyable, path);
    }
    EXPECT_THAT(source.calls(), Not(Contains(StartsWith("open"))));
    EXPECT_EQ(target.paths(), before);
}

TEST_F(CopyTarget, ThatIsADirectoryIsToldFromADevice)
{
    EXPECT_FALSE(copyTo("/directory"));
    expectFailure(FailureCode::IsDirectory, "/directory");
}

TEST_F(CopyTarget, OfALinkIsNoPipeEither)
{
    source.addLink("/link", "file");
    EXPECT_FALSE(source.fileCopyAs("/link", target, "/pipe"));
    expectFailure(FailureCode::NotCopyable, "/pipe");
    EXPECT_TRUE(target.has("/pipe"));
}

TEST_F(CopyTarget, InATreeIsRefusedToo)
{
    for (const int others : {0, 10}) {
        for (int number = 0; number < others; ++number) {
            source.addFile("/tree/other" + std::to_string(number), "");
        }
        for (const auto* kind : {"pipe", "socket", "device"}) {
            ScriptedFileSystem there;
            kind == std::string("pipe")     ? there.addPipe("/copy/file")
            : kind == std::string("socket") ? there.addSocket("/copy/file")
                                            : there.addBlockDevice("/copy/file");
            there.behaviour.renamingReplaces = true;
            EXPECT_FALSE(source.fileCopyAs("/tree", there, "/copy", {}, Option::Recursive));
            expectFailure(FailureCode::NotCopyable, "/copy/file");
        }
    }
}

TEST_F(CopyTarget, InATreeIsAskedForWhereAListingDoesNotTellWhatItIs)
{
    for (int number = 0; number < 10; ++number) {
        source.addFile("/tree/other" + std::to_string(number), "");
    }
    target.addFile("/copy/file", "old");
    target.addPipe("/copy/other3");
    target.behaviour.listsWithoutTypes = true;
    EXPECT_FALSE(source.fileCopyAs("/tree", target, "/copy", {}, Option::Recursive));
    expectFailure(FailureCode::NotCopyable, "/copy/other3");
    EXPECT_EQ(target.bytesOf("/copy/file"), "new");
}

TEST_F(CopyTarget, InATreeIsAskedForWhereAListingLeavesItOut)
{
    for (int number = 0; number < 10; ++number) {
        source.addFile("/tree/other" + std::to_string(number), "");
    }
    source.addFile("/tree/.env", "new", 0644);
    target.addFile("/copy/.env", "old", 0600);
    target.behaviour.listsNoDotNames = true;
    EXPECT_TRUE(source.fileCopyAs("/tree", target, "/copy", {}, Option::Recursive));
    EXPECT_EQ(target.bytesOf("/copy/.env"), "new");
    EXPECT_EQ(target.at("/copy/.env").permissions.raw(), 0600U);
    ASSERT_TRUE(target.fileRemove("/copy/.env"));
    target.addPipe("/copy/.env");
    EXPECT_FALSE(source.fileCopyAs("/tree", target, "/copy", {}, Option::Recursive));
    expectFailure(FailureCode::NotCopyable, "/copy/.env");
    EXPECT_TRUE(target.has("/copy/.env"));
}

TEST_F(CopyTarget, OfADirectoryIsNoDevice)
{
    source.addDirectory("/empty");
    EXPECT_FALSE(source.fileCopyAs("/empty", target, "/device", {}, Option::Recursive));
    expectFailure(FailureCode::NotCopyable, "/device");
}

TEST_F(CopyTarget, ThatIsADirectoryIsNotReplacedWhereRenamingWouldDoIt)
{
    target.behaviour.renamingReplaces = true;
    target.behaviour.renamingReplacesDirectories = true;
    const auto makesDirectory = [this](std::uint64_t done, std::uint64_t) {
        if (done > 0) {
            target.addFile("/new/below", "stays");
        }
        return true;
    };
    EXPECT_FALSE(source.fileCopyAs("/tree/file", target, "/new", makesDirectory));
    expectFailure(FailureCode::IsDirectory, "/new");
    EXPECT_EQ(target.bytesOf("/new/below"), "stays");
}

TEST_F(CopyTarget, InADirectoryThatMayNotBeWrittenSaysWhatIsMissing)
{
    target.addFile("/closed/file", "old");
    target.addDirectory("/closed", 0555);
    EXPECT_FALSE(copyTo("/closed/file"));
    expectFailure(FailureCode::OnlyInPlace, "/closed/file");
    EXPECT_FALSE(copyTo("/closed/new"));
    EXPECT_EQ(Failure::last().code(), FailureCode::Denied);
}

TEST_F(CopyTarget, CanBeWrittenInPlaceInADirectoryThatMayNot)
{
    target.addFile("/closed/file", "old and longer than the new one", 0604);
    target.addFile("/closed/short", "", 0604);
    target.addDirectory("/closed", 0555);
    for (const auto* path : {"/closed/file", "/closed/short"}) {
        EXPECT_TRUE(copyTo(path, Option::InPlace)) << Failure::last().message();
        EXPECT_EQ(target.bytesOf(path), "new");
        EXPECT_EQ(target.at(path).permissions.raw(), 0604U);
    }
    source.setModTime("/tree/file", TarnisTest::timeAt(7));
    EXPECT_TRUE(copyTo("/closed/file",
                       Option::InPlace | Option::PreservePermissions | Option::PreserveModTime));
    EXPECT_EQ(target.at("/closed/file").permissions.raw(), 0644U);
    EXPECT_EQ(target.at("/closed/file").modTime, TarnisTest::timeAt(7));
}

TEST_F(CopyTarget, ThatIsNewIsMadeInPlaceAndRemovedWhereItDoesNotBecomeWhole)
{
    target.behaviour.refusesRename = [](const std::string&, const std::string&) { return true; };
    EXPECT_TRUE(copyTo("/directory/new", Option::InPlace));
    EXPECT_EQ(target.bytesOf("/directory/new"), "new");
    EXPECT_FALSE(copyTo("/directory/new", Option::InPlace | Option::FailIfExists));
    expectFailure(FailureCode::Exists, "/directory/new");
    ASSERT_TRUE(target.fileRemove("/directory/new"));
    target.behaviour.unwritableFrom = 1;
    EXPECT_FALSE(copyTo("/directory/new", Option::InPlace));
    EXPECT_FALSE(target.has("/directory/new"));
}

/// Makes an empty file of each that is to be created with this in its path, and refuses it then.
void refuseWhatIsMade(ScriptedFileSystem& system, const std::string& part)
{
    system.behaviour.onCall = [&system, part](const std::string& operation,
                                              const std::string& path) {
        if (operation == "open" && path.find(part) != std::string::npos) {
            system.addFile(path, "");
            fail(FailureCode::Other, FailureSource::Server, 4, "Failure");
        }
    };
}

TEST_F(CopyTarget, ThatIsMadeUnderAHiddenNameAndNotHandedOutIsRemoved)
{
    refuseWhatIsMade(target, ".tarnis-part");
    EXPECT_FALSE(copyTo("/directory/new"));
    EXPECT_THAT(target.paths(), ElementsAre("/device", "/directory", "/pipe", "/socket"));
}

TEST_F(CopyTarget, ThatAppearsAsItIsToBeMadeInPlaceStays)
{
    refuseWhatIsMade(target, "/new");
    EXPECT_FALSE(copyTo("/directory/new", Option::InPlace));
    EXPECT_TRUE(target.has("/directory/new"));
}

TEST_F(CopyTarget, ThatIsALinkIsNotWrittenThroughInPlace)
{
    target.addFile("/kept", "stays");
    target.addLink("/link", "/kept");
    EXPECT_TRUE(copyTo("/link", Option::InPlace));
    EXPECT_EQ(target.bytesOf("/link"), "new");
    EXPECT_EQ(target.bytesOf("/kept"), "stays");
}

TEST_F(CopyTarget, ThatIsTheSourceItselfIsNotWrittenInPlace)
{
    source.addLink("/way", "/tree");
    for (const bool emptiesOnOpening : {false, true}) {
        source.behaviour.emptiesOnOpening = emptiesOnOpening;
        for (const auto* path : {"/tree/file", "/tree/./file", "/way/file", "tree/file"}) {
            EXPECT_FALSE(source.fileCopyAs("/tree/file", source, path, {}, Option::InPlace));
            expectFailure(FailureCode::IntoItself, path);
            EXPECT_EQ(source.bytesOf("/tree/file"), "new");
        }
    }
}

TEST_F(CopyTarget, ThatMayBeAnotherNameOfTheSourceIsNotWrittenInPlace)
{
    source.addName("/other", "/tree/file");
    source.behaviour.emptiesOnOpening = true;
    EXPECT_FALSE(source.fileCopyAs("/tree/file", source, "/other", {}, Option::InPlace));
    expectFailure(FailureCode::IntoItself, "/other");
    EXPECT_EQ(source.bytesOf("/tree/file"), "new");
}

TEST_F(CopyTarget, ThatIsAnotherNameOfTheSourceLosesNothingInPlaceWhenItGrows)
{
    source.addName("/other", "/tree/file");
    const auto grows = [this](std::uint64_t, std::uint64_t total) {
        if (total > 0 && source.bytesOf("/tree/file") == "new") {
            const auto file =
                source.fileOpen("/tree/file", FileSystem::StorageSystemFileOpenModeFlag::Write);
            EXPECT_TRUE(file != nullptr && file->writeFully("newer", 5));
        }
        return true;
    };
    source.addDirectory("/copy");
    source.addName("/copy/file", "/tree/file");
    static_cast<void>(
        source.fileCopyAs("/tree", source, "/copy", grows, Option::Recursive | Option::InPlace));
    EXPECT_EQ(source.bytesOf("/tree/file"), "newer");
}

TEST_F(CopyTarget, ThatEmptiesTheSourceAsItIsOpenedIsAFailure)
{
    source.addFile("/other", "another");
    source.behaviour.emptiesOnOpening = true;
    source.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "open" && path == "/other") {
            source.addName("/other", "/tree/file");
        }
    };
    EXPECT_FALSE(source.fileCopyAs("/tree/file", source, "/other", {}, Option::InPlace));
    expectFailure(FailureCode::Changed, "/tree/file");
}

TEST_F(CopyTarget, OfASystemThatEmptiesOnOpeningIsWrittenInPlace)
{
    target.behaviour.emptiesOnOpening = true;
    target.addFile("/old", "old and longer than the new one");
    EXPECT_TRUE(copyTo("/old", Option::InPlace)) << Failure::last().message();
    EXPECT_EQ(target.bytesOf("/old"), "new");
}

TEST_F(CopyTarget, ThatIsWrittenInPlaceIsOpenOnceAtATime)
{
    target.addFile("/old", "old and longer than the new one");
    target.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        EXPECT_TRUE(operation != "open" || path != "/old" || target.openFiles() == 0);
    };
    EXPECT_TRUE(copyTo("/old", Option::InPlace)) << Failure::last().message();
    EXPECT_EQ(target.bytesOf("/old"), "new");
}

/// One that replaces in one step, as rename(2) does: of two names of one file both stay.
class ReplacingFileSystem final : public ScriptedFileSystem
{
public:
    ReplacingFileSystem()
    {
        behaviour.replaces = [this](const std::string& path, const std::string& newPath) {
            if (&at(path) == (has(newPath) ? &at(newPath) : nullptr)) {
                return true;
            }
            return (!has(newPath) || fileRemove(newPath)) && fileRenameAs(path, newPath);
        };
    }
};

// Where one step replaces whatever stands there.
TEST_F(CopyTarget, ThatBecomesAPipeMeanwhileIsNotReplaced)
{
    ReplacingFileSystem replacing;
    replacing.behaviour.onCall = [&](const std::string& operation, const std::string&) {
        if (operation.rfind("write", 0) == 0 || operation == "makeLink") {
            replacing.addPipe("/old");
        }
    };
    for (const auto* path : {"/tree/file", "/link"}) {
        source.addLink("/link", "/tree/file");
        replacing.addFile("/old", "old");
        EXPECT_FALSE(source.fileCopyAs(path, replacing, "/old"));
        expectFailure(FailureCode::NotCopyable, "/old");
        EXPECT_THAT(replacing.paths(), ElementsAre("/old"));
    }
}

TEST(Replacing, OneNameOfAFileByAnotherLeavesTheNewOne)
{
    ReplacingFileSystem replacing;
    ScriptedFileSystem renaming;
    ScriptedFileSystem inSteps;
    renaming.behaviour.renamingReplaces = true;
    renaming.behaviour.renamingKnowsNames = true;
    for (ScriptedFileSystem* const system :
         {static_cast<ScriptedFileSystem*>(&replacing), &renaming, &inSteps}) {
        system->addFile("/old", "bytes");
        system->addName("/new", "/old");
        EXPECT_TRUE(system->fileReplaceAs("/old", "/new"));
        EXPECT_THAT(system->paths(), ElementsAre("/new"));
        EXPECT_EQ(system->bytesOf("/new"), "bytes");
    }
}

/// One where another writer makes its next file at the old path at once, which nothing but its
/// bytes tells from the one before.
class BusyFileSystem final : public ScriptedFileSystem
{
public:
    BusyFileSystem()
    {
        behaviour.replaces = [this](const std::string& path, const std::string& newPath) {
            const auto time = at(path).modTime;
            static_cast<void>(!has(newPath) || fileRemove(newPath));
            static_cast<void>(fileRenameAs(path, newPath));
            addFile(path, "next");
            setModTime(path, time);
            return true;
        };
        addFile("/status.tmp", "this");
    }

    void expectBothKept()
    {
        EXPECT_TRUE(fileReplaceAs("/status.tmp", "/status"));
        EXPECT_EQ(bytesOf("/status"), "this");
        ASSERT_TRUE(has("/status.tmp"));
        EXPECT_EQ(bytesOf("/status.tmp"), "next");
    }
};

TEST(Replacing, LeavesAnotherWritersNextFileAlone)
{
    BusyFileSystem system;
    system.expectBothKept();
    BusyFileSystem withTarget;
    withTarget.addFile("/status", "last");
    withTarget.expectBothKept();
}

TEST(Replacing, OneNameOfAFileByAnotherKeepsWhatComesToTheOldOne)
{
    ReplacingFileSystem system;
    system.addFile("/old", "bytes");
    system.addName("/new", "/old");
    system.behaviour.onCall = [&system](const std::string& operation, const std::string& path) {
        if (operation == "rename" && path == "/old") {
            system.addFile("/old", "another's");
        }
    };
    EXPECT_TRUE(system.fileReplaceAs("/old", "/new"));
    EXPECT_THAT(system.paths(), ElementsAre("/new", "/old"));
    EXPECT_EQ(system.bytesOf("/old"), "another's");
}

TEST(Replacing, OneNameOfAFileByAnotherFailsWhereTheOldOneCannotGo)
{
    ReplacingFileSystem system;
    system.addFile("/old", "bytes");
    system.addName("/new", "/old");
    system.behaviour.refusesRename = [](const std::string&, const std::string&) { return true; };
    EXPECT_FALSE(system.fileReplaceAs("/old", "/new"));
    EXPECT_THAT(system.paths(), ElementsAre("/new", "/old"));
}

/// One that says why it cannot replace in one step.
class RefusingFileSystem final : public ScriptedFileSystem
{
public:
    explicit RefusingFileSystem(FailureCode code)
    {
        behaviour.replaces = [code](const std::string&, const std::string&) { return fail(code); };
        addFile("/file", "new");
        addFile("/target", "old");
    }
};

TEST(Replacing, TouchesNothingAfterARefusal)
{
    for (const auto code : {FailureCode::OtherVolume, FailureCode::Denied, FailureCode::NoSpace,
                            FailureCode::ConnectionLost}) {
        RefusingFileSystem system(code);
        EXPECT_FALSE(system.fileReplaceAs("/file", "/target"));
        EXPECT_EQ(Failure::last().code(), code);
        EXPECT_THAT(system.calls(), Not(Contains(StartsWith("rename"))));
    }
}

TEST(Replacing, GoesInStepsWhereOneStepCannotBe)
{
    for (const auto code : {FailureCode::Unsupported, FailureCode::Other}) {
        RefusingFileSystem system(code);
        EXPECT_TRUE(system.fileReplaceAs("/file", "/target"));
        EXPECT_EQ(system.bytesOf("/target"), "new");
        EXPECT_THAT(system.paths(), ElementsAre("/target"));
    }
}

TEST(Replacing, ByAFileThatMayNotLeaveItsPlaceTouchesNothing)
{
    ScriptedFileSystem system;
    system.addFile("/closed/file", "new");
    system.addDirectory("/closed", 0500);
    system.addFile("/target", "old");
    const auto before = system.paths();
    EXPECT_FALSE(system.fileReplaceAs("/closed/file", "/target"));
    EXPECT_THAT(system.calls(), Not(Contains("rename /target")));
    EXPECT_EQ(system.paths(), before);
}

TEST(Replacing, FromAnotherDirectoryTakesThePlaceOrIsBack)
{
    for (const bool isRefused : {false, true}) {
        ScriptedFileSystem system;
        system.addFile("/directory/file", "new");
        system.addFile("/target", "old");
        system.behaviour.refusesRename = [&](const std::string& from, const std::string& to) {
            return isRefused && to == "/target" && from != "/directory/file" &&
                   system.bytesOf(from) == "new";
        };
        EXPECT_EQ(system.fileReplaceAs("/directory/file", "/target"), !isRefused);
        EXPECT_EQ(system.bytesOf("/target"), isRefused ? "old" : "new");
        EXPECT_EQ(system.has("/directory/file"), isRefused);
        EXPECT_EQ(system.paths().size(), isRefused ? 3U : 2U);
    }
}

TEST(Replacing, ThatIsDoneAndReportedAsFailedIsDone)
{
    ScriptedFileSystem system;
    system.addFile("/file", "new");
    system.addFile("/target", "old");
    // Refuses to replace the file, and would replace it by itself when that is put back.
    system.behaviour.renamingReplaces = true;
    system.behaviour.refusesRename = [&](const std::string& from, const std::string&) {
        return from == "/file" && system.has("/target");
    };
    system.behaviour.deniesItsDoing = {"/file"};
    EXPECT_TRUE(system.fileReplaceAs("/file", "/target"));
    EXPECT_EQ(system.bytesOf("/target"), "new");
    EXPECT_THAT(system.paths(), ElementsAre("/target"));
}

TEST(Replacing, AFileByItselfThroughALinkAboveItKeepsTheFile)
{
    ScriptedFileSystem system;
    system.behaviour.renamingReplaces = true;
    system.behaviour.renamingKnowsNames = true;
    system.addFile("/directory/file", "bytes");
    system.addLink("/way", "/directory");
    EXPECT_TRUE(system.fileReplaceAs("/directory/file", "/way/file"));
    EXPECT_THAT(system.paths(), ElementsAre("/directory", "/directory/file", "/way"));
    EXPECT_EQ(system.bytesOf("/directory/file"), "bytes");
}

TEST(Replacing, TakesAndReplacesFilesAndLinksOnly)
{
    ScriptedFileSystem system;
    system.addFile("/file", "bytes");
    system.addPipe("/pipe");
    system.addSocket("/socket");
    system.addBlockDevice("/device");
    system.behaviour.renamingReplaces = true;
    system.behaviour.renamingReplacesDirectories = true;
    const auto before = system.paths();
    for (const auto* path : {"/pipe", "/socket", "/device"}) {
        EXPECT_FALSE(system.fileReplaceAs("/file", path)) << path;
        expectFailure(FailureCode::NotCopyable, path);
        EXPECT_FALSE(system.fileReplaceAs(path, "/file")) << path;
        expectFailure(FailureCode::NotCopyable, path);
        EXPECT_FALSE(system.fileReplaceAs(path, "/new")) << path;
        expectFailure(FailureCode::NotCopyable, path);
    }
    EXPECT_EQ(system.paths(), before);
}

} // namespace
