// Walks and removals of trees, with many operations in flight.

#include "contract/ContractTest.h"
#include "contract/Notes.h"

#include <FileSystem/TreeOperations.h>

#include <algorithm>
#include <functional>
#include <stdexcept>

namespace TarnisTest {

namespace {

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::removeTree;
using FileSystem::TreeEntry;
using FileSystem::TreeObserver;
using FileSystem::TreeOptions;
using FileSystem::TreeReport;
using FileSystem::walkTree;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class TreeContract : public ContractTest
{
protected:
    /// A tree "t" with files in three directories.
    void makeTree()
    {
        for (const auto* directory : {"t", "t/b", "t/b/deep", "t/d", "t/empty"}) {
            makeDirectory(directory);
        }
        for (const auto* file : {"t/a", "t/c", "t/b/1", "t/b/2", "t/b/deep/x", "t/d/3"}) {
            makeFile(file);
        }
    }

    TreeReport walk(const std::vector<std::string>& roots, const TreeOptions& options = {})
    {
        return walkTree(system(), roots, notes_, options);
    }

    TreeReport remove(const std::vector<std::string>& roots, const TreeOptions& options = {})
    {
        return removeTree(system(), roots, notes_, options);
    }

    /// Takes the permissions of a directory away, for as long as the test lasts.
    void close(const std::string& directory)
    {
        ASSERT_TRUE(system().directorySetPermissions(directory, Permissions{0U}));
        closed_.push_back(directory);
    }

    void TearDown() override
    {
        for (const auto& directory : closed_) {
            EXPECT_TRUE(system().directorySetPermissions(directory, Permissions{0700U}));
        }
        ContractTest::TearDown();
    }

    Notes notes_;

private:
    std::vector<std::string> closed_;
};

TEST_P(TreeContract, AWalkTellsEachDirectorysEntriesAndThenWhatIsBelowThem)
{
    makeTree();
    const auto report = walk({path("t")});
    EXPECT_THAT(notes_.seen, ElementsAre("", "a", "b", "c", "d", "empty", "b/1", "b/2", "b/deep",
                                         "b/deep/x", "d/3"));
    EXPECT_THAT(notes_.finished, ElementsAre("a", "c", "", "b/1", "b/2", "b", "b/deep/x", "b/deep",
                                             "d/3", "d", "empty"));
    EXPECT_EQ(notes_.paths.front(), path("t"));
    EXPECT_EQ(notes_.paths.back(), path("t/d/3"));
    EXPECT_TRUE(report.isComplete());
    EXPECT_EQ(report.files, 6U);
    EXPECT_EQ(report.directories, 5U);
    EXPECT_EQ(report.links, 0U);
    EXPECT_FALSE(Failure::last());
    EXPECT_EQ(notes_.last.entriesDone, 11U);
    EXPECT_EQ(notes_.last.entriesFound, 11U);
    EXPECT_EQ(notes_.last.filesDone, 6U);
    EXPECT_EQ(notes_.last.filesFound, 6U);
    EXPECT_TRUE(notes_.last.isAllFound);
}

TEST_P(TreeContract, AWalkGoesDownInTheOrderThatItsObserverWants)
{
    makeTree();
    notes_.isBackward = true;
    EXPECT_TRUE(walk({path("t")}).isComplete());
    EXPECT_THAT(notes_.seen, ElementsAre("", "a", "b", "c", "d", "empty", "d/3", "b/1", "b/2",
                                         "b/deep", "b/deep/x"));
}

TEST_P(TreeContract, AWalkTellsWhatAnEntryIs)
{
    makeDirectory("t");
    makeFile("t/f", "seven b");

    class : public TreeObserver
    {
    public:
        bool wants(const TreeEntry& entry) override
        {
            if (entry.below == "f") {
                attributes = entry.attributes;
            }
            return true;
        }

        FileSystem::StorageSystemAttributes attributes;
    } file;

    EXPECT_TRUE(walkTree(system(), {path("t")}, file).isComplete());
    EXPECT_EQ(file.attributes.size, 7U);
    EXPECT_EQ(file.attributes.type, Types(FileType::Regular));
    EXPECT_TRUE(file.attributes.modTime);
    EXPECT_TRUE(file.attributes.permissions);
}

TEST_P(TreeContract, AWalkOfManyDirectoriesKeepsTheirOrder)
{
    constexpr int directories = 60;
    std::vector<std::string> expected{""};
    makeDirectory("t");
    for (int i = 10; i < 10 + directories; ++i) {
        makeDirectory("t/" + std::to_string(i));
        makeFile("t/" + std::to_string(i) + "/f");
        expected.push_back(std::to_string(i));
    }
    for (int i = 10; i < 10 + directories; ++i) {
        expected.push_back(std::to_string(i) + "/f");
    }
    EXPECT_TRUE(walk({path("t")}).isComplete());
    EXPECT_THAT(notes_.seen, ElementsAreArray(expected));
}

TEST_P(TreeContract, AWalkGoesIntoNothingThatIsNotWanted)
{
    makeTree();
    notes_.unwanted = {"b", "d/3"};
    const auto report = walk({path("t")});
    EXPECT_THAT(notes_.seen, ElementsAre("", "a", "b", "c", "d", "empty", "d/3"));
    EXPECT_TRUE(report.isComplete());
    EXPECT_EQ(report.files, 2U);
}

TEST_P(TreeContract, AWalkHasAsManyRootsAsItIsGiven)
{
    makeTree();
    const auto report = walk({path("t/d"), path("t/nothing"), path("t/a"), path("t/b/deep")});
    EXPECT_THAT(notes_.paths, ElementsAre(path("t/d"), path("t/d/3"), path("t/a"), path("t/b/deep"),
                                          path("t/b/deep/x")));
    EXPECT_EQ(report.failed, 1U);
    EXPECT_EQ(report.failure.code(), FailureCode::NotFound);
    EXPECT_EQ(Failure::last().code(), FailureCode::NotFound);
    EXPECT_EQ(Failure::last().operation(), "walkTree");
    ASSERT_EQ(notes_.failures.size(), 1U);
    EXPECT_EQ(notes_.failures.front().second.path(), path("t/nothing"));
}

TEST_P(TreeContract, AWalkOfNothingIsComplete)
{
    EXPECT_TRUE(walk({}).isComplete());
    EXPECT_TRUE(remove({}).isComplete());
    EXPECT_FALSE(Failure::last());
}

TEST_P(TreeContract, AWalkGoesOnPastADirectoryThatMayNotBeRead)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeTree();
    close(path("t/b"));
    const auto report = walk({path("t")});
    EXPECT_THAT(notes_.failedEntries(), ElementsAre("b"));
    EXPECT_EQ(report.failure.code(), FailureCode::Denied);
    EXPECT_EQ(report.failure.path(), path("t/b"));
    EXPECT_FALSE(report.isStopped);
    EXPECT_THAT(notes_.seen, ElementsAre("", "a", "b", "c", "d", "empty", "d/3"));
}

TEST_P(TreeContract, AWalkStopsAtAFailureWhereTheObserverSaysSo)
{
    makeTree();
    notes_.goesOn = false;
    const auto report = walk({path("t/nothing"), path("t")});
    EXPECT_TRUE(report.isStopped);
    EXPECT_EQ(report.failed, 1U);
    EXPECT_THAT(notes_.seen, IsEmpty());
}

TEST_P(TreeContract, AWalkStopsWhereItsProgressSaysSo)
{
    makeTree();
    notes_.mostFinished = 1;
    const auto report = walk({path("t")});
    EXPECT_TRUE(report.isStopped);
    EXPECT_FALSE(report.isComplete());
    EXPECT_EQ(report.failed, 0U);
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    EXPECT_THAT(notes_.seen, ElementsAre("", "a", "b", "c", "d", "empty"));
}

TEST_P(TreeContract, AnExceptionOfTheObserverEndsAWalk)
{
    makeTree();
    notes_.throwsAt = "b/2";
    EXPECT_THROW(walk({path("t")}), std::runtime_error);
    EXPECT_EQ(notes_.seen.back(), "b/2");
}

TEST_P(TreeContract, OneOperationInFlightIsEnough)
{
    makeTree();
    TreeOptions options;
    options.inFlight = 1;
    EXPECT_TRUE(walk({path("t")}, options).isComplete());
    EXPECT_EQ(notes_.seen.size(), 11U);
    EXPECT_TRUE(remove({path("t")}, options).isComplete());
    EXPECT_TRUE(isMissing(path("t")));
}

TEST_P(TreeContract, AWalkFollowsNoLink)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeTree();
    makeLink("t/d/link", textTo("t/b"));
    const auto report = walk({path("t/d")});
    EXPECT_THAT(notes_.seen, ElementsAre("", "3", "link"));
    EXPECT_EQ(report.links, 1U);
    EXPECT_TRUE(report.isComplete());
}

