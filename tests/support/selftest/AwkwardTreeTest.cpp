#include "support/AwkwardTree.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <sys/stat.h>

// A tree that is compared with a copy of itself: every difference shows.

namespace TarnisTest {
namespace {

namespace fs = std::filesystem;

class AwkwardTreeTest : public testing::Test
{
protected:
    static constexpr std::size_t kFiles = 500;

    void SetUp() override { makeAwkwardTree(root(), kFiles); }

    std::string root() const { return directory_.file("tree"); }

    std::string differencesAfter(const std::function<void()>& change) const
    {
        const TreeSnapshot before = snapshotOf(root());
        change();
        return differencesBetween(before, snapshotOf(root()));
    }

private:
    TemporaryDirectory directory_;
};

TEST_F(AwkwardTreeTest, IsTheSameEachTime)
{
    const TemporaryDirectory other;
    makeAwkwardTree(other.file("tree"), kFiles);
    EXPECT_EQ(differencesBetween(snapshotOf(root()), snapshotOf(other.file("tree"))), "");
}

TEST_F(AwkwardTreeTest, HasWhatItPromises)
{
    const TreeSnapshot all = snapshotOf(root());
    const auto countOf = [&all](const std::function<bool(const TreeSnapshot::value_type&)>& is) {
        return std::count_if(all.begin(), all.end(), is);
    };
    EXPECT_EQ(countOf([](const auto& entry) { return entry.second.kind == 'f'; }),
              static_cast<std::ptrdiff_t>(kFiles));
    EXPECT_EQ(countOf([](const auto& entry) { return entry.second.kind == 'l'; }), 10);
    EXPECT_EQ(countOf([](const auto& entry) { return entry.second.kind == '?'; }), 0);
    EXPECT_GT(countOf([](const auto& entry) {
                  return std::count(entry.first.begin(), entry.first.end(), '/') >= 30;
              }),
              0);
    EXPECT_GT(countOf([](const auto& entry) {
                  return fs::path(entry.first).filename().string().size() == 255;
              }),
              0);
    EXPECT_GT(countOf([](const auto& entry) { return entry.second.permissions == 0400; }), 0);
    EXPECT_GT(countOf([](const auto& entry) {
                  return entry.second.kind == 'd' && entry.second.permissions == 0555;
              }),
              0);
}

TEST_F(AwkwardTreeTest, ShowsEveryDifference)
{
    const std::string some = root() + "/empty";
    EXPECT_EQ(differencesAfter([] {}), "");
    EXPECT_NE(differencesAfter([&] { fs::permissions(some, fs::perms(0700)); }), "");
    EXPECT_NE(differencesAfter([&] { ::utimensat(AT_FDCWD, some.c_str(), nullptr, 0); }), "");
    EXPECT_NE(differencesAfter([&] { fs::remove(root() + "/link up"); }), "");
    EXPECT_NE(differencesAfter([&] { fs::create_symlink("x", root() + "/link up"); }), "");
    EXPECT_NE(differencesAfter([&] { fs::create_directory(root() + "/more"); }), "");
}

TEST_F(AwkwardTreeTest, ShowsASingleByte)
{
    TreeSnapshot changed = snapshotOf(root());
    const TreeSnapshot before = changed;
    const auto file = std::find_if(changed.begin(), changed.end(), [](const auto& entry) {
        return entry.second.kind == 'f' && fs::path(entry.first).filename().string().size() < 50;
    });
    ASSERT_NE(file, changed.end());
    const std::string path = root() + "/" + file->first;
    fs::permissions(path, fs::perms(0600));
    const auto time = fs::last_write_time(path);
    std::string content = readFile(path) + "!";
    fs::remove(path);
    const TemporaryDirectory elsewhere;
    fs::rename(elsewhere.write("file", content), path);
    fs::permissions(path, fs::perms(file->second.permissions));
    fs::last_write_time(path, time);
    TreeSnapshot after = snapshotOf(root());
    EXPECT_NE(after[file->first].content, before.at(file->first).content);
    EXPECT_EQ(after[file->first].permissions, before.at(file->first).permissions);
    EXPECT_NE(differencesBetween(before, after), "");
}

} // namespace
} // namespace TarnisTest
