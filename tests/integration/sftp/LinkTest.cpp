// Symbolic links on servers that disagree about the order of the two paths.

#include "integration/sftp/QueueTest.h"

#include <filesystem>
#include <set>
#include <vector>

namespace TarnisTest {

namespace {

namespace fs = std::filesystem;
using FileSystem::Failure;
using FileSystem::FailureCode;

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

/// A server that OpenSSH's own cannot be told from, whatever it does with links.
class QueueLinkTest : public ScriptedSftpTest
{
protected:
    static SftpScript likeOpenSsh()
    {
        SftpScript script;
        script.extensions = {{"posix-rename@openssh.com", "1"},
                             {"statvfs@openssh.com", "2"},
                             {"hardlink@openssh.com", "1"},
                             {"fsync@openssh.com", "1"},
                             {"lsetstat@openssh.com", "1"}};
        return script;
    }

    /// Makes links to "target 0", "target 1" and so on, all at once.
    std::vector<Failure> makeLinks(int count, const std::string& name = "link")
    {
        std::vector<Failure> failures;
        const auto queue = files().createQueue();
        for (int number = 0; number < count; ++number) {
            queue->makeLink("target " + std::to_string(number), path(name + std::to_string(number)),
                            [&failures](const Failure& why) { failures.push_back(why); });
        }
        EXPECT_TRUE(finishInTime(*queue));
        return failures;
    }

    static std::set<std::error_code> codesOf(const std::vector<Failure>& failures)
    {
        std::set<std::error_code> codes;
        for (const Failure& failure : failures) {
            codes.insert(failure.code());
        }
        return codes;
    }

    static std::set<std::error_code> only(std::error_code code) { return {code}; }

    /// Has made one link, so that the order of the two paths is known.
    void startWithOneLink()
    {
        start(likeOpenSsh());
        EXPECT_EQ(codesOf(makeLinks(1, "first")), only({}));
    }

    std::size_t requests(SftpPacket request) { return server().sftp().requestCount(request); }
};

TEST_F(QueueLinkTest, InEitherOrderManyAreMadeInFlight)
{
    for (const auto order : {SftpSymlinkOrder::TargetFirst, SftpSymlinkOrder::LinkFirst}) {
        SftpScript script = likeOpenSsh();
        script.symlinkOrder = order;
        start(script);
        EXPECT_EQ(codesOf(makeLinks(100)), only({}));
        for (int number = 0; number < 100; ++number) {
            const std::string suffix = std::to_string(number);
            EXPECT_EQ(textOf(path("link" + suffix)), "target " + suffix);
            EXPECT_FALSE(stands(path("target " + suffix)));
        }
        // Nobody waits for an answer before the last question is asked.
        script.rules = {{nth(SftpPacket::Symlink, 1), SftpActions::stopAnswering()}};
        server().sftp().setScript(script);
        const std::size_t before = requests(SftpPacket::Symlink);
        const auto queue = files().createQueue();
        int made = 0;
        for (int number = 0; number < 20; ++number) {
            queue->makeLink("x", path("more" + std::to_string(number)),
                            [&made](const Failure& why) { made += why ? 0 : 1; });
        }
        EXPECT_TRUE(waitUntil([&] {
            queue->pump(std::chrono::milliseconds(10));
            return requests(SftpPacket::Symlink) == before + 20;
        }));
        EXPECT_EQ(made, 0);
        script.rules.clear();
        server().sftp().setScript(script);
        EXPECT_TRUE(finishInTime(*queue));
        EXPECT_EQ(made, 20);
    }
}

TEST_F(QueueLinkTest, WhatStandsThereStays)
{
    startWithOneLink();
    put("link0", "kept");
    fs::create_symlink("kept", path("link1"));
    fs::create_directory(path("link2"));
    EXPECT_EQ(codesOf(makeLinks(3)), only(FailureCode::Exists));
    EXPECT_EQ(readFile(path("link0")), "kept");
    EXPECT_EQ(textOf(path("link1")), "kept");
    EXPECT_TRUE(fs::is_directory(path("link2")));
}

TEST_F(QueueLinkTest, WhereThereIsNoDirectoryIsNotFound)
{
    startWithOneLink();
    EXPECT_EQ(codesOf(makeLinks(2, "none/link")), only(FailureCode::NotFound));
}

TEST_F(QueueLinkTest, OneThatReadsBackAsAnotherIsRemoved)
{
    startWithOneLink();
    SftpScript script = likeOpenSsh();
    script.linkTarget = "elsewhere";
    server().sftp().setScript(script);
    EXPECT_EQ(codesOf(makeLinks(3)), only(FailureCode::Protocol));
    EXPECT_TRUE(stands(path("first0")));
    for (const char* const name : {"link0", "link1", "link2"}) {
        EXPECT_FALSE(stands(path(name)));
    }
}

TEST_F(QueueLinkTest, OneThatDoesNotAppearIsAFailureAndNothingIsRemoved)
{
    startWithOneLink();
    SftpScript script = likeOpenSsh();
    script.rules = {{every(SftpPacket::Symlink), SftpActions::refuse(SftpStatus::Ok)}};
    server().sftp().setScript(script);
    const std::size_t removals = requests(SftpPacket::Remove);
    EXPECT_EQ(codesOf(makeLinks(3)), only(FailureCode::Protocol));
    EXPECT_EQ(requests(SftpPacket::Remove), removals);
}

TEST_F(QueueLinkTest, AfterOneThatCannotBeTakenBackNoMoreAreMade)
{
    startWithOneLink();
    SftpScript script = likeOpenSsh();
    script.linkTarget = "elsewhere";
    script.rules = {{every(SftpPacket::Remove), SftpActions::refuse(SftpStatus::PermissionDenied)}};
    server().sftp().setScript(script);
    EXPECT_EQ(codesOf(makeLinks(1)), only(FailureCode::Protocol));
    EXPECT_EQ(codesOf(makeLinks(1, "next")), only(FailureCode::Unsupported));
    EXPECT_FALSE(stands(path("next0")));
}

TEST_F(QueueLinkTest, AConnectionThatIsLostIsToldAsThat)
{
    startWithOneLink();
    for (const SftpPacket request : {SftpPacket::Symlink, SftpPacket::Readlink}) {
        SftpScript script = likeOpenSsh();
        script.rules = {{every(request), SftpActions::exit()}};
        server().sftp().setScript(script);
        EXPECT_EQ(codesOf(makeLinks(3, "link " + std::to_string(static_cast<int>(request)))),
                  only(FailureCode::ConnectionLost));
    }
}

} // namespace

} // namespace TarnisTest
