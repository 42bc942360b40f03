// `tarnis put - host:file` and `tarnis get host:file -`: standard input and standard output.

#include "support/PseudoRandom.h"
#include "support/TcpProxy.h"
#include "tool/files/FilesTest.h"

#include <chrono>
#include <csignal>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>

namespace TarnisTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class StandardStreamTest : public FilesTest
{
protected:
    ToolSetup putting(const std::string& target, const std::vector<std::string>& options = {}) const
    {
        std::vector<std::string> arguments = options;
        arguments.insert(arguments.end(), {"-", target});
        ToolSetup setup = FilesTest::setup("put", arguments);
        setup.inputKind = Input::Pipe;
        return setup;
    }

    /// Puts the text, which comes through a pipe.
    void put(const std::string& text, const std::string& target,
             const std::vector<std::string>& options = {}) const
    {
        const auto tool = start(putting(target, options));
        tool->writeInput(text);
        tool->endInput();
        EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
        EXPECT_EQ(tool->errorOutput(), "");
    }
};

TEST_F(StandardStreamTest, StandardInputBecomesAFile)
{
    const auto data = pseudoRandomBytes(1, 5'000'001);
    put(data, at("new"));
    EXPECT_TRUE(readFile(there().file("new")) == data);
    EXPECT_EQ(modeOf(there().file("new")) & 0600U, 0600U);
    put("", at("empty"));
    EXPECT_EQ(readFile(there().file("empty")), "");
    EXPECT_THAT(namesIn(there().path()), ElementsAre("empty", "new"));
}

TEST_F(StandardStreamTest, StandardInputMayBeAFile)
{
    ToolSetup setup = putting(at("f"));
    setup.inputKind = Input::File;
    setup.input = "text";
    expectQuiet(run(setup));
    EXPECT_EQ(readFile(there().file("f")), "text");
}

TEST_F(StandardStreamTest, WhatStandsThereIsReplacedOrWrittenInto)
{
    const auto victim = there().write("victim", "safe", 0640);
    std::filesystem::create_symlink("victim", there().file("link"));
    std::filesystem::create_hard_link(victim, there().file("second"));
    put("new", at("link"));
    EXPECT_EQ(readFile(there().file("link")), "new");
    EXPECT_EQ(readFile(victim), "safe");
    put("new", at("victim"), {"--inplace"});
    EXPECT_EQ(readFile(there().file("second")), "new");
    put("newer", at("victim"));
    EXPECT_EQ(readFile(victim), "newer");
    EXPECT_EQ(modeOf(victim), 0640U);
    EXPECT_EQ(readFile(there().file("second")), "new");
}

TEST_F(StandardStreamTest, TheFileIsNotThereUntilItIsComplete)
{
    const auto tool = start(putting(at("f")));
    tool->writeInput(std::string(3'000'000, 'x'));
    ASSERT_TRUE(waitUntil([&] { return !namesIn(there().path()).empty(); })) << tool->errorOutput();
    EXPECT_FALSE(std::filesystem::exists(there().file("f")));
    tool->endInput();
    EXPECT_EQ(tool->wait(), 0);
    EXPECT_EQ(std::filesystem::file_size(there().file("f")), 3'000'000U);
}

TEST_F(StandardStreamTest, AnInterruptLeavesNothing)
{
    there().write("f", "old");
    const auto tool = start(putting(at("f")));
    tool->writeInput(std::string(3'000'000, 'x'));
    ASSERT_TRUE(waitUntil([&] { return namesIn(there().path()).size() > 1; }))
        << tool->errorOutput();
    // It waits for more.
    tool->signal(SIGINT);
    EXPECT_EQ(tool->wait(), 1);
    EXPECT_THAT(tool->errorOutput(), HasSubstr("interrupted after "));
    EXPECT_THAT(tool->errorOutput(), HasSubstr("no half-written file has taken its name"));
    EXPECT_THAT(namesIn(there().path()), ElementsAre("f"));
    EXPECT_EQ(readFile(there().file("f")), "old");
}

