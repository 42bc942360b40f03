// Removing, moving, resuming, mirroring and writing with many requests in flight over a server that
// fails in the midst of them.

#include "integration/sftp/SftpTest.h"
#include "integration/sftp/TroubledTree.h"
#include "support/PseudoRandom.h"

#include <FileSystem/FileStreams.h>
#include <FileSystem/LocalFileSystem.h>
#include <Tarnis/SSHSession.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <set>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using namespace SftpActions;
using FileSystem::copyTree;
using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::LocalFileSystem;
using FileSystem::moveTree;
using FileSystem::removeTree;
using FileSystem::TreeCopyOptions;
using FileSystem::TreeMoveOutcome;
using FileSystem::TreeMoveReport;
using FileSystem::TreeReport;
using FileSystem::TreeStanding;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr auto quotaExceeded = static_cast<SftpStatus>(15);

class TreeWorkFaultTest : public ScriptedSftpTest
{
protected:
    void SetUp() override { start(); }

    void follow(const std::vector<SftpRule>& rules)
    {
        SftpScript script;
        script.rules = rules;
        server().sftp().setScript(script);
    }

    /// A file system that works, whatever became of the one before.
    void startWell()
    {
        follow({});
        startOver();
    }

    static void expectToldOnceAsLost(const TreeReport& report, const Trouble& told)
    {
        EXPECT_FALSE(report.isComplete());
        EXPECT_EQ(report.failed, 1U);
        EXPECT_THAT(told.failures, SizeIs(1));
        EXPECT_EQ(report.failure.code(), FailureCode::ConnectionLost) << report.failure.message();
    }

    /// Interrupts the session once the server has carried out so many requests of a kind, and
    /// answers no more.
    template <class Work>
    auto workInSilence(SftpPacket request, std::uint64_t number, Work work)
    {
        follow({{nth(request, number), stopAnswering()}});
        auto result = std::async(std::launch::async, work);
        const auto known = server().sftp().requestCount(request);
        EXPECT_TRUE(waitUntil(
            [&] { return server().sftp().requestCount(request) >= std::max(known, number); }));
        client().session().interrupt();
        return result.get();
    }

    /// How many requests a work sends on one channel at most.
    template <class Work>
    std::size_t requestsOf(Work work)
    {
        const auto known = server().sftp().events().size();
        work();
        const auto events = server().sftp().events();
        std::map<int, std::size_t> requests;
        std::size_t most = 0;
        for (std::size_t index = known; index < events.size(); ++index) {
            if (events[index].kind == SftpEvent::Kind::Received) {
                most = std::max(most, ++requests[events[index].session]);
            }
        }
        return most;
    }

    int filesIn(const fs::path& root) const
    {
        int count = 0;
        for (int number = 0; number < fileCount; ++number) {
            count += fs::exists(root / nameOf(number)) ? 1 : 0;
        }
        return count;
    }

    const fs::path& here() { return here_.path(); }

    std::string tree() const { return path("tree"); }

    LocalFileSystem& local() { return local_; }

private:
    TemporaryDirectory here_;
    LocalFileSystem local_;
};

class RemovalFaultTest : public TreeWorkFaultTest
{
protected:
    TreeReport removeAll(Trouble& told) { return removeTree(files(), {tree()}, told); }

    void expectGone()
    {
        startWell();
        Trouble none;
        EXPECT_TRUE(removeAll(none).isComplete());
        EXPECT_FALSE(fs::exists(tree()));
    }
};

TEST_F(RemovalFaultTest, WhatIsRefusedStaysAloneAndIsToldOnce)
{
    makeTree(tree());
    follow({{nth(SftpPacket::Remove, 70), refuse(SftpStatus::PermissionDenied)},
            {nth(SftpPacket::Remove, 120), refuse(SftpStatus::Failure)}});
    Trouble told;
    const auto report = removeAll(told);
    EXPECT_EQ(report.failed, 2U);
    EXPECT_EQ(filesIn(tree()), 2);
    for (const auto& [entry, failure] : told.failures) {
        EXPECT_TRUE(fs::exists(tree() + "/" + entry)) << failure.message();
    }
    expectGone();
}

