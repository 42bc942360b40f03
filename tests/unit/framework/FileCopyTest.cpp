#include "framework/ScriptedFileSystem.h"

#include <FileSystem/Failure.h>
#include <FileSystem/HandleFatalError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using FileSystem::StorageSystemFileOpenModeFlag;
using TarnisTest::ScriptedFileSystem;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::Not;
using testing::Pair;
using testing::StartsWith;
using Option = FileSystem::StorageSystemCopyOptionFlag;

namespace {

using Reports = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

constexpr auto preserveAll = Option::PreservePermissions | Option::PreserveModTime;

/// Copies from one system to another, or within one.
class FileCopying : public testing::Test
{
protected:
    FileCopying()
    {
        source.addFile("/file", bytes, 0640);
        target.addDirectory("/there");
    }

    FileSystem::StorageSystemProgress collectReports(std::size_t stopAfter = 1'000)
    {
        return [this, stopAfter](std::uint64_t done, std::uint64_t total) {
            reports.emplace_back(done, total);
            return reports.size() < stopAfter;
        };
    }

    /// Copies to /there/file.
    bool copy(const FileSystem::StorageSystemProgress& progress = {},
              Utilities::Flags<Option> options = {},
              std::optional<std::uint64_t> bufferSize = std::nullopt)
    {
        return source.fileCopyAs("/file", target, "/there/file", progress, options, bufferSize);
    }

    void expectNothingNew()
    {
        EXPECT_THAT(target.paths(), ElementsAre("/there"));
        EXPECT_EQ(source.openFiles(), 0U);
        EXPECT_EQ(target.openFiles(), 0U);
    }

    const std::string bytes = "some bytes that are copied";
    ScriptedFileSystem source;
    ScriptedFileSystem target;
    Reports reports;
};

/// Replaces in one step where it is told to.
class ReplacingFileSystem final : public ScriptedFileSystem
{
public:
    ReplacingFileSystem()
    {
        behaviour.replaces = [this](const std::string& path, const std::string& newPath) {
            replaced.push_back(newPath);
            return succeeds && (!has(newPath) || fileRemove(newPath)) &&
                   fileRenameAs(path, newPath);
        };
    }

