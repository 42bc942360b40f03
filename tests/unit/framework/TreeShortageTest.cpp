// Trees on systems that have no more descriptors or handles for a while.

#include <FileSystem/Failure.h>
#include <FileSystem/MemoryFileSystem.h>
#include <FileSystem/StorageSystemFile.h>
#include <FileSystem/TreeOperations.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace TarnisTest {

namespace {

using FileSystem::copyTree;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::MemoryFault;
using FileSystem::MemoryFileSystem;
using FileSystem::MemoryOperation;
using FileSystem::removeTree;
using FileSystem::TreeCopyOptions;
using FileSystem::TreeEntry;
using FileSystem::TreeObserver;
using FileSystem::walkTree;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Mode = FileSystem::StorageSystemFileOpenModeFlag;
using Kind = FileSystem::MemoryOperationKind;
using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;

void write(const MemoryFileSystem& system, const std::string& path, const std::string& bytes)
{
    const auto file = system.fileOpen(path, Mode::Write | Mode::Create | Mode::Truncate);
    ASSERT_NE(file, nullptr) << path;
    ASSERT_TRUE(file->writeFully(bytes.data(), bytes.size()));
    ASSERT_TRUE(file->close());
}

/// There is no room for one kind of step at one path, so many times.
class Shortage
{
public:
    Shortage(MemoryFileSystem& system, Kind kind, std::string path, std::size_t times = 1)
        : system_(system)
        , kind_(kind)
        , path_(std::move(path))
        , left_(times)
    {
        system_.setFaultFunction([this](const MemoryOperation& operation) {
            const bool isIt = operation.kind == kind_ && operation.path == path_;
            const bool isShort = isIt && left_ > 0;
            left_ -= isShort ? 1 : 0;
            return isShort ? std::make_optional(MemoryFault::failure(FailureCode::NoResources))
                           : std::nullopt;
        });
    }

    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;

    ~Shortage() { system_.setFaultFunction({}); }

    bool isOver() const { return left_ == 0; }

private:
    MemoryFileSystem& system_;
    Kind kind_;
    std::string path_;
    std::size_t left_;
};

class Told : public TreeObserver
{
public:
    void done(const TreeEntry& entry) override { finished.push_back(entry.below); }

    bool failed(const TreeEntry& entry, const Failure& failure) override
    {
        failures.push_back(entry.below + ": " + failure.message());
        return true;
    }

    std::vector<std::string> finished;
    std::vector<std::string> failures;
};

class TreeShortageTest : public testing::Test
{
protected:
    void SetUp() override
    {
        options_.inFlight = 8;
        for (const char* const directory : {"/t/a", "/t/b", "/t/c"}) {
            ASSERT_TRUE(source_.directoryMakePath(directory, true));
            for (const char* const file : {"/1", "/2"}) {
                write(source_, directory + std::string(file), "bytes");
            }
        }
        for (const char* const file : {"/t/0", "/t/x", "/t/y", "/t/z"}) {
            write(source_, file, "bytes");
        }
    }

    static constexpr std::size_t files = 10;
    static constexpr std::size_t directories = 4;

