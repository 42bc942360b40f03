#include "framework/ScriptedFileSystem.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using TarnisTest::ScriptedFileSystem;

namespace {

struct Row
{
    std::string path;
    std::string expected;
};

/// A function of one path, checked against a table.
void expectEach(const std::vector<Row>& rows,
                std::string (FileSystem::FileSystem2::*function)(const std::string&) const)
{
    const ScriptedFileSystem system;
    for (const auto& [path, expected] : rows) {
        EXPECT_EQ((system.*function)(path), expected) << '"' << path << '"';
    }
}

} // namespace

TEST(PathFunctions, CanonizingDropsSlashesAndDotsThatDoNotMatter)
{
    const std::vector<Row> rows{{"", ""},
                                {"/", "/"},
                                {"//", "/"},
                                {"/a/b", "/a/b"},
                                {"//a///b//", "/a/b"},
                                {"/./a/./b/.", "/a/b"},
                                {"a/./b/", "a/b"},
                                {".", "."},
                                {"./", "."},
                                {"./a", "a"},
                                {"/.", "/"},
                                {"/a/../b", "/a/../b"},
                                {"..", ".."},
                                {"...", "..."},
                                {"a/.b", "a/.b"}};
    expectEach(rows, &FileSystem::FileSystem2::pathCanonize);
}

TEST(PathFunctions, CanonizedIdsAreCanonizedPaths)
{
    const ScriptedFileSystem system;
    EXPECT_EQ(system.canonizeFileId("/a//b/./c/"), "/a/b/c");
    EXPECT_EQ(system.canonizeDirectoryId("/a//b/./c/"), "/a/b/c");
}

TEST(PathFunctions, TheFileNameIsTheLastComponent)
{
    const std::vector<Row> rows{{"", ""},        {"/", ""},      {"//", ""},       {"a", "a"},
                                {"/a/b", "b"},   {"/a/b/", "b"}, {"a//", "a"},     {"/a/.", "."},
                                {"/a/..", ".."}, {" / ", " "},   {"/a/b\n", "b\n"}};
    expectEach(rows, &FileSystem::FileSystem2::pathFileName);
}

TEST(PathFunctions, TheParentIsThePathWithoutItsLastComponent)
{
    const std::vector<Row> rows{
        {"", ""},     {"/", ""},     {"//", ""},        {"a", ""},      {"a/", ""},
        {"/a", "/"},  {"/a/", "/"},  {"//a", "/"},      {"/a/b", "/a"}, {"/a/b/", "/a"},
        {"a/b", "a"}, {"a//b", "a"}, {"/a//b//", "/a"}, {"../a", ".."}, {"/a/b/c", "/a/b"}};
    expectEach(rows, &FileSystem::FileSystem2::pathParentId);
}

TEST(PathFunctions, AChildIsJoinedWithOneSlash)
{
    const ScriptedFileSystem system;
    EXPECT_EQ(system.pathChildId("/a", {"b"}), "/a/b");
    EXPECT_EQ(system.pathChildId("/a/", {"b"}), "/a/b");
    EXPECT_EQ(system.pathChildId("/", {"b"}), "/b");
    EXPECT_EQ(system.pathChildId("", {"b"}), "b");
    EXPECT_EQ(system.pathChildId("", {"b", "c"}), "b/c");
    EXPECT_EQ(system.pathChildId("/a", {"b", "c", "d"}), "/a/b/c/d");
    EXPECT_EQ(system.pathChildId("/a", {}), "/a");
    EXPECT_EQ(system.pathChildId("/a", {"", "b"}), "/a/b");
}

TEST(PathFunctions, AFilterPathHasAPatternAsItsLastComponent)
{
    const ScriptedFileSystem system;
    for (const auto* path : {"*", "/a/*.txt", "/a/b?", "/a/[x]", "a;b", "/a/b*/"}) {
        EXPECT_TRUE(system.pathHasFilterPath(path)) << path;
    }
    for (const auto* path : {"", "/", "/a/b.txt", "/a*/b", "a]", "/a/b!"}) {
        EXPECT_FALSE(system.pathHasFilterPath(path)) << path;
    }
}

TEST(PathFunctions, AnAbsolutePathStartsAtTheRoot)
{
    const ScriptedFileSystem system;
    EXPECT_TRUE(system.pathIsAbsolute("/"));
    EXPECT_TRUE(system.pathIsAbsolute("/a"));
    EXPECT_FALSE(system.pathIsAbsolute("a/b"));
    EXPECT_FALSE(system.pathIsAbsolute(""));
}

TEST(PathFunctions, TheExtensionFollowsTheLastDotOrTheFirst)
{
    struct ExtensionRow
    {
        std::string path;
        std::string last;
        std::string complete;
    };

    const ScriptedFileSystem system;
    const std::vector<ExtensionRow> rows{{"a.txt", "txt", "txt"}, {"/x.y/a.tar.gz", "gz", "tar.gz"},
                                         {"a", "", ""},           {"/x.y/a", "", ""},
                                         {".profile", "", ""},    {".profile.old", "old", "old"},
                                         {".a.b.c", "c", "b.c"},  {"a.", "", ""},
                                         {"a..", "", "."},        {".", "", ""},
                                         {"..", "", ""},          {"", "", ""},
                                         {"/", "", ""},           {"/a/b.txt/", "txt", "txt"}};
    for (const auto& [path, last, complete] : rows) {
        EXPECT_EQ(system.pathFileExtension(path, false), last) << path;
        EXPECT_EQ(system.pathFileExtension(path, true), complete) << path;
    }
}

TEST(PathFunctions, StrippingTheExtensionLeavesTheRestOfThePath)
{
    const std::vector<Row> rows{{"a.txt", "a"},       {"/x.y/a.tar.gz", "/x.y/a.tar"},
                                {"/x.y/a", "/x.y/a"}, {"/x/.profile", "/x/.profile"},
                                {"a.", "a"},          {"..", ".."},
                                {"/", "/"},           {"", ""}};
    expectEach(rows, &FileSystem::FileSystem2::pathFileStripExtension);
}

TEST(PathFunctions, SlashesInFrontAreAddedAndTakenAway)
{
    expectEach({{"", "/"}, {"/", "/"}, {"a", "/a"}, {"/a", "/a"}, {"//a", "//a"}},
               &FileSystem::FileSystem2::pathEnsureLeadingSlash);
    expectEach({{"", ""}, {"/", ""}, {"a/", "a/"}, {"/a/b", "a/b"}, {"//a", "a"}},
               &FileSystem::FileSystem2::pathRemoveLeadingSlash);
}

TEST(PathFunctions, SlashesAtTheEndAreAddedAndTakenAway)
{
    expectEach({{"", "/"}, {"/", "/"}, {"a", "a/"}, {"/a/", "/a/"}},
               &FileSystem::FileSystem2::pathEnsureTrailingSlash);
    expectEach({{"", ""}, {"/", "/"}, {"//", "/"}, {"a", "a"}, {"/a/b//", "/a/b"}},
               &FileSystem::FileSystem2::pathRemoveTrailingSlash);
}

TEST(PathFunctions, AskNoSystem)
{
    const ScriptedFileSystem system;
    system.pathCanonize("/a");
    system.pathChildId("/a", {"b"});
    system.pathParentId("/a");
    EXPECT_TRUE(system.calls().empty());
}
