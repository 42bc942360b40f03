// Symbolic links on servers that disagree about the order of the two paths.

#include "integration/sftp/SftpTest.h"

#include <filesystem>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;

bool stands(const std::string& path)
{
    return fs::symlink_status(path).type() != fs::file_type::not_found;
}

std::string textOf(const std::string& path)
{
    return fs::is_symlink(fs::symlink_status(path)) ? fs::read_symlink(path).string() : "";
}

class SftpLinkTest : public OpenSshSftpTest
{};

TEST_F(SftpLinkTest, IsMadeWithItsTextAsItIs)
{
    for (const auto* text : {"relative", "../up", "/absolute/nowhere", "with space", "a//b/"}) {
        EXPECT_TRUE(files().fileSymbolicLinkCreateAs(text, path("link"), false)) << text;
        EXPECT_EQ(textOf(path("link")), text);
        EXPECT_EQ(files().fileSymbolicLinkTarget(path("link")), text);
        EXPECT_EQ(files().directorySymbolicLinkTarget(path("link")), text);
    }
}

TEST_F(SftpLinkTest, ReplacesAFileThoughLinksAreProtected)
{
    directory().write("link", "x");
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs("target", path("link"), true));
    EXPECT_EQ(textOf(path("link")), "target");
}

TEST_F(SftpLinkTest, DoesNotReplaceAProtectedLink)
{
    fs::create_symlink("old", path("link"));
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs("new", path("link"), true));
    EXPECT_EQ(textOf(path("link")), "old");
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs("new", path("link"), false));
    EXPECT_EQ(textOf(path("link")), "new");
}

TEST_F(SftpLinkTest, ToADirectoryProtectsLinksToDirectoriesAlone)
{
    directory().makeDirectory("d");
    fs::create_symlink(path("d"), path("link"));
    EXPECT_FALSE(files().directorySymbolicLinkCreateAs("new", path("link"), true));
    EXPECT_EQ(textOf(path("link")), path("d"));
    fs::remove(path("link"));
    fs::create_symlink("dangling", path("link"));
    EXPECT_TRUE(files().directorySymbolicLinkCreateAs(path("d"), path("link"), true));
    EXPECT_EQ(textOf(path("link")), path("d"));
}

TEST_F(SftpLinkTest, ReplacesADirectoryWithAllThatIsInItAndNothingBehindALink)
{
    directory().write("precious", "x");
    directory().makeDirectory("d");
    directory().write("d/file", "x");
    fs::create_directory_symlink(directory().path(), path("d/up"));
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs("target", path("d"), false));
    EXPECT_EQ(textOf(path("d")), "target");
    EXPECT_TRUE(stands(path("precious")));
}

TEST_F(SftpLinkTest, IsRemovedWithoutItsTarget)
{
    directory().makeDirectory("d");
    fs::create_symlink(path("d"), path("link"));
    EXPECT_TRUE(files().directorySymbolicLinkRemove(path("link")));
    EXPECT_FALSE(stands(path("link")));
    EXPECT_TRUE(stands(path("d")));
}

TEST_F(SftpLinkTest, WhereThereIsNoneHasNoTarget)
{
    EXPECT_FALSE(files().fileSymbolicLinkTarget(path("missing")).has_value());
    EXPECT_FALSE(files().fileSymbolicLinkTarget(directory().write("f", "x")).has_value());
}

TEST_F(SftpLinkTest, ThatCannotBeMadeLeavesNothing)
{
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs(path("target"), path("missing/link"), false));
    EXPECT_FALSE(stands(path("target")));
}

/// The order that the banner promises, and the other one.
class AnyOrderLinkTest : public ScriptedSftpTest,
                         public ::testing::WithParamInterface<SftpSymlinkOrder>
{
protected:
    void SetUp() override
    {
        SftpScript script;
        script.symlinkOrder = GetParam();
        start(script);
    }
};

TEST_P(AnyOrderLinkTest, ALinkComesOutRightAndNothingElseAppears)
{
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs(path("target"), path("link"), false));
    EXPECT_EQ(textOf(path("link")), path("target"));
    EXPECT_FALSE(stands(path("target")));
    // What was learnt holds for the next one.
    const auto before = server().sftp().requestCount(SftpPacket::Symlink);
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs(path("other"), path("second"), false));
    EXPECT_EQ(textOf(path("second")), path("other"));
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Symlink), before + 1);
}

TEST_P(AnyOrderLinkTest, WhatStandsAtTheTargetStays)
{
    put("target", "kept");
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs(path("target"), path("link"), false));
    EXPECT_EQ(textOf(path("link")), path("target"));
    EXPECT_EQ(readFile(path("target")), "kept");
}

TEST_P(AnyOrderLinkTest, ALinkBackFromTheTargetStays)
{
    fs::create_symlink(path("link"), path("circle"));
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs(path("circle"), path("link"), false));
    EXPECT_EQ(textOf(path("link")), path("circle"));
    EXPECT_EQ(textOf(path("circle")), path("link"));
}

TEST_P(AnyOrderLinkTest, ARelativeTargetIsRightToo)
{
    ASSERT_TRUE(files().directoryCreateAs(path("d"), true));
    EXPECT_TRUE(files().fileSymbolicLinkCreateAs("elsewhere", path("d/link"), false));
    EXPECT_EQ(textOf(path("d/link")), "elsewhere");
    EXPECT_FALSE(stands(path("elsewhere")));
}

INSTANTIATE_TEST_SUITE_P(Servers, AnyOrderLinkTest,
                         ::testing::Values(SftpSymlinkOrder::TargetFirst,
                                           SftpSymlinkOrder::LinkFirst),
                         [](const auto& order) {
                             return order.param == SftpSymlinkOrder::TargetFirst ? "TargetFirst"
                                                                                 : "LinkFirst";
                         });

class ScriptedSftpLinkTest : public ScriptedSftpTest
{};

TEST_F(ScriptedSftpLinkTest, OnAServerThatRewritesTargetsFailsAndLeavesNothing)
{
    SftpScript script;
    script.linkAnswer = SftpLinkAnswer::Absolute;
    start(script);
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs("relative", path("link"), false));
    EXPECT_FALSE(stands(path("link")));
    EXPECT_FALSE(stands(path("relative")));
}

TEST_F(ScriptedSftpLinkTest, OnAServerThatLiesFailsAndRemovesNothing)
{
    SftpScript script;
    script.rules.push_back({every(SftpPacket::Symlink), SftpActions::refuse(SftpStatus::Ok)});
    start(script);
    fs::create_symlink(path("link"), path("circle"));
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs(path("circle"), path("link"), false));
    EXPECT_EQ(textOf(path("circle")), path("link"));
}

TEST_F(ScriptedSftpLinkTest, ThatIsRefusedIsNotTriedTheOtherWayRoundOnOpenSsh)
{
    SftpScript script;
    script.rules.push_back(
        {every(SftpPacket::Symlink), SftpActions::refuse(SftpStatus::PermissionDenied)});
    start(script);
    EXPECT_FALSE(files().fileSymbolicLinkCreateAs(path("target"), path("link"), false));
    EXPECT_EQ(server().sftp().requestCount(SftpPacket::Symlink), 1U);
}

} // namespace

} // namespace TarnisTest
