// Many paths and whole trees on a line with delay: what waits for an answer does not keep the next
// question from being asked.

#include "support/TcpProxy.h"
#include "support/WaitUntil.h"
#include "tool/files/FilesTest.h"

#include <chrono>
#include <csignal>
#include <filesystem>

namespace TarnisTest {
namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr std::size_t kMany = 500;

/// On such a line, whoever waits for each answer sends at least a piece for each question.
class InFlightTest : public FarFilesTest
{
protected:
    void SetUp() override
    {
        FarFilesTest::SetUp();
        if (!IsSkipped() && !HasFatalFailure()) {
            setDelay(std::chrono::milliseconds(5));
        }
    }

    /// Those of many files or links, of which each has its number for a name.
    std::vector<std::string> farPaths(const std::string& directory) const
    {
        std::vector<std::string> paths;
        for (std::size_t number = 0; number < kMany; ++number) {
            paths.push_back(far(directory + "/" + std::to_string(number)));
        }
        return paths;
    }

    void makeFiles(const std::string& directory) const
    {
        there().makeDirectory(directory);
        for (std::size_t number = 0; number < kMany; ++number) {
            there().write(directory + "/" + std::to_string(number), "");
        }
    }

    /// Runs it, and expects that it has sent much less often than there are questions.
    ToolResult runsInFewRoundTrips(const std::string& command,
                                   const std::vector<std::string>& arguments,
                                   std::size_t questions = kMany)
    {
        const std::size_t before = line().pieceSizes(TcpProxy::ToServer).size();
        const ToolResult result = tarnis(command, arguments);
        const std::size_t pieces = line().pieceSizes(TcpProxy::ToServer).size() - before;
        EXPECT_LT(pieces, questions / 4) << command;
        return result;
    }
};

TEST_F(InFlightTest, LookUpsOfManyPathsTakeFewRoundTrips)
{
    makeFiles("t");
    std::vector<std::string> arguments = farPaths("t");
    const ToolResult room = runsInFewRoundTrips("df", arguments);
    expectQuiet(room);
    EXPECT_EQ(lineCount(room.output), kMany + 1);
    arguments.insert(arguments.begin(), "-d");
    const ToolResult listing = runsInFewRoundTrips("ls", arguments);
    expectQuiet(listing);
    std::string expected;
    for (std::size_t number = 0; number < kMany; ++number) {
        expected += "t/" + std::to_string(number) + "\n";
    }
    EXPECT_EQ(listing.output, expected);
}

TEST_F(InFlightTest, LinksAreReadTogether)
{
    there().makeDirectory("t");
    std::string targets;
    for (std::size_t number = 0; number < kMany; ++number) {
        const std::string name = std::to_string(number);
        std::filesystem::create_symlink("to " + name, there().file("t/" + name));
        targets += "to " + name + "\n";
    }
    const ToolResult read = runsInFewRoundTrips("readlink", farPaths("t"));
    expectQuiet(read);
    EXPECT_EQ(read.output, targets);
    const ToolResult listing = runsInFewRoundTrips("ls", {"-l", far("t")});
    expectQuiet(listing);
    EXPECT_EQ(lineCount(listing.output), kMany);
    EXPECT_THAT(listing.output, HasSubstr(" 77 -> to 77\n"));
}

TEST_F(InFlightTest, ATreeIsListedAndRemovedInFewRoundTrips)
{
    for (const char* const directory : {"t", "t/a", "t/b"}) {
        there().makeDirectory(directory);
    }
    makeFiles("t/a/x");
    makeFiles("t/b/x");
    for (int number = 0; number < 60; ++number) {
        const std::string directory = "t/b/d" + std::to_string(number);
        there().makeDirectory(directory);
        std::filesystem::create_symlink("x", there().file(directory + "/link"));
    }
    const ToolResult listing = runsInFewRoundTrips("ls", {"-lR", far("t")});
    expectQuiet(listing);
    EXPECT_EQ(listing.output, tarnis("ls", {"-lR", at("t")}).output);
    EXPECT_THAT(listing.output, HasSubstr("link -> x\n\nt/b/d59:\n"));
    // One for each file and each link, and three for each directory.
    expectQuiet(runsInFewRoundTrips("rm", {"-r", far("t")}, 2 * kMany + 60 + 3 * 63));
    EXPECT_THAT(namesIn(there().path()), IsEmpty());
}

TEST_F(InFlightTest, FilesAndTreesAreCopiedInFewRoundTrips)
{
    makeFiles("t");
    // More for each file than a question and its answer, and still fewer pieces than files.
    std::vector<std::string> arguments = farPaths("t");
    arguments.push_back(here().makeDirectory("down"));
    expectQuiet(runsInFewRoundTrips("get", arguments, 2 * kMany));
    EXPECT_EQ(namesIn(here().file("down")).size(), kMany);
    expectQuiet(runsInFewRoundTrips("put", {"-r", here().file("down"), far("up")}, 4 * kMany));
    EXPECT_EQ(namesIn(there().file("up")).size(), kMany);
    expectQuiet(runsInFewRoundTrips("cp", {"-r", far("up"), far("again")}, 8 * kMany));
    EXPECT_EQ(namesIn(there().file("again")).size(), kMany);
}

TEST_F(InFlightTest, LinksAreMadeInFewRoundTrips)
{
    const std::string tree = here().makeDirectory("t");
    for (std::size_t number = 0; number < kMany; ++number) {
        const std::string name = std::to_string(number);
        std::filesystem::create_symlink("to " + name, here().file("t/" + name));
    }
    // Four questions for each: to make it, for what it says, for what stands there, and its name.
    expectQuiet(runsInFewRoundTrips("put", {"-r", tree, far("up")}, 4 * kMany));
    EXPECT_EQ(namesIn(there().file("up")).size(), kMany);
    EXPECT_EQ(std::filesystem::read_symlink(there().file("up/77")), "to 77");
}

TEST_F(InFlightTest, WhatIsSuperfluousInManyDirectoriesIsRemovedInFewRoundTrips)
{
    constexpr std::size_t directories = 200;
    const auto makeDirectories = [](const TemporaryDirectory& parent, bool areEmpty) {
        parent.makeDirectory("t");
        for (std::size_t number = 0; number < directories; ++number) {
            const std::string directory = "t/" + std::to_string(number);
            parent.makeDirectory(directory);
            if (!areEmpty) {
                parent.write(directory + "/superfluous", "");
            }
        }
    };
    makeDirectories(here(), true);
    makeDirectories(there(), false);
    // Besides, each directory is listed and looked at.
    expectQuiet(runsInFewRoundTrips("put", {"-r", "--delete", here().file("t"), far(".")},
                                    4 * directories));
    makeDirectories(here(), false);
    expectQuiet(tarnis("get", {"-r", "--delete", far("t"), here().path()}));
    for (std::size_t number = 0; number < directories; ++number) {
        const std::string directory = "t/" + std::to_string(number);
        EXPECT_THAT(namesIn(there().file(directory)), IsEmpty());
        EXPECT_THAT(namesIn(here().file(directory)), IsEmpty());
    }
}

TEST_F(InFlightTest, ManyAreMovedInFewRoundTrips)
{
    makeFiles("t");
    there().makeDirectory("to");
    there().write("to/7", "stands there");
    there().makeDirectory("t/500");
    std::vector<std::string> arguments = farPaths("t");
    arguments.insert(arguments.begin() + 9, far("t/none"));
    arguments.push_back(far("t/500"));
    arguments.push_back(far("to"));
    // What it is, what stands at the new path, and the renaming.
    const ToolResult result = runsInFewRoundTrips("mv", arguments, 3 * kMany);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.errorOutput, "tarnis: cannot move " + far("t/7") + " to " + far("to/7") +
                                      ": something stands there already\ntarnis: cannot find " +
                                      far("t/none") + ": no such file or directory\n");
    EXPECT_THAT(namesIn(there().file("t")), ElementsAre("7"));
    EXPECT_EQ(namesIn(there().file("to")).size(), kMany + 1);
}

