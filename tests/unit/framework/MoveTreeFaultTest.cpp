// Moves of which one step fails: every step in its turn.

#include <FileSystem/Failure.h>
#include <FileSystem/MemoryFileSystem.h>
#include <FileSystem/StorageSystemFile.h>
#include <FileSystem/TreeOperations.h>

#include <gmock/gmock.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace TarnisTest {

namespace {

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::FileSystem2;
using FileSystem::MemoryFault;
using FileSystem::MemoryFileSystem;
using FileSystem::MemoryOperation;
using FileSystem::moveTree;
using FileSystem::TreeEntry;
using FileSystem::TreeMoveOutcome;
using FileSystem::TreeMoveReport;
using FileSystem::TreeObserver;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Mode = FileSystem::StorageSystemFileOpenModeFlag;
using Kind = FileSystem::MemoryOperationKind;

/// What stands below a path, by the path from there; of a file its bytes, of a link its text.
using Contents = std::map<std::string, std::string>;

void write(const FileSystem2& system, const std::string& path, const std::string& bytes)
{
    const auto file = system.fileOpen(path, Mode::Write | Mode::Create | Mode::Truncate);
    ASSERT_NE(file, nullptr) << path;
    ASSERT_TRUE(file->writeFully(bytes.data(), bytes.size()));
}

std::string contentOf(const FileSystem2& system, const std::string& path)
{
    const auto file = system.fileOpen(path, Mode::Read);
    std::string bytes(1000, '\0');
    bytes.resize(file != nullptr ? file->readFully(bytes.data(), bytes.size()).count : 0);
    return bytes;
}

void collect(const FileSystem2& system, const std::string& path, const std::string& below,
             Contents& tree)
{
    const auto info = system.fileInfo(path);
    if (!info) {
        return;
    }
    if (isSymbolicLink(info->type)) {
        tree[below] = "-> " + system.fileSymbolicLinkTarget(path).value_or("");
    } else if (!isDirectory(info->type)) {
        tree[below] = contentOf(system, path);
    } else {
        tree[below] = "directory";
        for (const auto& name : system.directoryListFileNames(path)) {
            collect(system, path + "/" + name, below + "/" + name, tree);
        }
    }
}

Contents treeAt(const FileSystem2& system, const std::string& path)
{
    Contents tree;
    collect(system, path, "", tree);
    return tree;
}

class Told : public TreeObserver
{
public:
    bool failed(const TreeEntry& entry, const Failure& failure) override
    {
        failures.emplace(entry.below, failure);
        EXPECT_EQ(entry.path, "/from/t" + (entry.below.empty() ? "" : "/" + entry.below));
        return true;
    }

    std::multimap<std::string, Failure> failures;
};

/// "/from" and "/to" are on two volumes.
class MoveTreeFaultTest : public testing::Test
{
protected:
    enum class What
    {
        File,
        Tree,
    };

    /// A system of its own for each move.
    void start(What what)
    {
        system_ = std::make_unique<MemoryFileSystem>();
        others_ = system_->another();
        ASSERT_TRUE(others_->directoryCreateAs("/from", true));
        ASSERT_TRUE(others_->directoryCreateAs("/to", true));
        if (what == What::File) {
            write(*others_, "/from/t", "bytes");
        } else {
            ASSERT_TRUE(others_->directoryMakePath("/from/t/d/e", true));
            write(*others_, "/from/t/1", "bytes of 1");
            write(*others_, "/from/t/d/2", "bytes of 2");
            ASSERT_TRUE(others_->fileSymbolicLinkCreateAs("1", "/from/t/d/link", true));
        }
        original_ = treeAt(*others_, "/from/t");
    }

    static bool crossesVolumes(const MemoryOperation& operation)
    {
        return operation.kind == Kind::Rename &&
               operation.path.substr(0, 3) != operation.otherPath.substr(0, 3);
    }

    /// What is to become of a step that the test has nothing against.
    static std::optional<MemoryFault> usual(const MemoryOperation& operation)
    {
        return crossesVolumes(operation)
                   ? std::make_optional(MemoryFault::failure(FailureCode::OtherVolume))
                   : std::nullopt;
    }

