// `tarnis mv` where the server does not rename, as to another volume.

#include "support/PseudoRandom.h"
#include "support/TcpProxy.h"
#include "support/WaitUntil.h"
#include "tool/files/FilesTest.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include <fcntl.h>
#include <sys/stat.h>

namespace TarnisTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr time_t kTime = 981'173'106;

class MoveTest : public ScriptedFilesTest
{
protected:
    void SetUp() override
    {
        ScriptedFilesTest::SetUp();
        if (!IsSkipped() && !HasFatalFailure()) {
            std::filesystem::create_directory(sftp().path("other"));
            script_.rules = {{onPath(nth(SftpPacket::Rename, 1), "/t"),
                              SftpActions::refuse(SftpStatus::Failure)}};
        }
    }

    /// A tree with a directory that few may enter, a file with permissions and a time, and a link.
    void makeTree()
    {
        put("t/sub/f", "text");
        std::filesystem::create_symlink("no where", sftp().path("t/link"));
        ASSERT_EQ(::chmod(sftp().path("t/sub/f").c_str(), 0640), 0);
        ASSERT_EQ(::chmod(sftp().path("t/sub").c_str(), 0710), 0);
        for (const char* const name : {"t/sub/f", "t/sub", "t"}) {
            const timespec times[2] = {{kTime, 0}, {kTime, 0}};
            ASSERT_EQ(::utimensat(AT_FDCWD, sftp().path(name).c_str(), times, 0), 0);
        }
    }

    void expectTree(const std::string& name)
    {
        EXPECT_THAT(namesIn(sftp().path(name)), ElementsAre("link", "sub"));
        EXPECT_EQ(readFile(sftp().path(name + "/sub/f")), "text");
        EXPECT_EQ(std::filesystem::read_symlink(sftp().path(name + "/link")), "no where");
        EXPECT_EQ(statusOf(name + "/sub/f").st_mode & 07777U, 0640U);
        EXPECT_EQ(statusOf(name + "/sub").st_mode & 07777U, 0710U);
        for (const char* const entry : {"/sub/f", "/sub", ""}) {
            EXPECT_EQ(statusOf(name + entry).st_mtime, kTime) << entry;
        }
    }

    struct stat statusOf(const std::string& name)
    {
        struct stat status = {};
        EXPECT_EQ(::lstat(sftp().path(name).c_str(), &status), 0) << name;
        return status;
    }

    void foldCase() { script_.foldsCase = true; }

    void addRule(const SftpRule& rule) { script_.rules.push_back(rule); }

    /// Moves "t" into the directory "other".
    ToolResult move()
    {
        sftp().setScript(script_);
        return tarnis("mv", {at("t"), at("other")});
    }

    const SftpScript& script() const { return script_; }

private:
    SftpScript script_;
};

/// A file of the tree has one more version after it was copied and before it would be removed.
class ChangeDuringMoveTest : public MoveTest
{
protected:
    void expectKept(const std::function<void(const std::string& file)>& change)
    {
        makeTree();
        addRule({onPath(nth(SftpPacket::Rename, 2), "/t"), SftpActions::stopAnswering()});
        sftp().setScript(script());
        const auto tool = start(setup("mv", {at("t"), at("other")}));
        ASSERT_TRUE(waitUntil([&] { return !std::filesystem::exists(sftp().path("t")); }))
            << tool->errorOutput();
        change(sftp().path(namesIn(sftp().root()).front()) + "/sub/f");
        sftp().setScript({});
        EXPECT_EQ(tool->wait(), 1);
        EXPECT_THAT(tool->errorOutput(), HasSubstr("copied but did not remove all of " + at("t")));
        EXPECT_THAT(namesIn(sftp().root()), ElementsAre("other", "t"));
        EXPECT_EQ(readFile(sftp().path("other/t/sub/f")), "text");
    }