TEST_P(TreeContract, ARemovalTakesAllBelowItsRoot)
{
    makeTree();
    makeFile("t2");
    const auto report = remove({path("t")});
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_FALSE(Failure::last());
    EXPECT_EQ(report.files, 6U);
    EXPECT_EQ(report.directories, 5U);
    EXPECT_THAT(names(), ElementsAre("t2"));
    EXPECT_THAT(notes_.finished, UnorderedElementsAre("", "a", "b", "b/1", "b/2", "b/deep",
                                                      "b/deep/x", "c", "d", "d/3", "empty"));
    EXPECT_EQ(notes_.finished.back(), "");
    EXPECT_EQ(notes_.last.entriesDone, 11U);
    EXPECT_EQ(notes_.last.filesDone, 6U);
    EXPECT_EQ(notes_.last.filesFound, 6U);
    EXPECT_TRUE(notes_.last.isAllFound);
}

TEST_P(TreeContract, ARemovalOfManyEntriesIsWhole)
{
    makeDirectory("t");
    for (int i = 0; i < 12; ++i) {
        const auto directory = "t/" + std::to_string(i);
        makeDirectory(directory);
        for (int j = 0; j < 30; ++j) {
            makeFile(directory + "/" + std::to_string(j), "");
        }
    }
    const auto report = remove({path("t")});
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.files, 360U);
    EXPECT_EQ(report.directories, 13U);
    EXPECT_TRUE(isMissing(path("t")));
}

