// Copies of trees of which one step fails: every step in its turn.

#include <FileSystem/Failure.h>
#include <FileSystem/MemoryFileSystem.h>
#include <FileSystem/StorageSystemFile.h>
#include <FileSystem/TreeOperations.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace TarnisTest {

namespace {

using FileSystem::copyTree;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::MemoryFault;
using FileSystem::MemoryFileSystem;
using FileSystem::MemoryOperation;
using FileSystem::TreeCopyOptions;
using FileSystem::TreeEntry;
using FileSystem::TreeObserver;
using FileSystem::TreeStanding;
using ::testing::Contains;
using ::testing::HasSubstr;
using Mode = FileSystem::StorageSystemFileOpenModeFlag;
using Kind = FileSystem::MemoryOperationKind;

void write(const MemoryFileSystem& system, const std::string& path, const std::string& bytes)
{
    const auto file = system.fileOpen(path, Mode::Write | Mode::Create | Mode::Truncate);
    ASSERT_NE(file, nullptr) << path;
    ASSERT_TRUE(file->writeFully(bytes.data(), bytes.size()));
    ASSERT_TRUE(file->close());
}

std::string contentOf(const MemoryFileSystem& system, const std::string& path)
{
    const auto file = system.fileOpen(path, Mode::Read);
    std::string bytes(1000, '\0');
    bytes.resize(file != nullptr ? file->readFully(bytes.data(), bytes.size()).count : 0);
    return bytes;
}

/// Lets one step fail.
class FailingStep
{
public:
    FailingStep(std::size_t number, FailureCode code)
        : left_(number)
        , code_(code)
    {}

    std::optional<MemoryFault> operator()(const MemoryOperation& operation)
    {
        if (--left_ != 0) {
            return std::nullopt;
        }
        failed_ = operation;
        return MemoryFault::failure(code_);
    }

    /// What has failed, if it came to that.
    const std::optional<MemoryOperation>& failed() const { return failed_; }

private:
    std::size_t left_;
    FailureCode code_;
    std::optional<MemoryOperation> failed_;
};

class Told : public TreeObserver
{
public:
    bool failed(const TreeEntry& entry, const Failure& failure) override
    {
        failures.emplace(entry.below, failure);
        return true;
    }

    std::multimap<std::string, Failure> failures;
};

using IsRefused = std::function<bool(const MemoryOperation& operation)>;

/// Refuses the steps that are chosen.
FileSystem::MemoryFaultFunction faultAt(IsRefused isRefused, FailureCode code = FailureCode::Denied)
{
    return [isRefused = std::move(isRefused),
            code](const MemoryOperation& operation) -> std::optional<MemoryFault> {
        return isRefused(operation) ? std::make_optional(MemoryFault::failure(code)) : std::nullopt;
    };
}

class CopyTreeFaultTest : public testing::Test
{
protected:
    static constexpr std::size_t files = 8;

    void SetUp() override
    {
        ASSERT_TRUE(source_.directoryMakePath("/t/d", true));
        for (std::size_t i = 0; i < files; ++i) {
            write(source_, fileOf(i), contentOf(i));
        }
        ASSERT_TRUE(source_.fileSymbolicLinkCreateAs("0", "/t/link", true));
    }

    static std::string fileOf(std::size_t number)
    {
        return (number % 2 == 0 ? "/t/" : "/t/d/") + std::to_string(number);
    }

    static std::string contentOf(std::size_t number)
    {
        return "new bytes of " + std::to_string(number);
    }

    /// A target in which half of the files stand already.
    static void fillTarget(const MemoryFileSystem& target)
    {
        ASSERT_TRUE(target.directoryMakePath("/t/d", true));
        for (std::size_t i = 0; i < files / 2; ++i) {
            write(target, fileOf(i), "old");
        }
    }