    /// The original is whole somewhere, or the copy is.
    void expectNothingLost() const
    {
        std::vector<Contents> trees{treeAt(*others_, "/to/t")};
        for (const auto& name : others_->directoryListFileNames("/from")) {
            trees.push_back(treeAt(*others_, "/from/" + name));
        }
        EXPECT_THAT(trees, testing::Contains(original_));
    }

    TreeMoveReport move(TreeObserver& observer) const
    {
        return moveTree(*system_, "/from/t", "/to/t", observer);
    }

    void expectMoved() const
    {
        EXPECT_EQ(treeAt(*others_, "/to/t"), original_);
        EXPECT_THAT(others_->directoryListFileNames("/from"), IsEmpty());
        EXPECT_THAT(others_->directoryListFileNames("/to"), ElementsAre("t"));
    }

    /// What the report says is what is.
    void expectAsReported(const TreeMoveReport& report) const
    {
        const auto there = treeAt(*others_, "/to/t");
        switch (report.outcome) {
        case TreeMoveOutcome::Failed:
            EXPECT_EQ(treeAt(*others_, "/from/t"), original_);
            EXPECT_TRUE(there.empty() || !report.left.empty()) << there.size();
            EXPECT_FALSE(report.isComplete());
            break;
        case TreeMoveOutcome::Renamed:
        case TreeMoveOutcome::Copied:
            expectMoved();
            EXPECT_TRUE(report.isComplete()) << report.failure.message();
            break;
        case TreeMoveOutcome::NotRemoved:
            EXPECT_EQ(there, original_);
            EXPECT_TRUE(report.rest.empty() || others_->fileInfo(report.rest)) << report.rest;
            EXPECT_FALSE(report.isComplete());
            break;
        }
    }