    static void keepTime(const std::string& file)
    {
        const timespec times[2] = {{kTime, 0}, {kTime, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
};

TEST_F(ChangeDuringMoveTest, KeepsAVersionOfTheSameSize)
{
    expectKept([](const std::string& file) { std::ofstream(file) << "TEXT"; });
    EXPECT_EQ(readFile(sftp().path("t/sub/f")), "TEXT");
}

TEST_F(ChangeDuringMoveTest, KeepsAVersionOfTheSameTime)
{
    expectKept([](const std::string& file) {
        std::ofstream(file) << "longer text";
        keepTime(file);
    });
    EXPECT_EQ(readFile(sftp().path("t/sub/f")), "longer text");
}

TEST_F(ChangeDuringMoveTest, KeepsALinkOfTheSameSizeAndTime)
{
    expectKept([](const std::string& file) {
        std::filesystem::remove(file);
        std::filesystem::create_symlink("name", file);
        keepTime(file);
    });
    EXPECT_EQ(std::filesystem::read_symlink(sftp().path("t/sub/f")), "name");
}

TEST_F(MoveTest, CopiesATreeAndRemovesIt)
{
    makeTree();
    expectQuiet(move());
    expectTree("other/t");
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("other"));
    EXPECT_THAT(namesIn(sftp().path("other")), ElementsAre("t"));
}

TEST_F(MoveTest, ATreeStaysWholeWhereTwoOfItsNamesAreOne)
{
    put("t/IMG.jpg", "one");
    put("t/img.jpg", "two-other");
    foldCase();
    expectFailure(move(), "cannot move " + at("t"));
    EXPECT_EQ(readFile(sftp().path("t/IMG.jpg")), "one");
    EXPECT_EQ(readFile(sftp().path("t/img.jpg")), "two-other");
    EXPECT_THAT(namesIn(sftp().path("other")), IsEmpty());
}

TEST_F(MoveTest, ATreeOnItsWayIsNobodyElsesToLookInto)
{
    makeTree();
    addRule({nth(SftpPacket::Write, 1), SftpActions::stopAnswering()});
    sftp().setScript(script());
    const auto tool = start(setup("mv", {at("t"), at("other")}));
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Write) > 0; }))
        << tool->errorOutput();
    EXPECT_EQ(statusOf("other/t").st_mode & 07777U, 0700U);
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
    expectTree("other/t");
}

TEST_F(MoveTest, DirectoriesKeepTheirStickyBits)
{
    put("t/shared/f", "text");
    for (const char* const name : {"t", "t/shared"}) {
        ASSERT_EQ(::chmod(sftp().path(name).c_str(), 01777), 0);
    }
    expectQuiet(move());
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("other"));
    EXPECT_EQ(statusOf("other/t").st_mode & 07777U, 01777U);
    EXPECT_EQ(statusOf("other/t/shared").st_mode & 07777U, 01777U);
}

TEST_F(MoveTest, CopiesAFileAndRemovesIt)
{
    put("t", "text");
    ASSERT_EQ(::chmod(sftp().path("t").c_str(), 0604), 0);
    expectQuiet(move());
    EXPECT_EQ(readFile(sftp().path("other/t")), "text");
    EXPECT_EQ(statusOf("other/t").st_mode & 07777U, 0604U);
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("other"));
    EXPECT_THAT(namesIn(sftp().path("other")), ElementsAre("t"));
}

TEST_F(MoveTest, WhatMayNotLeaveItsPlaceStaysAndIsNotCopied)
{
    makeTree();
    addRule({onPath(every(SftpPacket::Rename), "/t"),
             SftpActions::refuse(SftpStatus::PermissionDenied)});
    expectFailure(move(), "it cannot be removed from its place");
    expectTree("t");
    EXPECT_THAT(namesIn(sftp().path("other")), IsEmpty());
    std::filesystem::remove_all(sftp().path("t"));
    put("t", "text");
    addRule({onPath(every(SftpPacket::Remove), "/t"),
             SftpActions::refuse(SftpStatus::PermissionDenied)});
    expectFailure(move(), "it cannot be removed from its place");
    EXPECT_EQ(readFile(sftp().path("t")), "text");
}

TEST_F(MoveTest, ATreeThatCannotBeCopiedStaysWhole)
{
    makeTree();
    addRule({onPath(every(SftpPacket::Read), "/f"), SftpActions::refuse(SftpStatus::Failure)});
    expectFailure(move(), "cannot move " + at("t") + " to " + at("other/t"));
    expectTree("t");
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("other", "t"));
    EXPECT_THAT(namesIn(sftp().path("other")), IsEmpty());
}

TEST_F(MoveTest, ATreeThatCannotBeReadStaysWhole)
{
    makeTree();
    addRule({onPath(every(SftpPacket::Opendir), "/sub"),
             SftpActions::refuse(SftpStatus::PermissionDenied)});
    expectFailure(move(), "cannot move " + at("t") + " to " + at("other/t") +
                              ": not all of it can be read (" + at("t/sub") +
                              ": permission denied)\n");
    expectTree("t");
    EXPECT_THAT(namesIn(sftp().path("other")), IsEmpty());
}

TEST_F(MoveTest, WhatCannotBeRemovedIsLeftAndTold)
{
    makeTree();
    addRule({onPath(every(SftpPacket::Remove), "/f"),
             SftpActions::refuse(SftpStatus::PermissionDenied)});
    expectFailure(move(), "copied but did not remove all of " + at("t") + ": the copy " +
                              at("other/t") + " is complete, the rest is in " + at("t"));
    expectTree("other/t");
    EXPECT_EQ(readFile(sftp().path("t/sub/f")), "text");
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("other", "t"));
}

