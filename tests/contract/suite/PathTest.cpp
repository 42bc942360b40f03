#include "contract/ContractTest.h"

namespace TarnisTest {

namespace {

class PathContract : public ContractTest
{};

TEST_P(PathContract, NameIsTheLastComponent)
{
    EXPECT_EQ(system().pathFileName("/a/b"), "b");
    EXPECT_EQ(system().pathFileName("/a/b/"), "b");
    EXPECT_EQ(system().pathFileName("/a//b//"), "b");
    EXPECT_EQ(system().pathFileName("b"), "b");
    EXPECT_EQ(system().pathFileName("/"), "");
    EXPECT_EQ(system().pathFileName("//"), "");
    EXPECT_EQ(system().pathFileName(""), "");
    EXPECT_EQ(system().pathFileName("/a\n\xFF"), "a\n\xFF");
}

TEST_P(PathContract, ParentIsThePathWithoutTheLastComponent)
{
    EXPECT_EQ(system().pathParentId("/a/b"), "/a");
    EXPECT_EQ(system().pathParentId("/a/b/"), "/a");
    EXPECT_EQ(system().pathParentId("/a"), "/");
    EXPECT_EQ(system().pathParentId("/"), "");
    EXPECT_EQ(system().pathParentId("a"), "");
    EXPECT_EQ(system().pathParentId(""), "");
    EXPECT_EQ(system().pathParentId("a/b"), "a");
}

TEST_P(PathContract, WalkingUpEnds)
{
    for (const char* start : {"/a/b/c", "//a//b//", "///", "a/b/c", "./../x"}) {
        std::string way = start;
        for (int step = 0; step < 20 && !way.empty(); ++step) {
            way = system().pathParentId(way);
        }
        EXPECT_EQ(way, "") << start;
    }
}

TEST_P(PathContract, ChildIsJoinedWithoutDoublingASlash)
{
    EXPECT_EQ(system().pathChildId("/a", {"b"}), "/a/b");
    EXPECT_EQ(system().pathChildId("/a/", {"b", "c"}), "/a/b/c");
    EXPECT_EQ(system().pathChildId("/", {"b"}), "/b");
    EXPECT_EQ(system().pathChildId("", {"b", "c"}), "b/c");
    EXPECT_EQ(system().pathChildId("/a", {}), "/a");
}

TEST_P(PathContract, KnowsSearchPatterns)
{
    for (const char* pattern : {"/a/*.txt", "/a/?", "/a/[ab]", "a;b"}) {
        EXPECT_TRUE(system().pathHasFilterPath(pattern)) << pattern;
    }
    for (const char* plain : {"/a/b", "/a*/b", "/a]/", "", "/"}) {
        EXPECT_FALSE(system().pathHasFilterPath(plain)) << plain;
    }
}

TEST_P(PathContract, AbsoluteStartsAtTheRoot)
{
    EXPECT_TRUE(system().pathIsAbsolute("/"));
    EXPECT_TRUE(system().pathIsAbsolute("/a"));
    EXPECT_FALSE(system().pathIsAbsolute("a/b"));
    EXPECT_FALSE(system().pathIsAbsolute("~/a"));
    EXPECT_FALSE(system().pathIsAbsolute(""));
}

TEST_P(PathContract, ExtensionFollowsADotOfTheName)
{
    EXPECT_EQ(system().pathFileExtension("/x.d/a.tar.gz", false), "gz");
    EXPECT_EQ(system().pathFileExtension("/x.d/a.tar.gz", true), "tar.gz");
    EXPECT_EQ(system().pathFileExtension("/x.d/a", false), "");
    EXPECT_EQ(system().pathFileExtension("/x.d/a", true), "");
    EXPECT_EQ(system().pathFileExtension("/.profile", false), "");
    EXPECT_EQ(system().pathFileExtension("/.profile", true), "");
    EXPECT_EQ(system().pathFileExtension("/.profile.bak", false), "bak");
    EXPECT_EQ(system().pathFileExtension("a.", false), "");
}

TEST_P(PathContract, ExtensionIsTakenOffWithItsDot)
{
    EXPECT_EQ(system().pathFileStripExtension("/x.d/a.tar.gz"), "/x.d/a.tar");
    EXPECT_EQ(system().pathFileStripExtension("/x.d/a"), "/x.d/a");
    EXPECT_EQ(system().pathFileStripExtension("/.profile"), "/.profile");
}

TEST_P(PathContract, SlashesAreAddedAndTakenAway)
{
    EXPECT_EQ(system().pathEnsureLeadingSlash("a"), "/a");
    EXPECT_EQ(system().pathEnsureLeadingSlash("/a"), "/a");
    EXPECT_EQ(system().pathEnsureLeadingSlash(""), "/");
    EXPECT_EQ(system().pathRemoveLeadingSlash("//a/"), "a/");
    EXPECT_EQ(system().pathRemoveLeadingSlash("a"), "a");
    EXPECT_EQ(system().pathEnsureTrailingSlash("/a"), "/a/");
    EXPECT_EQ(system().pathEnsureTrailingSlash("/a/"), "/a/");
    EXPECT_EQ(system().pathRemoveTrailingSlash("/a//"), "/a");
    EXPECT_EQ(system().pathRemoveTrailingSlash("/"), "/");
    EXPECT_EQ(system().pathRemoveTrailingSlash("a"), "a");
}

TEST_P(PathContract, CanonicalLacksWhatDoesNotMatter)
{
    const auto expectCanonical = [this](const std::string& path, const std::string& canonical) {
        EXPECT_EQ(system().pathCanonize(path), canonical) << path;
        EXPECT_EQ(system().canonizeFileId(path), canonical) << path;
        EXPECT_EQ(system().canonizeDirectoryId(path), canonical) << path;
    };
    expectCanonical("/a/b", "/a/b");
    expectCanonical("//a///b//", "/a/b");
    expectCanonical("/a/./b/.", "/a/b");
    expectCanonical("/", "/");
    expectCanonical("a/./b", "a/b");
    expectCanonical("/a/.b/c.", "/a/.b/c.");
}

TEST_P(PathContract, CanonicalKeepsStepsUp)
{
    EXPECT_EQ(system().pathCanonize("/a/../b"), "/a/../b");
    EXPECT_EQ(system().pathCanonize("../a/"), "../a");
}

INSTANTIATE_TEST_SUITE_P(Contract, PathContract, testing::ValuesIn(backends()), backendName);

} // namespace

} // namespace TarnisTest