TEST_F(RemovalFaultTest, AllThatIsRefusedFromThenOnIsToldOnceEach)
{
    makeTree(tree());
    follow({{from(SftpPacket::Remove, 90), refuse(SftpStatus::PermissionDenied)}});
    Trouble told;
    const auto report = removeAll(told);
    EXPECT_EQ(filesIn(tree()), fileCount - 89);
    EXPECT_THAT(told.failures, SizeIs(fileCount - 89));
    EXPECT_EQ(report.failure.code(), FailureCode::Denied);
    expectGone();
}

TEST_F(RemovalFaultTest, ALossIsToldOnceAtWhateverRequest)
{
    const auto fill = [this] {
        fs::create_directories(tree() + "/sub");
        for (const char* const name : {"tree/a", "tree/b", "tree/sub/c"}) {
            put(name, name);
        }
    };
    fill();
    const auto requests = requestsOf([this] {
        Trouble none;
        EXPECT_TRUE(removeAll(none).isComplete());
    });
    EXPECT_GT(requests, 8U);
    for (std::size_t number = 1; number <= requests; ++number) {
        SCOPED_TRACE(number);
        startWell();
        fill();
        follow({{nth(SftpPacket::Any, number), SftpActions::exit()}});
        Trouble told;
        const auto report = removeAll(told);
        if (report.isComplete()) {
            EXPECT_FALSE(fs::exists(tree()));
        } else {
            expectToldOnceAsLost(report, told);
        }
    }
    fill();
    expectGone();
}

TEST_F(RemovalFaultTest, ALossWithManyInFlightIsToldOnce)
{
    makeTree(tree());
    follow({{nth(SftpPacket::Remove, 90), SftpActions::exit()}});
    Trouble told;
    expectToldOnceAsLost(removeAll(told), told);
    EXPECT_EQ(filesIn(tree()), fileCount - 89);
    expectGone();
}

TEST_F(RemovalFaultTest, AnotherThreadEndsItWhereTheServerIsSilent)
{
    makeTree(tree());
    Trouble told;
    const auto report = workInSilence(SftpPacket::Remove, 90, [&] { return removeAll(told); });
    expectToldOnceAsLost(report, told);
    expectGone();
}

/// To another volume, as far as the server tells.
class MoveFaultTest : public TreeWorkFaultTest
{
protected:
    /// The first renaming of the tree is refused; that which sets it aside is not.
    void followAcrossVolumes(const std::vector<SftpRule>& more)
    {
        std::vector<SftpRule> rules = more;
        rules.push_back({onPath(nth(SftpPacket::Rename, 1), "/tree"), refuse(SftpStatus::Failure)});
        follow(rules);
    }

    TreeMoveReport move(Trouble& told) { return moveTree(files(), tree(), path("moved"), told); }

    fs::path moved() const { return path("moved"); }

    /// Where the original is: in its place, or beside it.
    std::vector<fs::path> places() const
    {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(server().sftp().root())) {
            found.push_back(entry.path());
        }
        return found;
    }

    const ScriptedSftpServer& server() const
    {
        return const_cast<MoveFaultTest*>(this)->TreeWorkFaultTest::server();
    }

    void expectMovedNext()
    {
        startWell();
        Trouble none;
        EXPECT_TRUE(move(none).isComplete());
        EXPECT_EQ(wholeFilesIn(moved()), fileCount);
    }
};

TEST_F(MoveFaultTest, AFullDiskLeavesTheOriginalAndNoCopy)
{
    makeTree(tree());
    followAcrossVolumes({{from(SftpPacket::Write, 90), refuse(quotaExceeded)}});
    Trouble told;
    const auto report = move(told);
    EXPECT_EQ(report.outcome, TreeMoveOutcome::Failed);
    EXPECT_THAT(told.failures, SizeIs(1));
    EXPECT_EQ(report.failure.code(), FailureCode::NoSpace) << report.failure.message();
    EXPECT_THAT(places(), ElementsAre(fs::path(tree())));
    EXPECT_EQ(wholeFilesIn(tree()), fileCount);
    expectMovedNext();
}

