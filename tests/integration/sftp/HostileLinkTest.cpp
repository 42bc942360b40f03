// Links that lead out of a tree, or take a directory's place at the worst moment.

#include "integration/sftp/HostileTest.h"
#include "support/sftp/SftpWire.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using namespace SftpActions;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A tree with one directory below it, and what must not be touched beside it.
class HostileLinkTest : public HostileTest
{
protected:
    void SetUp() override
    {
        HostileTest::SetUp();
        fs::create_directories(path("tree/sub"));
        put("tree/sub/file", "below");
        fs::create_directories(path("precious"));
        put("precious/file", "precious");
    }

    /// A link to `precious` takes the place of the directory just before a request that names it.
    void swapBefore(SftpOccasion occasion)
    {
        SftpScript script;
        script.rules = {{onPath(std::move(occasion), "/sub"), linkInstead(path("precious"))}};
        follow(script);
    }

    void expectSwapped() { EXPECT_TRUE(fs::is_symlink(path("tree/sub"))); }

    void expectPreciousIsThere()
    {
        EXPECT_THAT(namesIn(path("precious")), ElementsAre("file"));
        EXPECT_EQ(readFile(path("precious/file")), "precious");
    }
};

TEST_F(HostileLinkTest, OutOfATreeIsCopiedAsALink)
{
    fs::create_directory_symlink(path("precious"), path("tree/absolute"));
    fs::create_directory_symlink("../precious", path("tree/relative"));
    fs::create_symlink("/etc/passwd", path("tree/file"));
    fs::create_directory_symlink("..", path("tree/sub/circle"));
    ASSERT_TRUE(download(path("tree"), "copy"));
    for (const char* const name : {"absolute", "relative", "file", "sub/circle"}) {
        EXPECT_EQ(fs::read_symlink(target() + "/copy/" + name),
                  fs::read_symlink(path(std::string("tree/") + name)));
    }
    ASSERT_TRUE(upload(target() + "/copy", "back"));
    EXPECT_EQ(fs::read_symlink(path("back/absolute")), path("precious"));
    EXPECT_EQ(fs::read_symlink(path("back/sub/circle")), "..");
    expectPreciousIsThere();
}

TEST_F(HostileLinkTest, OutOfATreeIsRemovedAndNothingBehindIt)
{
    fs::create_directory_symlink(path("precious"), path("tree/absolute"));
    fs::create_directory_symlink("../../precious", path("tree/sub/relative"));
    fs::create_directory_symlink("..", path("tree/sub/circle"));
    EXPECT_TRUE(files().directoryRemove(path("tree"), true));
    EXPECT_THAT(namesIn(server().sftp().root()), ElementsAre("precious"));
    expectPreciousIsThere();
}

TEST_F(HostileLinkTest, ThatTheServerDescribesAsItsTargetIsRemovedAndNothingBehindIt)
{
    SftpScript script;
    script.followsLinks = true;
    follow(script);
    fs::create_directory_symlink(path("precious"), path("tree/link"));
    EXPECT_TRUE(files().directoryRemove(path("tree"), true));
    EXPECT_FALSE(fs::exists(path("tree")));
    expectPreciousIsThere();
}

TEST_F(HostileLinkTest, ThatTheServerDoesNotDescribeIsMadeAndLeavesNoOther)
{
    SftpScript script;
    script.followsLinks = true;
    follow(script);
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs("no where", path("link"), true));
    EXPECT_EQ(fs::read_symlink(path("link")), "no where");
    EXPECT_THAT(namesIn(server().sftp().root()), ElementsAre("link", "precious", "tree"));
}

TEST_F(HostileLinkTest, ToATreeIsNeitherCopiedNorRemovedAsOne)
{
    fs::create_directory_symlink("precious", path("link"));
    EXPECT_FALSE(files().directoryRemove(path("link"), true));
    EXPECT_FALSE(files().directoryRemove(path("link/"), true));
    EXPECT_TRUE(download(path("link"), "copy"));
    EXPECT_EQ(fs::read_symlink(target() + "/copy"), "precious");
    expectPreciousIsThere();
}