    /// Nothing stands there half-written.
    static void expectWhole(const MemoryFileSystem& target)
    {
        for (std::size_t i = 0; i < files; ++i) {
            const auto bytes = TarnisTest::contentOf(target, fileOf(i));
            const bool wasThere = i < files / 2;
            EXPECT_TRUE(bytes == contentOf(i) || (wasThere ? bytes == "old" : bytes.empty()))
                << fileOf(i) << ": " << bytes;
            EXPECT_TRUE(!bytes.empty() || !target.fileExists(fileOf(i))) << fileOf(i);
        }
    }

    static std::vector<std::string> hiddenIn(const MemoryFileSystem& target)
    {
        std::vector<std::string> hidden;
        for (const auto* const directory : {"/t", "/t/d"}) {
            const auto names = target.directoryListFileNames(directory);
            std::copy_if(names.begin(), names.end(), std::back_inserter(hidden),
                         [](const std::string& name) { return name.front() == '.'; });
        }
        return hidden;
    }

    /// Copies with each step of one side failing in its turn, until a copy takes fewer steps.
    void forEachStep(
        bool isOfSource, FailureCode code,
        const std::function<void(const MemoryOperation& failed, const MemoryFileSystem& target,
                                 const Told& told, const FileSystem::TreeReport& report)>& check)
    {
        constexpr std::size_t enough = 2'000;
        for (std::size_t number = 1; number < enough; ++number) {
            MemoryFileSystem target;
            fillTarget(target);
            FailingStep step(number, code);
            auto& failing = isOfSource ? source_ : target;
            failing.setFaultFunction(std::ref(step));
            Told told;
            const auto report = copyTree(source_, target, {{"/t", "/t"}}, told, options_);
            failing.setFaultFunction({});
            if (!step.failed()) {
                EXPECT_TRUE(report.isComplete()) << report.failure.message();
                EXPECT_GT(number, 2 * files);
                return;
            }
            SCOPED_TRACE("step " + std::to_string(number) + " at " + step.failed()->path);
            expectWhole(target);
            check(*step.failed(), target, told, report);
        }
        FAIL() << "a copy without an end";
    }

