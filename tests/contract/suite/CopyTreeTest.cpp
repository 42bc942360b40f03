// Copies of trees with many files in flight, along each route.

#include "contract/CopyRoutes.h"
#include "contract/Notes.h"
#include "support/PseudoRandom.h"

#include <FileSystem/Failure.h>
#include <FileSystem/TreeOperations.h>

#include <gmock/gmock.h>

#include <chrono>
#include <stdexcept>
#include <utility>

#include <sys/resource.h>

namespace TarnisTest {

namespace {

using FileSystem::copyTree;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::TreeCopyOptions;
using FileSystem::TreePart;
using FileSystem::TreeReport;
using FileSystem::TreeStanding;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;

std::chrono::seconds secondsOf(FileSystem::StorageSystemTimePoint time)
{
    return std::chrono::floor<std::chrono::seconds>(time.time_since_epoch());
}

class CopyTreeContract : public CopyRouteTest
{
protected:
    void makeSourceDirectory(const std::string& name) const
    {
        EXPECT_TRUE(source().directoryMakePath(sourcePath(name), false)) << name;
    }

    /// A tree "t" with six files in four directories.
    void makeTree() const
    {
        for (const auto* directory : {"t/b/deep", "t/d", "t/empty"}) {
            makeSourceDirectory(directory);
        }
        for (const auto* file : {"t/a", "t/c", "t/b/1", "t/b/2", "t/b/deep/x", "t/d/3"}) {
            makeSource(file, std::string("bytes of ") + file);
        }
    }

    TreeReport copy(const std::string& name, const std::string& targetName,
                    const TreeCopyOptions& options = {})
    {
        return copyTree(source(), target(), {{sourcePath(name), targetPath(targetName)}}, notes_,
                        options);
    }

    std::vector<std::string> namesIn(const std::string& name) const
    {
        return target().directoryListFileNames(targetPath(name));
    }

    Notes notes_;
};

TEST_P(CopyTreeContract, CopiesEverythingBelow)
{
    makeTree();
    const auto report = copy("t", "copy");
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_FALSE(Failure::last());
    EXPECT_EQ(report.files, 6U);
    EXPECT_EQ(report.directories, 5U);
    EXPECT_THAT(targetNames(), ElementsAre("copy"));
    EXPECT_THAT(namesIn("copy"), ElementsAre("a", "b", "c", "d", "empty"));
    EXPECT_THAT(namesIn("copy/b"), ElementsAre("1", "2", "deep"));
    EXPECT_EQ(targetContent("copy/b/deep/x"), "bytes of t/b/deep/x");
    EXPECT_EQ(targetContent("copy/d/3"), "bytes of t/d/3");
    EXPECT_THAT(notes_.finished, UnorderedElementsAre("", "a", "b", "b/1", "b/2", "b/deep",
                                                      "b/deep/x", "c", "d", "d/3", "empty"));
    EXPECT_EQ(notes_.finished.back(), "");
    EXPECT_EQ(notes_.last.entriesDone, 11U);
    EXPECT_EQ(notes_.last.entriesFound, 11U);
    EXPECT_EQ(notes_.last.bytesDone, report.bytes);
    EXPECT_EQ(notes_.last.bytesFound, report.bytes);
    EXPECT_TRUE(notes_.last.isAllFound);
}

TEST_P(CopyTreeContract, FilesAreCountedApartFromDirectoriesAndWhatIsNotWanted)
{
    makeTree();
    notes_.unwanted = {"b/deep"};
    EXPECT_TRUE(copy("t", "copy").isComplete());
    EXPECT_EQ(notes_.last.filesDone, 5U);
    EXPECT_EQ(notes_.last.filesFound, 5U);
    EXPECT_EQ(notes_.last.entriesDone, notes_.last.entriesFound);
}

TEST_P(CopyTreeContract, ProgressNamesTheEntryThatIsWorkedOn)
{
    makeSource("t", "text");
    makeSource("u", std::string(3'000'000, 'x'));
    TreeCopyOptions options;
    options.inFlight = 1;
    const auto report = copyTree(
        source(), target(),
        {{sourcePath("t"), targetPath("1")}, {sourcePath("u"), targetPath("2")}}, notes_, options);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_THAT(notes_.workedAt, UnorderedElementsAre(sourcePath("t"), sourcePath("u")));
}

TEST_P(CopyTreeContract, ADryRunCountsTheSizesOfFiles)
{
    makeTree();
    TreeCopyOptions options;
    options.isDryRun = true;
    const auto report = copy("t", "copy", options);
    EXPECT_EQ(report.bytes, copy("t", "copy").bytes);
    EXPECT_GT(report.bytes, 0U);
}

TEST_P(CopyTreeContract, CopiesAFileOfManyPieces)
{
    const auto bytes = pseudoRandomBytes(7, 3'000'001);
    makeSource("large", bytes);
    makeSource("empty", "");
    const auto report = copyTree(
        source(), target(),
        {{sourcePath("large"), targetPath("copy")}, {sourcePath("empty"), targetPath("nothing")}},
        notes_);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.bytes, bytes.size());
    EXPECT_TRUE(targetContent("copy") == bytes);
    EXPECT_EQ(targetContent("nothing"), "");
    EXPECT_THAT(targetNames(), ElementsAre("copy", "nothing"));
}

TEST_P(CopyTreeContract, CopiesManyFilesAtOnce)
{
    makeSourceDirectory("t");
    for (int i = 0; i < 150; ++i) {
        makeSource("t/" + std::to_string(i), std::to_string(i));
    }
    const auto report = copy("t", "copy");
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(namesIn("copy").size(), 150U);
    for (int i = 0; i < 150; ++i) {
        EXPECT_EQ(targetContent("copy/" + std::to_string(i)), std::to_string(i));
    }
}

TEST_P(CopyTreeContract, HasNoMoreFilesOpenThanPay)
{
    makeSourceDirectory("t");
    for (int i = 0; i < 300; ++i) {
        makeSource("t/" + std::to_string(i), "");
    }
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit few = before;
    few.rlim_cur = 120;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    const auto report = copy("t", "copy");
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.files, 300U);
}