TEST_P(TreeContract, ARemovalTakesFilesAsRoots)
{
    makeTree();
    const auto report = remove({path("t/a"), path("t/nothing"), path("t/d"), path("t/c")});
    EXPECT_EQ(report.files, 3U);
    EXPECT_EQ(report.directories, 1U);
    EXPECT_EQ(report.failed, 1U);
    EXPECT_EQ(report.failure.code(), FailureCode::NotFound);
    EXPECT_EQ(report.failure.path(), path("t/nothing"));
    EXPECT_EQ(Failure::last().operation(), "removeTree");
    EXPECT_THAT(names(path("t")), ElementsAre("b", "empty"));
}

TEST_P(TreeContract, ARemovalLeavesWhatIsNotWantedAndWhereItIs)
{
    makeTree();
    notes_.unwanted = {"b/deep", "d"};
    const auto report = remove({path("t")});
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_THAT(names(path("t")), ElementsAre("b", "d"));
    EXPECT_THAT(names(path("t/b")), ElementsAre("deep"));
    EXPECT_THAT(names(path("t/d")), ElementsAre("3"));
    EXPECT_EQ(report.files, 4U);
    EXPECT_EQ(report.directories, 1U);
    EXPECT_EQ(notes_.last.entriesDone, notes_.last.entriesFound);
    EXPECT_EQ(notes_.last.filesDone, 4U);
    EXPECT_EQ(notes_.last.filesFound, 4U);
}

TEST_P(TreeContract, ADryRemovalChangesNothing)
{
    makeTree();
    TreeOptions options;
    options.isDryRun = true;
    const auto report = remove({path("t")}, options);
    EXPECT_TRUE(report.isComplete());
    EXPECT_EQ(report.files, 6U);
    EXPECT_EQ(report.directories, 5U);
    EXPECT_EQ(notes_.finished.back(), "");
    EXPECT_THAT(names(path("t")), ElementsAre("a", "b", "c", "d", "empty"));
    EXPECT_THAT(names(path("t/b/deep")), ElementsAre("x"));
}

