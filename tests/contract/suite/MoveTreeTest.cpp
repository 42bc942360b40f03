// Moves within one storage system, by the function for trees.

#include "contract/ContractTest.h"

#include <FileSystem/Failure.h>
#include <FileSystem/TreeOperations.h>

namespace TarnisTest {

namespace {

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::moveTree;
using FileSystem::TreeMoveOutcome;
using FileSystem::TreeMoveReport;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Notes : public FileSystem::TreeObserver
{
public:
    void done(const FileSystem::TreeEntry& entry) override { moved.push_back(entry.target); }

    bool failed(const FileSystem::TreeEntry& entry, const Failure& failure) override
    {
        failures.push_back(failure.code());
        paths.push_back(entry.path);
        return true;
    }

    std::vector<std::string> moved;
    std::vector<std::error_code> failures;
    std::vector<std::string> paths;
};

class MoveTreeContract : public ContractTest
{
protected:
    TreeMoveReport move(const std::string& from, const std::string& to,
                        const FileSystem::TreeOptions& options = {})
    {
        return moveTree(system(), path(from), path(to), notes_, options);
    }

    void expectFailure(const TreeMoveReport& report, FailureCode code)
    {
        EXPECT_EQ(report.outcome, TreeMoveOutcome::Failed);
        EXPECT_FALSE(report.isComplete());
        EXPECT_EQ(report.failed, 1U);
        EXPECT_EQ(report.failure.code(), code) << report.failure.message();
        EXPECT_EQ(Failure::last().code(), code);
        ASSERT_EQ(notes_.failures.size(), 1U);
        EXPECT_EQ(notes_.failures.front(), code);
        EXPECT_THAT(notes_.moved, IsEmpty());
        notes_.failures.clear();
        notes_.paths.clear();
    }

    Notes notes_;
};

TEST_P(MoveTreeContract, AFileATreeAndALinkGetTheirNewPaths)
{
    makeFile("file", "bytes");
    makeDirectory("tree");
    makeFile("tree/file", "bytes below");
    makeDirectory("there");
    EXPECT_EQ(move("file", "there/a").files, 1U);
    EXPECT_EQ(move("tree", "there/b").directories, 1U);
    EXPECT_FALSE(Failure::last());
    EXPECT_EQ(contentOf(path("there/a")), "bytes");
    EXPECT_EQ(contentOf(path("there/b/file")), "bytes below");
    EXPECT_THAT(notes_.moved, ElementsAre(path("there/a"), path("there/b")));
    EXPECT_THAT(notes_.failures, IsEmpty());
    EXPECT_THAT(names(), ElementsAre("there"));
    if (require(capabilities().renamesLinks) && require(capabilities().makesSymbolicLinks)) {
        makeLink("link", textTo("there"));
        const auto report = move("link/", "there/c");
        EXPECT_EQ(report.outcome, TreeMoveOutcome::Renamed);
        EXPECT_EQ(report.links, 1U);
        EXPECT_TRUE(system().fileIsSymbolicLink(path("there/c")));
    }
}

TEST_P(MoveTreeContract, WhatStandsThereStays)
{
    makeFile("file", "bytes");
    makeFile("other", "other bytes");
    makeDirectory("directory");
    makeDirectory("empty");
    expectFailure(move("file", "other"), FailureCode::Exists);
    expectFailure(move("file", "empty"), FailureCode::Exists);
    expectFailure(move("directory", "empty"), FailureCode::Exists);
    expectFailure(move("directory", "file"), FailureCode::Exists);
    EXPECT_EQ(contentOf(path("file")), "bytes");
    EXPECT_EQ(contentOf(path("other")), "other bytes");
    EXPECT_THAT(names(), ElementsAre("directory", "empty", "file", "other"));
}

TEST_P(MoveTreeContract, WhatCannotBeMovedIsAFailure)
{
    makeDirectory("directory");
    makeFile("file", "bytes");
    expectFailure(move("missing", "new"), FailureCode::NotFound);
    expectFailure(move("directory", "directory/below"), FailureCode::IntoItself);
    expectFailure(move("directory/..", "new"), FailureCode::BadName);
    expectFailure(move("directory", "directory/.."), FailureCode::BadName);
    EXPECT_FALSE(move("file", "missing/new").isComplete());
    EXPECT_FALSE(move("directory", "missing/new").isComplete());
    EXPECT_THAT(names(), ElementsAre("directory", "file"));
    EXPECT_THAT(names(path("directory")), IsEmpty());
}

TEST_P(MoveTreeContract, ADryRunMovesNothing)
{
    FileSystem::TreeOptions options;
    options.isDryRun = true;
    makeFile("file", "bytes");
    makeFile("other", "other bytes");
    expectFailure(move("file", "other", options), FailureCode::Exists);
    EXPECT_TRUE(move("file", "new", options).isComplete());
    EXPECT_THAT(notes_.moved, ElementsAre(path("new")));
    EXPECT_THAT(names(), ElementsAre("file", "other"));
}

INSTANTIATE_TEST_SUITE_P(Contract, MoveTreeContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
