#include "support/TemporaryDirectory.h"

#include <FileSystem/Failure.h>
#include <FileSystem/LocalFileSystem.h>
#include <FileSystem/TreeOperations.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>

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

} // namespace