    bool succeeds = true;
    std::vector<std::string> replaced;
};

} // namespace

TEST_F(FileCopying, ReplacesInOneStepWhereTheSystemCan)
{
    for (const bool succeeds : {true, false}) {
        ReplacingFileSystem replacing;
        replacing.succeeds = succeeds;
        replacing.addFile("/there/file", "old");
        EXPECT_TRUE(source.fileCopyAs("/file", replacing, "/there/file"));
        EXPECT_THAT(replacing.replaced, ElementsAre("/there/file"));
        EXPECT_EQ(replacing.bytesOf("/there/file"), bytes);
        EXPECT_THAT(replacing.paths(), ElementsAre("/there", "/there/file"));
    }
}

TEST_F(FileCopying, NeverReplacesInOneStepWhatItMustNot)
{
    ReplacingFileSystem replacing;
    replacing.addDirectory("/there");
    EXPECT_TRUE(source.fileCopyAs("/file", replacing, "/there/file", {}, Option::FailIfExists));
    EXPECT_THAT(replacing.replaced, testing::IsEmpty());
}

TEST_F(FileCopying, GoesOnWhereSettingAsideIsDoneButReportedAsFailed)
{
    target.addFile("/there/file", "old");
    target.behaviour.deniesItsDoing = {"/there/file"};
    EXPECT_TRUE(copy());
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/file"));
    EXPECT_EQ(target.bytesOf("/there/file"), bytes);
}

TEST_F(FileCopying, FailsWhereTheSourceEndsBeforeItsEnd)
{
    source.behaviour.seemsToEndAt = 3;
    EXPECT_FALSE(copy());
    expectNothingNew();
}

TEST_F(FileCopying, BringsAFileThatWasCutMeanwhileAsItWasMet)
{
    const auto cuts = [this](std::uint64_t, std::uint64_t) {
        return source.fileOpen("/file", StorageSystemFileOpenModeFlag::Write |
                                            StorageSystemFileOpenModeFlag::Truncate) != nullptr;
    };
    EXPECT_TRUE(copy(cuts));
    EXPECT_EQ(target.bytesOf("/there/file"), "");
}

TEST_F(FileCopying, FailsWhereTheTargetCannotKeepWhatWasWritten)
{
    target.behaviour.closingFails = true;
    EXPECT_FALSE(copy());
    expectNothingNew();
}

TEST_F(FileCopying, ToAnotherSystemBringsAllBytes)
{
    EXPECT_TRUE(copy());
    EXPECT_EQ(target.bytesOf("/there/file"), bytes);
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/file"));
    EXPECT_EQ(source.bytesOf("/file"), bytes);
    EXPECT_EQ(source.openFiles() + target.openFiles(), 0U);
}

TEST_F(FileCopying, WithinASystemBringsAllBytes)
{
    source.addDirectory("/there");
    EXPECT_EQ(source.fileCopy("/file", source, "/there", "copy", false), "/there/copy");
    EXPECT_EQ(source.bytesOf("/there/copy"), bytes);
    EXPECT_TRUE(source.fileCopyAs("file", source, "copy"));
    EXPECT_EQ(source.bytesOf("/copy"), bytes);
}

TEST_F(FileCopying, OntoItselfKeepsTheFile)
{
    EXPECT_TRUE(source.fileCopyAs("/file", source, "/file"));
    EXPECT_THAT(source.paths(), ElementsAre("/file"));
    EXPECT_EQ(source.bytesOf("/file"), bytes);
}

TEST_F(FileCopying, OfAnEmptyFileMakesAnEmptyFile)
{
    source.addFile("/file", "");
    EXPECT_TRUE(copy(collectReports()));
    EXPECT_EQ(target.bytesOf("/there/file"), "");
    EXPECT_THAT(reports, ElementsAre(Pair(0, 0)));
}

TEST_F(FileCopying, SurvivesShortReadsAndWrites)
{
    source.behaviour.longestRead = 3;
    target.behaviour.longestWrite = 2;
    EXPECT_TRUE(copy({}, {}, 7));
    EXPECT_EQ(target.bytesOf("/there/file"), bytes);
}

TEST_F(FileCopying, ReportsBytesOfTheFile)
{
    EXPECT_TRUE(copy(collectReports(), {}, 10));
    EXPECT_THAT(reports, ElementsAre(Pair(0, 26), Pair(10, 26), Pair(20, 26), Pair(26, 26)));
}

// It need not be opened as what was looked at before.
TEST_F(FileCopying, LooksAtTheSourceOnceMoreWhenItIsOpen)
{
    EXPECT_TRUE(copy());
    const auto& calls = source.calls();
    const auto opened = std::find(calls.begin(), calls.end(), "open /file");
    ASSERT_NE(opened, calls.end());
    EXPECT_EQ(std::count(opened, calls.end(), "info /file"), 1);
    EXPECT_LE(std::count(calls.begin(), opened, "info /file"), 2);
}

TEST_F(FileCopying, StoppedByAnyReportLeavesNothing)
{
    for (std::size_t stop = 1; stop <= 4; ++stop) {
        reports.clear();
        EXPECT_FALSE(copy(collectReports(stop), {}, 10)) << stop;
        EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::Cancelled);
        EXPECT_EQ(reports.size(), stop);
        expectNothingNew();
    }
}

TEST_F(FileCopying, PassesOnWhatTheProgressThrowsAndLeavesNothing)
{
    for (const std::uint64_t moment : {0U, 10U, 26U}) {
        const auto throws = [moment](std::uint64_t done, std::uint64_t) {
            return done == moment ? throw std::logic_error("enough") : true;
        };
        EXPECT_THROW(copy(throws, {}, 10), std::logic_error) << moment;
        expectNothingNew();
    }
}

TEST_F(FileCopying, ThatIsStoppedKeepsTheOldTarget)
{
    target.addFile("/there/file", "old");
    EXPECT_FALSE(copy(collectReports(2), {}, 10));
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/file"));
    EXPECT_EQ(target.bytesOf("/there/file"), "old");
}