TEST_F(InFlightTest, ThePlacesOfAPatternAreLookedAtTogether)
{
    there().makeDirectory("t");
    there().makeDirectory("elsewhere");
    there().write("elsewhere/found", "");
    std::string expected;
    for (std::size_t number = 100; number < 300; ++number) {
        const std::string name = "t/" + std::to_string(number);
        std::filesystem::create_symlink("../elsewhere", there().file(name));
        expected += name + "/found\n";
    }
    there().write("t/file", "");
    std::filesystem::create_symlink("file", there().file("t/link"));
    const ToolResult listing = runsInFewRoundTrips("ls", {"-d", far("t/*/found")}, 2 * 200);
    expectQuiet(listing);
    EXPECT_EQ(listing.output, expected);
    EXPECT_EQ(lineCount(runsInFewRoundTrips("ls", {"-d", far("t/*/")}, 2 * 200).output), 200U);
}

TEST_F(InFlightTest, ATerminalShowsHowManyFilesAreCopied)
{
    makeFiles("t");
    setDelay(std::chrono::milliseconds(150));
    ToolSetup atTerminal = setup("get", {"-r", far("t"), here().path().string()});
    atTerminal.hasTerminal = true;
    atTerminal.errorsToTerminal = true;
    const auto tool = start(atTerminal);
    EXPECT_TRUE(tool->waitForScreen("/500 files"));
    setDelay(std::chrono::milliseconds(0));
    EXPECT_EQ(tool->wait(), 0);
    EXPECT_TRUE(tool->waitForScreen("500/500 files"));
}