TEST_F(HostileLinkTest, InPlaceOfADirectoryIsNotListedThroughWhenATreeIsRemoved)
{
    swapBefore(nth(SftpPacket::Opendir, 1));
    EXPECT_FALSE(files().directoryRemove(path("tree"), true));
    expectSwapped();
    expectPreciousIsThere();
}

TEST_F(HostileLinkTest, InPlaceOfADirectoryIsNotEnteredWhenATreeIsRemoved)
{
    swapBefore(nth(SftpPacket::Lstat, 1));
    static_cast<void>(files().directoryRemove(path("tree"), true));
    expectPreciousIsThere();
}

TEST_F(HostileLinkTest, InPlaceOfADirectoryIsNotCopiedThrough)
{
    swapBefore(nth(SftpPacket::Opendir, 1));
    EXPECT_FALSE(download(path("tree"), "copy"));
    expectSwapped();
    EXPECT_THAT(namesIn(target()), IsEmpty());
}

TEST_F(HostileLinkTest, InPlaceOfATargetDirectoryIsNotWrittenThrough)
{
    fs::create_directories(target() + "/tree/sub");
    here().write("target/tree/sub/new", "new");
    swapBefore(nth(SftpPacket::Lstat, 1));
    EXPECT_FALSE(upload(target() + "/tree", "tree"));
    expectSwapped();
    expectPreciousIsThere();
}

TEST_F(HostileLinkTest, AtTheTargetOfAFileIsReplacedAndNotWrittenThrough)
{
    fs::create_symlink(path("precious/file"), path("link"));
    here().write("target/new", "new");
    EXPECT_TRUE(upload(target() + "/new", "link"));
    EXPECT_FALSE(fs::is_symlink(path("link")));
    EXPECT_EQ(readFile(path("link")), "new");
    expectPreciousIsThere();
    put("served", "served");
    fs::create_symlink(here().write("mine", "mine"), target() + "/link");
    EXPECT_TRUE(download(path("served"), "link"));
    EXPECT_EQ(readFile(here().file("mine")), "mine");
}

/// What a link is said to lead to.
class LinkTextTest : public HostileLinkTest, public ::testing::WithParamInterface<std::string>
{};

TEST_P(LinkTextTest, IsCopiedAsItIsOrNotAtAll)
{
    fs::create_symlink("honest", path("tree/link"));
    SftpScript script;
    script.linkTarget = GetParam();
    follow(script);
    const bool copied = download(path("tree"), "copy");
    const std::string link = target() + "/copy/link";
    EXPECT_EQ(copied, fs::is_symlink(fs::symlink_status(link)));
    if (copied) {
        // A text ends where C does.
        EXPECT_EQ(fs::read_symlink(link), GetParam().substr(0, GetParam().find('\0')));
    }
    expectNothingOutside();
}

TEST_P(LinkTextTest, IsNotTakenForTheOneThatWasAskedFor)
{
    SftpScript script;
    script.linkTarget = GetParam();
    follow(script);
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs("asked", path("link"), false));
    EXPECT_FALSE(fs::is_symlink(fs::symlink_status(path("link"))));
    expectPreciousIsThere();
}

TEST_P(LinkTextTest, EndsSomewhereWhenItIsFollowed)
{
    fs::create_symlink("honest", path("tree/link"));
    SftpScript script;
    script.linkTarget = GetParam();
    follow(script);
    static_cast<void>(files().directoryExists(path("tree/link")));
    static_cast<void>(files().fileSymbolicLinkTargetFileId(path("tree/link"), true));
    EXPECT_TRUE(files().isValid());
}

INSTANTIATE_TEST_SUITE_P(Texts, LinkTextTest,
                         ::testing::Values("", ".", "..", "/", "../../../../../../etc", "link",
                                           "a\nb", "\xff\xfe", std::string("a\0b", 3),
                                           std::string("\0", 1), std::string(4'095, 'x'),
                                           std::string(100'000, 'x')),
                         [](const auto& text) { return "Text" + std::to_string(text.index); });

} // namespace

} // namespace TarnisTest