TEST_F(FileCopying, ThatFailsToReadLeavesNothing)
{
    source.behaviour.unreadableFrom = 5;
    EXPECT_FALSE(copy());
    expectNothingNew();
    source.behaviour.hasRanges = true;
    EXPECT_FALSE(copy());
    expectNothingNew();
}

TEST_F(FileCopying, ThatFailsToWriteLeavesNothing)
{
    target.behaviour.unwritableFrom = 5;
    EXPECT_FALSE(copy());
    expectNothingNew();
    target.behaviour.hasRanges = true;
    EXPECT_FALSE(copy());
    expectNothingNew();
}

TEST_F(FileCopying, ThatLosesBytesWhenItIsClosedLeavesNothing)
{
    target.behaviour.keptOnClosing = 5;
    EXPECT_FALSE(copy());
    expectNothingNew();
}

TEST_F(FileCopying, WritesToAHiddenNameBesideTheTarget)
{
    target.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation.rfind("write", 0) == 0) {
            EXPECT_THAT(path, MatchesRegex("/there/\\.file\\.[0-9a-f]{8}\\.tarnis-part"));
            EXPECT_FALSE(target.has("/there/file"));
        }
    };
    EXPECT_TRUE(copy());
    EXPECT_THAT(target.calls(), Contains(MatchesRegex("write .*")));
}

TEST_F(FileCopying, KeepsTheHiddenNameShortEnoughForALongName)
{
    const std::string plain(255, 'n');
    std::string umlauts;
    for (int index = 0; index < 127; ++index) {
        umlauts += "\xC3\xBC";
    }
    for (const auto& name : {plain, umlauts, "x" + umlauts}) {
        target.calls().clear();
        EXPECT_EQ(source.fileCopy("/file", target, "/there", name, false), "/there/" + name);
        const auto& calls = target.calls();
        const auto created = std::find_if(calls.begin(), calls.end(), [](const auto& call) {
            return call.rfind("open ", 0) == 0;
        });
        ASSERT_NE(created, calls.end());
        const auto hidden = created->substr(std::string("open /there/").size());
        EXPECT_LE(hidden.size(), 255U);
        EXPECT_GE(hidden.size(), 252U);
        // What is cut is never half a character.
        const auto end = hidden.size() - std::string(".12345678.tarnis-part").size();
        EXPECT_NE(hidden[end - 1], '\xC3');
    }
}

TEST_F(FileCopying, TriesAnotherHiddenNameWhereOneIsTaken)
{
    std::string taken;
    target.behaviour.onCall = [&](const std::string& operation, const std::string& path) {
        if (operation == "open" && taken.empty()) {
            taken = path;
            target.addFile(path, "another copy's");
        }
    };
    EXPECT_TRUE(copy());
    EXPECT_EQ(target.bytesOf(taken), "another copy's");
    EXPECT_EQ(target.bytesOf("/there/file"), bytes);
}

TEST_F(FileCopying, GivesUpWhereEveryHiddenNameIsTaken)
{
    target.behaviour.onCall = [this](const std::string& operation, const std::string& path) {
        if (operation == "open") {
            target.addFile(path, "another copy's");
        }
    };
    EXPECT_FALSE(copy());
    EXPECT_FALSE(target.has("/there/file"));
}

TEST_F(FileCopying, ReplacesAFileOnSystemsThatDoAndDoNotReplaceOnRenaming)
{
    for (const bool replaces : {false, true}) {
        target.addFile("/there/file", "old");
        target.behaviour.renamingReplaces = replaces;
        EXPECT_TRUE(copy());
        EXPECT_EQ(target.bytesOf("/there/file"), bytes);
        EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/file"));
    }
}

TEST_F(FileCopying, ReplacesALinkAndNotWhatItLeadsTo)
{
    target.addFile("/kept", "kept");
    target.addLink("/there/file", "/kept");
    EXPECT_TRUE(copy());
    EXPECT_FALSE(target.fileIsSymbolicLink("/there/file"));
    EXPECT_EQ(target.bytesOf("/there/file"), bytes);
    EXPECT_EQ(target.bytesOf("/kept"), "kept");
}

TEST_F(FileCopying, NeverReplacesADirectory)
{
    target.addDirectory("/there/file");
    EXPECT_FALSE(copy());
    EXPECT_THAT(source.calls(), Not(Contains("open /file")));
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/file"));
    EXPECT_TRUE(target.directoryExists("/there/file", false));
}