    MemoryFileSystem source_;
    MemoryFileSystem target_;
    TreeCopyOptions options_;
    Told told_;
};

TEST_F(TreeShortageTest, ADirectoryOfACopyWaitsForRoom)
{
    options_.preservesPermissions = options_.preservesTimes = true;
    options_.removesOthers = true;

    struct Step
    {
        bool isOfSource;
        Kind kind;
        bool isThere;
    };

    for (const Step step :
         {Step{true, Kind::List, false}, Step{false, Kind::MakeDirectory, false},
          Step{false, Kind::LookUp, false}, Step{false, Kind::List, true},
          Step{false, Kind::SetPermissions, false}, Step{false, Kind::SetModTime, false}}) {
        SCOPED_TRACE(static_cast<int>(step.kind));
        MemoryFileSystem target;
        if (step.isThere) {
            ASSERT_TRUE(target.directoryMakePath("/t/b", true));
            write(target, "/t/b/other", "old");
        }
        for (const char* const name : {"/t/a", "/t/b", "/t/c"}) {
            ASSERT_TRUE(source_.directorySetPermissions(name, Permissions(0555U)));
        }
        Told told;
        const Shortage shortage(step.isOfSource ? source_ : target, step.kind, "/t/b");
        const auto report = copyTree(source_, target, {{"/t", "/t"}}, told, options_);
        EXPECT_TRUE(shortage.isOver());
        EXPECT_THAT(told.failures, IsEmpty());
        EXPECT_EQ(report.files, files);
        EXPECT_EQ(report.directories, directories);
        EXPECT_EQ(report.removed, step.isThere ? 1U : 0U);
        EXPECT_THAT(target.directoryListFileNames("/t/b"), ElementsAre("1", "2"));
        EXPECT_EQ(target.directoryGetPermissions("/t/b"), Permissions(0555U));
    }
}

TEST_F(TreeShortageTest, WhatWasMadeBeforeThereWasNoRoomIsNewAllTheSame)
{
    ASSERT_TRUE(source_.directorySetPermissions("/t/b", Permissions(0555U)));
    const Shortage shortage(target_, Kind::LookUp, "/t/b");
    EXPECT_TRUE(copyTree(source_, target_, {{"/t", "/t"}}, told_, options_).isComplete());
    EXPECT_TRUE(shortage.isOver());
    EXPECT_EQ(target_.directoryGetPermissions("/t/b"), Permissions(0555U));
}

TEST_F(TreeShortageTest, WhatNeverHasRoomFailsOnce)
{
    {
        const Shortage shortage(source_, Kind::List, "/t/b", 1'000);
        const auto report = copyTree(source_, target_, {{"/t", "/t"}}, told_, options_);
        EXPECT_EQ(report.failed, 1U);
        EXPECT_EQ(report.failure.code(), FailureCode::NoResources);
        EXPECT_EQ(told_.failures.size(), 1U);
        EXPECT_EQ(report.files, files - 2);
    }
    {
        MemoryFileSystem target;
        const Shortage shortage(target, Kind::MakeDirectory, "/t/b", 1'000);
        const auto report = copyTree(source_, target, {{"/t", "/t"}}, told_, options_);
        EXPECT_EQ(report.failed, 1U);
        EXPECT_EQ(report.files, files - 2);
        EXPECT_EQ(told_.failures.size(), 2U);
    }
}

TEST_F(TreeShortageTest, WhatIsToBeRemovedWaitsForRoom)
{
    options_.removesOthers = true;
    for (const auto kind : {Kind::List, Kind::RemoveFile, Kind::RemoveDirectory}) {
        SCOPED_TRACE(static_cast<int>(kind));
        MemoryFileSystem target;
        ASSERT_TRUE(target.directoryMakePath("/t/b/others/below", true));
        write(target, "/t/b/others/below/file", "old");
        write(target, "/t/b/other", "old");
        Told told;
        const auto* const path =
            kind == Kind::RemoveFile ? "/t/b/others/below/file" : "/t/b/others/below";
        const Shortage shortage(target, kind, path);
        const auto report = copyTree(source_, target, {{"/t", "/t"}}, told, options_);
        EXPECT_TRUE(shortage.isOver());
        EXPECT_THAT(told.failures, IsEmpty());
        EXPECT_EQ(report.removed, 4U);
        EXPECT_THAT(target.directoryListFileNames("/t/b"), ElementsAre("1", "2"));
    }
}

TEST_F(TreeShortageTest, WhatCannotBeRemovedIsToldOnceWhateverElseWaits)
{
    options_.removesOthers = true;
    ASSERT_TRUE(target_.directoryMakePath("/t/b/others/locked", true));
    write(target_, "/t/b/others/locked/file", "old");
    write(target_, "/t/b/others/file", "old");
    ASSERT_TRUE(target_.directorySetPermissions("/t/b/others/locked", Permissions(0555U)));
    const Shortage shortage(target_, Kind::RemoveFile, "/t/b/others/file");
    const auto report = copyTree(source_, target_, {{"/t", "/t"}}, told_, options_);
    EXPECT_TRUE(shortage.isOver());
    EXPECT_EQ(report.removed, 1U);
    EXPECT_EQ(report.failed, 1U);
    EXPECT_EQ(told_.failures.size(), 1U);
}

TEST_F(TreeShortageTest, WhatWaitsToBeFinishedTellsNothingTwice)
{
    options_.preservesTimes = true;
    const auto there = target_.another();
    source_.setFaultFunction([&](const MemoryOperation& operation) {
        // Once all in it was copied it is looked at again.
        const bool isRefused = operation.kind == Kind::LookUp && operation.path == "/t/b" &&
                               there->fileExists("/t/b/1") && there->fileExists("/t/b/2");
        return isRefused ? std::make_optional(MemoryFault::failure(FailureCode::Denied))
                         : std::nullopt;
    });
    const Shortage shortage(target_, Kind::SetModTime, "/t/b");
    const auto report = copyTree(source_, target_, {{"/t", "/t"}}, told_, options_);
    EXPECT_TRUE(shortage.isOver());
    EXPECT_EQ(report.failed, 1U);
    EXPECT_EQ(report.directories, directories);
}

TEST_F(TreeShortageTest, OfOneThatIsReadAloneTheFailureIsTold)
{
    const Shortage shortage(source_, Kind::List, "/t");
    EXPECT_EQ(copyTree(source_, target_, {{"/t", "/t"}}, told_, options_).failed, 1U);
}

TEST_F(TreeShortageTest, ADirectoryOfAWalkWaitsForRoom)
{
    const Shortage shortage(source_, Kind::List, "/t/b");
    const auto report = walkTree(source_, {"/t"}, told_, options_);
    EXPECT_TRUE(shortage.isOver());
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_THAT(told_.finished, ElementsAre("0", "x", "y", "z", "", "a/1", "a/2", "a", "b/1", "b/2",
                                            "b", "c/1", "c/2", "c"));
}

TEST_F(TreeShortageTest, ADirectoryOfARemovalWaitsForRoom)
{
    const Shortage shortage(source_, Kind::List, "/t/b");
    const auto report = removeTree(source_, {"/t"}, told_, options_);
    EXPECT_TRUE(shortage.isOver());
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_FALSE(source_.directoryExists("/t"));
}

TEST_F(TreeShortageTest, AShortOneDoesNotMakeTheRestSlow)
{
    constexpr std::size_t many = 600;
    constexpr std::size_t atOnce = 16;
    ASSERT_TRUE(source_.directoryCreateAs("/many", true));
    for (std::size_t i = 0; i < many; ++i) {
        write(source_, "/many/" + std::to_string(i), "bytes");
    }
    std::size_t opened = 0;
    std::size_t open = 0;
    std::size_t mostAfterwards = 0;
    std::size_t mostInTheEnd = 0;
    target_.setFaultFunction([&](const MemoryOperation& operation) -> std::optional<MemoryFault> {
        open -= operation.kind == Kind::Close ? 1 : 0;
        if (operation.kind != Kind::Open) {
            return std::nullopt;
        }
        if (++opened == 100) {
            return MemoryFault::failure(FailureCode::NoResources);
        }
        ++open;
        // Those that were in flight are over by then.
        const bool isSoon = opened > 120 && opened <= 130;
        mostAfterwards = isSoon ? std::max(mostAfterwards, open) : mostAfterwards;
        mostInTheEnd = opened > many - 50 ? std::max(mostInTheEnd, open) : mostInTheEnd;
        return std::nullopt;
    });
    options_.inFlight = atOnce;
    const auto report = copyTree(source_, target_, {{"/many", "/many"}}, told_, options_);
    EXPECT_THAT(told_.failures, IsEmpty());
    EXPECT_EQ(report.files, many);
    EXPECT_LE(mostAfterwards, atOnce / 2 + 1);
    EXPECT_GE(mostInTheEnd, atOnce - 1);
}

} // namespace
} // namespace TarnisTest
