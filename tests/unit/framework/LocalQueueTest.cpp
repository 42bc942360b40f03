#include "support/TemporaryDirectory.h"

#include <FileSystem/Failure.h>
#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/TreeOperations.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

using FileSystem::Failure;
using FileSystem::FailureCode;
using FileSystem::LocalFileSystem;
using FileSystem::TreeEntry;

/// Two directories with a file "a" each, "outside" and "tree/sub".
class LocalQueue : public ::testing::Test
{
protected:
    LocalQueue()
    {
        directory_.makeDirectory("outside");
        directory_.makeDirectory("tree");
        directory_.makeDirectory("tree/sub");
        directory_.write("outside/a", "secret");
        directory_.write("tree/sub/a", "a");
    }

    std::string path(const std::string& name) const { return directory_.file(name); }

    /// As whoever may write to the tree does it meanwhile.
    void replaceByLink() const
    {
        std::filesystem::rename(path("tree/sub"), path("tree/moved"));
        std::filesystem::create_directory_symlink(path("outside"), path("tree/sub"));
    }

    TarnisTest::TemporaryDirectory directory_;
    const LocalFileSystem system_;
};

TEST_F(LocalQueue, FailsForAListingOfMoreEntriesThanTheLimit)
{
    directory_.write("tree/sub/b", "b");
    LocalFileSystem system;
    for (const std::size_t limit : {2U, 1U}) {
        system.setListingLimit(limit);
        const auto queue = system.createQueue();
        Failure last;
        std::size_t count = 0;
        queue->list(
            path("tree/sub"),
            [&count](std::vector<FileSystem::StorageSystemEntry>& entries) {
                count += entries.size();
                return true;
            },
            [&last](const Failure& failure) { last = failure; });
        queue->finish();
        EXPECT_EQ(count, limit);
        EXPECT_EQ(static_cast<bool>(last), limit == 1);
        EXPECT_TRUE(!last || last.code() == FailureCode::TooMany);
    }
}

/// So that a large one can be stopped.
TEST_F(LocalQueue, TellsProgressWhileADirectoryIsRead)
{
    class Counting : public FileSystem::TreeObserver
    {
    public:
        bool wants(const TreeEntry& entry) override
        {
            first_ = entry.below.empty() ? calls_ : first_;
            last_ = calls_;
            return true;
        }

        bool progress(const FileSystem::TreeProgress& /*progress*/) override
        {
            ++calls_;
            return true;
        }

        /// From when the root was told until its entries were.
        int callsWhileRead() const { return last_ - first_; }

    private:
        int calls_ = 0;
        int first_ = 0;
        int last_ = 0;
    };

    for (int number = 0; number < 3'000; ++number) {
        directory_.write("tree/sub/file" + std::to_string(number), "");
    }
    Counting counting;
    EXPECT_TRUE(walkTree(system_, {path("tree/sub")}, counting).isComplete());
    EXPECT_GE(counting.callsWhileRead(), 4);
}

TEST_F(LocalQueue, FollowsLinksOnTheWayUnlessItIsConfined)
{
    replaceByLink();
    for (const bool isConfined : {false, true}) {
        const auto queue = system_.createQueue();
        if (isConfined) {
            queue->confine(path("tree"));
        }
        Failure last;
        queue->lookUp(path("tree/sub/a"),
                      [&last](const Failure& failure, const auto&) { last = failure; });
        queue->finish();
        EXPECT_EQ(static_cast<bool>(last), isConfined);
        EXPECT_TRUE(!isConfined || last.code() == FailureCode::Changed) << last.message();
        queue->lookUp(path("tree/moved/a"),
                      [&last](const Failure& failure, const auto&) { last = failure; });
        queue->finish();
        EXPECT_FALSE(last) << last.message();
    }
}

TEST_F(LocalQueue, NothingIsRemovedThroughALinkThatTakesADirectorysPlace)
{
    class Replacing : public FileSystem::TreeObserver
    {
    public:
        explicit Replacing(std::function<void()> replace)
            : replace_(std::move(replace))
        {}

        bool wants(const TreeEntry& entry) override
        {
            if (entry.below == "sub/a") {
                replace_();
            }
            return true;
        }

    private:
        std::function<void()> replace_;
    };

    Replacing observer([this] { replaceByLink(); });
    const auto report = removeTree(system_, {path("tree")}, observer);
    EXPECT_FALSE(report.isComplete());
    EXPECT_EQ(report.failure.code(), FailureCode::Changed);
    EXPECT_TRUE(std::filesystem::exists(path("outside/a")));
}

TEST_F(LocalQueue, WhatTheSourceHasNotIsNotRemovedThroughALink)
{
    class Swapping final : public FileSystem::TreeObserver
    {
    public:
        explicit Swapping(std::function<void()> swap)
            : swap_(std::move(swap))
        {}

        bool removes(const TreeEntry& entry) override
        {
            asked.push_back(entry.below);
            swap_();
            return true;
        }

        std::vector<std::string> asked;

    private:
        std::function<void()> swap_;
    } observer([this] { replaceByLink(); });

    directory_.makeDirectory("from");
    directory_.makeDirectory("from/sub");
    FileSystem::TreeCopyOptions options;
    options.removesOthers = true;
    const auto report =
        copyTree(system_, system_, {{path("from"), path("tree")}}, observer, options);
    EXPECT_EQ(observer.asked, std::vector<std::string>{"sub/a"});
    // The one that was asked about goes, wherever its directory is by now.
    EXPECT_EQ(report.removed, 1U);
    EXPECT_FALSE(std::filesystem::exists(path("tree/moved/a")));
    EXPECT_EQ(TarnisTest::readFile(path("outside/a")), "secret");
}

} // namespace
