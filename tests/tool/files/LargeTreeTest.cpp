// Many files with every kind of name: what `put -r -p` sends, `get -r -p` brings back the same.

#include "support/AwkwardTree.h"
#include "tool/files/FilesTest.h"

namespace TarnisTest {
namespace {

using LargeTreeTest = FilesTest;

TEST_F(LargeTreeTest, GoesUpAndComesDownTheSame)
{
    constexpr std::size_t kFiles = 1'500;
    makeAwkwardTree(here().file("tree"), kFiles);
    const TreeSnapshot expected = snapshotOf(here().file("tree"));
    expectQuiet(tarnis("put", {"-r", "-p", here().file("tree"), at("")}));
    EXPECT_EQ(differencesBetween(expected, snapshotOf(there().file("tree"))), "");
    expectQuiet(tarnis("get", {"-r", "-p", at("tree"), here().file("back")}));
    EXPECT_EQ(differencesBetween(expected, snapshotOf(here().file("back"))), "");
}

} // namespace
} // namespace TarnisTest