    std::unique_ptr<MemoryFileSystem> system_;
    std::unique_ptr<MemoryFileSystem> others_; ///< The same tree, without faults.
    Contents original_;
};

TEST_F(MoveTreeFaultTest, WhateverStepFailsOneOfBothIsWholeAtAnyMoment)
{
    constexpr std::size_t enough = 500;
    for (const auto what : {What::File, What::Tree}) {
        for (const auto code : {FailureCode::Denied, FailureCode::ConnectionLost}) {
            bool isOver = false;
            for (std::size_t number = 1; number < enough && !isOver; ++number) {
                start(what);
                std::size_t left = number;
                std::string failed;
                system_->setFaultFunction([&](const MemoryOperation& operation) {
                    expectNothingLost();
                    if (!usual(operation) && left > 0 && --left == 0) {
                        failed = operation.path;
                        return std::make_optional(MemoryFault::failure(code));
                    }
                    return usual(operation);
                });
                Told told;
                const auto report = move(told);
                system_->setFaultFunction({});
                SCOPED_TRACE("step " + std::to_string(number) + " at " + failed);
                expectNothingLost();
                expectAsReported(report);
                EXPECT_EQ(report.failed, told.failures.size());
                EXPECT_LE(report.failed, 1U);
                isOver = left > 0;
                EXPECT_TRUE(!isOver || report.outcome == TreeMoveOutcome::Copied);
                EXPECT_TRUE(!isOver || number > 15) << number;
            }
            EXPECT_TRUE(isOver) << "a move without an end";
        }
    }
}

TEST_F(MoveTreeFaultTest, AStepThatIsDoneThoughItFailsIsSeenToBeDone)
{
    for (const auto kind : {Kind::Rename, Kind::RemoveFile, Kind::RemoveDirectory}) {
        for (const auto what : {What::File, What::Tree}) {
            start(what);
            bool isDone = false;
            system_->setFaultFunction([&](const MemoryOperation& operation) {
                const auto fault = usual(operation);
                if (fault || operation.kind != kind || isDone ||
                    operation.path.rfind("/from", 0) != 0) {
                    return fault;
                }
                isDone = true;
                if (kind == Kind::Rename) {
                    EXPECT_TRUE(others_->fileRenameAs(operation.path, operation.otherPath));
                } else {
                    EXPECT_TRUE(kind == Kind::RemoveFile
                                    ? others_->fileRemove(operation.path)
                                    : others_->directoryRemove(operation.path, false));
                }
                return std::make_optional(MemoryFault::failure(FailureCode::Other));
            });
            Told told;
            const auto report = move(told);
            system_->setFaultFunction({});
            if (kind == Kind::Rename || what == What::File) {
                EXPECT_THAT(told.failures, IsEmpty());
                expectMoved();
            }
            expectNothingLost();
        }
    }
}

TEST_F(MoveTreeFaultTest, TheCopyOfWhatIsGoneMeanwhileStays)
{
    for (const auto what : {What::File, What::Tree}) {
        start(what);
        system_->setFaultFunction([&](const MemoryOperation& operation) {
            // When it is complete, whoever has the original takes it away.
            const bool isRemoval = operation.kind == Kind::RemoveFile ||
                                   (operation.kind == Kind::Rename && !usual(operation));
            if (isRemoval && operation.path == "/from/t") {
                EXPECT_TRUE(others_->fileRenameAs("/from", "/elsewhere"));
                EXPECT_TRUE(others_->directoryCreateAs("/from", true));
            }
            return usual(operation);
        });
        Told told;
        const auto report = move(told);
        EXPECT_NE(report.outcome, TreeMoveOutcome::Failed);
        EXPECT_EQ(treeAt(*others_, "/to/t"), original_);
        EXPECT_EQ(treeAt(*others_, "/elsewhere/t"), original_);
    }
}

TEST_F(MoveTreeFaultTest, TheCopyOfWhatIsNotSeenAnyMoreStays)
{
    start(What::Tree);
    bool isUnseen = false;
    system_->setFaultFunction([&](const MemoryOperation& operation) {
        const bool isAside =
            operation.kind == Kind::Rename && operation.path == "/from/t" && !usual(operation);
        isUnseen = isUnseen || isAside;
        return isUnseen && operation.path.rfind("/from", 0) == 0
                   ? std::make_optional(MemoryFault::failure(FailureCode::Other))
                   : usual(operation);
    });
    Told told;
    const auto report = move(told);
    EXPECT_TRUE(isUnseen);
    EXPECT_EQ(report.outcome, TreeMoveOutcome::NotRemoved);
    EXPECT_EQ(report.rest, "");
    EXPECT_EQ(treeAt(*others_, "/to/t"), original_);
}

TEST_F(MoveTreeFaultTest, WhatHasComeIntoACopyThatIsGivenUpStays)
{
    start(What::Tree);
    system_->setFaultFunction([&](const MemoryOperation& operation) {
        if (operation.kind == Kind::Rename && operation.path == "/from/t" && !usual(operation)) {
            write(*others_, "/to/t/d/new", "new");
            return std::make_optional(MemoryFault::failure(FailureCode::Denied));
        }
        return usual(operation);
    });
    Told told;
    const auto report = move(told);
    EXPECT_EQ(report.outcome, TreeMoveOutcome::Failed);
    EXPECT_EQ(treeAt(*others_, "/from/t"), original_);
    EXPECT_EQ(treeAt(*others_, "/to/t"),
              (Contents{{"", "directory"}, {"/d", "directory"}, {"/d/new", "new"}}));
    EXPECT_THAT(report.left, HasSubstr("/to/t"));
}

TEST_F(MoveTreeFaultTest, AnEmptyDirectoryThatHasComeIntoACopyThatIsGivenUpStays)
{
    start(What::Tree);
    system_->setFaultFunction([&](const MemoryOperation& operation) {
        if (operation.kind == Kind::Rename && operation.path == "/from/t" && !usual(operation)) {
            EXPECT_TRUE(others_->directoryCreateAs("/to/t/d/new", true));
            return std::make_optional(MemoryFault::failure(FailureCode::Denied));
        }
        return usual(operation);
    });
    Told told;
    const auto report = move(told);
    EXPECT_EQ(report.outcome, TreeMoveOutcome::Failed);
    EXPECT_EQ(treeAt(*others_, "/from/t"), original_);
    EXPECT_EQ(treeAt(*others_, "/to/t"),
              (Contents{{"", "directory"}, {"/d", "directory"}, {"/d/new", "directory"}}));
    EXPECT_THAT(report.left, HasSubstr("/to/t"));
}

TEST_F(MoveTreeFaultTest, AStopThatComesWhenAllIsRemovedIsTooLate)
{
    class Stopping : public Told
    {
    public:
        explicit Stopping(const FileSystem2& system)
            : system_(system)
        {}

        bool progress(const FileSystem::TreeProgress& /*progress*/) override
        {
            return !system_.directoryListFileNames("/from").empty();
        }

    private:
        const FileSystem2& system_;
    };

    for (const auto what : {What::File, What::Tree}) {
        start(what);
        system_->setFaultFunction(usual);
        Stopping observer(*others_);
        const auto report = move(observer);
        EXPECT_EQ(report.outcome, TreeMoveOutcome::Copied);
        expectAsReported(report);
    }
}

TEST_F(MoveTreeFaultTest, AFileThatAppearsWhereTheOriginalWasIsNotTheOriginal)
{
    class Stopping : public Told
    {
    public:
        explicit Stopping(const FileSystem2& system)
            : system_(system)
        {}

        bool progress(const FileSystem::TreeProgress& /*progress*/) override
        {
            if (!system_.directoryListFileNames("/from").empty()) {
                return true;
            }
            write(system_, "/from/t", "new");
            return false;
        }

    private:
        const FileSystem2& system_;
    };

    start(What::File);
    system_->setFaultFunction(usual);
    Stopping observer(*others_);
    EXPECT_EQ(move(observer).outcome, TreeMoveOutcome::Copied);
    EXPECT_EQ(treeAt(*others_, "/to/t"), original_);
    EXPECT_EQ(contentOf(*others_, "/from/t"), "new");
}

TEST_F(MoveTreeFaultTest, ALinkGoesWhereItLeads)
{
    start(What::Tree);
    system_->setFaultFunction(usual);
    ASSERT_TRUE(others_->fileSymbolicLinkCreateAs("/to", "/from/link", true));
    Told told;
    const auto report = moveTree(*system_, "/from/link", "/to/link", told);
    EXPECT_EQ(report.outcome, TreeMoveOutcome::Copied) << report.failure.message();
    EXPECT_EQ(others_->fileSymbolicLinkTarget("/to/link"), "/to");
    EXPECT_THAT(others_->directoryListFileNames("/from"), ElementsAre("t"));
}

TEST_F(MoveTreeFaultTest, WhatHasChangedSinceItWasCopiedStays)
{
    start(What::Tree);
    bool isChanged = false;
    system_->setFaultFunction([&](const MemoryOperation& operation) {
        if (operation.kind == Kind::Rename && operation.path == "/from/t" && !usual(operation)) {
            write(*others_, "/from/t/d/2", "other bytes of 2");
            write(*others_, "/from/t/d/e/new", "new");
            isChanged = true;
        }
        return usual(operation);
    });
    Told told;
    const auto report = move(told);
    EXPECT_TRUE(isChanged);
    EXPECT_EQ(report.outcome, TreeMoveOutcome::NotRemoved);
    EXPECT_EQ(report.rest, "/from/t");
    EXPECT_EQ(treeAt(*others_, "/to/t"), original_);
    EXPECT_EQ(contentOf(*others_, "/from/t/d/2"), "other bytes of 2");
    EXPECT_EQ(contentOf(*others_, "/from/t/d/e/new"), "new");
    EXPECT_EQ(told.failures.size(), 2U);
    for (const auto& [below, why] : told.failures) {
        EXPECT_THAT(below, AnyOf("d/2", "d/e/new"));
        EXPECT_EQ(why.code(), FailureCode::Changed);
    }
    EXPECT_THAT(others_->directoryListFileNames("/from"), ElementsAre("t"));
}

TEST_F(MoveTreeFaultTest, AFileThatHasChangedSinceItWasCopiedIsNotMoved)
{
    start(What::File);
    system_->setFaultFunction([&](const MemoryOperation& operation) {
        if (operation.kind == Kind::Rename && operation.otherPath == "/to/t" && !usual(operation)) {
            write(*others_, "/from/t", "other bytes");
        }
        return usual(operation);
    });
    Told told;
    const auto report = move(told);
    EXPECT_EQ(report.outcome, TreeMoveOutcome::Failed);
    EXPECT_EQ(report.failure.code(), FailureCode::Changed);
    EXPECT_EQ(contentOf(*others_, "/from/t"), "other bytes");
    EXPECT_THAT(others_->directoryListFileNames("/to"), IsEmpty());
}

TEST_F(MoveTreeFaultTest, IsStoppedWithoutATrace)
{
    class Stopping : public Told
    {
        bool progress(const FileSystem::TreeProgress& progress) override
        {
            return progress.bytesDone == 0;
        }
    };

    for (const auto what : {What::File, What::Tree}) {
        start(what);
        system_->setFaultFunction(usual);
        Stopping observer;
        const auto report = move(observer);
        EXPECT_TRUE(report.isStopped);
        EXPECT_EQ(Failure::last().code(), FailureCode::Cancelled);
        EXPECT_EQ(report.outcome, TreeMoveOutcome::Failed);
        expectAsReported(report);
        EXPECT_THAT(observer.failures, IsEmpty());
        EXPECT_THAT(others_->directoryListFileNames("/from"), ElementsAre("t"));
        EXPECT_THAT(others_->directoryListFileNames("/to"), IsEmpty());
    }
}

TEST_F(MoveTreeFaultTest, AnObserverThatThrowsLeavesTheOriginal)
{
    class Throwing : public TreeObserver
    {
    public:
        explicit Throwing(int calls)
            : left_(calls)
        {}

        bool progress(const FileSystem::TreeProgress& /*progress*/) override
        {
            return --left_ == 0 ? throw std::runtime_error("enough") : true;
        }

    private:
        int left_;
    };

    int thrown = 0;
    for (int calls = 1; calls < 500; ++calls) {
        start(What::Tree);
        system_->setFaultFunction(usual);
        Throwing observer(calls);
        try {
            move(observer);
            break;
        } catch (const std::runtime_error&) {
            ++thrown;
        }
        expectNothingLost();
        // The last call may come when all is removed.
        EXPECT_THAT(others_->directoryListFileNames("/from"), AnyOf(ElementsAre("t"), IsEmpty()));
        const auto there = treeAt(*others_, "/to/t");
        EXPECT_TRUE(there.empty() || there == original_);
    }
    EXPECT_GT(thrown, 5);
}

TEST_F(MoveTreeFaultTest, WhatIsGoneBeforeItIsRenamedIsNotFound)
{
    for (const bool isTargetTaken : {true, false}) {
        SCOPED_TRACE(isTargetTaken);
        start(What::File);
        // The system sees something at the new path, while the original goes.
        system_->setFaultFunction(
            [&](const MemoryOperation& operation) -> std::optional<MemoryFault> {
                if (operation.kind != Kind::Rename) {
                    return std::nullopt;
                }
                EXPECT_TRUE(others_->fileRemove("/from/t"));
                if (isTargetTaken) {
                    write(*others_, "/to/t", "another one");
                }
                return MemoryFault::failure(FailureCode::Exists);
            });
        Told told;
        const auto report = move(told);
        EXPECT_EQ(report.outcome, TreeMoveOutcome::Failed);
        EXPECT_EQ(report.failure.code(), FailureCode::NotFound) << report.failure.message();
        EXPECT_EQ(report.failure.path(), "/from/t");
        EXPECT_EQ(contentOf(*others_, "/to/t"), isTargetTaken ? "another one" : "");
    }
}

} // namespace
} // namespace TarnisTest
