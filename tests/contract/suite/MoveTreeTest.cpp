// Moves within one storage system, by the function for trees.

#include "contract/ContractTest.h"

#include <FileSystem/Failure.h>
#include <FileSystem/TreeOperations.h>

#include <stdexcept>

namespace TarnisTest {

namespace {

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::moveTree;
using FileSystem::moveTrees;
using FileSystem::TreeMoveOutcome;
using FileSystem::TreeMovePath;
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

/// Many at once.
class MoveTreesContract : public ContractTest
{
protected:
    static constexpr std::size_t many = 20;

    /// Files of which each holds its name, to go into the directory "there".
    std::vector<TreeMovePath> makeFiles()
    {
        makeDirectory("there");
        std::vector<TreeMovePath> paths;
        for (std::size_t number = 0; number < many; ++number) {
            const std::string name = "file" + std::to_string(number);
            makeFile(name, name);
            paths.push_back({path(name), path("there/" + name)});
        }
        return paths;
    }

    TreeMovePath fromTo(const std::string& from, const std::string& to) const
    {
        return {path(from), path(to)};
    }

    /// Whether a file is whole, in one of its two places and not in the other.
    bool isInOnePlace(const TreeMovePath& file)
    {
        const bool isMoved = system().fileExists(file.newPath, false);
        return isMoved != system().fileExists(file.path, false) &&
               contentOf(isMoved ? file.newPath : file.path) ==
                   file.path.substr(file.path.rfind('/') + 1);
    }
};

TEST_P(MoveTreesContract, EachGetsItsPathOrAFailureOfItsOwn)
{
    auto paths = makeFiles();
    makeFile("there/taken", "stays");
    makeFile("loser", "loser");
    paths.insert(paths.begin() + 3, fromTo("loser", "there/taken"));
    paths.insert(paths.begin() + 5, fromTo("missing", "there/missing"));
    paths.insert(paths.begin() + 7, fromTo("there", "there/below"));
    std::vector<Notes> notes(paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i) {
        paths[i].observer = &notes[i];
    }
    const auto reports = moveTrees(system(), paths);
    EXPECT_EQ(Failure::last().code(), FailureCode::Exists);
    ASSERT_EQ(reports.size(), paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const bool fails = i == 3 || i == 5 || i == 7;
        EXPECT_EQ(reports[i].outcome, fails ? TreeMoveOutcome::Failed : TreeMoveOutcome::Renamed);
        EXPECT_EQ(reports[i].files, fails ? 0U : 1U);
        EXPECT_FALSE(reports[i].isStopped);
        EXPECT_EQ(notes[i].moved.size(), fails ? 0U : 1U);
        EXPECT_EQ(notes[i].failures.size(), fails ? 1U : 0U);
        EXPECT_TRUE(fails || isInOnePlace(paths[i])) << paths[i].path;
    }
    EXPECT_EQ(reports[3].failure.code(), FailureCode::Exists);
    EXPECT_EQ(reports[5].failure.code(), FailureCode::NotFound);
    EXPECT_EQ(reports[7].failure.code(), FailureCode::IntoItself);
    EXPECT_EQ(contentOf(path("loser")), "loser");
    EXPECT_EQ(contentOf(path("there/taken")), "stays");
    EXPECT_THAT(names(), ElementsAre("loser", "there"));
}

TEST_P(MoveTreesContract, WhatDependsOnAnotherComesAfterIt)
{
    auto paths = makeFiles();
    makeFile("first", "first");
    makeFile("second", "second");
    makeDirectory("tree");
    makeFile("tree/inner", "inner");
    for (const auto& move :
         {fromTo("first", "there/one"), fromTo("second", "there/one"), fromTo("tree", "there/tree"),
          fromTo("tree/inner", "there/inner"), fromTo("./there/../second", "there/two"),
          fromTo("there/two", "there/three"), fromTo("first", "there/four")}) {
        paths.push_back(move);
    }
    const auto reports = moveTrees(system(), paths);
    ASSERT_EQ(reports.size(), many + 7);
    const auto code = [&](std::size_t i) { return reports[many + i].failure.code(); };
    EXPECT_EQ(code(0), std::error_code());
    EXPECT_EQ(code(1), FailureCode::Exists);
    EXPECT_EQ(code(2), std::error_code());
    EXPECT_EQ(code(3), FailureCode::NotFound);
    EXPECT_EQ(code(6), FailureCode::NotFound);
    EXPECT_EQ(contentOf(path("there/one")), "first");
    EXPECT_EQ(contentOf(path("there/three")), "second");
    EXPECT_EQ(contentOf(path("there/tree/inner")), "inner");
}

TEST_P(MoveTreesContract, NothingMoreIsBegunAfterAStop)
{
    class Stopping final : public FileSystem::TreeObserver
    {
        bool progress(const FileSystem::TreeProgress& /*progress*/) override { return false; }
    } stopping;

    auto paths = makeFiles();
    paths[5].observer = &stopping;
    const auto reports = moveTrees(system(), paths);
    EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
    ASSERT_EQ(reports.size(), many);
    for (std::size_t i = 0; i < many; ++i) {
        EXPECT_EQ(reports[i].isStopped, i >= 5) << i;
        EXPECT_EQ(system().fileExists(paths[i].newPath, false), i < 5) << i;
        EXPECT_TRUE(isInOnePlace(paths[i])) << i;
    }
}

TEST_P(MoveTreesContract, NothingIsLostByAnException)
{
    class Throwing final : public FileSystem::TreeObserver
    {
        void done(const FileSystem::TreeEntry& /*entry*/) override
        {
            throw std::runtime_error("enough");
        }
    } throwing;

    auto paths = makeFiles();
    paths[2].observer = &throwing;
    EXPECT_THROW(static_cast<void>(moveTrees(system(), paths)), std::runtime_error);
    for (const auto& file : paths) {
        EXPECT_TRUE(isInOnePlace(file)) << file.path;
    }
    EXPECT_TRUE(system().fileExists(paths[2].newPath, false));
}

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
INSTANTIATE_TEST_SUITE_P(Contract, MoveTreesContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