TEST_F(MoveFaultTest, WhatCannotBeRemovedIsToldOnceAndBackInItsPlace)
{
    makeTree(tree());
    // Nothing is removed before all is copied.
    followAcrossVolumes({{nth(SftpPacket::Remove, 70), refuse(SftpStatus::PermissionDenied)},
                         {nth(SftpPacket::Remove, 120), refuse(SftpStatus::PermissionDenied)}});
    Trouble told;
    const auto report = move(told);
    EXPECT_EQ(report.outcome, TreeMoveOutcome::NotRemoved);
    EXPECT_THAT(told.failures, SizeIs(2));
    EXPECT_EQ(wholeFilesIn(moved()), fileCount);
    EXPECT_EQ(report.rest, tree());
    EXPECT_EQ(wholeFilesIn(tree()), 2);
    for (const auto& [entry, failure] : told.failures) {
        EXPECT_EQ(failure.code(), FailureCode::Denied) << failure.message();
        EXPECT_TRUE(fs::exists(tree() + "/" + entry));
    }
}

TEST_F(MoveFaultTest, ALossWhileItIsCopiedLeavesTheOriginal)
{
    makeTree(tree());
    followAcrossVolumes({{nth(SftpPacket::Write, 90), SftpActions::exit()}});
    Trouble told;
    const auto report = move(told);
    EXPECT_EQ(report.outcome, TreeMoveOutcome::Failed);
    expectToldOnceAsLost(report, told);
    EXPECT_EQ(wholeFilesIn(tree()), fileCount);
    static_cast<void>(wholeFilesIn(moved()));
    fs::remove_all(moved());
    expectMovedNext();
}

TEST_F(MoveFaultTest, ALossWhileTheOriginalIsRemovedLeavesTheCopy)
{
    makeTree(tree());
    followAcrossVolumes({{nth(SftpPacket::Remove, 90), SftpActions::exit()}});
    Trouble told;
    const auto report = move(told);
    EXPECT_EQ(report.outcome, TreeMoveOutcome::NotRemoved);
    expectToldOnceAsLost(report, told);
    EXPECT_EQ(wholeFilesIn(moved()), fileCount);
}