TEST_P(CopyTreeContract, GoesOnWithFewerFilesWhereNoMoreCanBeOpen)
{
    makeSourceDirectory("t");
    for (int i = 0; i < 300; ++i) {
        makeSource("t/" + std::to_string(i), std::to_string(i));
    }
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit few = before;
    few.rlim_cur = 120;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    TreeCopyOptions options;
    options.inFlight = 300;
    const auto report = copy("t", "copy", options);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.files, 300U);
    EXPECT_EQ(namesIn("copy").size(), 300U);
}

TEST_P(CopyTreeContract, DirectoriesWaitWhereNoMoreFilesCanBeOpen)
{
    constexpr int files = 150;
    constexpr int directories = 10;
    makeSourceDirectory("t");
    for (int i = 0; i < files; ++i) {
        makeSource("t/before" + std::to_string(i), "");
    }
    for (int i = 0; i < directories; ++i) {
        const auto directory = "t/directory" + std::to_string(i);
        makeSourceDirectory(directory);
        makeSource(directory + "/file", directory);
    }
    rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit few = before;
    few.rlim_cur = 120;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    TreeCopyOptions options;
    options.inFlight = 300;
    const auto report = copy("t", "copy", options);
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.files, files + directories);
    EXPECT_EQ(report.directories, 1U + directories);
}

TEST_P(CopyTreeContract, OneOperationInFlightIsEnough)
{
    makeTree();
    TreeCopyOptions options;
    options.inFlight = 1;
    EXPECT_TRUE(copy("t", "copy", options).isComplete());
    EXPECT_EQ(notes_.finished.size(), 11U);
    EXPECT_EQ(targetContent("copy/b/deep/x"), "bytes of t/b/deep/x");
}