TEST_F(FileCopying, NeverReplacesADirectoryThatAppearsMeanwhile)
{
    const auto makesDirectory = [this](std::uint64_t done, std::uint64_t) {
        if (done > 0) {
            target.addDirectory("/there/file");
        }
        return true;
    };
    EXPECT_FALSE(copy(makesDirectory));
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/file"));
    EXPECT_TRUE(target.directoryExists("/there/file", false));
}

TEST_F(FileCopying, KeepsTheOldTargetWhereRenamingIsRefused)
{
    target.addFile("/there/file", "old");
    target.behaviour.refusesRename = [](const std::string&, const std::string&) { return true; };
    EXPECT_FALSE(copy());
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/file"));
    EXPECT_EQ(target.bytesOf("/there/file"), "old");
}

TEST_F(FileCopying, BringsTheOldTargetBackWhereTheNewCannotTakeItsName)
{
    target.addFile("/there/file", "old");
    std::string aside;
    target.behaviour.refusesRename = [&aside](const std::string& from, const std::string& to) {
        if (from == "/there/file") {
            aside = to;
        }
        return to == "/there/file" && from != aside;
    };
    EXPECT_FALSE(copy());
    EXPECT_THAT(aside, MatchesRegex("/there/\\.file\\.[0-9a-f]+\\.tarnis-old"));
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/file"));
    EXPECT_EQ(target.bytesOf("/there/file"), "old");
}

TEST_F(FileCopying, SaysWhereTheOldTargetIsThatCannotBeBroughtBack)
{
    target.addFile("/there/file", "old");
    std::string aside;
    target.behaviour.refusesRename = [&aside](const std::string& from, const std::string& to) {
        if (from == "/there/file") {
            aside = to;
        }
        return to == "/there/file";
    };
    EXPECT_FALSE(copy());
    EXPECT_EQ(target.bytesOf(aside), "old");
    EXPECT_THAT(FileSystem::Failure::last().text(),
                testing::HasSubstr("what stood there is at " + aside));
}

TEST_F(FileCopying, SaysWhereTheOldTargetIsThatCannotBeRemoved)
{
    std::string aside;
    target.behaviour.refusesRename = [&](const std::string& from, const std::string& to) {
        if (from == "/there/file") {
            aside = to;
            target.behaviour.refusesToRemove = {to};
        }
        return false;
    };
    target.addFile("/there/file", "old");
    EXPECT_TRUE(copy());
    EXPECT_EQ(target.bytesOf(aside), "old");
    target.addFile("/there/file", "older");
    EXPECT_FALSE(copy({}, Option::PreserveBestEffort));
    EXPECT_EQ(FileSystem::Failure::last().code(), FileSystem::FailureCode::NotRemoved);
    EXPECT_EQ(FileSystem::Failure::last().entry(), "/there/file");
    EXPECT_THAT(FileSystem::Failure::last().text(),
                testing::HasSubstr("what stood there is left at " + aside));
    EXPECT_EQ(target.bytesOf(aside), "older");
    EXPECT_NE(target.bytesOf("/there/file"), "older");
}

// Told as failed and done all the same.
TEST_F(FileCopying, SaysNothingOfAnOldTargetThatIsGone)
{
    target.addFile("/there/file", "old");
    target.behaviour.refusesRename = [&](const std::string& from, const std::string& to) {
        if (from == "/there/file") {
            target.behaviour.deniesItsDoing = {to};
        }
        return false;
    };
    EXPECT_TRUE(copy({}, Option::PreserveBestEffort));
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/file"));
}

TEST_F(FileCopying, ThatMustNotReplaceFailsBeforeItReads)
{
    target.addFile("/there/file", "old");
    target.addLink("/there/link", "nowhere");
    EXPECT_FALSE(copy({}, Option::FailIfExists));
    EXPECT_FALSE(source.fileCopy("/file", target, "/there", "file", true));
    EXPECT_FALSE(source.fileCopy("/file", target, "/there", "link", true));
    EXPECT_EQ(target.bytesOf("/there/file"), "old");
    EXPECT_THAT(source.calls(), Each(Not("open /file")));
}