TEST_F(StandardStreamTest, SaysWhyItCannot)
{
    there().makeDirectory("d");
    for (const char* const target : {".", "d", "d/"}) {
        expectFailure(run(putting(at(target))),
                      "cannot copy standard input to " + at(target) + ": a directory is there");
    }
    expectFailure(run(putting(at("none/f"))), "cannot copy standard input to " + at("none/f") +
                                                  ": its directory does not exist");
    ToolSetup closed = putting(at("f"));
    closed.inputKind = Input::Closed;
    expectFailure(run(closed), "cannot read standard input: Bad file descriptor");
    ToolSetup directory = putting(at("f"));
    directory.inputKind = Input::Directory;
    expectFailure(run(directory), "cannot read standard input: Is a directory");
    EXPECT_THAT(namesIn(there().path()), ElementsAre("d"));
}

TEST_F(StandardStreamTest, GoesAlone)
{
    for (const char* const option : {"-r", "-p", "--resume", "--update", "--no-clobber",
                                     "--dry-run", "-j2", "--exclude=x", "--include=x"}) {
        expectFailure(tarnis("put", {option, "-", "host:f"}), "standard input (\"-\") goes alone",
                      2);
        expectFailure(tarnis("get", {option, "host:f", "-"}),
                      "standard output (\"-\") takes one file", 2);
    }
    expectFailure(tarnis("put", {"-r", "--delete", "-", "host:f"}), "goes alone", 2);
    expectFailure(tarnis("get", {"-r", "--delete", "host:f", "-"}), "takes one file", 2);
    expectFailure(tarnis("get", {"--inplace", "host:f", "-"}), "takes one file", 2);
    expectFailure(tarnis("put", {"-", "f", "host:"}), "standard input (\"-\") goes alone", 2);
    expectFailure(tarnis("put", {"-", "-", "host:"}), "standard input (\"-\") goes alone", 2);
    expectFailure(tarnis("get", {"host:f", "host:g", "-"}), "only one file goes to standard output",
                  2);
}

TEST_F(StandardStreamTest, IsNamedWhereEachEntryIs)
{
    ToolSetup put = putting(at("f"), {"-v"});
    put.inputKind = Input::File;
    put.input = "text";
    const ToolResult result = run(put);
    expectQuiet(result);
    EXPECT_EQ(result.output, "copied standard input\n");
    for (const char* const target : {"-", "/dev/stdout"}) {
        const ToolResult got = tarnis("get", {"-v", at("f"), target});
        EXPECT_EQ(got.exitCode, 0);
        EXPECT_EQ(got.output, "text") << target;
        EXPECT_THAT(got.errorOutput, HasSubstr("copied " + at("f") + "\n"));
    }
}

TEST_F(StandardStreamTest, AFileOfThatNameHasADirectoryInFront)
{
    here().write("-", "text");
    ToolSetup put = setup("put", {"./-", at("f")});
    put.workingDirectory = here().path().string();
    expectQuiet(run(put));
    EXPECT_EQ(readFile(there().file("f")), "text");
    ToolSetup get = setup("get", {at("f"), "./-"});
    get.workingDirectory = here().path().string();
    there().write("f", "other");
    expectQuiet(run(get));
    EXPECT_EQ(readFile(here().file("-")), "other");
}

TEST_F(StandardStreamTest, AFileGoesToStandardOutput)
{
    const auto data = pseudoRandomBytes(1, 1'000'001);
    there().write("f", data);
    there().write("g", "text");
    there().makeDirectory("d");
    ToolSetup get = setup("get", {at("f"), "-"});
    get.workingDirectory = here().path().string();
    const ToolResult result = run(get);
    expectQuiet(result);
    EXPECT_TRUE(result.output == data);
    EXPECT_EQ(tarnis("get", {at("g*"), "-"}).output, "text");
    get.outputDescriptor = -1;
    expectFailure(run(get), "cannot write to standard output: Bad file descriptor");
    expectFailure(tarnis("get", {at("[fg]"), "-"}), "only one file goes to standard output");
    expectFailure(tarnis("get", {at("d"), "-"}), "it is no file");
    expectFailure(tarnis("get", {at("x*"), "-"}), "nothing matches");
    EXPECT_THAT(namesIn(here().path()), IsEmpty());
}