TEST_F(InFlightTest, WhatIsLeftOutIsNotToBeCopied)
{
    makeFiles("t");
    there().write("t/large", std::string(1'000'000, 'x'));
    there().write("t/larger", std::string(2'000'000, 'x'));
    here().makeDirectory("t");
    here().write("t/larger", "");
    setDelay(std::chrono::milliseconds(150));
    ToolSetup atTerminal = setup("get", {"-r", "--no-clobber", far("t"), here().path().string()});
    atTerminal.hasTerminal = true;
    atTerminal.errorsToTerminal = true;
    const auto tool = start(atTerminal);
    EXPECT_TRUE(tool->waitForScreen(" files"));
    setDelay(std::chrono::milliseconds(0));
    EXPECT_EQ(tool->wait(), 0);
    EXPECT_TRUE(tool->waitForScreen("100% [####################] 1.0 MB of 1.0 MB  501/501 files"));
    EXPECT_TRUE(tool->waitForScreen("copied 501 files, 1 directory, 0 links, 1.0 MB, 1 left, in "));
}

TEST_F(InFlightTest, FailuresAreToldInTheOrderOfThePaths)
{
    makeFiles("t");
    std::filesystem::create_symlink("x", there().file("t/link"));
    std::vector<std::string> paths = farPaths("t");
    paths.push_back(far("t/link"));
    const ToolResult result = runsInFewRoundTrips("readlink", paths);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "x\n");
    std::string failures;
    for (std::size_t number = 0; number < kMany; ++number) {
        failures += "tarnis: cannot read the link " + paths[number] + ": it is no symbolic link\n";
    }
    EXPECT_EQ(result.errorOutput, failures);
}

TEST_F(InFlightTest, WhatIsNotThereTakesNoRoundTripsOfItsOwn)
{
    const ToolResult result = runsInFewRoundTrips("rm", farPaths("none"));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(lineCount(result.errorOutput), kMany);
    EXPECT_THAT(result.errorOutput, HasSubstr("tarnis: cannot find " + far("none/7") +
                                              ": no such file or directory\n"));
}