TEST_F(MoveTest, ARemovalThatTheServerEndsLeavesTheRestInItsPlace)
{
    makeTree();
    addRule({onPath(nth(SftpPacket::Remove, 1), "/f"), SftpActions::exit()});
    const ToolResult result = move();
    expectTree("other/t");
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("other", "t"));
    EXPECT_EQ(readFile(sftp().path("t/sub/f")), "text");
    expectFailure(result, "copied but did not remove all of " + at("t") + ": the copy " +
                              at("other/t") + " is complete, the rest is in " + at("t") +
                              " (sub/f: the connection is lost");
}

TEST_F(MoveTest, ALostConnectionDuringTheRemovalSaysWhereEverythingIs)
{
    makeTree();
    TcpProxy line(server().port());
    trust(line.port(), server().hostPublicKeyBase64());
    addRule({onPath(nth(SftpPacket::Remove, 1), "/f"), SftpActions::stopReading()});
    sftp().setScript(script());
    const auto tool = start(setup("mv", {at("t", line.port()), at("other", line.port())}));
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Remove) > 1; }))
        << tool->errorOutput();
    line.cut(TcpProxy::Cut::Reset);
    EXPECT_EQ(tool->wait(), 1);
    sftp().setScript({});
    expectTree("other/t");
    const auto names = namesIn(sftp().root());
    ASSERT_EQ(names.size(), 2U);
    EXPECT_THAT(names.front(), testing::MatchesRegex("\\.t\\.[0-9a-f]+\\.tarnis-old"));
    EXPECT_THAT(tool->errorOutput(),
                HasSubstr("copied but did not remove all of " + at("t", line.port()) +
                          ": the copy " + at("other/t", line.port()) +
                          " is complete, the rest is in " + at(names.front(), line.port()) +
                          " (sub/f: the connection is lost"));
}

TEST_F(MoveTest, ALostConnectionDuringTheRemovalOfAFileSaysThatTheCopyIsComplete)
{
    put("t", "text");
    addRule({onPath(every(SftpPacket::Remove), "/t"), SftpActions::exit()});
    const ToolResult result = move();
    EXPECT_EQ(readFile(sftp().path("t")), "text");
    EXPECT_EQ(readFile(sftp().path("other/t")), "text");
    expectFailure(result, "copied but did not remove " + at("t") + ": the copy " + at("other/t") +
                              " is complete (the connection is lost");
}

TEST_F(MoveTest, AnInterruptedRemovalKeepsTheCopyAndTheRest)
{
    makeTree();
    addRule({onPath(nth(SftpPacket::Remove, 1), "/f"), SftpActions::stopAnswering()});
    sftp().setScript(script());
    const auto tool = start(setup("mv", {at("t"), at("other")}));
    // The link and the file.
    ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Remove) > 1; }))
        << tool->errorOutput();
    tool->signal(SIGINT);
    ASSERT_TRUE(waitUntil([&] { return !tool->errorOutput().empty(); }));
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("copied but did not remove all of " + at("t")));
    expectTree("other/t");
    EXPECT_THAT(namesIn(sftp().root()), ElementsAre("other", "t"));
    EXPECT_THAT(namesIn(sftp().path("t")), ElementsAre("sub"));
    EXPECT_THAT(namesIn(sftp().path("t/sub")), IsEmpty());
}

TEST_F(MoveTest, IsInterruptedInGoodOrder)
{
    constexpr std::size_t kSize = 20'000'000;
    const std::string data = pseudoRandomBytes(1, kSize);
    TcpProxy line(server().port());
    trust(line.port(), server().hostPublicKeyBase64());
    line.setThrottle(TcpProxy::ToServer, kSize / 10);
    sftp().setScript(script());
    for (const char* const name : {"t", "t/f"}) {
        put(name, data);
        const std::size_t before = sftp().requestCount(SftpPacket::Write);
        const auto tool = start(setup("mv", {at("t", line.port()), at("other", line.port())}));
        ASSERT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Write) > before; }))
            << tool->errorOutput();
        tool->signal(SIGINT);
        EXPECT_EQ(tool->wait(), 1);
        EXPECT_THAT(tool->errorOutput(), HasSubstr("interrupted the move of " +
                                                   at("t", line.port()) + ": nothing was moved\n"));
        EXPECT_THAT(namesIn(sftp().path("other")), IsEmpty());
        EXPECT_THAT(namesIn(sftp().root()), ElementsAre("other", "t"));
        EXPECT_TRUE(readFile(sftp().path(name)) == data);
        std::filesystem::remove_all(sftp().path("t"));
    }
}

} // namespace
} // namespace TarnisTest