TEST_F(StandardStreamTest, ManyPiecesAreOnTheirWayAtATime)
{
    TcpProxy line(server().port());
    trust(line.port(), server().hostPublicKeyBase64());
    for (const auto direction : {TcpProxy::ToServer, TcpProxy::ToClient}) {
        line.setDelay(direction, std::chrono::milliseconds(100));
    }
    const auto timeToPut = [&](const std::string& data) {
        const auto start = std::chrono::steady_clock::now();
        put(data, at("f", line.port()));
        EXPECT_TRUE(readFile(there().file("f")) == data);
        return std::chrono::steady_clock::now() - start;
    };
    const auto little = timeToPut("x");
    // Whoever waits for the answer to each write of a quarter of a megabyte waits six seconds.
    EXPECT_LT(timeToPut(pseudoRandomBytes(1, 8'000'000)), little + std::chrono::seconds(4));
}

TEST_F(StandardStreamTest, ALimitOfTheSystemLeavesNothing)
{
    there().write("f", std::string(3'000'000, 'x'));
    ToolSetup get = setup("get", {at("f"), here().file("f")});
    get.arguments.insert(get.arguments.begin(),
                         {"-c", "ulimit -f 100; exec \"$0\" \"$@\"", TARNIS_TOOL});
    get.program = "/bin/bash";
    expectFailure(run(get), "File too large");
    EXPECT_THAT(namesIn(here().path()), IsEmpty());
}

/// With a server that writes down what it is asked.
class WaitingStreamTest : public ScriptedFilesTest
{
protected:
    /// Whether the server is asked again and again, as many drop a client that is silent.
    bool isAskedWhileWaiting()
    {
        const auto asked = [this] { return sftp().requestCount(SftpPacket::Realpath); };
        const auto before = asked();
        constexpr std::size_t more = 4;
        return waitUntil([&] { return asked() >= before + more; });
    }
};

TEST_F(WaitingStreamTest, TheServerIsAskedWhileNoInputComes)
{
    ToolSetup put = setup("put", {"-", at("f")});
    put.inputKind = Input::Pipe;
    const auto tool = start(put);
    tool->writeInput("text");
    EXPECT_TRUE(isAskedWhileWaiting()) << tool->errorOutput();
    tool->endInput();
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
    EXPECT_EQ(readFile(sftp().path("f")), "text");
}

TEST_F(WaitingStreamTest, TheServerIsAskedWhileNobodyTakesTheOutput)
{
    const auto data = pseudoRandomBytes(1, 3'000'000);
    put("f", data);
    const std::string pipe = here().file("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const auto tool = start(setup("get", {at("f"), pipe}));
    EXPECT_TRUE(isAskedWhileWaiting()) << tool->errorOutput();
    const UniqueFd end(::open(pipe.c_str(), O_RDONLY | O_NONBLOCK));
    ASSERT_TRUE(end.isOpen());
    EXPECT_TRUE(isAskedWhileWaiting()) << tool->errorOutput();
    EXPECT_TRUE(readFile(pipe) == data);
    EXPECT_EQ(tool->wait(), 0) << tool->errorOutput();
}

/// On a line that can be cut.
class CutStreamTest : public FarFilesTest
{};

TEST_F(CutStreamTest, ALostConnectionIsNoticedWhileNoInputComes)
{
    ToolSetup put = setup("put", {"-", far("f")});
    put.inputKind = Input::Pipe;
    const auto tool = start(put);
    tool->writeInput("text");
    ASSERT_TRUE(waitUntil([this] { return !namesIn(there().path()).empty(); }));
    line().cut(TcpProxy::Cut::Reset);
    EXPECT_EQ(tool->wait(), 1) << tool->errorOutput();
    EXPECT_THAT(tool->errorOutput(), HasSubstr("lost the connection"));
    EXPECT_THAT(namesIn(there().path()), testing::Not(testing::Contains("f")));
}

} // namespace
} // namespace TarnisTest