TEST_P(CopyTreeContract, ReplacesWhatStandsThereAndLeavesTheRest)
{
    makeTree();
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy/b"), false));
    makeTarget("copy/a", "old");
    makeTarget("copy/b/1", "old, and longer than what is new");
    makeTarget("copy/b/other", "other");
    const auto report = copy("t", "copy");
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(targetContent("copy/a"), "bytes of t/a");
    EXPECT_EQ(targetContent("copy/b/1"), "bytes of t/b/1");
    EXPECT_EQ(targetContent("copy/b/other"), "other");
    EXPECT_THAT(namesIn("copy/b"), ElementsAre("1", "2", "deep", "other"));
}

TEST_P(CopyTreeContract, CopiesNothingThatIsNotWanted)
{
    makeTree();
    notes_.unwanted = {"b", "c"};
    EXPECT_TRUE(copy("t", "copy").isComplete());
    EXPECT_THAT(namesIn("copy"), ElementsAre("a", "d", "empty"));
}

TEST_P(CopyTreeContract, KeepsWhatStandsThere)
{
    makeTree();
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy"), false));
    makeTarget("copy/a", "old");
    TreeCopyOptions options;
    options.standing = TreeStanding::Keep;
    const auto report = copy("t", "copy", options);
    EXPECT_TRUE(report.isComplete());
    EXPECT_EQ(report.skipped, 1U);
    EXPECT_EQ(report.files, 5U);
    EXPECT_THAT(notes_.leftOut, ElementsAre("a"));
    EXPECT_EQ(targetContent("copy/a"), "old");
    EXPECT_EQ(targetContent("copy/c"), "bytes of t/c");
    EXPECT_EQ(notes_.last.entriesDone, notes_.last.entriesFound);
    EXPECT_EQ(notes_.last.filesDone, 6U);
    EXPECT_EQ(notes_.last.filesFound, 6U);
}