TEST_F(InFlightTest, AnInterruptedRemovalTellsHowMuchIsGone)
{
    makeFiles("t");
    makeFiles("u");
    setDelay(std::chrono::milliseconds(100));
    const auto tool = start(setup("rm", {"-r", far("t"), far("u")}));
    const auto left = [this] {
        return namesIn(there().file("t")).size() + namesIn(there().file("u")).size();
    };
    ASSERT_TRUE(waitUntil([&] { return left() < 2 * kMany; })) << tool->errorOutput();
    line().stall();
    tool->signal(SIGINT);
    EXPECT_TRUE(waitUntil([&] { return !tool->errorOutput().empty(); }));
    line().resume();
    EXPECT_EQ(tool->wait(), 1);
    const std::size_t gone = 2 * kMany - left();
    EXPECT_LT(gone, 2 * kMany);
    EXPECT_THAT(tool->errorOutput(),
                HasSubstr("interrupted the removal of " + far("t") + " and 1 more: removed " +
                          std::to_string(gone) + " entr"));
}

TEST_F(InFlightTest, ATerminalShowsHowManyEntriesAreGone)
{
    makeFiles("t\x1b[2J");
    setDelay(std::chrono::milliseconds(150));
    ToolSetup atTerminal = setup("rm", {"-r", far("t\x1b[2J")});
    atTerminal.hasTerminal = true;
    atTerminal.errorsToTerminal = true;
    const auto tool = start(atTerminal);
    EXPECT_TRUE(tool->waitForScreen("/501 entries"));
    setDelay(std::chrono::milliseconds(0));
    EXPECT_EQ(tool->wait(), 0);
    EXPECT_TRUE(tool->waitForScreen("100% [####################] 501/501 entries"));
    EXPECT_THAT(tool->screen(),
                ContainsRegex("\r[^ ]+ [0-9]+% .#* *. [0-9]+/501 entries  [0-9]+/s"));
    EXPECT_THAT(tool->screen(), Not(HasSubstr("\x1b[2J")));
}

TEST_F(InFlightTest, WithoutATerminalARemovalHasNoBar)
{
    makeFiles("t");
    setDelay(std::chrono::milliseconds(50));
    expectQuiet(tarnis("rm", {"-r", far("t")}));
}

/// A server that opens no second channel on a connection.
class OneChannelTest : public FileCommandTest
{
protected:
    void SetUp() override
    {
        ToolTest::SetUp();
        if (!IsSkipped() && requireServer(OpenSshServer::availability())) {
            OpenSshOptions options;
            options.sftpCommand = "internal-sftp -d " + there_.path().string();
            options.maxSessions = 1;
            server_ = std::make_unique<OpenSshServer>(options);
            trust(server_->port(), server_->hostPublicKeyBase64());
        }
    }

    const OpenSshServer& server() const override { return *server_; }

    const TemporaryDirectory& there() const { return there_; }

private:
    TemporaryDirectory there_;
    std::unique_ptr<OpenSshServer> server_;
};

TEST_F(OneChannelTest, HasTheSameResults)
{
    for (const char* const directory : {"t", "t/a", "t/a/b"}) {
        there().makeDirectory(directory);
    }
    for (const char* const link : {"t/1", "t/2", "t/3", "t/4", "t/a/b/5"}) {
        std::filesystem::create_symlink("x", there().file(link));
    }
    const ToolResult listing = tarnis("ls", {"-R", "-r", at("t")});
    expectQuiet(listing);
    EXPECT_EQ(listing.output, "t:\na\n4\n3\n2\n1\n\nt/a:\nb\n\nt/a/b:\n5\n");
    EXPECT_EQ(tarnis("readlink", {at("t/1"), at("t/2"), at("t/3"), at("t/4")}).output,
              "x\nx\nx\nx\n");
    there().write("t/f", "text");
    expectQuiet(tarnis("cp", {"-r", at("t"), at("u")}));
    expectQuiet(tarnis("get", {"-r", at("u"), here().file("back")}));
    expectQuiet(tarnis("put", {"-r", here().file("back"), at("v")}));
    EXPECT_EQ(readFile(there().file("v/f")), "text");
    EXPECT_EQ(namesIn(there().file("v/a/b")).size(), 1U);
    expectFailure(tarnis("rm", {at("t")}), "it is a directory; -r removes it and all below it");
    expectQuiet(tarnis("rm", {"-r", at("t"), at("u"), at("v")}));
    EXPECT_THAT(namesIn(there().path()), IsEmpty());
}

