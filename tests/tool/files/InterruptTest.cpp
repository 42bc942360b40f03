// Long transfers: the progress bar, and Ctrl-C.

#include "support/PseudoRandom.h"
#include "support/TcpProxy.h"
#include "tool/files/FilesTest.h"

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace TarnisTest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::size_t kSize = 20'000'000;

/// A transfer that takes its time.
class TransferTest : public FarFilesTest
{
protected:
    void SetUp() override
    {
        FarFilesTest::SetUp();
        if (!IsSkipped() && !HasFatalFailure()) {
            slowDown(kSize / 10);
        }
    }

    /// Starts it and waits until a part of the file has arrived in the directory.
    std::unique_ptr<ToolRun> begin(const ToolSetup& setup, const std::string& directory) const
    {
        auto tool = start(setup);
        EXPECT_TRUE(waitUntil([&] {
            const auto names = namesIn(directory);
            return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
                return std::filesystem::file_size(directory + "/" + name) > 0;
            });
        })) << tool->errorOutput();
        return tool;
    }
};

TEST_F(TransferTest, PutThatIsInterruptedLeavesNothing)
{
    here().write("f", pseudoRandomBytes(1, kSize));
    const auto tool = begin(setup("put", {here().file("f"), far("")}), there().path());
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(namesIn(there().path()), IsEmpty());
    EXPECT_THAT(tool->errorOutput(), HasSubstr("interrupted after 0 files"));
}

TEST_F(TransferTest, OnASlowLineNotMuchIsWaitedForAfterAnInterrupt)
{
    slowDown(kSize / 40);
    here().write("f", pseudoRandomBytes(1, kSize));
    const auto tool = begin(setup("put", {here().file("f"), far("")}), there().path());
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("no half-written file has taken its name"));
    EXPECT_THAT(namesIn(there().path()), IsEmpty());
}

TEST_F(TransferTest, GetThatIsInterruptedLeavesNothing)
{
    there().write("f", pseudoRandomBytes(1, kSize));
    const std::string target = here().makeDirectory("target");
    const auto tool = begin(setup("get", {far("f"), target}), target);
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(namesIn(target), IsEmpty());
}

TEST_F(TransferTest, AnInterruptedTreeKeepsWhatIsComplete)
{
    here().makeDirectory("t");
    here().write("t/a", "complete");
    here().write("t/b", pseudoRandomBytes(1, kSize));
    there().makeDirectory("t");
    const auto tool = start(setup("put", {"-r", "-j1", here().file("t"), far("")}));
    ASSERT_TRUE(waitUntil([&] { return namesIn(there().file("t")).size() > 1; }));
    tool->signal(SIGTERM);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(namesIn(there().file("t")), testing::ElementsAre("a"));
    EXPECT_THAT(tool->errorOutput(), HasSubstr("interrupted after 1 file, 8 B"));
}

TEST_F(TransferTest, APrivateTreeIsPrivateFromTheStart)
{
    here().makeDirectory("t", 0700);
    here().write("t/f", pseudoRandomBytes(1, kSize), 0600);
    const auto tool = start(setup("put", {"-rp", here().file("t"), far("")}));
    const std::string copy = there().file("t");
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(copy) && !namesIn(copy).empty(); }));
    EXPECT_EQ(std::filesystem::status(copy).permissions(), std::filesystem::perms::owner_all);
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_EQ(std::filesystem::status(copy).permissions(), std::filesystem::perms::owner_all);
}

TEST_F(TransferTest, AnInterruptedDownloadOfATreeKeepsWhatIsComplete)
{
    there().makeDirectory("t");
    there().write("t/a", "complete");
    there().write("t/b", pseudoRandomBytes(1, kSize));
    const std::string target = here().makeDirectory("t");
    const auto tool = start(setup("get", {"-r", "-j1", far("t"), here().path().string()}));
    ASSERT_TRUE(waitUntil([&] { return namesIn(target).size() > 1; })) << tool->errorOutput();
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(namesIn(target), testing::ElementsAre("a"));
    EXPECT_THAT(tool->errorOutput(), HasSubstr("interrupted after 1 file, 8 B"));
}

TEST_F(TransferTest, CpThatIsInterruptedLeavesNothing)
{
    there().write("f", pseudoRandomBytes(1, kSize));
    const std::string target = there().makeDirectory("target");
    const auto tool = begin(setup("cp", {far("f"), far("target")}), target);
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(namesIn(target), IsEmpty());
    EXPECT_THAT(tool->errorOutput(), HasSubstr("interrupted after 0 files"));
}

TEST_F(TransferTest, ResumingKeepsThePart)
{
    here().write("f", pseudoRandomBytes(1, kSize));
    const auto tool = begin(setup("put", {"--resume", here().file("f"), far("")}), there().path());
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(namesIn(there().path()), testing::ElementsAre(".f.tarnis-part"));
    EXPECT_THAT(tool->errorOutput(), HasSubstr("the same command goes on from there"));
}