TEST_P(CopyTreeContract, CopiesOnlyWhatHasChanged)
{
    makeTree();
    TreeCopyOptions options;
    options.preservesTimes = true;
    ASSERT_TRUE(copy("t", "copy", options).isComplete());
    notes_.finished.clear();
    makeSource("t/a", "other, of another size");
    ASSERT_TRUE(target().fileSetModTime(targetPath("copy/b/1"), moment(1'000'000'000)));
    options.standing = TreeStanding::KeepSame;
    const auto report = copy("t", "copy", options);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.files, 2U);
    EXPECT_EQ(report.skipped, 4U);
    EXPECT_EQ(targetContent("copy/a"), "other, of another size");
}

TEST_P(CopyTreeContract, FailsForWhatStandsThereAndCopiesTheRest)
{
    makeTree();
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy/b"), false));
    makeTarget("copy/b/2", "old");
    TreeCopyOptions options;
    options.standing = TreeStanding::Fail;
    const auto report = copy("t", "copy", options);
    EXPECT_EQ(report.failed, 1U);
    EXPECT_THAT(notes_.failedEntries(), ElementsAre("b/2"));
    EXPECT_EQ(report.failure.code(), FailureCode::Exists);
    EXPECT_EQ(Failure::last().code(), FailureCode::Exists);
    EXPECT_EQ(targetContent("copy/b/2"), "old");
    EXPECT_EQ(targetContent("copy/b/1"), "bytes of t/b/1");
}

TEST_P(CopyTreeContract, ADryCopyChangesNothing)
{
    makeTree();
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy"), false));
    makeTarget("copy/a", "old");
    TreeCopyOptions options;
    options.isDryRun = true;
    options.standing = TreeStanding::Keep;
    const auto report = copy("t", "copy", options);
    EXPECT_TRUE(report.isComplete());
    EXPECT_EQ(report.files, 5U);
    EXPECT_EQ(report.skipped, 1U);
    EXPECT_THAT(namesIn("copy"), ElementsAre("a"));
    EXPECT_EQ(targetContent("copy/a"), "old");
}

TEST_P(CopyTreeContract, PreservesPermissionsAndTimes)
{
    makeTree();
    const auto time = moment(1'234'567'890);
    ASSERT_TRUE(source().fileSetPermissions(sourcePath("t/a"), Permissions{0640U}));
    ASSERT_TRUE(source().fileSetModTime(sourcePath("t/a"), time));
    ASSERT_TRUE(source().directorySetPermissions(sourcePath("t/b"), Permissions{0750U}));
    ASSERT_TRUE(source().directorySetModTime(sourcePath("t/b"), time));
    TreeCopyOptions options;
    options.preservesPermissions = options.preservesTimes = true;
    const auto report = copy("t", "copy", options);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    for (const auto* name : {"copy/a", "copy/b"}) {
        const auto info = target().fileInfo(targetPath(name));
        ASSERT_TRUE(info) << name;
        EXPECT_EQ(info->modTime, time) << name;
        EXPECT_EQ(info->permissions.raw(), std::string(name) == "copy/a" ? 0640U : 0750U) << name;
    }
}

TEST_P(CopyTreeContract, AFailureKeepsNothingElseFromBeingCopied)
{
    makeTree();
    makeSourcePipe("t/d/pipe");
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy/c"), false));
    makeTarget("copy/b", "a file where a directory is to be");
    const auto report = copy("t", "copy");
    EXPECT_THAT(notes_.failedEntries(), UnorderedElementsAre("b", "c", "d/pipe"));
    EXPECT_EQ(report.failed, 3U);
    EXPECT_FALSE(report.isStopped);
    EXPECT_EQ(targetContent("copy/a"), "bytes of t/a");
    EXPECT_EQ(targetContent("copy/b"), "a file where a directory is to be");
    EXPECT_EQ(targetContent("copy/d/3"), "bytes of t/d/3");
    EXPECT_THAT(namesIn("copy"), ElementsAre("a", "b", "c", "d", "empty"));
    EXPECT_THAT(namesIn("copy/d"), ElementsAre("3"));
}

TEST_P(CopyTreeContract, WhatIsNotThereIsAFailureOfItsOwn)
{
    makeTree();
    const auto report = copyTree(source(), target(),
                                 {{sourcePath("t/nothing"), targetPath("nothing")},
                                  {sourcePath("t/a"), targetPath("nowhere/a")},
                                  {sourcePath("t/d"), targetPath("d")}},
                                 notes_);
    EXPECT_EQ(report.failed, 2U);
    EXPECT_EQ(notes_.failures.front().second.code(), FailureCode::NotFound);
    EXPECT_EQ(notes_.failures.front().second.path(), sourcePath("t/nothing"));
    EXPECT_EQ(Failure::last().operation(), "copyTree");
    EXPECT_THAT(targetNames(), ElementsAre("d"));
}

TEST_P(CopyTreeContract, OfTwoSourcesThatGoToOnePlaceTheFirstIsThere)
{
    makeTree();
    const auto report = copyTree(source(), target(),
                                 {{sourcePath("t/a"), targetPath("x")},
                                  {sourcePath("t/c"), targetPath("./x")},
                                  {sourcePath("t/b/1"), targetPath("y")},
                                  {sourcePath("t/b/./1"), targetPath("y")}},
                                 notes_);
    EXPECT_EQ(report.failed, 1U);
    EXPECT_EQ(report.failure.code(), FailureCode::Exists);
    EXPECT_EQ(report.failure.text(), "another source of this call goes there");
    EXPECT_EQ(notes_.failures.front().second.path(), targetPath("./x"));
    EXPECT_EQ(targetContent("x"), "bytes of t/a");
    EXPECT_EQ(targetContent("y"), "bytes of t/b/1");
    EXPECT_EQ(report.files, 2U);
    EXPECT_EQ(notes_.last.entriesDone, notes_.last.entriesFound);
    EXPECT_EQ(notes_.last.filesDone, 3U); // Of two spellings of one source, one counts.
    EXPECT_EQ(notes_.last.filesFound, 3U);
}

TEST_P(CopyTreeContract, DirectoriesThatGoToOnePlaceAreMergedAndTheirFilesReplaceNothing)
{
    makeTree();
    makeSourceDirectory("u/b");
    makeSourceDirectory("u/c");
    makeSource("u/b/1", "the second");
    makeSource("u/b/new", "new");
    const auto report = copyTree(source(), target(),
                                 {{sourcePath("t"), targetPath("m")},
                                  {sourcePath("u"), targetPath("m")},
                                  {sourcePath("u/b"), targetPath("m/b")}},
                                 notes_);
    EXPECT_EQ(targetContent("m/b/1"), "bytes of t/b/1");
    EXPECT_EQ(targetContent("m/b/new"), "new");
    EXPECT_EQ(targetContent("m/c"), "bytes of t/c");
    EXPECT_THAT(notes_.failedEntries(), UnorderedElementsAre("b/1", "1", "c"));
    EXPECT_EQ(report.failed, 3U);
    for (const auto& [entry, failure] : notes_.failures) {
        EXPECT_EQ(failure.code(), entry == "c" ? FailureCode::NotDirectory : FailureCode::Exists)
            << entry;
    }
}

TEST_P(CopyTreeContract, StopsWhereTheObserverSaysSoAndLeavesNothingHalf)
{
    makeSourceDirectory("t");
    const auto bytes = pseudoRandomBytes(8, 2'000'000);
    for (const auto* name : {"t/1", "t/2", "t/3"}) {
        makeSource(name, bytes);
    }
    notes_.mostBytes = 700'000;
    const auto report = copy("t", "copy");
    EXPECT_TRUE(report.isStopped);
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    EXPECT_THAT(notes_.failures, IsEmpty());
    for (const auto& name : namesIn("copy")) {
        EXPECT_TRUE(targetContent("copy/" + name) == bytes) << name;
    }
    EXPECT_LT(namesIn("copy").size(), 3U);
}

TEST_P(CopyTreeContract, AnExceptionOfTheObserverLeavesNothingHalf)
{
    makeTree();
    makeSource("t/large", pseudoRandomBytes(9, 2'000'000));
    notes_.throwsAt = "a";
    EXPECT_THROW(copy("t", "copy"), std::runtime_error);
    for (const auto& name : namesIn("copy")) {
        EXPECT_NE(name.front(), '.') << name;
    }
}

TEST_P(CopyTreeContract, GoesOnWhereAnEarlierCopyHasEnded)
{
    const auto bytes = pseudoRandomBytes(11, 3'000'000);
    makeSourceDirectory("t");
    makeSource("t/f", bytes);
    TreeCopyOptions options;
    options.standing = TreeStanding::Resume;
    notes_.mostBytes = 1'000'000;
    EXPECT_TRUE(copy("t", "copy", options).isStopped);
    EXPECT_THAT(notes_.failures, IsEmpty());
    EXPECT_THAT(notes_.parts, ElementsAre(Pair("f", TreePart::Copied)));
    EXPECT_EQ(notes_.lastPart, targetPath("copy/.f.tarnis-part"));
    const auto part = targetContent("copy/.f.tarnis-part");
    EXPECT_GE(part.size(), 1'000'000U);
    EXPECT_TRUE(part == bytes.substr(0, part.size()));
    notes_.mostBytes = ~std::uint64_t{0};
    const auto report = copy("t", "copy", options);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_TRUE(targetContent("copy/f") == bytes);
    EXPECT_THAT(namesIn("copy"), ElementsAre("f"));
    EXPECT_EQ(report.bytes, bytes.size());
}

TEST_P(CopyTreeContract, GoesOnInWhatIsTheBeginning)
{
    const auto bytes = pseudoRandomBytes(12, 1'000'000);
    makeSource("f", bytes);
    TreeCopyOptions options;
    options.standing = TreeStanding::Resume;
    for (const char* const name : {"f", ".f.tarnis-part"}) {
        makeTarget(name, bytes.substr(0, 700'001));
        const auto report = copy("f", "f", options);
        EXPECT_TRUE(report.isComplete()) << name << ": " << report.failure.message();
        EXPECT_EQ(report.files, 1U);
        EXPECT_TRUE(targetContent("f") == bytes) << name;
        EXPECT_FALSE(target().fileExists(targetPath(".f.tarnis-part"), false));
        EXPECT_TRUE(target().fileRemove(targetPath("f")));
    }
}

TEST_P(CopyTreeContract, GoesOnInNothingThatDiffers)
{
    const auto bytes = pseudoRandomBytes(13, 600'000);
    makeSource("f", bytes);
    auto other = bytes.substr(0, 500'000);
    other.front() = static_cast<char>(other.front() + 1);
    TreeCopyOptions options;
    options.standing = TreeStanding::Resume;
    for (const auto& standing : {other, bytes + "longer", std::string()}) {
        makeTarget(".f.tarnis-part", standing);
        makeTarget("f", standing);
        EXPECT_TRUE(copy("f", "f", options).isComplete());
        EXPECT_TRUE(targetContent("f") == bytes) << standing.size();
        EXPECT_FALSE(target().fileExists(targetPath(".f.tarnis-part"), false));
    }
}

TEST_P(CopyTreeContract, LeavesOutWhatIsWhole)
{
    const auto bytes = pseudoRandomBytes(14, 600'000);
    makeSource("f", bytes);
    makeTarget("f", bytes);
    TreeCopyOptions options;
    options.standing = TreeStanding::Resume;
    const auto report = copy("f", "f", options);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.skipped, 1U);
    EXPECT_EQ(report.files, 0U);
    EXPECT_THAT(notes_.leftOut, ElementsAre(""));
}

TEST_P(CopyTreeContract, RemovesWhatTheSourceHasNotWhenWanted)
{
    makeTree();
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy/b/other/deep"), false));
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy/kept"), false));
    for (const auto* const name : {"copy/b/other/file", "copy/b/old", "copy/kept/file", "copy/c"}) {
        makeTarget(name, "other");
    }
    notes_.unwanted = {"c", "kept"};
    TreeCopyOptions options;
    options.removesOthers = options.preservesTimes = true;
    options.isDryRun = true;
    EXPECT_EQ(copy("t", "copy", options).removed, 4U);
    EXPECT_TRUE(target().fileExists(targetPath("copy/b/old")));
    const std::vector<std::string> others{"b/old", "b/other", "b/other/deep", "b/other/file"};
    EXPECT_THAT(notes_.gone, UnorderedElementsAreArray(others));
    notes_.gone.clear();
    options.isDryRun = false;
    const auto report = copy("t", "copy", options);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.removed, 4U);
    EXPECT_THAT(notes_.gone, UnorderedElementsAreArray(others));
    EXPECT_THAT(namesIn("copy/b"), ElementsAre("1", "2", "deep"));
    EXPECT_THAT(namesIn("copy"), ElementsAre("a", "b", "c", "d", "empty", "kept"));
    EXPECT_EQ(targetContent("copy/c"), "other") << "what is not wanted from the source stays";
    EXPECT_EQ(targetContent("copy/kept/file"), "other");
    const auto from = source().directoryInfo(sourcePath("t/b"));
    const auto to = target().directoryInfo(targetPath("copy/b"));
    ASSERT_TRUE(from && to);
    EXPECT_EQ(secondsOf(from->modTime), secondsOf(to->modTime));
}

TEST_P(CopyTreeContract, RemovesNothingThatAnotherTreeBringsThere)
{
    for (const auto* const name : {"t", "u"}) {
        makeSourceDirectory(name);
        makeSource(std::string(name) + "/of-" + name, "bytes");
    }
    ASSERT_TRUE(target().directoryMakePath(targetPath("copy"), false));
    makeTarget("copy/old", "old");
    TreeCopyOptions options;
    options.removesOthers = true;
    const auto report =
        copyTree(source(), target(),
                 {{sourcePath("t"), targetPath("copy")}, {sourcePath("u"), targetPath("copy")}},
                 notes_, options);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_THAT(namesIn("copy"), ElementsAre("of-t", "of-u", "old"));
}

TEST_P(CopyTreeContract, RemovesNoSourceOfItsOwn)
{
    ASSERT_TRUE(target().directoryMakePath(targetPath("all/of/it/deep"), false));
    ASSERT_TRUE(target().directoryMakePath(targetPath("all/sub"), false));
    for (const auto* const name : {"all/of/it/deep/1", "all/of/it/2", "all/of/old", "all/sub/3"}) {
        makeTarget(name, "bytes");
    }
    TreeCopyOptions options;
    options.removesOthers = true;
    for (const bool isDryRun : {true, false}) {
        options.isDryRun = isDryRun;
        notes_.gone.clear();
        const auto report = copyTree(target(), target(),
                                     {{targetPath("all/of/it"), targetPath("all")},
                                      {targetPath("all/of/it/2"), targetPath("copy")}},
                                     notes_, options);
        EXPECT_TRUE(report.isComplete()) << report.failure.message();
        EXPECT_THAT(notes_.gone, UnorderedElementsAre("of/old", "sub", "sub/3"));
    }
    EXPECT_THAT(namesIn("all"), ElementsAre("2", "deep", "of"));
    EXPECT_THAT(namesIn("all/of"), ElementsAre("it"));
    EXPECT_THAT(namesIn("all/of/it"), ElementsAre("2", "deep"));
    EXPECT_EQ(targetContent("all/of/it/deep/1"), "bytes");
}

TEST_P(CopyTreeContract, WritesInPlaceWhenWanted)
{
    makeSourceDirectory("t");
    makeSource("t/file", "new bytes");
    TreeCopyOptions options;
    options.isInPlace = true;
    for (const char* before : {"longer than what is copied", "short", ""}) {
        ASSERT_TRUE(target().directoryMakePath(targetPath("copy"), false));
        makeTarget("copy/file", before);
        makeTargetHardLink("copy/file", "other name");
        ASSERT_TRUE(target().fileSetPermissions(targetPath("copy/file"), Permissions{0640U}));
        const auto report = copy("t", "copy", options);
        EXPECT_TRUE(report.isComplete()) << report.failure.message();
        EXPECT_EQ(targetContent("copy/file"), "new bytes");
        EXPECT_EQ(targetContent("other name"), "new bytes") << "not the same file";
        EXPECT_EQ(target().fileGetPermissions(targetPath("copy/file")), Permissions{0640U});
        EXPECT_TRUE(target().fileRemove(targetPath("other name")));
        EXPECT_TRUE(target().directoryRemove(targetPath("copy"), true));
    }
    EXPECT_TRUE(copy("t/file", "new", options).isComplete());
    EXPECT_EQ(targetContent("new"), "new bytes");
    EXPECT_THAT(targetNames(), ElementsAre("new"));
}

TEST_P(CopyTreeContract, WritesNothingInPlaceOfItsOwnSource)
{
    if (&source() != &target()) {
        return;
    }
    makeSource("file", "bytes");
    TreeCopyOptions options;
    options.isInPlace = true;
    const auto report = copyTree(source(), target(),
                                 {{sourcePath("file"), sourceRoot() + "/./file"}}, notes_, options);
    EXPECT_EQ(report.failed, 1U);
    EXPECT_EQ(report.failure.code(), FailureCode::IntoItself);
    EXPECT_EQ(sourceContent("file"), "bytes");
}

TEST_P(CopyTreeContract, CopiesLinksAsLinks)
{
    if (!require(capabilities().makesSymbolicLinks) ||
        !require(capabilities().tellsRelativeTargets) || !require(capabilities().renamesLinks)) {
        return;
    }
    makeTree();
    ASSERT_TRUE(source().fileSymbolicLinkCreateAs("b", sourcePath("t/link"), true));
    const auto report = copy("t", "copy");
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.links, 1U);
    EXPECT_EQ(target().fileSymbolicLinkTarget(targetPath("copy/link")), "b");
}

TEST_P(CopyTreeContract, NeverCopiesATreeIntoItself)
{
    if (&source() != &target()) {
        return;
    }
    makeTree();
    const auto report =
        copyTree(source(), target(), {{sourcePath("t"), sourcePath("t/b/copy")}}, notes_);
    EXPECT_EQ(report.failed, 1U);
    EXPECT_EQ(report.failure.code(), FailureCode::IntoItself);
    EXPECT_THAT(source().directoryListFileNames(sourcePath("t/b")), ElementsAre("1", "2", "deep"));
}

INSTANTIATE_TEST_SUITE_P(Contract, CopyTreeContract, testing::ValuesIn(copyRoutes()),
                         copyRouteName);

} // namespace

} // namespace TarnisTest