    MemoryFileSystem source_;
    TreeCopyOptions options_;
};

TEST_F(CopyTreeFaultTest, WhateverFailsBelongsToItsEntryAndLeavesNothingBehind)
{
    for (const bool isOfSource : {true, false}) {
        forEachStep(isOfSource, FailureCode::NoSpace,
                    [](const MemoryOperation& failed, const MemoryFileSystem& target,
                       const Told& told, const FileSystem::TreeReport& report) {
                        EXPECT_EQ(report.failed, told.failures.size());
                        EXPECT_LE(report.failed, 1U);
                        EXPECT_FALSE(report.isStopped);
                        const bool isLeft = failed.kind == Kind::RemoveFile;
                        EXPECT_TRUE(isLeft || hiddenIn(target).empty());
                        // Of all but the root: what is in "/t/d" may be among what fails.
                        const auto done = report.files + report.links + report.directories;
                        EXPECT_TRUE(failed.path == "/t" || done >= 6) << done;
                    });
    }
}

TEST_F(CopyTreeFaultTest, WhereTheSourceIsLostNothingIsLeftInTheTarget)
{
    std::size_t lost = 0;
    forEachStep(true, FailureCode::ConnectionLost,
                [&](const MemoryOperation& /*failed*/, const MemoryFileSystem& target,
                    const Told& told, const FileSystem::TreeReport& report) {
                    EXPECT_THAT(hiddenIn(target), testing::IsEmpty());
                    EXPECT_LE(told.failures.size(), 1U);
                    lost += report.failure.code() == FailureCode::ConnectionLost ? 1U : 0U;
                });
    EXPECT_GT(lost, 2 * files);
}

TEST_F(CopyTreeFaultTest, ACopyThatResumesLosesNothingWhateverFails)
{
    options_.standing = TreeStanding::Resume;
    for (const bool isOfSource : {true, false}) {
        forEachStep(
            isOfSource, FailureCode::NoSpace,
            [&](const MemoryOperation& /*failed*/, const MemoryFileSystem& target, const Told& told,
                const FileSystem::TreeReport& report) {
                EXPECT_EQ(report.failed, told.failures.size());
                EXPECT_LE(report.failed, 1U);
                // The next one needs nothing but to be called.
                Told toldNext;
                const auto next = copyTree(source_, target, {{"/t", "/t"}}, toldNext, options_);
                EXPECT_TRUE(next.isComplete()) << next.failure.message();
                EXPECT_THAT(hiddenIn(target), testing::IsEmpty());
                for (std::size_t i = 0; i < files; ++i) {
                    EXPECT_EQ(TarnisTest::contentOf(target, fileOf(i)), contentOf(i));
                }
            });
    }
}

TEST_F(CopyTreeFaultTest, WhatIsToBeGoneOnFromHasANameOfWholeCharacters)
{
    class Parts : public TreeObserver
    {
    public:
        void kept(const TreeEntry& /*entry*/, const std::string& path,
                  FileSystem::TreePart /*part*/) override
        {
            names.push_back(path.substr(1));
        }

        std::vector<std::string> names;
    };

    std::string umlauts;
    for (int i = 0; i < 127; ++i) {
        umlauts += "\xC3\xBC";
    }
    options_.standing = TreeStanding::Resume;
    for (const auto& name : {umlauts, "x" + umlauts, std::string(255, 'n')}) {
        write(source_, "/" + name, "bytes");
        MemoryFileSystem target;
        target.setFaultFunction(faultAt(
            [](const MemoryOperation& operation) { return operation.kind == Kind::Replace; }));
        Parts parts;
        EXPECT_EQ(copyTree(source_, target, {{"/" + name, "/" + name}}, parts, options_).failed,
                  1U);
        target.setFaultFunction({});
        ASSERT_EQ(parts.names.size(), 1U);
        const auto& part = parts.names.front();
        EXPECT_EQ(TarnisTest::contentOf(target, "/" + part), "bytes");
        EXPECT_EQ(part.substr(0, 200), "." + name.substr(0, 199));
        EXPECT_THAT(part, testing::EndsWith(".tarnis-part"));
        constexpr std::size_t added = 16 + 12;
        const auto lead = static_cast<unsigned char>(part[part.size() - added - 1]);
        EXPECT_NE(lead, 0xC3U) << "half a character";
        Told told;
        EXPECT_TRUE(
            copyTree(source_, target, {{"/" + name, "/" + name}}, told, options_).isComplete());
        EXPECT_THAT(target.directoryListFileNames("/"), testing::ElementsAre(name));
    }
}

TEST_F(CopyTreeFaultTest, NothingIsRemovedWhereTheSourceCannotBeReadToItsEnd)
{
    MemoryFileSystem target;
    fillTarget(target);
    write(target, "/t/other", "other");
    write(target, "/t/d/other", "other");
    options_.removesOthers = true;
    source_.setFaultFunction(faultAt([](const MemoryOperation& operation) {
        return operation.kind == Kind::List && operation.path == "/t/d";
    }));
    Told told;
    const auto report = copyTree(source_, target, {{"/t", "/t"}}, told, options_);
    EXPECT_EQ(report.removed, 0U);
    EXPECT_TRUE(target.fileExists("/t/other"));
    EXPECT_TRUE(target.fileExists("/t/d/other"));
    EXPECT_EQ(told.failures.count("d"), 1U);
}

TEST_F(CopyTreeFaultTest, NothingIsRemovedWhereSomethingCouldNotBeCopied)
{
    MemoryFileSystem target;
    fillTarget(target);
    write(target, "/t/other", "other");
    write(target, "/t/d/other", "other");
    options_.removesOthers = true;
    target.setFaultFunction(faultAt(
        [](const MemoryOperation& operation) {
            return operation.kind == Kind::Write && operation.path.find("/t/d/") == 0;
        },
        FailureCode::NoSpace));
    Told told;
    EXPECT_EQ(copyTree(source_, target, {{"/t", "/t"}}, told, options_).removed, 0U);
    target.setFaultFunction({});
    EXPECT_TRUE(target.fileExists("/t/other"));
    EXPECT_TRUE(target.fileExists("/t/d/other"));
    EXPECT_EQ(copyTree(source_, target, {{"/t", "/t"}}, told, options_).removed, 2U);
}

TEST_F(CopyTreeFaultTest, WhatMayBeAnEntryInAnotherSpellingIsNotRemoved)
{
    MemoryFileSystem target;
    fillTarget(target);
    write(source_, "/t/docs", "new");
    write(target, "/t/Docs", "old");
    options_.removesOthers = true;
    Told told;
    EXPECT_EQ(copyTree(source_, target, {{"/t", "/t"}}, told, options_).removed, 0U);
    EXPECT_TRUE(target.fileExists("/t/Docs"));
    // Both are listed: the system tells them apart.
    EXPECT_EQ(copyTree(source_, target, {{"/t", "/t"}}, told, options_).removed, 1U);
    EXPECT_FALSE(target.fileExists("/t/Docs"));
}

TEST_F(CopyTreeFaultTest, WhatComesToTheTargetMeanwhileIsKept)
{
    MemoryFileSystem target;
    fillTarget(target);
    const auto other = target.another();
    target.setFaultFunction([&](const MemoryOperation& operation) -> std::optional<MemoryFault> {
        if (operation.kind == Kind::Write && !other->fileExists(fileOf(files - 1))) {
            write(*other, fileOf(files - 1), "theirs");
        }
        return std::nullopt;
    });
    options_.standing = TreeStanding::Keep;
    Told told;
    const auto report = copyTree(source_, target, {{"/t", "/t"}}, told, options_);
    EXPECT_TRUE(report.isComplete()) << report.failure.message();
    EXPECT_EQ(report.skipped, files / 2 + 1);
    EXPECT_EQ(TarnisTest::contentOf(target, fileOf(files - 1)), "theirs");
    EXPECT_THAT(hiddenIn(target), testing::IsEmpty());
}

// Each piece costs a round trip where the source is far away: whoever writes on faster than small
// ones are read would never be caught up with.
TEST_F(CopyTreeFaultTest, WhatHasGrownIsNotReadInSmallPieces)
{
    constexpr std::size_t size = 4U << 20U;
    const std::string bytes(size, 'x');
    const auto other = source_.another();
    for (const auto kind : {Kind::Open, Kind::Read}) {
        write(source_, "/log", "x");
        std::size_t reads = 0;
        bool hasGrown = false;
        source_.setFaultFunction([&](const MemoryOperation& step) -> std::optional<MemoryFault> {
            reads += step.path == "/log" && step.kind == Kind::Read ? 1U : 0U;
            if (step.path == "/log" && step.kind == kind && !std::exchange(hasGrown, true)) {
                write(*other, "/log", bytes);
            }
            return std::nullopt;
        });
        MemoryFileSystem target;
        Told told;
        const auto report = copyTree(source_, target, {{"/log", "/log"}}, told, options_);
        source_.setFaultFunction({});
        EXPECT_TRUE(report.isComplete()) << report.failure.message();
        EXPECT_EQ(target.fileSize("/log"), size);
        EXPECT_LT(reads, 100U);
    }
}

TEST_F(CopyTreeFaultTest, BytesAreThoseThatHaveArrived)
{
    const auto bytesOf = [](std::size_t number) { return contentOf(number).size(); };
    std::size_t all = 0;
    for (std::size_t i = 0; i < files; ++i) {
        all += bytesOf(i);
    }
    // New files, which are to be new, and such as stand there already.
    for (const auto& [kind, standing] : {std::pair(Kind::Rename, TreeStanding::Fail),
                                         std::pair(Kind::Replace, TreeStanding::Replace)}) {
        options_.standing = standing;
        MemoryFileSystem target;
        fillTarget(target);
        target.setFaultFunction(faultAt([kind = kind](const MemoryOperation& operation) {
            return operation.kind == kind &&
                   (operation.otherPath == fileOf(1) || operation.otherPath == fileOf(6));
        }));
        Told told;
        const auto report = copyTree(source_, target, {{"/t", "/t"}}, told, options_);
        EXPECT_EQ(report.failed, standing == TreeStanding::Fail ? files / 2 + 1 : 2U);
        EXPECT_EQ(report.files, files - report.failed);
        std::size_t failed = 0;
        for (const auto& [below, failure] : told.failures) {
            failed += bytesOf(static_cast<std::size_t>(below.back() - '0'));
        }
        EXPECT_EQ(report.bytes, all - failed);
    }
}

TEST_F(CopyTreeFaultTest, ADirectoryThatOneSourceHasClosedTakesTheEntriesOfTheNext)
{
    using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;
    const Permissions closed{0555U};
    for (const std::string root : {"/1", "/2"}) {
        ASSERT_TRUE(source_.directoryMakePath(root + "/d/e", true));
        write(source_, root + "/d/e/of" + root.substr(1), root);
        write(source_, root + "/d/of" + root.substr(1), root);
    }
    for (const std::string directory : {"/1/d/e", "/1/d", "/1"}) {
        ASSERT_TRUE(source_.directorySetPermissions(directory, closed));
    }
    for (const bool preserves : {true, false}) {
        SCOPED_TRACE(preserves);
        options_.preservesPermissions = preserves;
        MemoryFileSystem target;
        Told told;
        const auto report = copyTree(source_, target, {{"/1", "/m"}, {"/2", "/m"}}, told, options_);
        EXPECT_TRUE(report.isComplete()) << report.failure.message();
        for (const auto* const path : {"/m/d/e/of1", "/m/d/e/of2", "/m/d/of1", "/m/d/of2"}) {
            EXPECT_TRUE(target.fileExists(path)) << path;
        }
        // Those of the last source where they are kept, and else those that it was made with.
        for (const std::string directory : {"", "/d", "/d/e"}) {
            const auto wanted = preserves ? source_.directoryGetPermissions("/2" + directory)
                                          : std::make_optional(closed);
            EXPECT_EQ(target.directoryGetPermissions("/m" + directory), wanted) << directory;
        }
    }
}

TEST_F(CopyTreeFaultTest, ADirectoryThatOneSourceHasClosedTakesWhatIsNamedBelowIt)
{
    using Permissions = Utilities::Flags<FileSystem::PosixFilePermissionFlag>;
    const FileSystem::StorageSystemTimePoint time{std::chrono::seconds(1'000'000'000)};
    ASSERT_TRUE(source_.directoryMakePath("/1/d/e", true));
    ASSERT_TRUE(source_.directoryMakePath("/other/d", true));
    ASSERT_TRUE(source_.directorySetPermissions("/other/d", Permissions(0511U)) &&
                source_.directorySetPermissions("/other", Permissions(0555U)));
    for (const std::string directory : {"/1/d/e", "/1/d", "/1"}) {
        ASSERT_TRUE(source_.directorySetModTime(directory, time));
        ASSERT_TRUE(source_.directorySetPermissions(directory, Permissions(0555U)));
    }
    options_.preservesTimes = true;
    for (const bool preserves : {true, false}) {
        SCOPED_TRACE(preserves);
        options_.preservesPermissions = preserves;
        MemoryFileSystem target;
        Told told;
        const auto report = copyTree(source_, target,
                                     {{"/other", "/m"},
                                      {"/1", "/m"},
                                      {fileOf(1), "/m/d/e/one"},
                                      {"/t/d", "/m/d/e"},
                                      {fileOf(2), "/m/two"},
                                      {fileOf(4), "/m/d/four"}},
                                     told, options_);
        EXPECT_TRUE(report.isComplete()) << report.failure.message();
        for (const auto* const path : {"/m/d/e/one", "/m/d/e/3", "/m/two", "/m/d/four"}) {
            EXPECT_TRUE(target.fileExists(path)) << path;
        }
        EXPECT_EQ(report.directories, 6U);
        for (const std::string directory : {"/m", "/m/d"}) {
            const auto info = target.fileInfo(directory);
            ASSERT_TRUE(info);
            // Of the last source, or of the one that it was made for.
            const bool isOther = !preserves && directory == "/m/d";
            EXPECT_EQ(info->permissions, Permissions(isOther ? 0511U : 0555U)) << directory;
            EXPECT_EQ(info->modTime, time) << directory;
        }
    }
}

TEST_F(CopyTreeFaultTest, WhatAStoppedCopyCannotRemoveIsTold)
{
    class Stopping : public TreeObserver
    {
        bool progress(const FileSystem::TreeProgress& progress) override
        {
            return progress.bytesDone == 0;
        }
    } observer;

    MemoryFileSystem target;
    target.setFaultFunction(faultAt([](const MemoryOperation& operation) {
        return operation.kind == Kind::RemoveFile || operation.kind == Kind::Replace;
    }));
    const auto report = copyTree(source_, target, {{"/t", "/new"}}, observer, options_);
    target.setFaultFunction({});
    EXPECT_TRUE(report.isStopped);
    EXPECT_THAT(report.left, HasSubstr("cannot be removed and is left"));
    EXPECT_THAT(report.left, HasSubstr("/new/."));
}

TEST_F(CopyTreeFaultTest, AnObserverThatHasThrownIsAskedNothingMore)
{
    class Throwing : public TreeObserver
    {
    public:
        bool wants(const TreeEntry& entry) override
        {
            EXPECT_FALSE(hasThrown);
            hasThrown = entry.path == "/t/2";
            return hasThrown ? throw std::runtime_error("enough") : true;
        }

        bool hasThrown = false;
    } observer;

    MemoryFileSystem target;
    EXPECT_THROW(copyTree(source_, target,
                          {{"/t/0", "/0"}, {"/t/2", "/2"}, {"/t/4", "/4"}, {"/t/6", "/6"}},
                          observer, options_),
                 std::runtime_error);
    EXPECT_TRUE(observer.hasThrown);
    for (const auto& name : target.directoryListFileNames("/")) {
        EXPECT_NE(name.front(), '.');
    }
}

TEST_F(CopyTreeFaultTest, AnObserverThatThrowsAtAFailureEndsTheCopy)
{
    class Throwing : public TreeObserver
    {
        bool failed(const TreeEntry& /*entry*/, const Failure& /*failure*/) override
        {
            throw std::runtime_error("enough");
        }
    };

    for (const auto& [kind, path] :
         {std::pair(Kind::MakeDirectory, "/new/d"), std::pair(Kind::List, "/t/d"),
          std::pair(Kind::Open, "/t/0")}) {
        MemoryFileSystem target;
        const auto refuse =
            faultAt([kind = kind, path = std::string(path)](const MemoryOperation& operation) {
                return operation.kind == kind && operation.path == path;
            });
        source_.setFaultFunction(refuse);
        target.setFaultFunction(refuse);
        Throwing observer;
        EXPECT_THROW(copyTree(source_, target, {{"/t", "/new"}}, observer, options_),
                     std::runtime_error)
            << path;
        source_.setFaultFunction({});
        target.setFaultFunction({});
        for (const auto& name : target.directoryListFileNames("/new")) {
            EXPECT_NE(name.front(), '.') << path;
        }
    }
}

} // namespace
} // namespace TarnisTest