using ScriptedInFlightTest = ScriptedFilesTest;

TEST_F(ScriptedInFlightTest, ALostConnectionIsToldOnce)
{
    const std::string loss = "lost the connection to " + target(server().port(), server().user()) +
                             ": the server ended the file transfer";
    const auto losesItAt = [this](SftpPacket request) {
        SftpScript script;
        script.rules = {{nth(request, 2), SftpActions::exit()}};
        sftp().setScript(script);
    };
    for (int number = 0; number < 100; ++number) {
        put("t/" + std::to_string(number), "");
    }
    for (const SftpPacket request : {SftpPacket::Lstat, SftpPacket::Readdir, SftpPacket::Remove}) {
        put("u", "");
        losesItAt(request);
        expectFailure(tarnis("rm", {"-r", at("t"), at("u")}), loss);
    }
    put("u", "");
    losesItAt(SftpPacket::Lstat);
    expectFailure(tarnis("ls", {"-R", at("u"), at("t")}), loss);
    for (const char* const link : {"1", "2", "3", "4", "5"}) {
        std::filesystem::create_symlink("u", sftp().path(link));
    }
    losesItAt(SftpPacket::Readlink);
    expectFailure(tarnis("ls", {"-l", at("")}), loss);
    expectFailure(tarnis("stat", {at("./1"), at("./2"), at("./3"), at("./4"), at("./5")}), loss);
    losesItAt(SftpPacket::Extended);
    expectFailure(tarnis("df", {at("u"), at("t"), at("u"), at("t"), at("u")}), loss);
}

TEST_F(ScriptedInFlightTest, AConnectionThatIsLostWhileManyAreMovedIsToldOnce)
{
    std::filesystem::create_directory(sftp().path("to"));
    for (const SftpPacket request : {SftpPacket::Lstat, SftpPacket::Rename}) {
        std::vector<std::string> arguments;
        for (int number = 0; number < 100; ++number) {
            const std::string name = std::to_string(static_cast<int>(request) * 100 + number);
            put(name, name);
            arguments.push_back(at(name));
        }
        arguments.push_back(at("to"));
        SftpScript script;
        script.rules = {{nth(request, 20), SftpActions::exit()}};
        sftp().setScript(script);
        expectFailure(tarnis("mv", arguments), "lost the connection to " +
                                                   target(server().port(), server().user()) +
                                                   ": the server ended the file transfer");
        for (int number = 0; number < 100; ++number) {
            const std::string name = std::to_string(static_cast<int>(request) * 100 + number);
            const bool isMoved = std::filesystem::exists(sftp().path("to/" + name));
            EXPECT_EQ(readFile(sftp().path((isMoved ? "to/" : "") + name)), name);
        }
    }
}

TEST_F(ScriptedInFlightTest, EveryQuestionIsAskedBeforeTheFirstIsAnswered)
{
    std::vector<std::string> paths;
    for (int number = 0; number < 100; ++number) {
        const std::string name = std::to_string(number);
        put(name, "");
        paths.push_back(at(name));
    }
    SftpScript script;
    script.rules = {{nth(SftpPacket::Lstat, 1), SftpActions::stopAnswering()}};
    sftp().setScript(script);
    paths.insert(paths.begin(), "-d");
    const auto tool = start(setup("ls", paths));
    EXPECT_TRUE(waitUntil([&] { return sftp().requestCount(SftpPacket::Lstat) == 100; }))
        << tool->errorOutput();
    EXPECT_EQ(tool->output(), "");
    sftp().setScript({});
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
    EXPECT_EQ(lineCount(tool->output()), 100U);
}

} // namespace
} // namespace TarnisTest