TEST_P(TreeContract, ARemovalGoesOnPastWhatCannotBeRemoved)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeTree();
    ASSERT_TRUE(system().directorySetPermissions(path("t/b"), Permissions{0500U}));
    const auto report = remove({path("t")});
    ASSERT_TRUE(system().directorySetPermissions(path("t/b"), Permissions{0700U}));
    EXPECT_THAT(notes_.failedEntries(), UnorderedElementsAre("b/1", "b/2", "b/deep"));
    EXPECT_EQ(report.failed, 3U);
    EXPECT_EQ(report.failure.code(), FailureCode::Denied);
    EXPECT_FALSE(report.isStopped);
    EXPECT_THAT(names(path("t")), ElementsAre("b"));
    EXPECT_THAT(names(path("t/b")), ElementsAre("1", "2", "deep"));
    EXPECT_THAT(names(path("t/b/deep")), IsEmpty());
}

TEST_P(TreeContract, ADirectoryThatMayNotBeReadIsToldForThat)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeTree();
    close(path("t/b"));
    const auto report = remove({path("t")});
    EXPECT_THAT(notes_.failedEntries(), ElementsAre("b"));
    EXPECT_EQ(report.failure.code(), FailureCode::Denied);
    EXPECT_THAT(names(path("t")), ElementsAre("b"));
}

TEST_P(TreeContract, AnEmptyDirectoryThatMayNotBeReadIsRemoved)
{
    if (!require(capabilities().enforcesPermissions)) {
        return;
    }
    makeTree();
    ASSERT_TRUE(system().directorySetPermissions(path("t/empty"), Permissions{0U}));
    const auto report = remove({path("t")});
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_TRUE(isMissing(path("t")));
}

TEST_P(TreeContract, ARemovalStopsWhereTheObserverSaysSo)
{
    makeTree();
    notes_.mostFinished = 1;
    TreeOptions options;
    options.inFlight = 1;
    const auto report = remove({path("t")}, options);
    EXPECT_TRUE(report.isStopped);
    EXPECT_EQ(report.files + report.directories, 1U);
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    EXPECT_FALSE(isMissing(path("t")));
}

TEST_P(TreeContract, AnExceptionOfTheObserverEndsARemoval)
{
    makeTree();
    notes_.throwsAt = "c";
    EXPECT_THROW(remove({path("t")}), std::runtime_error);
    EXPECT_FALSE(isMissing(path("t")));
    notes_.throwsAt = "nowhere";
    EXPECT_TRUE(remove({path("t")}).isComplete());
}

TEST_P(TreeContract, ARootWithoutANameIsNotRemoved)
{
    makeTree();
    for (const std::string& root :
         {std::string("/"), std::string(), path("t/.."), path("t/."), std::string(".")}) {
        const auto report = remove({root});
        EXPECT_EQ(report.failed, 1U) << root;
        EXPECT_EQ(report.failure.code(), FailureCode::BadName) << root;
    }
    EXPECT_THAT(names(path("t")), ElementsAre("a", "b", "c", "d", "empty"));
}

TEST_P(TreeContract, ARemovalTakesLinksAndNotWhatTheyLeadTo)
{
    if (!require(capabilities().makesSymbolicLinks)) {
        return;
    }
    makeTree();
    makeLink("t/d/link", textTo("t/b"));
    makeLink("t/d/dangling", textTo("nothing"));
    const auto link = makeLink("root", textTo("t/b"));
    const auto report = remove({path("t/d"), link + "/"});
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.links, 3U);
    EXPECT_THAT(names(), ElementsAre("t"));
    EXPECT_THAT(names(path("t/b")), ElementsAre("1", "2", "deep"));
}

TEST_P(TreeContract, AwkwardNamesAreWalkedAndRemoved)
{
    makeDirectory("t");
    const auto& all =
        capabilities().takesAnyBytesInNames.isPresent() ? awkwardNames() : awkwardTextNames();
    for (const auto& name : all) {
        makeFile("t/" + name);
    }
    std::vector<std::string> expected = all;
    expected.emplace_back();
    std::sort(expected.begin(), expected.end());
    EXPECT_TRUE(walk({path("t")}).isComplete());
    EXPECT_THAT(notes_.seen, ElementsAreArray(expected));
    EXPECT_TRUE(remove({path("t")}).isComplete());
    EXPECT_TRUE(isMissing(path("t")));
}

TEST_P(TreeContract, APipeIsRemoved)
{
    makeDirectory("t");
    makePipe("t/pipe");
    const auto report = remove({path("t")});
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_TRUE(isMissing(path("t")));
}

INSTANTIATE_TEST_SUITE_P(Contract, TreeContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