TEST_F(MoveFaultTest, NothingIsLostAtWhateverRequestTheServerIs)
{
    const std::map<std::string, std::string> contents{{"large", pseudoRandomBytes(41, 40'000)},
                                                      {"sub/b", "b"}};
    const auto fill = [&] {
        for (const auto& place : places()) {
            fs::remove_all(place);
        }
        fs::create_directories(tree() + "/sub");
        for (const auto& [name, content] : contents) {
            put("tree/" + name, content);
        }
    };
    const auto isWholeIn = [&](const fs::path& place) {
        return std::all_of(contents.begin(), contents.end(), [&](const auto& file) {
            return fs::exists(place / file.first) && readFile(place / file.first) == file.second;
        });
    };
    fill();
    followAcrossVolumes({});
    const auto requests = requestsOf([this] {
        Trouble none;
        const auto report = move(none);
        EXPECT_EQ(report.outcome, TreeMoveOutcome::Copied) << report.failure.message();
    });
    EXPECT_GT(requests, 30U);
    for (std::size_t number = 1; number <= requests; ++number) {
        SCOPED_TRACE(number);
        startWell();
        fill();
        followAcrossVolumes({{nth(SftpPacket::Any, number), SftpActions::exit()}});
        Trouble told;
        const auto report = move(told);
        const auto standing = places();
        EXPECT_TRUE(std::any_of(standing.begin(), standing.end(), isWholeIn));
        EXPECT_LE(told.failures.size(), 1U);
        EXPECT_EQ(report.isComplete(), told.failures.empty());
        if (report.outcome != TreeMoveOutcome::Failed) {
            EXPECT_TRUE(isWholeIn(moved()));
        }
        if (report.isComplete()) {
            EXPECT_THAT(standing, ElementsAre(moved()));
        } else {
            EXPECT_EQ(report.failure.code(), FailureCode::ConnectionLost)
                << report.failure.message();
        }
    }
}

/// From this machine to the server.
class UploadFaultTest : public TreeWorkFaultTest
{
protected:
    TreeReport upload(Trouble& told, const TreeCopyOptions& options)
    {
        return copyTree(local(), files(), {{here(), tree()}}, told, options);
    }

    static TreeCopyOptions resuming()
    {
        TreeCopyOptions options;
        options.standing = TreeStanding::Resume;
        return options;
    }

    static TreeCopyOptions mirroring()
    {
        TreeCopyOptions options;
        options.removesOthers = true;
        return options;
    }

    /// The next copy goes on, and leaves nothing of the one before.
    void expectNextResumes()
    {
        startWell();
        Trouble none;
        const auto report = upload(none, resuming());
        EXPECT_TRUE(report.isComplete()) << report.failure.message();
        EXPECT_EQ(wholeFilesIn(tree()), fileCount);
        EXPECT_THAT(hiddenIn(tree()), IsEmpty());
    }

    /// Others in each directory of the tree, that the source has not.
    void makeOthers()
    {
        makeTree(tree());
        for (int number = 0; number < fileCount; ++number) {
            put("tree/d" + std::to_string(number % 3) + "/other" + std::to_string(number), "other");
        }
    }

    int others() const
    {
        int count = 0;
        for (const auto& entry : fs::recursive_directory_iterator(tree())) {
            count += entry.path().filename().string().rfind("other", 0) == 0 ? 1 : 0;
        }
        return count;
    }
};

TEST_F(UploadFaultTest, AResumedCopyGoesOnAfterAQuota)
{
    makeTree(here());
    follow({{from(SftpPacket::Write, 90), refuse(quotaExceeded)}});
    Trouble told;
    const auto report = upload(told, resuming());
    EXPECT_THAT(told.failures, SizeIs(report.failed));
    EXPECT_EQ(wholeFilesIn(tree()) + static_cast<int>(told.failures.size()), fileCount);
    for (const auto& [entry, failure] : told.failures) {
        EXPECT_EQ(failure.code(), FailureCode::NoSpace) << entry << ": " << failure.message();
    }
    expectNextResumes();
}

TEST_F(UploadFaultTest, AResumedCopyGoesOnAfterALoss)
{
    makeTree(here());
    for (const std::uint64_t number : {30U, 90U, 140U}) {
        SCOPED_TRACE(number);
        startWell();
        fs::remove_all(tree());
        follow({{nth(SftpPacket::Write, number), SftpActions::exit()}});
        Trouble told;
        expectToldOnceAsLost(upload(told, resuming()), told);
        static_cast<void>(wholeFilesIn(tree()));
        expectNextResumes();
    }
}

TEST_F(UploadFaultTest, AResumedCopyGoesOnAfterASilence)
{
    makeTree(here());
    Trouble told;
    const auto report =
        workInSilence(SftpPacket::Write, 90, [&] { return upload(told, resuming()); });
    expectToldOnceAsLost(report, told);
    static_cast<void>(wholeFilesIn(tree()));
    expectNextResumes();
}

TEST_F(UploadFaultTest, AMirrorTellsEachThatItCannotRemoveOnce)
{
    makeTree(here());
    makeOthers();
    follow({{onPath(from(SftpPacket::Remove, 1), "0"), refuse(SftpStatus::PermissionDenied)}});
    TreeCopyOptions options = mirroring();
    options.standing = TreeStanding::Keep;
    Trouble told;
    const auto report = upload(told, options);
    EXPECT_EQ(report.failure.code(), FailureCode::Denied) << report.failure.message();
    EXPECT_THAT(told.failures, SizeIs(fileCount / 10));
    EXPECT_EQ(others(), fileCount / 10);
    EXPECT_EQ(report.removed, std::size_t{fileCount - fileCount / 10});
    EXPECT_EQ(wholeFilesIn(tree()), fileCount);
}

TEST_F(UploadFaultTest, AMirrorRemovesNothingInADirectoryThatIsNotCompletelyCopied)
{
    makeTree(here());
    makeOthers();
    follow({{everyOther(SftpPacket::Write, 90), refuse(quotaExceeded)}});
    Trouble told;
    const auto report = upload(told, mirroring());
    std::set<std::string> incomplete;
    for (const auto& [entry, failure] : told.failures) {
        EXPECT_EQ(failure.code(), FailureCode::NoSpace) << entry << ": " << failure.message();
        incomplete.insert(entry.substr(0, entry.find('/')));
    }
    EXPECT_THAT(incomplete, Not(IsEmpty()));
    // Of every directory that all was copied into.
    const int removed = (3 - static_cast<int>(incomplete.size())) * fileCount / 3;
    EXPECT_EQ(report.removed, static_cast<std::uint64_t>(removed));
    EXPECT_EQ(others(), fileCount - removed);
    for (const std::string& directory : incomplete) {
        const std::string number = directory.substr(1);
        EXPECT_TRUE(fs::exists(tree() + "/" + directory + "/other" + number));
    }
    EXPECT_THAT(told.failures, SizeIs(report.failed));
    // What was there before and is not replaced is whole, too.
    EXPECT_EQ(wholeFilesIn(tree()), fileCount);
    EXPECT_THAT(hiddenIn(tree()), IsEmpty());
}

TEST_F(UploadFaultTest, AMirrorWhoseServerIsLostTellsItOnce)
{
    makeTree(here());
    makeOthers();
    TreeCopyOptions options = mirroring();
    options.standing = TreeStanding::Keep;
    follow({{nth(SftpPacket::Remove, 90), SftpActions::exit()}});
    Trouble told;
    expectToldOnceAsLost(upload(told, options), told);
    EXPECT_EQ(wholeFilesIn(tree()), fileCount);
    EXPECT_EQ(others(), fileCount - 89);
    startWell();
    Trouble none;
    EXPECT_TRUE(upload(none, options).isComplete());
    EXPECT_EQ(others(), 0);
}

/// Writes a file from memory, several pieces at a time.
class WriteFileFaultTest : public TreeWorkFaultTest
{
protected:
    bool write()
    {
        std::size_t given = 0;
        return FileSystem::writeFile(files(), path("file"), [&](char* buffer, std::size_t size) {
            const std::size_t count = std::min(size, content_.size() - given);
            std::memcpy(buffer, content_.data() + given, count);
            given += count;
            return std::make_optional(count);
        });
    }

    /// Nothing but the old file, or the new one.
    void expectOldOrNew(bool isWritten, bool mayLeave) const
    {
        EXPECT_TRUE(readFile(path("file")) == (isWritten ? content_ : old_));
        if (!mayLeave) {
            EXPECT_THAT(hiddenIn(fs::path(path("file")).parent_path()), IsEmpty());
        }
    }

    const std::string old_ = "what was there";
    const std::string content_ = pseudoRandomBytes(51, 5'000'000);
};

TEST_F(WriteFileFaultTest, AQuotaLeavesTheOldFile)
{
    put("file", old_);
    for (const SftpOccasion& occasion :
         {nth(SftpPacket::Write, 1), nth(SftpPacket::Write, 70), from(SftpPacket::Write, 70)}) {
        startWell();
        follow({{occasion, refuse(quotaExceeded)}});
        EXPECT_FALSE(write());
        EXPECT_EQ(Failure::last().code(), FailureCode::NoSpace) << Failure::last().message();
        expectOldOrNew(false, false);
    }
    startWell();
    EXPECT_TRUE(write()) << Failure::last().message();
    expectOldOrNew(true, false);
}

TEST_F(WriteFileFaultTest, ALossLeavesTheOldFileOrTheNewOne)
{
    for (const SftpOccasion& occasion :
         {nth(SftpPacket::Open, 1), nth(SftpPacket::Write, 1), nth(SftpPacket::Write, 70),
          nth(SftpPacket::Close, 1), nth(SftpPacket::Rename, 1)}) {
        SCOPED_TRACE(static_cast<int>(occasion.request));
        startWell();
        put("file", old_);
        follow({{occasion, SftpActions::exit()}});
        EXPECT_FALSE(write());
        EXPECT_EQ(Failure::last().code(), FailureCode::ConnectionLost) << Failure::last().message();
        expectOldOrNew(false, true);
    }
    startWell();
    EXPECT_TRUE(write()) << Failure::last().message();
    EXPECT_TRUE(readFile(path("file")) == content_);
}

TEST_F(WriteFileFaultTest, AnotherThreadEndsItWhereTheServerIsSilent)
{
    put("file", old_);
    const auto code = workInSilence(SftpPacket::Write, 70, [this] {
        EXPECT_FALSE(write());
        return Failure::last().code();
    });
    EXPECT_EQ(code, FailureCode::ConnectionLost);
    expectOldOrNew(false, true);
}

} // namespace
} // namespace TarnisTest