TEST_F(FileCopying, ThatMustNotReplaceDoesNotReplaceWhatAppearsMeanwhile)
{
    target.behaviour.renamingReplaces = true;
    const auto makesFile = [this](std::uint64_t done, std::uint64_t) {
        if (done > 0) {
            target.addFile("/there/file", "another's");
        }
        return true;
    };
    EXPECT_FALSE(copy(makesFile, Option::FailIfExists));
    EXPECT_EQ(target.bytesOf("/there/file"), "another's");
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/file"));
}

TEST_F(FileCopying, ThatMustNotReplaceWorksWhereNothingIs)
{
    EXPECT_TRUE(copy({}, Option::FailIfExists));
    EXPECT_EQ(target.bytesOf("/there/file"), bytes);
}

TEST_F(FileCopying, PreservesPermissionsAndTimeWhenAskedTo)
{
    source.setModTime("/file", TarnisTest::timeAt(98'765'432'100));
    EXPECT_TRUE(copy({}, preserveAll));
    EXPECT_EQ(target.at("/there/file").permissions.raw(), 0640U);
    EXPECT_EQ(target.at("/there/file").modTime, TarnisTest::timeAt(98'765'432'100));
}

TEST_F(FileCopying, IsANewFileWhenNotAskedToPreserve)
{
    source.setModTime("/file", TarnisTest::timeAt(1));
    EXPECT_TRUE(copy());
    EXPECT_EQ(target.at("/there/file").permissions.raw(), 0640U);
    EXPECT_NE(target.at("/there/file").modTime, TarnisTest::timeAt(1));
}

TEST_F(FileCopying, ShowsAFileToNobodyElseBeforeItHasItsPermissions)
{
    int seen = 0;
    const auto watches = [&](std::uint64_t done, std::uint64_t) {
        const auto path = target.paths().back();
        EXPECT_EQ(path != "/there", done > 0);
        EXPECT_TRUE(done == 0 || target.at(path).permissions.raw() == 0600U) << path;
        seen += done > 0;
        return true;
    };
    EXPECT_TRUE(copy(watches, preserveAll));
    EXPECT_GT(seen, 0);
}

TEST_F(FileCopying, PreservesThatNobodyMayWrite)
{
    source.addFile("/file", bytes, 0444);
    EXPECT_TRUE(copy({}, preserveAll));
    EXPECT_EQ(target.at("/there/file").permissions.raw(), 0444U);
    EXPECT_EQ(target.bytesOf("/there/file"), bytes);
}

TEST_F(FileCopying, FailsWhereWhatIsToBePreservedCannotBe)
{
    source.setModTime("/file", TarnisTest::timeAt(98'765'432'100));
    target.behaviour.refusesTimes = true;
    EXPECT_FALSE(copy({}, Option::PreserveModTime));
    expectNothingNew();
    EXPECT_TRUE(copy({}, Option::PreservePermissions));
    ASSERT_TRUE(target.fileRemove("/there/file"));
    target.behaviour.refusesPermissions = true;
    EXPECT_FALSE(copy({}, Option::PreservePermissions));
    expectNothingNew();
}

TEST_F(FileCopying, FailsForWhatIsMissingOrNoFile)
{
    source.addPipe("/pipe");
    source.addDirectory("/directory");
    source.addFile("/secret", "bytes", 0);
    for (const auto* path : {"/none", "/pipe", "/directory", "/secret", ""}) {
        EXPECT_FALSE(source.fileCopyAs(path, target, "/there/file")) << path;
    }
    expectNothingNew();
}

TEST_F(FileCopying, FailsToAPathThatNamesNoEntry)
{
    for (const auto* path : {"", "/", "/there/.", "/there/..", "/none/file", "/there/"}) {
        EXPECT_FALSE(source.fileCopyAs("/file", target, path)) << path;
    }
    for (const auto* name : {"", ".", "..", "a/b", "../escape"}) {
        EXPECT_FALSE(source.fileCopy("/file", target, "/there", name, false)) << name;
    }
    expectNothingNew();
}

TEST_F(FileCopying, FailsOnASystemThatIsNoLongerValid)
{
    source.behaviour.isValid = false;
    EXPECT_FALSE(copy());
    source.behaviour.isValid = true;
    target.behaviour.isValid = false;
    EXPECT_FALSE(copy());
}

TEST_F(FileCopying, FailsWhereASystemIsLostOnTheWay)
{
    const auto lost = [](const std::string& operation, const std::string&) {
        if (operation.rfind("write", 0) == 0 || operation.rfind("remove", 0) == 0) {
            throw FileSystem::handle_fatal_error("invalid");
        }
    };
    target.behaviour.onCall = lost;
    EXPECT_FALSE(copy());
    EXPECT_TRUE(FileSystem::Failure::last());
    EXPECT_FALSE(target.has("/there/file"));
    EXPECT_EQ(source.openFiles() + target.openFiles(), 0U);
}

TEST_F(FileCopying, OfAFileThatGrowsTakesItAsItIsMet)
{
    bool hasGrown = false;
    source.behaviour.onCall = [&](const std::string& operation, const std::string& path) {
        if (operation == "open" && path == "/file" && !hasGrown) {
            hasGrown = true;
            const auto file = source.fileOpen("/file", StorageSystemFileOpenModeFlag::Write |
                                                           StorageSystemFileOpenModeFlag::Read);
            EXPECT_TRUE(file->seek(bytes.size()) && file->writeFully(" and more", 9));
        }
    };
    EXPECT_TRUE(copy());
    EXPECT_EQ(target.bytesOf("/there/file"), bytes + " and more");
}

namespace {

class LinkCopying : public FileCopying
{
protected:
    LinkCopying() { source.addLink("/link", "../some where"); }

    bool copyLink(const FileSystem::StorageSystemProgress& progress = {},
                  Utilities::Flags<Option> options = {})
    {
        return source.fileCopyAs("/link", target, "/there/link", progress, options);
    }
};

} // namespace

TEST_F(LinkCopying, MakesALinkWithTheSameText)
{
    EXPECT_TRUE(copyLink(collectReports(), preserveAll));
    EXPECT_TRUE(target.fileIsSymbolicLink("/there/link"));
    EXPECT_EQ(target.bytesOf("/there/link"), "../some where");
    EXPECT_THAT(reports, ElementsAre(Pair(0, 0)));
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/link"));
}

TEST_F(LinkCopying, DoesNotTouchWhatALinkLeadsTo)
{
    source.addLink("/link", "/kept");
    target.addFile("/kept", "kept", 0600);
    const auto before = target.at("/kept").modTime;
    EXPECT_TRUE(copyLink({}, preserveAll));
    EXPECT_EQ(target.at("/kept").modTime, before);
    EXPECT_EQ(target.at("/kept").permissions.raw(), 0600U);
}

TEST_F(LinkCopying, ReplacesAFileOrALinkAndNeverADirectory)
{
    target.addFile("/there/link", "old");
    EXPECT_TRUE(copyLink());
    EXPECT_TRUE(copyLink());
    EXPECT_EQ(target.bytesOf("/there/link"), "../some where");
    EXPECT_FALSE(copyLink({}, Option::FailIfExists));
    ASSERT_TRUE(target.fileRemove("/there/link"));
    target.addFile("/there/link/inside", "kept");
    EXPECT_FALSE(copyLink());
    EXPECT_THAT(target.paths(), ElementsAre("/there", "/there/link", "/there/link/inside"));
}

TEST_F(LinkCopying, StoppedLeavesNothing)
{
    EXPECT_FALSE(copyLink(collectReports(1)));
    expectNothingNew();
}

TEST_F(LinkCopying, ThatCannotBeMadeLeavesNothing)
{
    target.behaviour.refusesLinks = true;
    EXPECT_FALSE(copyLink());
    expectNothingNew();
    target.behaviour.refusesLinks = false;
    target.behaviour.rewritesLinks = true;
    EXPECT_FALSE(copyLink());
    expectNothingNew();
}

TEST_F(LinkCopying, FailsOnASystemWithoutLinks)
{
    const TarnisTest::ScriptedFileSystemWithoutLinks plain;
    EXPECT_FALSE(source.fileCopyAs("/link", plain, "/link"));
    EXPECT_FALSE(plain.has("/link"));
}