TEST_F(TransferTest, TheSecondInterruptOfAResumedUploadSaysWhereTheBeginningMayBe)
{
    const std::string data = pseudoRandomBytes(1, kSize);
    here().write("f", data);
    there().write("f", data.substr(0, kSize / 100));
    const auto tool = start(setup("put", {"--resume", here().file("f"), far("")}));
    ASSERT_TRUE(waitUntil([&] { return std::filesystem::exists(there().file(".f.tarnis-part")); }))
        << tool->errorOutput();
    line().stall();
    tool->signal(SIGINT);
    ASSERT_TRUE(waitUntil([&] { return !tool->errorOutput().empty(); }));
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(namesIn(there().path()), testing::ElementsAre(".f.tarnis-part"));
    EXPECT_THAT(tool->errorOutput(), testing::EndsWith("tarnis: what stood at " + far("f") +
                                                       " may be in " + far(".f.tarnis-part") +
                                                       ": the same command goes on from there\n"));
}

TEST_F(TransferTest, ResumingABeginningThatStoodThereSaysWhereAPartOfTheFileIs)
{
    const std::string data = pseudoRandomBytes(1, kSize);
    here().write("f", data);
    there().write("f", data.substr(0, kSize / 100));
    const auto tool = start(setup("put", {"--resume", here().file("f"), far("")}));
    ASSERT_TRUE(waitUntil([&] {
        const std::string part = there().file(".f.tarnis-part");
        return std::filesystem::exists(part) && std::filesystem::file_size(part) > kSize / 100;
    })) << tool->errorOutput();
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(namesIn(there().path()), testing::ElementsAre("f"));
    EXPECT_THAT(tool->errorOutput(), HasSubstr("interrupted after 0 files, 0 B: a part of the "
                                               "file is in " +
                                               far("f")));
}

TEST_F(TransferTest, WritingInPlaceThatIsInterruptedSaysWhatMayBeHalfWritten)
{
    here().write("f", pseudoRandomBytes(1, kSize));
    there().write("f", "");
    const auto tool =
        begin(setup("put", {"--inplace", here().file("f"), far("f")}), there().path());
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(),
                HasSubstr("interrupted after 0 files, 0 B: " + far("f") + " may be half-written"));
}

TEST_F(TransferTest, ResumingADownloadKeepsThePart)
{
    there().write("f", pseudoRandomBytes(1, kSize));
    const std::string target = here().makeDirectory("target");
    const auto tool = begin(setup("get", {"--resume", far("f"), target}), target);
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(namesIn(target), testing::ElementsAre(".f.tarnis-part"));
    EXPECT_THAT(tool->errorOutput(), HasSubstr("the same command goes on from there"));
}

TEST_F(TransferTest, OneInterruptIsEnoughThoughTheServerHangs)
{
    there().write("f", pseudoRandomBytes(1, kSize));
    const std::string target = here().makeDirectory("target");
    const auto tool = begin(setup("get", {far("f"), target}), target);
    line().stall();
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("the connection was given up"));
    EXPECT_FALSE(std::filesystem::exists(target + "/f"));
}

TEST_F(TransferTest, TheSecondInterruptEndsTheProgramThoughTheServerHangs)
{
    here().write("f", pseudoRandomBytes(1, kSize));
    const auto tool = begin(setup("put", {here().file("f"), far("")}), there().path());
    line().stall();
    tool->signal(SIGINT);
    ASSERT_TRUE(waitUntil([&] { return !tool->errorOutput().empty(); }));
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
}

TEST_F(TransferTest, AnIgnoredInterruptStaysIgnored)
{
    here().write("f", pseudoRandomBytes(1, kSize));
    ToolSetup ignoring = setup("put", {here().file("f"), far("")});
    ignoring.ignoresInterrupts = true;
    const auto tool = begin(ignoring, there().path());
    tool->signal(SIGINT);
    slowDown(0);
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
    EXPECT_EQ(std::filesystem::file_size(there().file("f")), kSize);
}

TEST_F(TransferTest, ATerminalShowsHowFarItIs)
{
    here().write("f\x1b[2J", pseudoRandomBytes(1, kSize));
    ToolSetup atTerminal = setup("put", {here().file("f\x1b[2J"), far("f")});
    atTerminal.hasTerminal = true;
    atTerminal.errorsToTerminal = true;
    const auto tool = start(atTerminal);
    EXPECT_TRUE(tool->waitForScreen(" left"));
    slowDown(0);
    EXPECT_EQ(tool->wait(), 0);
    EXPECT_TRUE(tool->waitForScreen("100% [####################] 20.0 MB of 20.0 MB"));
    const std::string screen = tool->screen();
    EXPECT_THAT(screen,
                testing::ContainsRegex("\rf [0-9]+% .#* *. .* of 20.0 MB .*/s  [0-9]+:[0-9]+"));
    EXPECT_THAT(screen, testing::Not(HasSubstr("\x1b[2J")));
}

TEST_F(TransferTest, WithoutATerminalThereIsNoBar)
{
    here().write("f", pseudoRandomBytes(1, kSize / 20));
    expectQuiet(tarnis("put", {here().file("f"), far("")}));
}

} // namespace
} // namespace TarnisTest
